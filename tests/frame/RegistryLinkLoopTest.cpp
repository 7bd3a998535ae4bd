// A registry link that leads back to its own parent under each key the detection exports search:
// every export still answers, and answers exactly as it does without the loops.
#include "identityagent/IdentityAgentFixture.h"
#include "support/CapturedStreams.h"
#include "support/KitProcesses.h"
#include "support/TestSupport.h"
#include "support/Workstation.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace {

const char* const kAgentMachineKey = "SOFTWARE\\Wow6432Node\\Vessant\\Identity Agent";
const char* const kAgentPolicyKey = "SOFTWARE\\Policies\\Vessant\\Identity Agent";

struct Answer {
    std::string exportName;
    int result = -99;
    std::string json;
    bool operator==(const Answer& other) const = default;
};

void PrintTo(const Answer& answer, std::ostream* out) {
    *out << answer.exportName << " -> " << answer.result << "\n" << answer.json;
}

class RegistryLinkLoops : public iatest::IdentityAgentRegistry {
protected:
    Answer ask(const char* exportName, ZelJsonQueryFn query) {
        Answer answer;
        answer.exportName = exportName;
        char* text = nullptr;
        int length = -1;
        answer.result = query(&text, &length, log.path());
        if (text != nullptr) {
            answer.json = text;
            api.FreeStringData(&text);
        }
        return answer;
    }

    std::vector<Answer> askEveryDetection() {
        return {ask("SupportedMiddlewareDetection", api.SupportedMiddlewareDetection),
                ask("OberthurMiddlewareDetection", api.OberthurMiddlewareDetection),
                ask("DetectIdentityAgent", api.DetectIdentityAgent),
                ask("GetATRMiddlewareDetection", api.GetATRMiddlewareDetection)};
    }

    // A workstation on which every detection walks its keys: middleware and a driver package
    // in the Uninstall and DriverUpdates trees, the agent's product in the 32-bit view and its
    // setting under all three of its keys.
    void installWorkstation() {
        workstation.install(
            {"{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)", "Oberthur Technologies", "5.2.1.77", 5, 2});
        workstation.install({"{ZELTEST-GEMALTO}", "Classic Client 7.3 Patch 1 64 bits", "Gemalto",
                             "7.3.1.23", 7, 3});
        zeltest::DriverPackage package;
        package.entry = "ZELTEST-PKG09";
        package.driverId = "cid_c6ba7b16-273e-5d46-8495-60e6786fcda0";
        package.packageId = "civminidriver.inf_amd64_zeltest09";
        package.installDate = zeltest::InstallDateBytes(0x01D9000000000000ull);
        package.minidriverModule = "civ_idemia_awp.dll";
        workstation.install(package);
        installVessant();
        setCardRemovalCheck(HKEY_CURRENT_USER, kTqIAUserKey, "0");
        setCardRemovalCheck(HKEY_LOCAL_MACHINE, kAgentMachineKey, "1");
        setCardRemovalCheck(HKEY_LOCAL_MACHINE, kAgentPolicyKey, "1");
    }

    // One loop under each key a detection starts its search at.
    void plantLoops() {
        const auto plant = [this](HKEY root, const std::string& key) {
            loops.push_back(std::make_unique<zeltest::RegistryLinkLoop>(root, key, "ZelLoop"));
        };
        plant(HKEY_LOCAL_MACHINE, zeltest::kUninstallKey);
        plant(HKEY_LOCAL_MACHINE, iatest::kUninstall32);
        plant(HKEY_LOCAL_MACHINE, zeltest::kDriverUpdatesKey);
        plant(HKEY_CURRENT_USER, kTqIAUserKey);
        plant(HKEY_LOCAL_MACHINE, kAgentMachineKey);
        plant(HKEY_LOCAL_MACHINE, kAgentPolicyKey);
    }

    // Made before the loops and so gone after them: nothing it cleans up walks into a loop.
    zeltest::Workstation workstation;
    zeltest::PlatformDll dll;
    const ZelPlatformExportedInterface& api = dll.api();
    zeltest::ScratchLogFile log;
    std::vector<std::unique_ptr<zeltest::RegistryLinkLoop>> loops;
};

// Wine's RegOpenKeyExA takes no path over 255 characters (it fails with 234, more data): there
// a walk through a loop ends at that length, long before the 512 levels it reaches on Windows.
bool onWine() {
    return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

// The rows of a supported-middleware document that were detected.
nlohmann::json detectedRows(const std::string& document) {
    nlohmann::json rows = nlohmann::json::object();
    const nlohmann::json parsed = nlohmann::json::parse(document, nullptr, false);
    EXPECT_FALSE(parsed.is_discarded()) << document;
    for (const auto& [name, row] : parsed.items()) {
        if (row.value("Detected", "") == "true") {
            rows[name] = row;
        }
    }
    return rows;
}

TEST_F(RegistryLinkLoops, EveryDetectionAnswersAsItDoesWithoutTheLoops) {
    installWorkstation();
    zeltest::AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    // The searches' diagnostics and the library's progress lines are not what is compared.
    zeltest::CapturedStdout ignoredOutput;
    zeltest::CapturedStderr ignoredErrors;
    const std::vector<Answer> without = askEveryDetection();
    plantLoops();
    const std::vector<Answer> with = askEveryDetection();
    loops.clear();
    // Gone again: the trees are as they were.
    const std::vector<Answer> after = askEveryDetection();
    ignoredErrors.end();
    ignoredOutput.end();

    ASSERT_EQ(4u, without.size());
    ASSERT_EQ(4u, with.size());
    // What each detection finds on this workstation.
    EXPECT_EQ(0, without[0].result) << without[0].json;
    EXPECT_EQ(1, without[1].result) << without[1].json;
    EXPECT_EQ(1, without[2].result) << without[2].json;
    EXPECT_EQ(iatest::Document("KVR", "2", "11", "on", "true", "false", "unknown"),
              without[2].json);
    for (std::size_t i = 0; i < without.size(); ++i) {
        EXPECT_EQ(without[i].result, with[i].result) << without[i].exportName;
    }
    EXPECT_EQ(without[1], with[1]);
    EXPECT_EQ(without[3], with[3]);
    if (!onWine()) {
        EXPECT_EQ(without[0], with[0]);
        EXPECT_EQ(without[2], with[2]);
    } else {
        // Cut at Wine's path length, a walk that finds nothing reports that failure: the rows
        // of middleware not installed carry it, and the policy's lock is not read. What was
        // found is found the same way.
        EXPECT_EQ(detectedRows(without[0].json), detectedRows(with[0].json));
        EXPECT_EQ(iatest::Document("KVR", "2", "11", "on", "false", "false", "unknown"),
                  with[2].json);
    }
    EXPECT_EQ(without, after);
}

} // namespace
