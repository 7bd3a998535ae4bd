// Each searching export reads every key of the Uninstall and driver-update trees once per call
// and answers later passes from what it read. Nothing a caller can see may tell: on a few hundred
// generated trees (both registry views, denied keys, keys that vanish when opened, missing and
// odd values, many products), every export is run with and without that snapshot, and its code,
// document, standard output, standard error and log lines must be the same, byte for byte.
#include "api/TqZelDLLPlatform.h"
#include "base/TqUniqueResource.h"
#include "support/Seams.h"
#include "identityagent/TqIdentityAgent.h"
#include "identityagent/TqSpringCheck.h"
#include "support/CapturedStreams.h"
#include "support/KitProcesses.h"
#include "support/TestSupport.h"
#include "support/Workstation.h"

#include <gtest/gtest.h>

#include <winternl.h>

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using zeltest::kDriverUpdatesKey;
using zeltest::kUninstall32Key;
using zeltest::kUninstallKey;
using Bytes = std::vector<BYTE>;

// What a caller sees of one call.
struct Seen {
    int code = 0;
    std::string document;
    std::string output;
    std::string error;
    std::vector<std::string> log;
};

using Export = std::function<int(TqZelDLLPlatform&, char**, int*, const char*)>;

struct NamedExport {
    const char* name;
    Export call;
};

const NamedExport kExports[] = {
    {"SupportedMiddlewareDetection",
     [](TqZelDLLPlatform& p, char** text, int* length, const char* log) {
         return p.SupportedMiddlewareDetectionJSON(text, length, log);
     }},
    {"OberthurMiddlewareDetection(JSON)",
     [](TqZelDLLPlatform& p, char** text, int* length, const char* log) {
         return p.OberthurMiddlewareDetectionJSON(text, length, log);
     }},
    {"OberthurMiddlewareDetection(all releases)",
     [](TqZelDLLPlatform& p, char**, int*, const char* log) {
         return p.OberthurMiddlewareDetection(0xFFFF, log);
     }},
    {"GetATRMiddlewareDetection",
     [](TqZelDLLPlatform& p, char** text, int* length, const char* log) {
         return p.getATRMiddlewareDetection(text, length, log);
     }},
    {"DetectIdentityAgent",
     [](TqZelDLLPlatform& p, char** text, int* length, const char* log) {
         return p.detectIdentityAgent(text, length, log);
     }},
};

Seen callOnce(const Export& call, bool snapshot) {
    TqAllowRegistrySnapshots(snapshot);
    const zeltest::ScratchLogFile log;
    Seen seen;
    {
        zeltest::CapturedStdout output;
        zeltest::CapturedStderr error;
        TqZelDLLPlatform platform;
        char* text = nullptr;
        int length = -1;
        seen.code = call(platform, &text, &length, log.path());
        const TqUniqueClientText owned(text);
        seen.document = text != nullptr ? std::string(text, static_cast<std::size_t>(length))
                                        : "<none, length " + std::to_string(length) + ">";
        seen.output = output.text();
        seen.error = error.text();
    }
    TqAllowRegistrySnapshots(true);
    seen.log = log.bodies();
    return seen;
}

// The texts the detections look for, and some they must pass over.
const char* const kDisplayNames[] = {
    "Classic Client 7.3 Patch 1 64 bits",
    "Classic Client",
    "Classic Client 6.2 x86",
    "AWP 5.2.0 (64-bit)",
    "AWP 5.1",
    "AWP",
    "IDEMIA Minidriver for PIV/CIV (64-Bit)",
    "IDEMIA Minidriver for PIV/CIV",
    "IDEMIA Minidriver for CIV 2.1 (64-Bit)",
    "IDEMIA Minidriver for ID-One PIV (64-bit)",
    "Vessant Identity Agent",
    "KVR Digital Identity Agent",
    "KVR Identity Agent",
    "KVR Halden Identity Agent",
    "Some Other Product",
    "",
};
const char* const kPublishers[] = {"Gemalto", "GEMALTO", "Oberthur Technologies", "IDEMIA",
                                   "KVR",     "Vessant", "Someone Else"};
const char* const kVersions[] = {"7.3.1.23", "5.2.0.1542", "9.1.3.210", "11.2",
                                 "2",        "",           "x.y",       "1.2.3.4.5.6.7"};
const char* const kHardwareIds[] = {"scfilter\\cid_c6ba7b16-273e-5d46-8495-60e6786fcda0",
                                    "scfilter\\cid_9655ffae-6c28-4376-886c-0b0c6db1ab51",
                                    "scfilter\\cid_c6ba7b16", "scfilter\\generic"};
// Product codes of installed AWP releases, which the Oberthur detection opens by name.
const char* const kReleaseCodes[] = {"{1A237A0B-3E20-4D38-9316-C04FF4D2D9FE}",
                                     "{78CD21FA-042D-4AA8-A087-A082215EB661}",
                                     "{55C67109-B280-44B8-80AA-2D315D346745}"};

Bytes bytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

Bytes withNul(const std::string& text) {
    Bytes bytes = bytesOf(text);
    bytes.push_back(0);
    return bytes;
}

// A key that is listed among its parent's sub-keys but cannot be opened: a registry link to a
// key that does not exist. Removed by this owner, which opens the link itself to delete it.
class VanishingKey {
public:
    explicit VanishingKey(const std::string& path) : path_(path) {
        TqUniqueRegKey key;
        LSTATUS status = ::RegCreateKeyExA(
            HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, REG_OPTION_CREATE_LINK,
            KEY_ALL_ACCESS | KEY_CREATE_LINK | KEY_WOW64_64KEY, nullptr, key.put(), nullptr);
        EXPECT_EQ(ERROR_SUCCESS, status) << path;
        const std::wstring target = L"\\Registry\\Machine\\Software\\ZelNowhere\\Gone";
        status = ::RegSetValueExW(key.get(), L"SymbolicLinkValue", 0, REG_LINK,
                                  reinterpret_cast<const BYTE*>(target.data()),
                                  static_cast<DWORD>(target.size() * sizeof(wchar_t)));
        EXPECT_EQ(ERROR_SUCCESS, status) << path;
    }
    ~VanishingKey() {
        using DeleteKey = LONG(WINAPI*)(HANDLE);
        const auto deleteKey = reinterpret_cast<DeleteKey>(reinterpret_cast<void*>(
            ::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "NtDeleteKey")));
        TqUniqueRegKey link;
        if (::RegOpenKeyExA(HKEY_LOCAL_MACHINE, path_.c_str(), REG_OPTION_OPEN_LINK,
                            DELETE | KEY_WOW64_64KEY, link.put()) == ERROR_SUCCESS &&
            deleteKey != nullptr) {
            EXPECT_EQ(0, deleteKey(link.get())) << path_;
        }
        EXPECT_FALSE(zeltest::KeyExists(HKEY_LOCAL_MACHINE, path_, KEY_WOW64_64KEY)) << path_;
    }
    VanishingKey(const VanishingKey&) = delete;
    VanishingKey& operator=(const VanishingKey&) = delete;

private:
    std::string path_;
};

// One generated workstation, planted in the registry for the life of the object.
class GeneratedTree {
public:
    explicit GeneratedTree(unsigned seed) : random_(seed) {
        const bool many = seed % 25 == 7;
        plantPrograms(kUninstallKey, KEY_WOW64_64KEY, many ? 300 : pick(10));
        plantPrograms(kUninstallKey, KEY_WOW64_32KEY, many ? 150 : pick(6));
        plantDriverPackages(pick(4));
        plantHostileRoots();
    }
    ~GeneratedTree() {
        denied_.clear();
        vanishing_.clear();
        for (const std::string& code : releaseKeys_) {
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, code, KEY_WOW64_64KEY);
        }
    }

private:
    int pick(int below) { return static_cast<int>(random_() % static_cast<unsigned>(below)); }
    bool chance(int percent) { return pick(100) < percent; }
    template <std::size_t N> const char* oneOf(const char* const (&pool)[N]) {
        return pool[pick(static_cast<int>(N))];
    }

    // A text value in one of the forms installers leave behind.
    void plantText(const std::string& key, const char* name, const std::string& text, REGSAM view) {
        const std::string shortName = std::string(name).substr(0, 7);
        switch (pick(12)) {
        case 0:
            return; // missing
        case 1:
            zeltest::WriteValue(HKEY_LOCAL_MACHINE, key, name, REG_BINARY, bytesOf(text), view);
            return;
        case 2:
            zeltest::WriteValue(HKEY_LOCAL_MACHINE, key, name, REG_EXPAND_SZ, withNul(text), view);
            return;
        case 3: // stored without its terminator
            zeltest::WriteExactValue(HKEY_LOCAL_MACHINE, key, name, REG_SZ, bytesOf(text), view);
            return;
        case 4: // text after a NUL
            zeltest::WriteExactValue(HKEY_LOCAL_MACHINE, key, name, REG_SZ,
                                     bytesOf(text + std::string(1, '\0') + "garbage"), view);
            return;
        case 5: // a name that is a leading part of the sought one
            zeltest::WriteString(HKEY_LOCAL_MACHINE, key, shortName.c_str(), text, view);
            return;
        case 6: // long text behind the right beginning
            zeltest::WriteString(HKEY_LOCAL_MACHINE, key, name, text + std::string(9000, 'x'),
                                 view);
            return;
        default:
            zeltest::WriteString(HKEY_LOCAL_MACHINE, key, name, text, view);
        }
    }

    void plantNumber(const std::string& key, const char* name, REGSAM view) {
        const DWORD number = static_cast<DWORD>(pick(12));
        switch (pick(6)) {
        case 0:
            return;
        case 1: // too short for a DWORD
            zeltest::WriteExactValue(HKEY_LOCAL_MACHINE, key, name, REG_DWORD, Bytes{7, 0}, view);
            return;
        case 2:
            zeltest::WriteString(HKEY_LOCAL_MACHINE, key, name, std::to_string(number), view);
            return;
        default:
            zeltest::WriteDword(HKEY_LOCAL_MACHINE, key, name, number, view);
        }
    }

    void plantProgram(const std::string& key, REGSAM view) {
        plantText(key, "DisplayName", oneOf(kDisplayNames), view);
        plantText(key, "Publisher", oneOf(kPublishers), view);
        plantText(key, "DisplayVersion", oneOf(kVersions), view);
        plantNumber(key, "VersionMajor", view);
        plantNumber(key, "VersionMinor", view);
        zeltest::WriteString(HKEY_LOCAL_MACHINE, key, "UninstallString", "MsiExec.exe /X", view);
        zeltest::WriteDword(HKEY_LOCAL_MACHINE, key, "EstimatedSize", 20480, view);
        if (chance(10)) { // an installer's own sub-key below the entry
            plantText(key + "\\ZELTEST-Inner", "DisplayName", oneOf(kDisplayNames), view);
        }
    }

    void plantPrograms(const char* root, REGSAM view, int count) {
        for (int i = 0; i < count; ++i) {
            // Random names, so that the enumeration order differs from tree to tree.
            const std::string key = std::string(root) + "\\ZELTEST-" +
                                    std::to_string(1000 + pick(9000)) + "-" + std::to_string(i);
            if (view == KEY_WOW64_64KEY && chance(3)) {
                plantVanishing(std::string(root) + "\\ZelVanishing-" + std::to_string(i));
                continue;
            }
            plantProgram(key, view);
            if (chance(5)) {
                denied_.push_back(
                    std::make_unique<zeltest::DeniedKey>(HKEY_LOCAL_MACHINE, key, view));
            }
        }
        if (view == KEY_WOW64_64KEY && chance(15)) {
            const std::string code = std::string(kUninstallKey) + "\\" + oneOf(kReleaseCodes);
            releaseKeys_.push_back(code);
            plantProgram(code, view);
        }
    }

    void plantDriverPackages(int count) {
        for (int i = 0; i < count; ++i) {
            const std::string key =
                std::string(kDriverUpdatesKey) + "\\ZELTEST-drv-" + std::to_string(i);
            if (!chance(10)) {
                zeltest::WriteValue(
                    HKEY_LOCAL_MACHINE, key, "HardwareIds", REG_MULTI_SZ,
                    zeltest::MultiString({oneOf(kHardwareIds), "scfilter\\generic"}),
                    KEY_WOW64_64KEY);
            }
            if (!chance(20)) {
                zeltest::WriteValue(
                    HKEY_LOCAL_MACHINE, key, "DriverPackageIds", REG_MULTI_SZ,
                    zeltest::MultiString({"zeltest_none.inf_amd64_" + std::to_string(i)}),
                    KEY_WOW64_64KEY);
            }
            if (chance(70)) {
                zeltest::WriteValue(
                    HKEY_LOCAL_MACHINE, key, chance(50) ? "InstallDate" : "FirstInstallDate",
                    REG_BINARY, Bytes(static_cast<std::size_t>(pick(10)), 0x5A), KEY_WOW64_64KEY);
            }
        }
    }

    void plantVanishing(const std::string& path) {
        vanishing_.push_back(std::make_unique<VanishingKey>(path));
    }

    // Now and then a whole tree is missing or cannot be read.
    void plantHostileRoots() {
        switch (pick(10)) {
        case 0:
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kUninstall32Key, KEY_WOW64_64KEY);
            break;
        case 1:
            zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, kDriverUpdatesKey, KEY_WOW64_64KEY);
            break;
        case 2:
            denied_.push_back(std::make_unique<zeltest::DeniedKey>(
                HKEY_LOCAL_MACHINE, kUninstall32Key, KEY_WOW64_64KEY));
            break;
        case 3:
            denied_.push_back(std::make_unique<zeltest::DeniedKey>(
                HKEY_LOCAL_MACHINE, kDriverUpdatesKey, KEY_WOW64_64KEY));
            break;
        default:
            break;
        }
    }

    std::mt19937 random_;
    std::vector<std::unique_ptr<zeltest::DeniedKey>> denied_;
    std::vector<std::unique_ptr<VanishingKey>> vanishing_;
    std::vector<std::string> releaseKeys_;
};

// What a batch of trees led the exports to meet, so that it cannot quietly become trivial.
struct Met {
    bool vanishedKey = false;
    bool deniedKey = false;
    bool detected = false;
    bool agentFound = false;

    void note(const std::string& exportName, const Seen& seen) {
        vanishedKey |= seen.error.find("\\ZelVanishing-") != std::string::npos &&
                       seen.error.find("Error Code (0x00000002)") != std::string::npos;
        deniedKey |= seen.error.find("Error Code (0x00000005)") != std::string::npos;
        detected |= seen.document.find("\"Detected\": \"true\"") != std::string::npos;
        agentFound |= exportName == "DetectIdentityAgent" && seen.code == 1;
    }
};

void expectSameWithAndWithoutSnapshot(unsigned firstSeed, unsigned seeds) {
    Met met;
    for (unsigned seed = firstSeed; seed < firstSeed + seeds; ++seed) {
        const zeltest::Workstation workstation;
        const GeneratedTree tree(seed);
        // An agent found installed counts only while its program runs.
        std::unique_ptr<zeltest::AgentStandIn> agent;
        if (seed % 3 == 0) {
            agent = std::make_unique<zeltest::AgentStandIn>(seed % 2 == 0 ? kTqKVRAgentExecutable
                                                                          : kTqBTAgentExecutable);
        }
        for (const NamedExport& named : kExports) {
            SCOPED_TRACE(std::string(named.name) + ", tree " + std::to_string(seed));
            const Seen fresh = callOnce(named.call, false);
            const Seen once = callOnce(named.call, true);
            EXPECT_EQ(fresh.code, once.code);
            EXPECT_EQ(fresh.document, once.document);
            EXPECT_EQ(fresh.output, once.output);
            EXPECT_EQ(fresh.error, once.error);
            EXPECT_EQ(fresh.log, once.log);
            EXPECT_FALSE(fresh.log.empty());
            met.note(named.name, fresh);
        }
        if (::testing::Test::HasFailure()) {
            return; // one tree's differences are enough to read
        }
    }
    EXPECT_TRUE(met.vanishedKey);
    EXPECT_TRUE(met.deniedKey);
    EXPECT_TRUE(met.detected);
    EXPECT_TRUE(met.agentFound);
}

} // namespace

TEST(ReadSnapshotEquivalence, Trees000To059) {
    expectSameWithAndWithoutSnapshot(0, 60);
}

TEST(ReadSnapshotEquivalence, Trees060To119) {
    expectSameWithAndWithoutSnapshot(60, 60);
}

TEST(ReadSnapshotEquivalence, Trees120To179) {
    expectSameWithAndWithoutSnapshot(120, 60);
}

TEST(ReadSnapshotEquivalence, Trees180To239) {
    expectSameWithAndWithoutSnapshot(180, 60);
}
