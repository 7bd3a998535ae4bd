// How long one registry search for a display name takes, as the middleware search runs it, and
// how long the client's SupportedMiddlewareDetection takes through the loaded DLL, against one
// plain walk that reads every value of the same tree once.
//
// For each product count it fills the Uninstall key of the machine hive with generated products
// (run it in a Wine prefix of its own: the key is emptied before and after), times each several
// times in this process and prints the medians and their ratios to the walk.
#include "ZelPlatformMethods64.h"
#include "host/TqRegistrySearch.h"
#include "base/TqUniqueResource.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr const char* kBenchRoot = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
constexpr const char* kBenchUninstall = kBenchRoot;
constexpr const char* kDriverUpdates =
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\DriverSearching\\DriverUpdates";
constexpr int kRuns = 7;
constexpr int kValuesPerProduct = 12;

[[noreturn]] void fail(const char* what, long code) {
    std::fprintf(stderr, "zel_registry_bench: %s failed (%ld)\n", what, code);
    std::exit(1);
}

void deleteBenchTree() {
    TqUniqueRegKey root;
    if (::RegOpenKeyExA(HKEY_LOCAL_MACHINE, kBenchRoot, 0, KEY_ALL_ACCESS | KEY_WOW64_64KEY,
                        root.put()) != ERROR_SUCCESS) {
        return;
    }
    ::RegDeleteTreeA(root.get(), nullptr);
    root.reset();
    ::RegDeleteKeyExA(HKEY_LOCAL_MACHINE, kBenchRoot, KEY_WOW64_64KEY, 0);
}

std::string productName(int index) {
    char name[64];
    std::snprintf(name, sizeof name, "Zel Bench Product %05d (x64)", index);
    return name;
}

std::string productCode(int index) {
    char code[64];
    std::snprintf(code, sizeof code, "{%08X-1D2C-4B3A-8F00-%012X}", 0x5A000000u + index,
                  0xC0FFEEu * (index + 1));
    return code;
}

void setString(HKEY key, const char* name, const std::string& text) {
    const LSTATUS status =
        ::RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                         static_cast<DWORD>(text.size() + 1));
    if (status != ERROR_SUCCESS) {
        fail("RegSetValueExA", status);
    }
}

void setDword(HKEY key, const char* name, DWORD value) {
    const LSTATUS status = ::RegSetValueExA(key, name, 0, REG_DWORD,
                                            reinterpret_cast<const BYTE*>(&value), sizeof value);
    if (status != ERROR_SUCCESS) {
        fail("RegSetValueExA", status);
    }
}

// Twelve values, shaped like the entry an MSI installer leaves behind.
void writeProducts(int count) {
    TqUniqueRegKey uninstall;
    LSTATUS status =
        ::RegCreateKeyExA(HKEY_LOCAL_MACHINE, kBenchUninstall, 0, nullptr, 0,
                          KEY_ALL_ACCESS | KEY_WOW64_64KEY, nullptr, uninstall.put(), nullptr);
    if (status != ERROR_SUCCESS) {
        fail("RegCreateKeyExA", status);
    }
    for (int i = 0; i < count; ++i) {
        TqUniqueRegKey product;
        const std::string code = productCode(i);
        status = ::RegCreateKeyExA(uninstall.get(), code.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                   nullptr, product.put(), nullptr);
        if (status != ERROR_SUCCESS) {
            fail("RegCreateKeyExA", status);
        }
        const DWORD major = 1 + i % 9;
        const DWORD minor = i % 100;
        const std::string folder = "C:\\Program Files\\Vendor " + std::to_string(i % 37) +
                                   "\\Product " + std::to_string(i) + "\\";
        setString(product.get(), "DisplayName", productName(i));
        setString(product.get(), "DisplayVersion",
                  std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(i));
        setString(product.get(), "Publisher", "Vendor " + std::to_string(i % 37));
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
}

// The library as the client loads it, from beside this program.
class PlatformLibrary {
public:
    PlatformLibrary() {
        char path[MAX_PATH * 4];
        std::string folder(path, ::GetModuleFileNameA(nullptr, path, sizeof path));
        folder.erase(folder.find_last_of("\\/") + 1);
        module_.reset(::LoadLibraryA((folder + "ZelPlatformMethods64.dll").c_str()));
        const auto getInterface =
            reinterpret_cast<ZelPlatformGetExportedInterfaceFn>(reinterpret_cast<void*>(
                ::GetProcAddress(module_.get(), "ZelPlatformGetExportedInterface")));
        if (getInterface == nullptr || getInterface(&api_) != 0) {
            fail("loading ZelPlatformMethods64.dll", static_cast<long>(::GetLastError()));
        }
    }
    const ZelPlatformExportedInterface& api() const { return api_; }

private:
    TqUniqueModule module_;
    ZelPlatformExportedInterface api_{};
};

void detectOnce(const PlatformLibrary& library) {
    char* document = nullptr;
    int length = 0;
    const int result = library.api().SupportedMiddlewareDetection(&document, &length, nullptr);
    if (result != 0 || document == nullptr) {
        fail("SupportedMiddlewareDetection", result);
    }
    library.api().FreeStringData(&document);
}

double nowMs() {
    static const double frequency = [] {
        LARGE_INTEGER f;
        ::QueryPerformanceFrequency(&f);
        return static_cast<double>(f.QuadPart);
    }();
    LARGE_INTEGER counter;
    ::QueryPerformanceCounter(&counter);
    return static_cast<double>(counter.QuadPart) * 1000.0 / frequency;
}

double median(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    const size_t middle = samples.size() / 2;
    return samples.size() % 2 != 0 ? samples[middle]
                                   : (samples[middle - 1] + samples[middle]) / 2.0;
}

// The middleware search: every product whose DisplayName begins with the text.
size_t searchOnce(const std::string& displayName) {
    TqRegistrySearchEntry entry;
    TqSetPrefixSearch(entry, "DisplayName", REG_SZ, displayName);
    const int result = TqFindRegistryKeyAndOrValueName(kBenchUninstall, &entry);
    if (result != 4) {
        fail("TqFindRegistryKeyAndOrValueName", result);
    }
    const size_t hits = entry.results.size();
    entry.ClearResults();
    return hits;
}

struct WalkCount {
    size_t keys = 0;
    size_t values = 0;
    size_t bytes = 0;
};

// One pass: every key opened relative to its parent once, every value read once into buffers
// sized from RegQueryInfoKeyA.
void walkKey(HKEY key, WalkCount& count) {
    DWORD subKeys = 0;
    DWORD maxSubKeyLength = 0;
    DWORD values = 0;
    DWORD maxValueNameLength = 0;
    DWORD maxValueLength = 0;
    LSTATUS status =
        ::RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &subKeys, &maxSubKeyLength, nullptr,
                           &values, &maxValueNameLength, &maxValueLength, nullptr, nullptr);
    if (status != ERROR_SUCCESS) {
        fail("RegQueryInfoKeyA", status);
    }
    ++count.keys;
    std::vector<char> name(maxValueNameLength + 1);
    std::vector<BYTE> data(maxValueLength + 1);
    for (DWORD index = 0; index < values; ++index) {
        DWORD nameLength = static_cast<DWORD>(name.size());
        DWORD dataLength = static_cast<DWORD>(data.size());
        DWORD type = 0;
        status = ::RegEnumValueA(key, index, name.data(), &nameLength, nullptr, &type, data.data(),
                                 &dataLength);
        if (status != ERROR_SUCCESS) {
            fail("RegEnumValueA", status);
        }
        ++count.values;
        count.bytes += dataLength;
    }
    std::vector<char> subKeyName(maxSubKeyLength + 1);
    for (DWORD index = 0; index < subKeys; ++index) {
        DWORD nameLength = static_cast<DWORD>(subKeyName.size());
        status = ::RegEnumKeyExA(key, index, subKeyName.data(), &nameLength, nullptr, nullptr,
                                 nullptr, nullptr);
        if (status != ERROR_SUCCESS) {
            fail("RegEnumKeyExA", status);
        }
        TqUniqueRegKey child;
        status = ::RegOpenKeyExA(key, subKeyName.data(), 0, KEY_READ, child.put());
        if (status != ERROR_SUCCESS) {
            fail("RegOpenKeyExA", status);
        }
        walkKey(child.get(), count);
    }
}

WalkCount walkOnce() {
    TqUniqueRegKey root;
    const LSTATUS status = ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, kBenchUninstall, 0,
                                           KEY_READ | KEY_WOW64_64KEY, root.put());
    if (status != ERROR_SUCCESS) {
        fail("RegOpenKeyExA", status);
    }
    WalkCount count;
    walkKey(root.get(), count);
    return count;
}

void benchmark(const PlatformLibrary& library, int products) {
    deleteBenchTree();
    const double writeStart = nowMs();
    writeProducts(products);
    const double writeMs = nowMs() - writeStart;

    const std::string sought = productName(products / 2);
    std::vector<double> searchMs;
    std::vector<double> detectMs;
    std::vector<double> walkMs;
    WalkCount walked;
    for (int run = 0; run < kRuns; ++run) {
        const double searchStart = nowMs();
        const size_t hits = searchOnce(sought);
        searchMs.push_back(nowMs() - searchStart);
        if (hits != 1) {
            fail("one hit expected, hits", static_cast<long>(hits));
        }
        const double detectStart = nowMs();
        detectOnce(library);
        detectMs.push_back(nowMs() - detectStart);
        const double walkStart = nowMs();
        walked = walkOnce();
        walkMs.push_back(nowMs() - walkStart);
    }
    if (walked.values != static_cast<size_t>(products) * kValuesPerProduct) {
        fail("walk counted values", static_cast<long>(walked.values));
    }
    const double search = median(searchMs);
    const double detect = median(detectMs);
    const double walk = median(walkMs);
    std::printf("%6d %8zu %10.1f %10.2f %10.2f %10.2f %8.2f %8.2f\n", products, walked.values,
                writeMs, walk, search, detect, search / walk, detect / walk);
    std::fflush(stdout);
    deleteBenchTree();
}

} // namespace

int main(int argc, char** argv) {
    std::vector<int> counts = {100, 500, 2000, 5000};
    if (argc > 1) {
        counts.clear();
        for (int i = 1; i < argc; ++i) {
            counts.push_back(std::atoi(argv[i]));
        }
    }
    std::printf("walk: one plain walk reading every value once; search: one registry search "
                "(flags 7,\n\"DisplayName\", one product's display name); detect: "
                "SupportedMiddlewareDetection through\nthe loaded DLL. Medians of %d runs, times "
                "in ms; ratios to the walk.\n\n",
                kRuns);
    std::printf("%6s %8s %10s %10s %10s %10s %8s %8s\n", "N", "values", "write", "walk", "search",
                "detect", "search/w", "detect/w");
    // The driver-update rows of the document need their key, as on every Windows machine.
    TqUniqueRegKey driverUpdates;
    ::RegCreateKeyExA(HKEY_LOCAL_MACHINE, kDriverUpdates, 0, nullptr, 0,
                      KEY_ALL_ACCESS | KEY_WOW64_64KEY, nullptr, driverUpdates.put(), nullptr);
    const PlatformLibrary library;
    for (const int products : counts) {
        if (products > 0) {
            benchmark(library, products);
        }
    }
    return 0;
}
