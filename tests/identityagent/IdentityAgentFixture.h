// The Identity Agent's registry on the Wine prefix: the agent's setting keys under HKCU and
// HKLM, and products in the 32-bit Uninstall view, which a fresh prefix lacks. Every key a test
// may touch is removed before and after it; keys that were there before the test stay.
#pragma once

#include "identityagent/TqSpringCheck.h"
#include "support/Seams.h"
#include "support/CallerTrace.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <string>

namespace iatest {

inline const std::string kUninstall32 =
    "SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
inline const std::string kPolicies = "SOFTWARE\\Policies";

// Product codes of the Uninstall entries the tests add, one per agent.
inline constexpr const char* kVessantCode = "{ZEL1A000-0000-0000-0000-00000000A001}";
inline constexpr const char* kKVRDigitalCode = "{ZEL1A000-0000-0000-0000-00000000A002}";
inline constexpr const char* kBTOlderCode = "{ZEL1A000-0000-0000-0000-00000000B001}";
inline constexpr const char* kBTNewerCode = "{ZEL1A000-0000-0000-0000-00000000B002}";

inline std::string ProductKey(const char* code) {
    return kUninstall32 + "\\" + code;
}

// The line the registry search writes when it cannot open the key it starts at: a missing
// agent key (code 2) is reported like any other failure.
inline std::string SearchOpenFailure(const std::string& path, DWORD code) {
    char hex[16];
    std::snprintf(hex, sizeof hex, "%08lx", code);
    const std::string error = std::string("(0x") + hex + ") - " + zeltest::SystemText(code);
    return "TqFindRegistryKeyAndOrValueName : RegOpenKeyEx Failed for '" + path + "'. Error Code " +
           error + " Error Code " + error + "\n";
}
inline std::string MissingKey(const std::string& path) {
    return SearchOpenFailure(path, ERROR_FILE_NOT_FOUND);
}

// The detection document as the client receives it, with its fixed layout.
inline std::string Document(const std::string& name, const std::string& minVersion,
                            const std::string& maxVersion, const std::string& status,
                            const std::string& locked, const std::string& zelSet,
                            const std::string& hasRebooted) {
    return "{\n\t\"ia\":{\n\t\t\"name\": \"" + name + "\",\n\t\t\"minVersion\": \"" + minVersion +
           "\",\n\t\t\"maxVersion\": \"" + maxVersion +
           "\"\n\t},\n\t\"springCheck\":{\n\t\t\"status\": \"" + status +
           "\",\n\t\t\"locked\": \"" + locked + "\",\n\t\t\"zelSet\": \"" + zelSet +
           "\"\n\t},\n\t\"os\":{\n\t\t\"hasRebooted\": \"" + hasRebooted + "\"\n\t}\n}";
}

// The same document as a JSON parser sees it: it must parse, and hold the same strings.
inline void ExpectParsedDocument(const std::string& text, const std::string& name,
                                 const std::string& minVersion, const std::string& maxVersion,
                                 const std::string& status, const std::string& locked,
                                 const std::string& zelSet, const std::string& hasRebooted,
                                 zeltest::CallSite caller = zeltest::CallSite::current()) {
    const zeltest::CallerTrace trace(caller);
    const nlohmann::json parsed = nlohmann::json::parse(text, nullptr, false);
    ASSERT_FALSE(parsed.is_discarded()) << text;
    const nlohmann::json expected = {
        {"ia", {{"name", name}, {"minVersion", minVersion}, {"maxVersion", maxVersion}}},
        {"springCheck", {{"status", status}, {"locked", locked}, {"zelSet", zelSet}}},
        {"os", {{"hasRebooted", hasRebooted}}}};
    EXPECT_EQ(expected, parsed);
}

inline void ExpectSpringCheck(const springCheckBlock& block, int hasRebooted, int status,
                              int locked, int zelSet,
                              zeltest::CallSite caller = zeltest::CallSite::current()) {
    const zeltest::CallerTrace trace(caller);
    EXPECT_EQ(hasRebooted, block.hasRebooted);
    EXPECT_EQ(status, block.status);
    EXPECT_EQ(locked, block.locked);
    EXPECT_EQ(zelSet, block.zelSet);
}

class IdentityAgentRegistry : public ::testing::Test {
protected:
    void SetUp() override {
        uninstallExisted_ = zeltest::KeyExists(HKEY_LOCAL_MACHINE, kUninstall32);
        policiesExisted_ = zeltest::KeyExists(HKEY_LOCAL_MACHINE, kPolicies);
        removeAgentKeys();
        zeltest::CreateKey(HKEY_LOCAL_MACHINE, kUninstall32);
    }

    void TearDown() override {
        gTqZelCheckWriteHook = nullptr;
        removeAgentKeys();
        if (!uninstallExisted_) {
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kUninstall32);
        }
        if (!policiesExisted_) {
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kPolicies);
        }
    }

    static void removeAgentKeys() {
        zeltest::DeleteKeyTree(HKEY_CURRENT_USER, "SOFTWARE\\Vessant");
        zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, "SOFTWARE\\Wow6432Node\\Vessant");
        zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kPolicies + "\\Vessant");
        for (const char* code : {kVessantCode, kKVRDigitalCode, kBTOlderCode, kBTNewerCode}) {
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, ProductKey(code));
        }
    }

    // An installed product as its installer registers it in the 32-bit view.
    static void install(const char* code, const char* displayName, DWORD major, DWORD minor,
                        zeltest::CallSite caller = zeltest::CallSite::current()) {
        const zeltest::CallerTrace trace(caller);
        const std::string key = ProductKey(code);
        zeltest::WriteString(HKEY_LOCAL_MACHINE, key, "DisplayName", displayName);
        zeltest::WriteDword(HKEY_LOCAL_MACHINE, key, "VersionMajor", major);
        zeltest::WriteDword(HKEY_LOCAL_MACHINE, key, "VersionMinor", minor);
    }
    static void installVessant(zeltest::CallSite caller = zeltest::CallSite::current()) {
        install(kVessantCode, "Vessant Identity Agent", 11, 2, caller);
    }
    static void installBTOlder(zeltest::CallSite caller = zeltest::CallSite::current()) {
        install(kBTOlderCode, "KVR Identity Agent", 11, 0, caller);
    }
    static void installBTNewer(zeltest::CallSite caller = zeltest::CallSite::current()) {
        install(kBTNewerCode, "KVR Halden Identity Agent", 12, 4, caller);
    }

    static void setCardRemovalCheck(HKEY root, const char* key, const std::string& text,
                                    zeltest::CallSite caller = zeltest::CallSite::current()) {
        zeltest::WriteString(root, key, kTqCardRemovalCheckValue, text, 0, caller);
    }

    bool uninstallExisted_ = false;
    bool policiesExisted_ = false;
};

} // namespace iatest
