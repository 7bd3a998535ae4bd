// Hostile settings of the Identity Agent: "CardRemovalCheck" under the user's key, the machine's
// 32-bit key and the policy key, and the user's "ZelCheck" record, each in a hostile form; the
// three keys denied; a 400-deep key chain under the user's key. The agent (Vessant Identity
// Agent 11.2) is installed and its stand-in runs as IdentityAgent.exe, so detection reads them.
#include "hostile/HostileSweep.h"

#include "identityagent/TqSpringCheck.h"
#include "support/CapturedStreams.h"

#include <string>
#include <utility>
#include <vector>

namespace {

using namespace hostile;

const std::string kMachineKey = kTqIAMachineKey32;
const std::string kPolicyKey = kTqIAPolicyKey;

void installAgent() {
    const std::string key = std::string(zeltest::kUninstall32Key) + "\\ZELTEST-Vessant";
    Plant(HKEY_LOCAL_MACHINE, key, "DisplayName", {REG_SZ, SzBytes("Vessant Identity Agent")});
    Plant(HKEY_LOCAL_MACHINE, key, "VersionMajor", {REG_DWORD, {11, 0, 0, 0}});
    Plant(HKEY_LOCAL_MACHINE, key, "VersionMinor", {REG_DWORD, {2, 0, 0, 0}});
}

// The document of the running agent with this spring check.
ExactAnswers agentAnswers(const char* status, const char* locked, const char* zelSet,
                          const char* hasRebooted) {
    ExactAnswers exact;
    exact.agent = 1;
    exact.agentFields = {{"ia.name", "KVR"},
                         {"ia.maxVersion", "11"},
                         {"ia.minVersion", "2"},
                         {"springCheck.status", status},
                         {"springCheck.locked", locked},
                         {"springCheck.zelSet", zelSet},
                         {"os.hasRebooted", hasRebooted}};
    exact.atr = 19;
    exact.enrollment = 11;
    return exact;
}

struct SettingKey {
    const char* name;
    HKEY root;
    std::string path;
};

const SettingKey kSettingKeys[] = {
    {"User", HKEY_CURRENT_USER, kTqIAUserKey},
    {"Machine", HKEY_LOCAL_MACHINE, kMachineKey},
    {"Policy", HKEY_LOCAL_MACHINE, kPolicyKey},
};

std::vector<Variant> cardRemovalCheckVariants() {
    return StringVariants(
        "False", [](std::size_t size) { return Blanks(size / 2) + "False" + Blanks(size / 2); },
        "False" + NonAsciiText());
}

std::vector<HostileState> cardRemovalCheckStates() {
    std::vector<HostileState> states;
    for (const SettingKey& key : kSettingKeys) {
        for (const std::string& variant : NamesOf(cardRemovalCheckVariants())) {
            HostileState state;
            state.name = std::string(key.name) + "_" + variant;
            state.plant = [key, variant](Planting&) {
                installAgent();
                Plant(key.root, key.path, kTqCardRemovalCheckValue,
                      DataNamed(cardRemovalCheckVariants(), variant));
            };
            state.agentRunning = true;
            // A value of another type is no setting. Any text is one: "False" (trimmed of
            // blanks, up to a NUL) is off, and so is a text the agent does not know. A setting
            // after the user's key fixes it for the user.
            const bool setting = !IsWrongType(variant);
            const bool locked = setting && key.root == HKEY_LOCAL_MACHINE;
            state.exact =
                agentAnswers(setting ? "off" : "on", locked ? "true" : "false", "false", "unknown");
            states.push_back(state);
        }
    }
    return states;
}

// The running agent switched off for the user: CardRemovalCheck "False" and the ZelCheck record
// of the running agent process, which is returned.
Bytes switchOffForTheRunningAgent() {
    zeltest::CapturedStderr ignoredErrors;
    EXPECT_EQ(0, TqSetKVRIASpringCheck(false));
    ignoredErrors.end();
    return zeltest::ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue).data;
}

std::vector<HostileState> zelCheckStates() {
    std::vector<HostileState> states;
    const Bytes sample(kTqZelCheckSize, 0x5A);
    for (const std::string& variant : NamesOf(BinaryVariants(sample))) {
        HostileState state;
        state.name = variant;
        state.plant = [variant](Planting&) {
            installAgent();
            const Bytes record = switchOffForTheRunningAgent();
            ASSERT_EQ(kTqZelCheckSize, record.size());
            Plant(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue,
                  DataNamed(BinaryVariants(record), variant));
        };
        state.agentRunning = true;
        // A record is REG_BINARY data of at least its size; what follows it is not read. The
        // running agent's own record is "pending", any other "true" (the agent restarted).
        const bool record = !IsWrongType(variant) && SizeIn(variant) >= kTqZelCheckSize;
        const char* hasRebooted = !record                     ? "unknown"
                                  : Starts(variant, "Shaped") ? "pending"
                                                              : "true";
        state.exact = agentAnswers("off", "false", record ? "true" : "false", hasRebooted);
        states.push_back(state);
    }
    return states;
}

std::vector<HostileState> keyStates() {
    std::vector<HostileState> states;
    for (const SettingKey& key : kSettingKeys) {
        HostileState state;
        state.name = std::string("Denied") + key.name + "Key";
        state.plant = [key](Planting& planting) {
            installAgent();
            Plant(key.root, key.path, kTqCardRemovalCheckValue, {REG_SZ, SzBytes("False")});
            planting.deny(key.root, key.path);
        };
        state.agentRunning = true;
        // A key that cannot be read holds no setting.
        state.exact = agentAnswers("on", "false", "false", "unknown");
        states.push_back(state);
    }
    HostileState chain;
    chain.name = "UserKeyChain400";
    chain.plant = [](Planting&) {
        installAgent();
        Plant(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue,
              {REG_SZ, SzBytes("False")});
        MakeKeyChain(HKEY_CURRENT_USER, kTqIAUserKey, 400);
    };
    chain.agentRunning = true;
    // The chain is searched before the key's own values and cannot be opened to its end: the
    // failed search hides the user's setting.
    chain.exact = agentAnswers("on", "false", "false", "unknown");
    states.push_back(chain);
    return states;
}

class HostileIdentityAgent : public HostileSweep {};

TEST_P(HostileIdentityAgent, EveryExportAnswersAsDocumented) {
    Sweep(GetParam());
}

INSTANTIATE_TEST_SUITE_P(CardRemovalCheck, HostileIdentityAgent,
                         ::testing::ValuesIn(cardRemovalCheckStates()), StateName);
INSTANTIATE_TEST_SUITE_P(ZelCheck, HostileIdentityAgent, ::testing::ValuesIn(zelCheckStates()),
                         StateName);
INSTANTIATE_TEST_SUITE_P(AgentKeys, HostileIdentityAgent, ::testing::ValuesIn(keyStates()),
                         StateName);

} // namespace
