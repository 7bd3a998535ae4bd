// The flags of a registry search and the path rule behind its key-name matching. Free of
// <windows.h>: builds natively as well.
#pragma once

#include <cstdint>
#include <string>

// Bits of TqRegistrySearchEntry::flags.
inline constexpr std::uint32_t SEARCH_COMPARE_DATA = 0x01; // the data must equal compareData
inline constexpr std::uint32_t SEARCH_DATA_PREFIX = 0x02;  // with 0x01: need only begin with it
inline constexpr std::uint32_t SEARCH_RETURN_DATA = 0x04;  // the matched data goes to the hit
inline constexpr std::uint32_t SEARCH_KEY_NAME = 0x08;     // no valueName: record keys by name
inline constexpr std::uint32_t SEARCH_KEY_IN_PATH = 0x10;  // values only where the path has it
inline constexpr std::uint32_t SEARCH_PATH_ANY = 0x20;     // any occurrence, whole path
inline constexpr std::uint32_t SEARCH_PATH_WALK_UP = 0x40; // retry on the parent path

// Whether keyName occurs in path as a key name. 1 = found (foundPath set), 0 = not found,
// -1 = empty argument, -23 = exception.
int TqReverseSearchInRegistryPath(const std::string& path, const std::string& keyName,
                                  std::uint32_t flags, std::string& foundPath);
