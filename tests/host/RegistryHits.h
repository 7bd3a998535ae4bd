// What the registry-search tests compare: hits as plain values, data as bytes, and the
// diagnostic lines the search writes for a failed open.
#pragma once

#include "host/TqRegistrySearch.h"
#include "base/TqErrorText.h"
#include "support/CallerTrace.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace zeltest {

using Bytes = std::vector<BYTE>;

// The bytes of a text, without a terminator.
inline Bytes TextBytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

// The bytes of a text as RegSetValueExA stores a REG_SZ written with its terminator.
inline Bytes SzBytes(const std::string& text) {
    Bytes bytes = TextBytes(text);
    bytes.push_back(0);
    return bytes;
}

inline Bytes DwordBytes(DWORD value) {
    const BYTE* raw = reinterpret_cast<const BYTE*>(&value);
    return Bytes(raw, raw + sizeof value);
}

struct Hit {
    std::string keyPath;
    std::string valueName;
    DWORD valueType = 0;
    bool hasData = false;
    Bytes data;

    bool operator==(const Hit& other) const = default;
};

inline void PrintTo(const Hit& hit, std::ostream* out) {
    *out << "{" << hit.keyPath << " | " << hit.valueName << " | type " << hit.valueType << " | ";
    if (!hit.hasData) {
        *out << "no data}";
        return;
    }
    *out << hit.data.size() << " bytes:";
    for (size_t i = 0; i < hit.data.size() && i < 64; ++i) {
        const BYTE b = hit.data[i];
        if (b >= 0x20 && b < 0x7f) {
            *out << static_cast<char>(b);
        } else {
            *out << "\\x" << std::hex << static_cast<int>(b) << std::dec;
        }
    }
    *out << (hit.data.size() > 64 ? "...}" : "}");
}

inline TqRegistrySearchEntry ValueSearch(HKEY root, std::uint32_t flags, const char* valueName,
                                         DWORD type) {
    TqRegistrySearchEntry entry;
    entry.flags = flags;
    entry.root = root;
    entry.valueName = valueName;
    entry.valueType = type;
    return entry;
}

inline TqRegistrySearchEntry KeySearch(HKEY root, std::uint32_t flags, const char* keyName) {
    TqRegistrySearchEntry entry;
    entry.flags = flags;
    entry.root = root;
    entry.keyName = keyName;
    return entry;
}

// A key-name hit: the path only.
inline Hit KeyHit(const std::string& keyPath) {
    return Hit{keyPath, "", 0, false, {}};
}

inline Hit ValueHit(const std::string& keyPath, const std::string& valueName, DWORD type) {
    return Hit{keyPath, valueName, type, false, {}};
}

inline Hit DataHit(const std::string& keyPath, const std::string& valueName, DWORD type,
                   const Bytes& data) {
    return Hit{keyPath, valueName, type, true, data};
}

// The entry's hits as values; every hit must have reserved 0 and a data pointer exactly when
// it has a length or was handed data.
inline std::vector<Hit> Hits(const TqRegistrySearchEntry& entry,
                             CallSite caller = CallSite::current()) {
    const CallerTrace trace(caller);
    std::vector<Hit> hits;
    for (const auto& result : entry.results) {
        if (result == nullptr) {
            ADD_FAILURE() << "null hit in the results";
            continue;
        }
        EXPECT_EQ(0u, result->reserved);
        Hit hit{result->keyPath, result->valueName, result->valueType, result->data != nullptr, {}};
        if (result->data != nullptr) {
            hit.data.assign(result->data.get(), result->data.get() + result->dataLength);
        } else {
            EXPECT_EQ(0u, result->dataLength);
        }
        hits.push_back(hit);
    }
    return hits;
}

// The line the search writes when a key cannot be opened: its message carries the system text
// once, and the handler adds the code and text again.
inline std::string OpenFailureLine(const std::string& keyPath, DWORD code) {
    return "TqFindRegistryKeyAndOrValueName : RegOpenKeyEx Failed for '" + keyPath +
           "'. Error Code " + TqGetLastErrorAsString(code) + " Error Code " +
           TqGetLastErrorAsString(code) + "\n";
}

} // namespace zeltest
