// The per-call read snapshot of the trees that detection searches over and over: the installed
// programs (both registry views) and the driver updates. While a scope is open on a thread,
// the registry search reads each key of those trees at most once and answers every later pass
// from what it read, failures included, so nothing written differs from reading afresh.
//
// The snapshot keeps key names, sub-key and value names and the data of the values detection
// looks for; no other data, and no key outside those trees, none of which an export writes.
#pragma once

#include "TqRegistryKeyRead.h"

#include <windows.h>

#include <memory>
#include <string>

// The keys read so far in one call.
struct TqRegistrySnapshot;

// Opens the thread's snapshot for the life of the object. Inside an open scope it does nothing,
// so a worker may open one whether or not its caller did; the outermost scope drops the
// snapshot when it ends.
class TqRegistrySnapshotScope {
public:
    TqRegistrySnapshotScope();
    ~TqRegistrySnapshotScope();
    TqRegistrySnapshotScope(const TqRegistrySnapshotScope&) = delete;
    TqRegistrySnapshotScope& operator=(const TqRegistrySnapshotScope&) = delete;

private:
    std::unique_ptr<TqRegistrySnapshot> snapshot_; // only in the outermost scope
};

// A key as a search reads it: from the thread's snapshot when one is open and covers the key and
// the sought value, else read afresh (and then owned here).
class TqSearchKeyRead {
public:
    // valueName is the value the search looks for, or null for a search of key names.
    TqSearchKeyRead(HKEY root, const std::string& keyPath, const char* valueName);
    const TqRegistryKeyRead& get() const noexcept { return *read_; }
    const TqRegistryKeyRead* operator->() const noexcept { return read_; }

private:
    std::unique_ptr<TqRegistryKeyRead> own_;
    const TqRegistryKeyRead* read_ = nullptr;
};
