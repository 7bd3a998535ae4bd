#include "TqKeyContainerVerdict.h"

#include <cctype>

namespace {

using Lines = std::vector<TqVerdictLine>;

bool isDefaultContainer(const std::string& name) {
    std::string upper = name;
    for (char& c : upper) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return upper == "DEFAULT KEY CONTAINER";
}

void error(Lines& lines, std::string message) {
    lines.push_back({TqVerdictLevel::kError, std::move(message)});
}

void warn(Lines& lines, std::string message) {
    lines.push_back({TqVerdictLevel::kWarn, std::move(message)});
}

void info(Lines& lines, std::string message) {
    lines.push_back({TqVerdictLevel::kInfo, std::move(message)});
}

bool gemaltoCountsPass(const TqEnumerationContext& context, Lines& lines) {
    const size_t count = context.containers.size();
    if (count < 2) {
        error(lines, "Not enough Key Containers present to validate Gemalto Smart Card.");
        return false;
    }
    if (count > 2) {
        error(lines, "Too many Key Containers present to validate Gemalto Smart Card.");
        return false;
    }
    return true;
}

bool oberthurCountsPass(const TqEnumerationContext& context, Lines& lines) {
    if (context.containers.size() < 2) {
        if (context.applet == kTqCompatibilityApplet) {
            error(lines, "Not enough Key Containers present to validate the Compatibility applet "
                         "on the Oberthur Smart Card.");
        } else if (context.applet == kTqAgileApplet) {
            error(lines, "Not enough Key Containers present to validate the Agile applet on the "
                         "Oberthur Smart Card.");
        }
        return false;
    }
    int compatibility = 0;
    int agile = 0;
    for (const TqKeyContainerRecord& record : context.containers) {
        if (isDefaultContainer(record.name)) {
            info(lines, "Default Key Container encountered on Oberthur Compatibility applet");
            continue;
        }
        if (record.applet == kTqCompatibilityApplet) {
            ++compatibility;
        } else if (record.applet == kTqAgileApplet) {
            ++agile;
        }
    }
    if (compatibility > 2) {
        error(lines, "Too many Key Containers present on the Compatibility applet of the "
                     "Oberthur Smart Card.");
        return false;
    }
    if (agile > 2) {
        error(lines,
              "Too many Key Containers present on the Agile applet of the Oberthur Smart Card.");
        return false;
    }
    return true;
}

// The role a key pair must be named for, and the bits and words of its messages.
struct Role {
    const char* keyName;       // "AT_SIGNATURE"
    const char* duplicateText; // the whole text before the container name
    const char* duplicateEnd;  // the text after it
    const char* roleName;      // "ORBEN_CCCA"
    unsigned namedBit;
    unsigned certificateBit;
};

constexpr Role kSignatureRole{
    "AT_SIGNATURE",
    "Already encountered an AT_SIGNATURE Key Container. The key Container '",
    "' also reports as AT_SIGNAUTRE.",
    "ORBEN_CCCA",
    kTqNamedSignature,
    kTqSignatureCertificate};

constexpr Role kExchangeRole{
    "AT_KEYEXCHANGE",
    "Already encountered an  AT_KEYEXCHANGE Key Container. The key Container '",
    "' also reports as AT_KEYEXCHANGE.",
    "ORBEN_AUTH",
    kTqNamedExchange,
    kTqExchangeCertificate};

// False when the examination ends at this container.
bool examineKeyPair(const Role& role, const TqKeyContainerRecord& record, unsigned& bits,
                    Lines& lines) {
    if ((bits & role.namedBit) != 0) {
        warn(lines, role.duplicateText + record.name + role.duplicateEnd);
        return false;
    }
    const std::string encountered =
        std::string("Encountered ") + role.keyName + " Key Container '" + record.name;
    if (record.name.find(role.roleName) != std::string::npos) {
        bits |= role.namedBit;
    } else {
        warn(lines, encountered + "' is not correctly named for ZEL operations");
    }
    if ((record.content & kTqHoldsCertificate) != 0) {
        bits |= role.certificateBit;
    } else {
        warn(lines, encountered + "' does not contain an associated X.509 Certificate.");
    }
    return true;
}

unsigned examine(const TqEnumerationContext& context, Lines& lines) {
    unsigned bits = 0;
    for (const TqKeyContainerRecord& record : context.containers) {
        if (context.cardType == kTqOberthurCard && isDefaultContainer(record.name)) {
            info(lines, "Ignoring encountered Default Key Container on Oberthur Compatibility "
                        "applet");
            continue;
        }
        bool goOn = true;
        if ((record.content & kTqHoldsSignature) != 0) {
            goOn = examineKeyPair(kSignatureRole, record, bits, lines);
        } else if ((record.content & kTqHoldsKeyExchange) != 0) {
            goOn = examineKeyPair(kExchangeRole, record, bits, lines);
        } else {
            warn(lines, "Key Container '" + record.name +
                            "' appears to be completely empty, no key pair or certificate is "
                            "reported as present.");
            goOn = false;
        }
        if (!goOn) {
            break;
        }
    }
    return bits;
}

} // namespace

TqContentVerdict TqJudgeKeyContainers(const TqEnumerationContext& context) {
    TqContentVerdict verdict;
    if (context.cardType == kTqGemaltoCard && !gemaltoCountsPass(context, verdict.lines)) {
        return verdict;
    }
    if (context.cardType == kTqOberthurCard && !oberthurCountsPass(context, verdict.lines)) {
        return verdict;
    }
    verdict.examined = true;
    verdict.bits = examine(context, verdict.lines);
    verdict.valid = (verdict.bits & kTqCompleteContent) == kTqCompleteContent;
    if (verdict.valid) {
        info(verdict.lines, "Applet content is valid.");
    } else {
        error(verdict.lines, "Applet content is invalid.");
    }
    return verdict;
}
