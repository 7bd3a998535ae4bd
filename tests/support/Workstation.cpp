#include "support/Workstation.h"

#include "support/TestSupport.h"

#include "card/TqATRMiddleware.h"

#include <gtest/gtest.h>
#include <shlobj.h>

namespace zeltest {

namespace {

std::vector<std::string> subKeysMarked(HKEY root, const std::string& path, REGSAM view) {
    std::vector<std::string> names;
    TqUniqueRegKey key;
    if (::RegOpenKeyExA(root, path.c_str(), 0, KEY_READ | view, key.put()) != ERROR_SUCCESS) {
        return names;
    }
    char name[1024];
    for (DWORD index = 0;; ++index) {
        DWORD length = sizeof name;
        if (::RegEnumKeyExA(key.get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS) {
            break;
        }
        if (std::string(name, length).find("ZELTEST") != std::string::npos) {
            names.emplace_back(name, length);
        }
    }
    return names;
}

void removeMarkedSubKeys(HKEY root, const std::string& path, REGSAM view) {
    for (const std::string& name : subKeysMarked(root, path, view)) {
        DeleteKeyTree(root, path + "\\" + name, view);
    }
}

void removeMarkedFolders(const std::string& parent) {
    WIN32_FIND_DATAA found;
    const TqUniqueFindHandle search(::FindFirstFileA((parent + "\\*zeltest*").c_str(), &found));
    if (!search) {
        return;
    }
    do {
        const std::string folder = parent + "\\" + found.cFileName;
        ::DeleteFileA((folder + "\\CIVMinidriver64.dll").c_str());
        ::RemoveDirectoryA(folder.c_str());
    } while (::FindNextFileA(search.get(), &found));
}

} // namespace

std::vector<BYTE> InstallDateBytes(std::uint64_t date) {
    std::vector<BYTE> bytes(8);
    for (int i = 0; i < 8; ++i) {
        bytes[i] = static_cast<BYTE>(date >> (8 * i));
    }
    return bytes;
}

std::string Workstation::driverStoreFolder(CallSite caller) {
    const CallerTrace trace(caller);
    char system[MAX_PATH];
    EXPECT_EQ(S_OK, ::SHGetFolderPathA(nullptr, CSIDL_SYSTEM, nullptr, 0, system));
    return std::string(system) + "\\DriverStore\\FileRepository";
}

std::vector<BYTE> MultiString(const std::vector<std::string>& strings) {
    std::vector<BYTE> bytes;
    for (const std::string& text : strings) {
        bytes.insert(bytes.end(), text.begin(), text.end());
        bytes.push_back(0);
    }
    bytes.push_back(0);
    return bytes;
}

Workstation::Workstation(CallSite caller) : made_(caller) {
    const CallerTrace trace(caller);
    removeEverything();
    // Every Windows machine has these keys; a fresh prefix does not.
    CreateKey(HKEY_LOCAL_MACHINE, kUninstallKey, KEY_WOW64_64KEY);
    CreateKey(HKEY_LOCAL_MACHINE, kUninstallKey, KEY_WOW64_32KEY);
    CreateKey(HKEY_LOCAL_MACHINE, kDriverUpdatesKey, KEY_WOW64_64KEY);
}

Workstation::~Workstation() {
    const CallerTrace trace(made_);
    removeEverything();
}

void Workstation::removeEverything() {
    removeMarkedSubKeys(HKEY_LOCAL_MACHINE, kUninstallKey, KEY_WOW64_64KEY);
    removeMarkedSubKeys(HKEY_LOCAL_MACHINE, kUninstallKey, KEY_WOW64_32KEY);
    removeMarkedSubKeys(HKEY_LOCAL_MACHINE, kDriverUpdatesKey, KEY_WOW64_64KEY);
    removeMarkedFolders(driverStoreFolder());
}

void Workstation::install(const InstalledProgram& program, REGSAM view, CallSite caller) {
    const CallerTrace trace(caller);
    ASSERT_NE(std::string::npos, program.entry.find("ZELTEST")) << program.entry;
    const std::string key = std::string(kUninstallKey) + "\\" + program.entry;
    WriteString(HKEY_LOCAL_MACHINE, key, "DisplayName", program.displayName, view);
    if (program.publisher) {
        WriteString(HKEY_LOCAL_MACHINE, key, "Publisher", *program.publisher, view);
    }
    if (program.displayVersion) {
        WriteString(HKEY_LOCAL_MACHINE, key, "DisplayVersion", *program.displayVersion, view);
    }
    if (program.versionMajor) {
        WriteDword(HKEY_LOCAL_MACHINE, key, "VersionMajor", *program.versionMajor, view);
    }
    if (program.versionMinor) {
        WriteDword(HKEY_LOCAL_MACHINE, key, "VersionMinor", *program.versionMinor, view);
    }
    // Real entries carry more values than the search looks at.
    WriteString(HKEY_LOCAL_MACHINE, key, "UninstallString", "MsiExec.exe /X" + program.entry, view);
    WriteDword(HKEY_LOCAL_MACHINE, key, "EstimatedSize", 20480, view);
}

void Workstation::install(const DriverPackage& package, CallSite caller) {
    const CallerTrace trace(caller);
    ASSERT_NE(std::string::npos, package.entry.find("ZELTEST")) << package.entry;
    ASSERT_NE(std::string::npos, package.packageId.find("zeltest")) << package.packageId;
    const std::string key = std::string(kDriverUpdatesKey) + "\\" + package.entry;
    WriteValue(HKEY_LOCAL_MACHINE, key, "HardwareIds", REG_MULTI_SZ,
               MultiString({"scfilter\\" + package.driverId, "scfilter\\generic"}),
               KEY_WOW64_64KEY);
    WriteValue(HKEY_LOCAL_MACHINE, key, "DriverPackageIds", REG_MULTI_SZ,
               MultiString({package.packageId}), KEY_WOW64_64KEY);
    if (package.installDate) {
        WriteValue(HKEY_LOCAL_MACHINE, key, "InstallDate", REG_BINARY, *package.installDate,
                   KEY_WOW64_64KEY);
    }
    if (package.firstInstallDate) {
        WriteValue(HKEY_LOCAL_MACHINE, key, "FirstInstallDate", REG_BINARY,
                   *package.firstInstallDate, KEY_WOW64_64KEY);
    }
    if (!package.folderInDriverStore) {
        return;
    }
    const std::string store = driverStoreFolder();
    ::SHCreateDirectoryExA(nullptr, store.c_str(), nullptr);
    const std::string folder = store + "\\" + package.packageId;
    ASSERT_TRUE(::CreateDirectoryA(folder.c_str(), nullptr) ||
                ::GetLastError() == ERROR_ALREADY_EXISTS)
        << folder;
    if (package.minidriverModule != nullptr) {
        ASSERT_TRUE(::CopyFileA(BuiltFile(package.minidriverModule).c_str(),
                                (folder + "\\CIVMinidriver64.dll").c_str(), FALSE))
            << ::GetLastError();
    }
}

std::vector<int> JcopAtrFirstBytes() {
    std::vector<int> bytes;
    for (const REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
        for (const char* key : {kTqJcopContactKey, kTqJcopContactlessKey}) {
            const StoredValue value = ReadValue(HKEY_LOCAL_MACHINE, key, "ATR", view);
            bytes.push_back(value.present && !value.data.empty() ? value.data[0] : -1);
        }
    }
    return bytes;
}

} // namespace zeltest
