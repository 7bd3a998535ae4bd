// Hostile Uninstall entries: every supported product (Classic Client, AWP, the three IDEMIA
// minidrivers, the four Identity Agent names) installed in one registry view, with one of the
// five values the library reads (DisplayName, Publisher, DisplayVersion, VersionMajor,
// VersionMinor) in a hostile form in every entry, or a product's display name grown to 8 KiB,
// 64 KiB or 1 MiB in the shape its name filter accepts.
//
// The middleware rows read the 64-bit view only and the Identity Agent lookups the Wow6432Node
// view only, so each view's states check the answers of its readers exactly; the agent stand-in
// runs as IdentityAgent.exe in the Wow6432Node states so that a found agent is reported.
#include "hostile/HostileSweep.h"

#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace hostile;

enum class Family { kClassicClient, kAWP, kIdemia, kIdentityAgent };

struct Product {
    const char* entry;
    Family family;
    std::string displayName;
    std::string publisher;
    std::string displayVersion;
    DWORD versionMajor;
    DWORD versionMinor;
    // The display name with a filler where its name filter admits any text of the filler's kind.
    std::function<std::string(const std::string&)> nameWith;
    bool digitFiller = false;

    std::string shapedName(std::size_t size) const {
        return nameWith(digitFiller ? Digits(size) : Letters(size));
    }
};

std::vector<Product> products() {
    const auto around = [](const std::string& before, const std::string& after) {
        return [=](const std::string& filler) { return before + filler + after; };
    };
    return {
        {"ZELTEST-ClassicClient", Family::kClassicClient, "Classic Client 7.3 Patch 1 64 bits",
         "Gemalto", "7.3.1.23", 7, 3, around("Classic Client 7.3 Patch 1 ", " 64 bits")},
        {"ZELTEST-AWP", Family::kAWP, "AWP 5.2.1 (64-bit)", "Oberthur Technologies", "5.2.1.77", 5,
         2, around("AWP 5.2.", " (64-bit)"), true},
        {"ZELTEST-IdemiaPivCiv", Family::kIdemia, "IDEMIA Minidriver for PIV/CIV 1.3 (64-Bit)",
         "IDEMIA", "1.3.0.12", 1, 3, around("IDEMIA Minidriver for PIV/CIV ", " (64-Bit)")},
        {"ZELTEST-IdemiaCiv", Family::kIdemia, "IDEMIA Minidriver for CIV 2.1 (64-Bit)", "IDEMIA",
         "2.1.4.5", 2, 1, around("IDEMIA Minidriver for CIV ", " (64-Bit)")},
        {"ZELTEST-IdemiaIdOnePiv", Family::kIdemia, "IDEMIA Minidriver for ID-One PIV 3.0 (32-Bit)",
         "IDEMIA", "3.0.1.2", 3, 0, around("IDEMIA Minidriver for ID-One PIV ", " (32-Bit)")},
        {"ZELTEST-Vessant", Family::kIdentityAgent, "Vessant Identity Agent", "Vessant", "11.2.345",
         11, 2, around("Vessant Identity Agent ", "")},
        {"ZELTEST-KVRDigital", Family::kIdentityAgent, "KVR Digital Identity Agent", "KVR",
         "11.4.1", 11, 4, around("KVR Digital Identity Agent ", "")},
        {"ZELTEST-KVRIdentityAgent", Family::kIdentityAgent, "KVR Identity Agent", "BT", "11.0.7",
         11, 0, around("KVR Identity Agent ", "")},
        {"ZELTEST-KVRHalden", Family::kIdentityAgent, "KVR Halden Identity Agent", "BT", "12.4.2",
         12, 4, around("KVR Halden Identity Agent ", "")},
    };
}

const char* familyName(Family family) {
    switch (family) {
    case Family::kClassicClient:
        return "ClassicClient";
    case Family::kAWP:
        return "AWP";
    case Family::kIdemia:
        return "Idemia";
    default:
        return "IdentityAgent";
    }
}

// "1.1.1.…": a display version of the given size.
std::string versionOfSize(std::size_t size) {
    std::string text;
    text.reserve(size);
    while (text.size() + 2 < size) {
        text += "1.";
    }
    return text + "1";
}

const std::vector<std::string> kValues = {"DisplayName", "Publisher", "DisplayVersion",
                                          "VersionMajor", "VersionMinor"};

// The forms of one value of one product. Shaped display names are states of their own, one
// family at a time.
std::vector<Variant> variantsOf(const Product& product, const std::string& value) {
    if (value == "DisplayName") {
        return StringVariants(product.displayName, nullptr, product.nameWith(NonAsciiText()));
    }
    if (value == "Publisher") {
        return StringVariants(
            product.publisher,
            [&](std::size_t size) {
                return Blanks(size / 2) + product.publisher + Blanks(size / 2);
            },
            product.publisher + NonAsciiText());
    }
    if (value == "DisplayVersion") {
        return StringVariants(product.displayVersion, versionOfSize,
                              product.displayVersion + NonAsciiText());
    }
    return DwordVariants(value == "VersionMajor" ? product.versionMajor : product.versionMinor);
}

struct UninstallState {
    bool view64;
    std::string value;
    std::string variant;                // a variant of the value, or
    std::optional<Family> shapedFamily; // a family's shaped display name
    std::size_t shapedSize = 0;
};

// The data a product's value is planted with in this state.
PlantedData plantedData(const UninstallState& state, const Product& product,
                        const std::string& value) {
    if (state.shapedFamily && value == "DisplayName" && product.family == *state.shapedFamily) {
        return {REG_SZ, SzBytes(product.shapedName(state.shapedSize))};
    }
    if (!state.shapedFamily && value == state.value) {
        return DataNamed(variantsOf(product, value), state.variant);
    }
    if (value == "VersionMajor" || value == "VersionMinor") {
        const DWORD number = value == "VersionMajor" ? product.versionMajor : product.versionMinor;
        const BYTE* bytes = reinterpret_cast<const BYTE*>(&number);
        return {REG_DWORD, Bytes(bytes, bytes + sizeof number)};
    }
    const std::string& text = value == "DisplayName" ? product.displayName
                              : value == "Publisher" ? product.publisher
                                                     : product.displayVersion;
    return {REG_SZ, SzBytes(text)};
}

void plantProducts(const UninstallState& state) {
    const std::string uninstall = state.view64 ? zeltest::kUninstallKey : zeltest::kUninstall32Key;
    for (const Product& product : products()) {
        const std::string key = uninstall + "\\" + product.entry;
        for (const std::string& value : kValues) {
            Plant(HKEY_LOCAL_MACHINE, key, value.c_str(), plantedData(state, product, value));
        }
    }
}

// --- what each state answers exactly ---------------------------------------------------------

// Whether an entry whose value has this form still counts as the installed product.
bool productStillFound(const std::string& value, const std::string& variant, Family family) {
    if (IsWrongType(variant)) {
        return false;
    }
    if (value == "DisplayName") {
        if (variant == "NoTerminator" || variant == "EmbeddedNul") {
            return true;
        }
        // Text outside ASCII passes where the name admits any text, and after an agent's name.
        return variant == "NonAscii" &&
               (family == Family::kIdemia || family == Family::kIdentityAgent);
    }
    if (value == "Publisher") {
        return variant == "NoTerminator" || variant == "EmbeddedNul" || Starts(variant, "Shaped");
    }
    return true; // any readable DisplayVersion or VersionMajor/VersionMinor data scores
}

// The number a DWORD value of this form reads as: its first four bytes, or fewer.
DWORD dwordRead(const std::string& variant, DWORD valid) {
    if (variant == "ZeroBytes") {
        return 0;
    }
    if (Starts(variant, "Plain")) {
        return 'a' | 'b' << 8 | 'c' << 16 | 'd' << 24;
    }
    if (variant == "NonAscii") {
        return 0xFF80FCE9u;
    }
    return valid; // OneByte holds the valid number's low byte, Shaped its four bytes
}

std::string displayedText(const Product& product, const std::string& value,
                          const std::string& variant) {
    const std::string& valid = value == "DisplayName" ? product.displayName
                               : value == "Publisher" ? product.publisher
                                                      : product.displayVersion;
    if (variant == "NonAscii") {
        return value == "DisplayName" ? product.nameWith(NonAsciiText()) : valid + NonAsciiText();
    }
    if (variant == "ZeroBytes") {
        return "";
    }
    if (variant == "OneByte") {
        return valid.substr(0, 1);
    }
    if (Starts(variant, "Plain") || Starts(variant, "Shaped")) {
        const std::size_t size = SizeIn(variant);
        return Starts(variant, "Plain")    ? Letters(size)
               : value == "DisplayVersion" ? versionOfSize(size)
                                           : product.publisher;
    }
    return valid; // no terminator, or text after a NUL: the reader sees the valid text
}

ExactAnswers middlewareAnswers(const UninstallState& state) {
    const std::vector<Product> all = products();
    const Product& classic = all[0];
    const Product& awp = all[1];
    const Product& pivCiv = all[2];
    const Product& civ = all[3];
    const Product& idOnePiv = all[4];
    ExactAnswers exact;
    exact.atr = 19; // no JCOP 41 entries
    exact.agent = 0;
    exact.enrollment = 11;
    exact.rows["Idemia09MSUpdate"] = "false";
    exact.rows["IdemiaCombinedMinidriverMSUpdate"] = "false";

    const auto found = [&](const Product& product) {
        return state.shapedFamily || productStillFound(state.value, state.variant, product.family);
    };
    const auto fieldsOf = [&](const Product& product, const char* key) {
        auto& fields = exact.fields[key];
        fields["UUID"] = product.entry;
        if (state.shapedFamily && product.family == *state.shapedFamily) {
            fields["Name"] = product.shapedName(state.shapedSize);
        } else if (!state.shapedFamily && state.value == "DisplayName") {
            fields["Name"] = displayedText(product, "DisplayName", state.variant);
        } else if (!state.shapedFamily && state.value == "Publisher") {
            fields["Publisher"] = product.publisher; // compared trimmed, reported trimmed
        } else if (!state.shapedFamily && state.value == "DisplayVersion") {
            fields["DisplayVersion"] = displayedText(product, "DisplayVersion", state.variant);
        } else if (!state.shapedFamily && !state.value.empty()) {
            const bool major = state.value == "VersionMajor";
            fields[state.value] = std::to_string(
                dwordRead(state.variant, major ? product.versionMajor : product.versionMinor));
        }
    };
    const auto row = [&](const char* key, const Product& product) {
        exact.rows[key] = found(product) ? "true" : "false";
        if (found(product)) {
            fieldsOf(product, key);
        }
    };
    row("GemaltoMiddleware", classic);
    row("OTMiddleware", awp);
    row("Idemia09Middleware", pivCiv);
    // The combined row asks for the CIV minidriver first, then for the ID-One PIV one.
    row("IdemiaCombinedMiddleware", found(civ) ? civ : idOnePiv);
    exact.oberthur = found(awp) ? 1 : 0;
    return exact;
}

ExactAnswers agentAnswers(const UninstallState& state) {
    const Product vessant = products()[5];
    ExactAnswers exact;
    exact.atr = 19;
    exact.enrollment = 11;
    const bool found = state.shapedFamily || state.value != "DisplayName" ||
                       productStillFound("DisplayName", state.variant, Family::kIdentityAgent);
    exact.agent = found ? 1 : 0;
    if (!found) {
        exact.agentFields = {
            {"ia.name", "unknown"}, {"ia.maxVersion", "0"}, {"ia.minVersion", "0"}};
        return exact;
    }
    // Without a readable VersionMajor or VersionMinor, both come from DisplayVersion.
    DWORD major = vessant.versionMajor;
    DWORD minor = vessant.versionMinor;
    if (!state.shapedFamily && (state.value == "VersionMajor" || state.value == "VersionMinor") &&
        !IsWrongType(state.variant)) {
        DWORD& changed = state.value == "VersionMajor" ? major : minor;
        changed = dwordRead(state.variant, changed);
    }
    exact.agentFields = {{"ia.name", "KVR"},
                         {"ia.maxVersion", std::to_string(major)},
                         {"ia.minVersion", std::to_string(minor)},
                         {"springCheck.status", "on"},
                         {"springCheck.locked", "false"}};
    return exact;
}

HostileState hostileState(const UninstallState& state) {
    std::string name;
    if (state.shapedFamily) {
        name += "DisplayName_Shaped" + std::string(familyName(*state.shapedFamily)) +
                SizeName(state.shapedSize);
    } else {
        name += state.value + "_" + state.variant;
    }
    return {name, [state](Planting&) { plantProducts(state); }, !state.view64,
            state.view64 ? middlewareAnswers(state) : agentAnswers(state)};
}

std::vector<HostileState> uninstallStates(bool view64) {
    std::vector<HostileState> states;
    const Product sample = products().front();
    for (const std::string& value : kValues) {
        for (const std::string& variant : NamesOf(variantsOf(sample, value))) {
            states.push_back(hostileState({view64, value, variant, std::nullopt, 0}));
        }
    }
    for (Family family :
         {Family::kClassicClient, Family::kAWP, Family::kIdemia, Family::kIdentityAgent}) {
        for (std::size_t size : {k8KiB, k64KiB, k1MiB}) {
            states.push_back(hostileState({view64, "DisplayName", "", family, size}));
        }
    }
    return states;
}

// --- keys that cannot be read, very many keys, very deep keys ---------------------------------

// Every product installed as its installer leaves it.
const UninstallState kInstalled64{true, "", "", std::nullopt, 0};
const UninstallState kInstalled32{false, "", "", std::nullopt, 0};

std::string uninstallKey(bool view64) {
    return view64 ? zeltest::kUninstallKey : zeltest::kUninstall32Key;
}

// count sub-keys "ZELTEST-Sibling-NNNNN" beside the products, each with a display name.
void plantSiblings(bool view64, const std::string& displayNameStem, int count) {
    TqUniqueRegKey uninstall;
    ASSERT_EQ(ERROR_SUCCESS, ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, uninstallKey(view64).c_str(), 0,
                                             KEY_ALL_ACCESS | KEY_WOW64_64KEY, uninstall.put()));
    for (int i = 0; i < count; ++i) {
        char number[8];
        std::snprintf(number, sizeof number, "%05d", i);
        TqUniqueRegKey sibling;
        ASSERT_EQ(ERROR_SUCCESS,
                  ::RegCreateKeyExA(uninstall.get(),
                                    (std::string("ZELTEST-Sibling-") + number).c_str(), 0, nullptr,
                                    0, KEY_ALL_ACCESS, nullptr, sibling.put(), nullptr));
        const std::string name = displayNameStem + number;
        ASSERT_EQ(ERROR_SUCCESS, ::RegSetValueExA(sibling.get(), "DisplayName", 0, REG_SZ,
                                                  reinterpret_cast<const BYTE*>(name.c_str()),
                                                  static_cast<DWORD>(name.size() + 1)));
    }
}

std::vector<HostileState> keyStates() {
    // A search that cannot open a key it must walk fails as a whole: the rows that report their
    // failure carry it, the others are left out, and the OT record is no answer at all.
    ExactAnswers searchFailed;
    searchFailed.rows = {
        {"GemaltoMiddleware", "missing"},          {"OTMiddleware", "missing"},
        {"Idemia09Middleware", "exception"},       {"Idemia09MSUpdate", "false"},
        {"IdemiaCombinedMiddleware", "exception"}, {"IdemiaCombinedMinidriverMSUpdate", "false"}};
    searchFailed.oberthur = -4;
    searchFailed.atr = 19;
    searchFailed.agent = 0;
    searchFailed.enrollment = 11;

    // An entry that cannot be read fails the search of a product that finds no other entry.
    ExactAnswers classicDenied = middlewareAnswers(kInstalled64);
    classicDenied.rows["GemaltoMiddleware"] = "missing";
    classicDenied.fields.erase("GemaltoMiddleware");

    // The agent whose entry cannot be read is looked for under its second name.
    ExactAnswers secondName = agentAnswers(kInstalled32);
    secondName.agentFields["ia.minVersion"] = "4";

    ExactAnswers noLookup;
    noLookup.agent = -16;
    noLookup.agentFields = {{"ia.name", "unknown"}, {"ia.maxVersion", "0"}, {"ia.minVersion", "0"}};
    noLookup.atr = 19;
    noLookup.enrollment = 11;

    return {
        {"DeniedUninstall64",
         [](Planting& planting) {
             plantProducts(kInstalled64);
             planting.deny(HKEY_LOCAL_MACHINE, zeltest::kUninstallKey);
         },
         false, searchFailed},
        {"DeniedUninstall32",
         [](Planting& planting) {
             plantProducts(kInstalled32);
             planting.deny(HKEY_LOCAL_MACHINE, zeltest::kUninstall32Key);
         },
         true, noLookup},
        {"DeniedClassicClientEntry64",
         [](Planting& planting) {
             plantProducts(kInstalled64);
             planting.deny(HKEY_LOCAL_MACHINE,
                           std::string(zeltest::kUninstallKey) + "\\ZELTEST-ClassicClient");
         },
         false, classicDenied},
        {"DeniedVessantEntry32",
         [](Planting& planting) {
             plantProducts(kInstalled32);
             planting.deny(HKEY_LOCAL_MACHINE,
                           std::string(zeltest::kUninstall32Key) + "\\ZELTEST-Vessant");
         },
         true, secondName},
        {"Siblings10000In64",
         [](Planting&) {
             plantProducts(kInstalled64);
             // Each sibling's name begins like Classic Client's but fails its name filter.
             plantSiblings(true, "Classic Client sibling ", 10000);
         },
         false, middlewareAnswers(kInstalled64)},
        {"Siblings10000In32",
         [](Planting&) {
             plantProducts(kInstalled32);
             plantSiblings(false, "Identity Agent sibling ", 10000);
         },
         true, agentAnswers(kInstalled32)},
        {"KeyChain400In64",
         [](Planting&) {
             MakeKeyChain(HKEY_LOCAL_MACHINE, uninstallKey(true) + "\\ZELTEST-Chain", 400);
         },
         false, searchFailed},
        // The chain's failure stays behind the agent's entry, which is found after it.
        {"KeyChain400In32",
         [](Planting&) {
             plantProducts(kInstalled32);
             MakeKeyChain(HKEY_LOCAL_MACHINE, uninstallKey(false) + "\\ZELTEST-Chain", 400);
         },
         true, agentAnswers(kInstalled32)},
    };
}

class HostileUninstall : public HostileSweep {};

TEST_P(HostileUninstall, EveryExportAnswersAsDocumented) {
    Sweep(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Uninstall64, HostileUninstall, ::testing::ValuesIn(uninstallStates(true)),
                         StateName);
INSTANTIATE_TEST_SUITE_P(Uninstall32, HostileUninstall, ::testing::ValuesIn(uninstallStates(false)),
                         StateName);
INSTANTIATE_TEST_SUITE_P(UninstallKeys, HostileUninstall, ::testing::ValuesIn(keyStates()),
                         StateName);

} // namespace
