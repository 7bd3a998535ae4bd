#include "BenchRegistry.h"

#include "base/TqUniqueResource.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace {

constexpr const char* kTreePaths[] = {
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall",
    "SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Uninstall",
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\DriverSearching\\DriverUpdates",
};
constexpr const char* kTreeLabels[] = {"Uninstall(64)", "Uninstall(32)", "DriverUpdates"};

constexpr const char* kCardEntries[] = {
    "SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards\\JCOP 41 T=1",
    "SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards\\JCOP 41 T=1 RFID on OMNIKEY CardMan "
    "5x21-CL",
};

constexpr REGSAM kWriteAccess = KEY_ALL_ACCESS | KEY_WOW64_64KEY;

char lowerAscii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// path is prefix itself or a key below it, ignoring letter case.
bool isAtOrBelow(std::string_view path, std::string_view prefix) {
    if (path.size() < prefix.size() ||
        (path.size() > prefix.size() && path[prefix.size()] != '\\')) {
        return false;
    }
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        if (lowerAscii(path[i]) != lowerAscii(prefix[i])) {
            return false;
        }
    }
    return true;
}

TqUniqueRegKey createKey(HKEY parent, const std::string& path) {
    TqUniqueRegKey key;
    const LSTATUS status = ::RegCreateKeyExA(parent, path.c_str(), 0, nullptr, 0, kWriteAccess,
                                             nullptr, key.put(), nullptr);
    if (status != ERROR_SUCCESS) {
        BenchFail(("RegCreateKeyExA " + path).c_str(), status);
    }
    return key;
}

void setValue(HKEY key, const char* name, DWORD type, const void* data, std::size_t size) {
    const LSTATUS status = ::RegSetValueExA(key, name, 0, type, static_cast<const BYTE*>(data),
                                            static_cast<DWORD>(size));
    if (status != ERROR_SUCCESS) {
        BenchFail("RegSetValueExA", status);
    }
}

void setString(HKEY key, const char* name, const std::string& text) {
    setValue(key, name, REG_SZ, text.c_str(), text.size() + 1);
}

void setDword(HKEY key, const char* name, DWORD value) {
    setValue(key, name, REG_DWORD, &value, sizeof value);
}

// Nothing a detection looks for begins with "Zel Bench".
std::string productName(int index, const char* platform) {
    char name[64];
    std::snprintf(name, sizeof name, "Zel Bench Product %05d (%s)", index, platform);
    return name;
}

std::string productCode(int index, unsigned view) {
    char code[64];
    std::snprintf(code, sizeof code, "{%08X-1D2C-4B3A-8F0%u-%012X}", 0x5A000000u + index, view,
                  0xC0FFEEu * (index + 1));
    return code;
}

// Twelve values, shaped like the entry an MSI installer leaves behind.
void writeProduct(HKEY uninstall, int i, unsigned view) {
    const std::string code = productCode(i, view);
    const TqUniqueRegKey product = createKey(uninstall, code);
    const DWORD major = 1 + i % 9;
    const DWORD minor = i % 100;
    const std::string vendor = "Vendor " + std::to_string(i % 37);
    const std::string folder =
        std::string(view == 64 ? "C:\\Program Files\\" : "C:\\Program Files (x86)\\") + vendor +
        "\\Product " + std::to_string(i) + "\\";
    setString(product.get(), "DisplayName", productName(i, view == 64 ? "x64" : "x86"));
    setString(product.get(), "DisplayVersion",
              std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(i));
    setString(product.get(), "Publisher", vendor);
    setString(product.get(), "InstallDate", "20240" + std::to_string(1 + i % 9) + "15");
    setString(product.get(), "InstallLocation", folder);
    setString(product.get(), "UninstallString", "MsiExec.exe /X" + code);
    setString(product.get(), "ModifyPath", "MsiExec.exe /I" + code);
    setDword(product.get(), "EstimatedSize", 1024 + 17 * i);
    setDword(product.get(), "VersionMajor", major);
    setDword(product.get(), "VersionMinor", minor);
    setDword(product.get(), "Language", 1033);
    setDword(product.get(), "NoModify", 1);
}

void deleteTree(const char* path) {
    TqUniqueRegKey key;
    if (::RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, kWriteAccess, key.put()) != ERROR_SUCCESS) {
        return;
    }
    ::RegDeleteTreeA(key.get(), nullptr);
    key.reset();
    ::RegDeleteKeyExA(HKEY_LOCAL_MACHINE, path, KEY_WOW64_64KEY, 0);
}

void walkKey(HKEY key, TreeWalk& walk) {
    DWORD subKeys = 0;
    DWORD maxSubKeyLength = 0;
    DWORD values = 0;
    DWORD maxValueNameLength = 0;
    DWORD maxValueLength = 0;
    LSTATUS status =
        ::RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &subKeys, &maxSubKeyLength, nullptr,
                           &values, &maxValueNameLength, &maxValueLength, nullptr, nullptr);
    if (status != ERROR_SUCCESS) {
        BenchFail("RegQueryInfoKeyA", status);
    }
    ++walk.keys;
    std::vector<char> name(maxValueNameLength + 1);
    std::vector<BYTE> data(maxValueLength + 1);
    for (DWORD index = 0; index < values; ++index) {
        DWORD nameLength = static_cast<DWORD>(name.size());
        DWORD dataLength = static_cast<DWORD>(data.size());
        DWORD type = 0;
        status = ::RegEnumValueA(key, index, name.data(), &nameLength, nullptr, &type, data.data(),
                                 &dataLength);
        if (status != ERROR_SUCCESS) {
            BenchFail("RegEnumValueA", status);
        }
        ++walk.values;
        walk.dataBytes += dataLength;
    }
    std::vector<char> subKeyName(maxSubKeyLength + 1);
    for (DWORD index = 0; index < subKeys; ++index) {
        DWORD nameLength = static_cast<DWORD>(subKeyName.size());
        status = ::RegEnumKeyExA(key, index, subKeyName.data(), &nameLength, nullptr, nullptr,
                                 nullptr, nullptr);
        if (status != ERROR_SUCCESS) {
            BenchFail("RegEnumKeyExA", status);
        }
        ++walk.subKeys;
        TqUniqueRegKey child;
        status = ::RegOpenKeyExA(key, subKeyName.data(), 0, KEY_READ, child.put());
        if (status != ERROR_SUCCESS) {
            BenchFail("RegOpenKeyExA", status);
        }
        walkKey(child.get(), walk);
    }
}

} // namespace

const char* BenchTreePath(BenchTree tree) {
    return kTreePaths[static_cast<std::size_t>(tree)];
}

const char* BenchTreeLabel(BenchTree tree) {
    return kTreeLabels[static_cast<std::size_t>(tree)];
}

BenchTree BenchTreeOf(const std::string& path, REGSAM access) {
    std::string viewPath = path;
    // A 32-bit view open of a SOFTWARE path lands under Wow6432Node.
    if ((access & KEY_WOW64_32KEY) != 0 && isAtOrBelow(path, "SOFTWARE") &&
        !isAtOrBelow(path, "SOFTWARE\\Wow6432Node")) {
        viewPath = "SOFTWARE\\Wow6432Node" + path.substr(8);
    }
    for (std::size_t tree = 0; tree < kBenchTrees; ++tree) {
        if (isAtOrBelow(viewPath, kTreePaths[tree])) {
            return static_cast<BenchTree>(tree);
        }
    }
    return BenchTree::kCount;
}

TreeWalk WalkBenchTree(BenchTree tree) {
    TreeWalk walk;
    TqUniqueRegKey root;
    const LSTATUS status = ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, BenchTreePath(tree), 0,
                                           KEY_READ | KEY_WOW64_64KEY, root.put());
    if (status == ERROR_FILE_NOT_FOUND) {
        return walk;
    }
    if (status != ERROR_SUCCESS) {
        BenchFail("RegOpenKeyExA", status);
    }
    walk.present = true;
    walkKey(root.get(), walk);
    return walk;
}

void FillInstalledPrograms(int count) {
    deleteTree(BenchTreePath(BenchTree::Uninstall64));
    deleteTree(BenchTreePath(BenchTree::Uninstall32));
    const TqUniqueRegKey uninstall64 =
        createKey(HKEY_LOCAL_MACHINE, BenchTreePath(BenchTree::Uninstall64));
    const TqUniqueRegKey uninstall32 =
        createKey(HKEY_LOCAL_MACHINE, BenchTreePath(BenchTree::Uninstall32));
    for (int i = 0; i < count; ++i) {
        writeProduct(uninstall64.get(), i, 64);
        writeProduct(uninstall32.get(), i, 32);
    }
}

void FillDriverUpdates(int count) {
    deleteTree(BenchTreePath(BenchTree::DriverUpdates));
    const TqUniqueRegKey updates =
        createKey(HKEY_LOCAL_MACHINE, BenchTreePath(BenchTree::DriverUpdates));
    for (int i = 0; i < count; ++i) {
        char name[64];
        std::snprintf(name, sizeof name, "zelbench%02d.inf_amd64_%08x", i, 0x1234567u * (i + 1));
        const TqUniqueRegKey record = createKey(updates.get(), name);
        // A multi-string: each piece NUL-terminated, and one more NUL ending the list.
        std::string hardwareIds = "scfilter\\cid_0000bench-" + std::to_string(i);
        hardwareIds += '\0';
        hardwareIds += "scfilter\\cid_0000bench";
        hardwareIds += '\0';
        setValue(record.get(), "HardwareIds", REG_MULTI_SZ, hardwareIds.c_str(),
                 hardwareIds.size() + 1);
        std::string packageIds = name;
        packageIds += '\0';
        setValue(record.get(), "DriverPackageIds", REG_MULTI_SZ, packageIds.c_str(),
                 packageIds.size() + 1);
        const ULONGLONG installDate = 133500000000000000ull + i;
        setValue(record.get(), "InstallDate", REG_BINARY, &installDate, sizeof installDate);
    }
}

void WriteCardEntries() {
    for (const char* path : kCardEntries) {
        const TqUniqueRegKey entry = createKey(HKEY_LOCAL_MACHINE, path);
        const BYTE atr[] = {0x3B, 0xF9, 0x18, 0x00, 0x00, 0x81, 0x31, 0xFE, 0x45};
        setValue(entry.get(), "ATR", REG_BINARY, atr, sizeof atr);
    }
}

void DeleteBenchTrees() {
    for (const char* path : kTreePaths) {
        deleteTree(path);
    }
}

void BenchFail(const char* what, long code) {
    std::fprintf(stderr, "zel_registry_bench: %s failed (%ld)\n", what, code);
    std::exit(1);
}
