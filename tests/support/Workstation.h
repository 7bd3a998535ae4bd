// A workstation's installed middleware, made in the real registry and file system of the prefix:
// Uninstall entries of installed programs and driver packages of Windows Update. Everything it
// adds carries the "ZELTEST" mark and is removed when it is made and when it ends.
#pragma once

#include <windows.h>

#include "support/CallerTrace.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zeltest {

inline constexpr const char* kUninstallKey =
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
inline constexpr const char* kUninstall32Key =
    "SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
inline constexpr const char* kDriverUpdatesKey =
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\DriverSearching\\DriverUpdates";

struct InstalledProgram {
    std::string entry; // sub-key name under Uninstall; must contain "ZELTEST"
    std::string displayName;
    std::optional<std::string> publisher;
    std::optional<std::string> displayVersion;
    std::optional<DWORD> versionMajor;
    std::optional<DWORD> versionMinor;
};

struct DriverPackage {
    std::string entry;     // sub-key name under DriverUpdates; must contain "ZELTEST"
    std::string driverId;  // HardwareIds gets "scfilter\" + driverId
    std::string packageId; // folder under DriverStore\FileRepository; must contain "zeltest"
    std::optional<std::vector<BYTE>> installDate;
    std::optional<std::vector<BYTE>> firstInstallDate;
    const char* minidriverModule = nullptr; // kit module copied as CIVMinidriver64.dll
    bool folderInDriverStore = true;
};

// The bytes of a REG_MULTI_SZ value: each string with its NUL, and the NUL that ends the list.
std::vector<BYTE> MultiString(const std::vector<std::string>& strings);

// The eight bytes of a 64-bit install date.
std::vector<BYTE> InstallDateBytes(std::uint64_t date);

class Workstation {
public:
    explicit Workstation(CallSite caller = CallSite::current());
    ~Workstation();
    Workstation(const Workstation&) = delete;
    Workstation& operator=(const Workstation&) = delete;

    void install(const InstalledProgram& program, REGSAM view = KEY_WOW64_64KEY,
                 CallSite caller = CallSite::current());
    void install(const DriverPackage& package, CallSite caller = CallSite::current());

    static std::string driverStoreFolder(CallSite caller = CallSite::current());

private:
    static void removeEverything();

    CallSite made_; // the test's line that made it, which its clean-up also reports
};

// The first ATR byte of each JCOP 41 card entry: 64-bit contact, contactless, 32-bit contact,
// contactless; -1 for one that is not there.
std::vector<int> JcopAtrFirstBytes();

} // namespace zeltest
