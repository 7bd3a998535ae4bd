#include "TqRegistrySnapshot.h"
#include "TqRegistrySnapshotSeam.h"

#include <cstring>
#include <string_view>
#include <unordered_map>

namespace {

// The trees detection searches, under HKEY_LOCAL_MACHINE.
constexpr std::string_view kCoveredTrees[] = {
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall",
    "SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Uninstall",
    "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\DriverSearching\\DriverUpdates",
};

// The values detection looks for in them. A search for any other value reads afresh.
const TqKeptValueNames kCoveredValues = {
    "DisplayName", "DisplayVersion",   "Publisher",   "VersionMajor",     "VersionMinor",
    "HardwareIds", "DriverPackageIds", "InstallDate", "FirstInstallDate",
};

char lowerAscii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Registry paths ignore letter case; a covered path is the tree's key or one below it.
bool isCovered(std::string_view keyPath) {
    for (const std::string_view tree : kCoveredTrees) {
        if (keyPath.size() < tree.size() ||
            (keyPath.size() > tree.size() && keyPath[tree.size()] != '\\')) {
            continue;
        }
        bool same = true;
        for (std::size_t i = 0; i < tree.size() && same; ++i) {
            same = lowerAscii(keyPath[i]) == lowerAscii(tree[i]);
        }
        if (same) {
            return true;
        }
    }
    return false;
}

bool isCoveredValue(const char* valueName) {
    if (valueName == nullptr) {
        return true; // a search of key names reads names only
    }
    for (const char* name : kCoveredValues) {
        if (std::strcmp(name, valueName) == 0) {
            return true;
        }
    }
    return false;
}

thread_local TqRegistrySnapshot* threadSnapshot = nullptr;

} // namespace

// The keys by their path under HKEY_LOCAL_MACHINE as the search spelled it.
struct TqRegistrySnapshot {
    std::unordered_map<std::string, TqRegistryKeyRead> keys;
};

TqRegistrySnapshotScope::TqRegistrySnapshotScope() {
    if (threadSnapshot == nullptr && TqRegistrySnapshotsAllowed()) {
        snapshot_ = std::make_unique<TqRegistrySnapshot>();
        threadSnapshot = snapshot_.get();
    }
}

TqRegistrySnapshotScope::~TqRegistrySnapshotScope() {
    if (snapshot_ != nullptr) {
        threadSnapshot = nullptr;
    }
}

TqSearchKeyRead::TqSearchKeyRead(HKEY root, const std::string& keyPath, const char* valueName) {
    TqRegistrySnapshot* snapshot = threadSnapshot;
    if (snapshot != nullptr && root == HKEY_LOCAL_MACHINE && isCoveredValue(valueName) &&
        isCovered(keyPath)) {
        auto found = snapshot->keys.find(keyPath);
        if (found == snapshot->keys.end()) {
            found =
                snapshot->keys.emplace(keyPath, TqReadRegistryKey(root, keyPath, kCoveredValues))
                    .first;
        }
        read_ = &found->second;
        return;
    }
    own_ = std::make_unique<TqRegistryKeyRead>(TqReadRegistryKey(root, keyPath, {valueName}));
    read_ = own_.get();
}
