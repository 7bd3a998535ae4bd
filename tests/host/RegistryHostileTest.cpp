// Registry content the search must survive: values without data, strings without their
// terminator, very large values, very many values, very deep keys.
#include "host/RegistryHits.h"
#include "support/CapturedStreams.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

using namespace zeltest;

const std::string kHostile = "Software\\ZelRegistryHostileTest";

std::string hostile(const std::string& sub) {
    return sub.empty() ? kHostile : kHostile + "\\" + sub;
}

// Wine's ANSI registry functions convert a key path into a buffer of 260 characters: a longer
// path cannot be opened and fails with ERROR_MORE_DATA.
constexpr size_t kWineAnsiPathLimit = 260;

class HostileRegistry : public ::testing::Test {
protected:
    void SetUp() override {
        DeleteKeyTree(HKEY_CURRENT_USER, kHostile);
        CreateKey(HKEY_CURRENT_USER, kHostile);
    }
    void TearDown() override { DeleteKeyTree(HKEY_CURRENT_USER, kHostile); }

    static TqRegistrySearchEntry valueSearch(std::uint32_t flags, const char* valueName,
                                             DWORD type) {
        return ValueSearch(HKEY_CURRENT_USER, flags, valueName, type);
    }

    int search(TqRegistrySearchEntry& entry, const std::string& sub = "") {
        CapturedStderr errors;
        const int result = TqFindRegistryKeyAndOrValueName(hostile(sub), &entry);
        err = errors.text();
        return result;
    }

    // A chain of keys named "n", depth levels below sub, made one level at a time through the
    // parent's handle (one call per level, no path-length limit). Returns the deepest path.
    static std::string makeChain(const std::string& sub, int depth) {
        TqUniqueRegKey parent;
        EXPECT_EQ(ERROR_SUCCESS,
                  ::RegCreateKeyExA(HKEY_CURRENT_USER, hostile(sub).c_str(), 0, nullptr, 0,
                                    KEY_ALL_ACCESS, nullptr, parent.put(), nullptr));
        std::string path = hostile(sub);
        for (int level = 0; level < depth; ++level) {
            TqUniqueRegKey child;
            EXPECT_EQ(ERROR_SUCCESS,
                      ::RegCreateKeyExA(parent.get(), "n", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                        child.put(), nullptr));
            parent = std::move(child);
            path += "\\n";
        }
        return path;
    }

    std::string err;
};

TEST_F(HostileRegistry, ValuesWithoutDataDoNotDisturbTheSearch) {
    WriteExactValue(HKEY_CURRENT_USER, hostile("P"), "Comments", REG_SZ, {});
    WriteExactValue(HKEY_CURRENT_USER, hostile("P"), "Blob", REG_BINARY, {});
    WriteExactValue(HKEY_CURRENT_USER, hostile("P"), "EstimatedSize", REG_DWORD, {});
    WriteExactValue(HKEY_CURRENT_USER, hostile("P"), "Marker", REG_NONE, {});
    WriteString(HKEY_CURRENT_USER, hostile("P"), "DisplayName", "Classic Client");
    auto product = valueSearch(7, "DisplayName", REG_SZ);
    product.compareData = reinterpret_cast<const unsigned char*>("Classic");
    product.compareLength = 7;
    EXPECT_EQ(4, search(product));
    EXPECT_EQ("", err);
    EXPECT_EQ(
        (std::vector<Hit>{DataHit(hostile("P"), "DisplayName", REG_SZ, SzBytes("Classic Client"))}),
        Hits(product));

    auto empty = valueSearch(SEARCH_RETURN_DATA, "Blob", REG_BINARY);
    EXPECT_EQ(4, search(empty));
    EXPECT_EQ((std::vector<Hit>{DataHit(hostile("P"), "Blob", REG_BINARY, {})}), Hits(empty));
}

TEST_F(HostileRegistry, StringWithoutTerminatorIsHandedOverByItsStoredLength) {
    WriteExactValue(HKEY_CURRENT_USER, hostile("P"), "DisplayName", REG_SZ,
                    TextBytes("Classic Client"));
    ASSERT_EQ(14u, ReadValue(HKEY_CURRENT_USER, hostile("P"), "DisplayName").data.size());
    auto exact = valueSearch(SEARCH_COMPARE_DATA | SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    exact.compareData = reinterpret_cast<const unsigned char*>("Classic Client");
    exact.compareLength = 14;
    EXPECT_EQ(4, search(exact));
    EXPECT_EQ("", err);
    EXPECT_EQ((std::vector<Hit>{
                  DataHit(hostile("P"), "DisplayName", REG_SZ, TextBytes("Classic Client"))}),
              Hits(exact));
}

TEST_F(HostileRegistry, OneMebibyteValuesAreHandedOverWhole) {
    Bytes blob(1 << 20);
    for (size_t i = 0; i < blob.size(); ++i) {
        blob[i] = static_cast<BYTE>((i * 31) % 251);
    }
    WriteExactValue(HKEY_CURRENT_USER, hostile("Big"), "Blob", REG_BINARY, blob);
    const std::string text(1 << 20, 'x');
    WriteString(HKEY_CURRENT_USER, hostile("Big"), "DisplayName", text);

    auto binary = valueSearch(SEARCH_RETURN_DATA, "Blob", REG_BINARY);
    EXPECT_EQ(4, search(binary));
    EXPECT_EQ((std::vector<Hit>{DataHit(hostile("Big"), "Blob", REG_BINARY, blob)}), Hits(binary));

    auto string = valueSearch(7, "DisplayName", REG_SZ);
    string.compareData = reinterpret_cast<const unsigned char*>("xxx");
    string.compareLength = 3;
    EXPECT_EQ(4, search(string));
    EXPECT_EQ((std::vector<Hit>{DataHit(hostile("Big"), "DisplayName", REG_SZ, SzBytes(text))}),
              Hits(string));
    EXPECT_EQ("", err);
}

TEST_F(HostileRegistry, TenThousandValuesInOneKeyAreAllExamined) {
    {
        TqUniqueRegKey key;
        ASSERT_EQ(ERROR_SUCCESS,
                  ::RegCreateKeyExA(HKEY_CURRENT_USER, hostile("Many").c_str(), 0, nullptr, 0,
                                    KEY_ALL_ACCESS, nullptr, key.put(), nullptr));
        for (DWORD i = 0; i < 10000; ++i) {
            char name[16];
            std::snprintf(name, sizeof name, "v%05lu", static_cast<unsigned long>(i));
            ASSERT_EQ(ERROR_SUCCESS, ::RegSetValueExA(key.get(), name, 0, REG_DWORD,
                                                      reinterpret_cast<const BYTE*>(&i), sizeof i));
        }
    }
    // Values enumerate after the 10,000 others.
    WriteString(HKEY_CURRENT_USER, hostile("Many"), "zTarget", "last");
    auto last = valueSearch(SEARCH_RETURN_DATA, "zTarget", REG_SZ);
    EXPECT_EQ(4, search(last));
    EXPECT_EQ("", err);
    EXPECT_EQ((std::vector<Hit>{DataHit(hostile("Many"), "zTarget", REG_SZ, SzBytes("last"))}),
              Hits(last));

    auto number = valueSearch(SEARCH_COMPARE_DATA | SEARCH_RETURN_DATA, "v09999", REG_DWORD);
    const DWORD wanted = 9999;
    number.compareData = reinterpret_cast<const unsigned char*>(&wanted);
    number.compareLength = sizeof wanted;
    EXPECT_EQ(4, search(number));
    EXPECT_EQ((std::vector<Hit>{DataHit(hostile("Many"), "v09999", REG_DWORD, DwordBytes(9999))}),
              Hits(number));

    auto absent = valueSearch(7, "DisplayName", REG_SZ);
    absent.compareData = reinterpret_cast<const unsigned char*>("Classic");
    absent.compareLength = 7;
    EXPECT_EQ(0, search(absent));
    EXPECT_EQ("", err);
}

TEST_F(HostileRegistry, LongestValueNameIsEnumeratedAndMatched) {
    const std::string name(16383, 'N');
    WriteString(HKEY_CURRENT_USER, hostile("P"), name.c_str(), "long name");
    auto entry = valueSearch(SEARCH_RETURN_DATA, name.c_str(), REG_SZ);
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ("", err);
    EXPECT_EQ((std::vector<Hit>{DataHit(hostile("P"), name, REG_SZ, SzBytes("long name"))}),
              Hits(entry));
}

TEST_F(HostileRegistry, DeepestOpenableChainIsSearchedToTheBottom) {
    const int depth = static_cast<int>((kWineAnsiPathLimit - hostile("Deep").size()) / 2);
    const std::string deepest = makeChain("Deep", depth);
    ASSERT_LE(deepest.size(), kWineAnsiPathLimit);
    ASSERT_GT(deepest.size() + 2, kWineAnsiPathLimit);
    WriteString(HKEY_CURRENT_USER, deepest, "Tag", "bottom");
    auto entry = valueSearch(SEARCH_RETURN_DATA, "Tag", REG_SZ);
    entry.stopAtFirst = true;
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ("", err);
    EXPECT_EQ((std::vector<Hit>{DataHit(deepest, "Tag", REG_SZ, SzBytes("bottom"))}), Hits(entry));
}

TEST_F(HostileRegistry, ChainOf200KeysEndsInAnOpenFailureNotACrash) {
    const std::string deepest = makeChain("Deep", 200);
    ASSERT_GT(deepest.size(), kWineAnsiPathLimit);
    std::string firstTooLong = hostile("Deep");
    while (firstTooLong.size() <= kWineAnsiPathLimit) {
        firstTooLong += "\\n";
    }
    auto entry = valueSearch(SEARCH_RETURN_DATA, "Tag", REG_SZ);
    EXPECT_EQ(-4, search(entry));
    EXPECT_EQ(OpenFailureLine(firstTooLong, ERROR_MORE_DATA), err);
    EXPECT_TRUE(entry.results.empty());
}

TEST_F(HostileRegistry, HitBesideAChainOf200KeysIsStillFound) {
    makeChain("Deep", 200);
    WriteString(HKEY_CURRENT_USER, hostile("Shallow"), "Tag", "found");
    auto entry = valueSearch(SEARCH_RETURN_DATA, "Tag", REG_SZ);
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ((std::vector<Hit>{DataHit(hostile("Shallow"), "Tag", REG_SZ, SzBytes("found"))}),
              Hits(entry));
}

TEST_F(HostileRegistry, ErrorBelowAKeyOutranksThatKeysOwnHit) {
    const std::string deepest = makeChain("Deep", 200);
    WriteString(HKEY_CURRENT_USER, hostile("Deep"), "Tag", "own");
    auto entry = valueSearch(SEARCH_RETURN_DATA, "Tag", REG_SZ);
    // The key's own value is recorded, but the result is the one its sub-keys reported.
    EXPECT_EQ(-4, search(entry));
    EXPECT_EQ((std::vector<Hit>{DataHit(hostile("Deep"), "Tag", REG_SZ, SzBytes("own"))}),
              Hits(entry));
}

} // namespace
