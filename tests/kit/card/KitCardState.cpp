#include "KitCardState.h"

#include "base/TqUniqueResource.h"

#include <cstdio>
#include <fstream>
#include <sstream>

namespace zelkit {

namespace {

std::string toHex(const std::vector<unsigned char>& bytes) {
    std::string text;
    char pair[3];
    for (unsigned char byte : bytes) {
        std::snprintf(pair, sizeof pair, "%02X", byte);
        text += pair;
    }
    return text;
}

std::vector<unsigned char> fromHex(const std::string& text) {
    std::vector<unsigned char> bytes;
    for (size_t at = 0; at + 1 < text.size(); at += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoul(text.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

const char* keyName(KeyKind key) {
    switch (key) {
    case KeyKind::kSignature:
        return "signature";
    case KeyKind::kExchange:
        return "exchange";
    default:
        return "none";
    }
}

const char* shownName(Shown shown) {
    switch (shown) {
    case Shown::kBeforeRefresh:
        return "before-refresh";
    case Shown::kAfterRefresh:
        return "after-refresh";
    default:
        return "always";
    }
}

std::vector<std::string> splitFields(const std::string& text) {
    std::vector<std::string> fields;
    std::string field;
    std::istringstream in(text);
    while (std::getline(in, field, '|')) {
        fields.push_back(field);
    }
    return fields;
}

Container parseContainer(const std::string& text) {
    Container container;
    const std::vector<std::string> fields = splitFields(text);
    if (fields.size() > 0) {
        container.applet = fields[0];
    }
    if (fields.size() > 1) {
        container.name = fields[1];
    }
    if (fields.size() > 2) {
        container.key = fields[2] == "signature"  ? KeyKind::kSignature
                        : fields[2] == "exchange" ? KeyKind::kExchange
                                                  : KeyKind::kNone;
    }
    if (fields.size() > 3) {
        container.certificate = fields[3] == "certificate";
    }
    if (fields.size() > 4) {
        container.shown = fields[4] == "before-refresh"  ? Shown::kBeforeRefresh
                          : fields[4] == "after-refresh" ? Shown::kAfterRefresh
                                                         : Shown::kAlways;
    }
    return container;
}

} // namespace

std::vector<Container> CardState::visible(const std::string& applet) const {
    const bool refreshed = cacheBumps >= refreshAfterBumps;
    std::vector<Container> shown;
    for (const Container& container : containers) {
        const bool showsNow = container.shown == Shown::kAlways ||
                              (container.shown == Shown::kAfterRefresh) == refreshed;
        if (container.applet == applet && showsNow) {
            shown.push_back(container);
        }
    }
    return shown;
}

std::string CardStatePath() {
    char folder[MAX_PATH + 1] = {};
    const DWORD length = ::GetTempPathA(sizeof folder, folder);
    return std::string(folder, length) + "zel-kit-card.state";
}

std::string FormatCardState(const CardState& state) {
    std::ostringstream out;
    out << "reader=" << state.reader << "\n"
        << "inserted=" << (state.inserted ? 1 : 0) << "\n"
        << "atr=" << toHex(state.atr) << "\n"
        << "pin=" << state.pin << "\n"
        << "cardcf=" << toHex(state.cardcf) << "\n"
        << "refreshAfterBumps=" << state.refreshAfterBumps << "\n";
    if (state.acquireContextError != 0) {
        char code[16];
        std::snprintf(code, sizeof code, "%08lX", state.acquireContextError);
        out << "acquireContextError=" << code << "\n";
    }
    if (state.readOnly) {
        out << "readOnly=1\n";
    }
    if (state.strict) {
        out << "strict=1\n";
    }
    if (!state.denyEnrollmentKeyAt.empty()) {
        out << "denyEnrollmentKeyAt=" << state.denyEnrollmentKeyAt << "\n";
    }
    for (const Container& container : state.containers) {
        out << "container=" << container.applet << "|" << container.name << "|"
            << keyName(container.key) << "|" << (container.certificate ? "certificate" : "none")
            << "|" << shownName(container.shown) << "\n";
    }
    out << "cacheBumps=" << state.cacheBumps << "\n"
        << "pinPresentations=" << state.pinPresentations << "\n"
        << "cardReads=" << state.cardReads << "\n";
    for (const std::string& event : state.events) {
        out << "event=" << event << "\n";
    }
    for (const std::string& violation : state.violations) {
        out << "violation=" << violation << "\n";
    }
    for (const std::string& held : state.outstanding) {
        out << "outstanding=" << held << "\n";
    }
    for (const auto& [call, code] : state.failures) {
        out << "fail=" << call << " " << HexCode(code) << "\n";
    }
    return out.str();
}

CardState ParseCardState(const std::string& text) {
    CardState state;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        const size_t equals = line.find('=');
        if (equals == std::string::npos) {
            continue;
        }
        const std::string name = line.substr(0, equals);
        const std::string value = line.substr(equals + 1);
        if (name == "reader") {
            state.reader = value;
        } else if (name == "inserted") {
            state.inserted = value != "0";
        } else if (name == "atr") {
            state.atr = fromHex(value);
        } else if (name == "pin") {
            state.pin = value;
        } else if (name == "cardcf") {
            state.cardcf = fromHex(value);
        } else if (name == "refreshAfterBumps") {
            state.refreshAfterBumps = static_cast<unsigned>(std::stoul(value));
        } else if (name == "acquireContextError") {
            state.acquireContextError = std::stoul(value, nullptr, 16);
        } else if (name == "readOnly") {
            state.readOnly = value != "0";
        } else if (name == "strict") {
            state.strict = value != "0";
        } else if (name == "denyEnrollmentKeyAt") {
            state.denyEnrollmentKeyAt = value;
        } else if (name == "container") {
            state.containers.push_back(parseContainer(value));
        } else if (name == "cacheBumps") {
            state.cacheBumps = static_cast<unsigned>(std::stoul(value));
        } else if (name == "pinPresentations") {
            state.pinPresentations = static_cast<unsigned>(std::stoul(value));
        } else if (name == "cardReads") {
            state.cardReads = static_cast<unsigned>(std::stoul(value));
        } else if (name == "event") {
            state.events.push_back(value);
        } else if (name == "violation") {
            state.violations.push_back(value);
        } else if (name == "outstanding") {
            state.outstanding.push_back(value);
        } else if (name == "fail") {
            const size_t blank = value.rfind(' ');
            if (blank != std::string::npos) {
                state.failures.emplace_back(value.substr(0, blank),
                                            std::stoul(value.substr(blank + 1), nullptr, 16));
            }
        }
    }
    return state;
}

bool LoadCardState(CardState& state) {
    std::ifstream in(CardStatePath(), std::ios::binary);
    if (!in) {
        return false;
    }
    std::ostringstream text;
    text << in.rdbuf();
    try {
        state = ParseCardState(text.str());
    } catch (...) {
        return false; // a malformed number: no usable card
    }
    return true;
}

bool SaveCardState(const CardState& state) {
    std::ofstream out(CardStatePath(), std::ios::binary | std::ios::trunc);
    out << FormatCardState(state);
    return static_cast<bool>(out);
}

void RecordEvent(const std::string& event) {
    UpdateCardState([&](CardState& state) { state.events.push_back(event); });
}

void RecordViolation(const std::string& violation) {
    UpdateCardState([&](CardState& state) {
        if (state.strict) {
            state.violations.push_back(violation);
        }
    });
}

namespace {

bool strictCard() {
    CardState state;
    return LoadCardState(state) && state.strict;
}

} // namespace

bool Expect(const char* call, const char* argument, const std::string& expected,
            const std::string& actual) {
    if (expected == actual || !strictCard()) {
        return true;
    }
    RecordViolation(std::string(call) + ": " + argument + " must be " + expected + ", was " +
                    actual);
    return false;
}

void RecordHandedOut(const std::string& what) {
    UpdateCardState([&](CardState& state) {
        if (state.strict) {
            state.outstanding.push_back(what);
        }
    });
}

void RecordGivenBack(const char* call, const std::string& what, bool onlyIfHandedOut) {
    UpdateCardState([&](CardState& state) {
        if (!state.strict) {
            return;
        }
        for (auto held = state.outstanding.begin(); held != state.outstanding.end(); ++held) {
            if (*held == what) {
                state.outstanding.erase(held);
                return;
            }
        }
        if (!onlyIfHandedOut) {
            state.violations.push_back(std::string(call) + ": given " + what +
                                       ", which the kit did not hand out");
        }
    });
}

unsigned long InjectedFailure(const char* call) {
    CardState state;
    if (!LoadCardState(state)) {
        return 0;
    }
    // "CALL@N": only once cardcf has been written N times.
    for (const auto& [name, code] : state.failures) {
        const size_t at = name.find('@');
        if (name.compare(0, at, call) != 0 || (at == std::string::npos && name != call)) {
            continue;
        }
        if (at == std::string::npos ||
            state.cacheBumps >= static_cast<unsigned>(std::stoul(name.substr(at + 1)))) {
            return code;
        }
    }
    return 0;
}

std::string HexCode(unsigned long code) {
    char text[16];
    std::snprintf(text, sizeof text, "%08lX", code);
    return text;
}

std::string SelectedApplet() {
    TqUniqueRegKey key;
    DWORD data = 0;
    if (::RegOpenKeyExA(HKEY_CURRENT_USER,
                        "SOFTWARE\\Oberthur Technologies\\Minidriver\\PIVMinidriver", 0, KEY_READ,
                        key.put()) == ERROR_SUCCESS) {
        DWORD size = sizeof data;
        DWORD type = 0;
        if (::RegQueryValueExA(key.get(), "EnableKVREnrollment", nullptr, &type,
                               reinterpret_cast<BYTE*>(&data), &size) != ERROR_SUCCESS ||
            type != REG_DWORD) {
            data = 0;
        }
    }
    return data != 0 ? "compatibility" : "agile";
}

} // namespace zelkit
