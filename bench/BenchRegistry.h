// The trees the benchmark fills and walks, under HKEY_LOCAL_MACHINE: the installed programs in
// both registry views and the driver updates. Run it in a Wine prefix of its own: the trees are
// emptied and refilled.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

enum class BenchTree : std::size_t { Uninstall64, Uninstall32, DriverUpdates, kCount };

constexpr std::size_t kBenchTrees = static_cast<std::size_t>(BenchTree::kCount);

// Its path, always read in the 64-bit view (the 32-bit one by its Wow6432Node path).
const char* BenchTreePath(BenchTree tree);
const char* BenchTreeLabel(BenchTree tree);

// The tree whose key or descendant this open is (access decides the view of a SOFTWARE path),
// or kCount for a key outside the three.
BenchTree BenchTreeOf(const std::string& path, REGSAM access);

// What one plain walk of a tree met.
struct TreeWalk {
    bool present = false;
    std::uint64_t keys = 0;
    std::uint64_t subKeys = 0; // sub-keys enumerated
    std::uint64_t values = 0;
    std::uint64_t dataBytes = 0;

    // The fewest registry calls that read the tree: per key one open, one size query and one
    // close, one call per sub-key and per value; a missing tree costs its failed open.
    std::uint64_t minimumCalls() const { return present ? 3 * keys + subKeys + values : 1; }
};

// One pass: every key opened once (relative to its parent), one RegQueryInfoKeyA per key, every
// value read once into buffers sized from it, the sub-keys enumerated once, each key closed.
TreeWalk WalkBenchTree(BenchTree tree);

// count products of twelve MSI-shaped values in each view's Uninstall key, nothing else there.
// No display name begins with a name detection looks for.
void FillInstalledPrograms(int count);

// A few driver-update records, none of a hardware id detection looks for.
void FillDriverUpdates(int count);

// The JCOP 41 card entries, both naming the GemSafe minidriver, so that reading them succeeds.
void WriteCardEntries();

// Empties the Uninstall keys of both views and the driver updates.
void DeleteBenchTrees();

[[noreturn]] void BenchFail(const char* what, long code);
