// The recursive registry search against the real registry of the prefix: result codes, the
// exact hit lists for every flag combination the library's callers use, and the diagnostics.
#include "host/RegistryHits.h"
#include "support/CapturedStreams.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using namespace zeltest;

const std::string kScratch = "Software\\ZelRegistrySearchTest";

std::string under(const std::string& sub) {
    return sub.empty() ? kScratch : kScratch + "\\" + sub;
}

class RegistrySearch : public ::testing::Test {
protected:
    void SetUp() override {
        DeleteKeyTree(HKEY_CURRENT_USER, kScratch);
        CreateKey(HKEY_CURRENT_USER, kScratch);
    }
    void TearDown() override { DeleteKeyTree(HKEY_CURRENT_USER, kScratch); }

    static void writeSz(const std::string& sub, const char* name, const std::string& text) {
        WriteString(HKEY_CURRENT_USER, under(sub), name, text);
    }
    static void writeDword(const std::string& sub, const char* name, DWORD value) {
        WriteDword(HKEY_CURRENT_USER, under(sub), name, value);
    }
    static void writeValue(const std::string& sub, const char* name, DWORD type,
                           const Bytes& data) {
        WriteExactValue(HKEY_CURRENT_USER, under(sub), name, type, data);
    }

    static TqRegistrySearchEntry valueSearch(std::uint32_t flags, const char* valueName,
                                             DWORD type) {
        return ValueSearch(HKEY_CURRENT_USER, flags, valueName, type);
    }
    static TqRegistrySearchEntry keySearch(std::uint32_t flags, const char* keyName) {
        return KeySearch(HKEY_CURRENT_USER, flags, keyName);
    }
    // The entry only points at the compared bytes: they must outlive the search.
    static void compareWith(TqRegistrySearchEntry& entry, const std::string& text) {
        entry.compareData = reinterpret_cast<const unsigned char*>(text.data());
        entry.compareLength = static_cast<std::uint32_t>(text.size());
    }
    static void compareWith(TqRegistrySearchEntry& entry, const char* literal) {
        entry.compareData = reinterpret_cast<const unsigned char*>(literal);
        entry.compareLength = static_cast<std::uint32_t>(std::strlen(literal));
    }
    static void compareWith(TqRegistrySearchEntry& entry, std::string&& temporary) = delete;

    // Runs the search and keeps what it wrote to standard error.
    int search(TqRegistrySearchEntry& entry, const std::string& sub = "") {
        CapturedStderr errors;
        const int result = TqFindRegistryKeyAndOrValueName(under(sub), &entry);
        err = errors.text();
        return result;
    }

    // An installed-programs tree like the Uninstall key, under "Uninstall".
    static void writeProducts() {
        writeSz("Uninstall\\{B0000000-0000-0000-0000-000000000002}", "DisplayName",
                "Classic Client 7.3 Patch 1 64 bits");
        writeSz("Uninstall\\{B0000000-0000-0000-0000-000000000002}", "Publisher", "Gemalto");
        writeSz("Uninstall\\{a0000000-0000-0000-0000-000000000001}", "DisplayName",
                "Classic Client 6.0");
        writeSz("Uninstall\\{C0000000-0000-0000-0000-000000000003}", "DisplayName",
                "Other Product");
        writeSz("Uninstall\\{D0000000-0000-0000-0000-000000000004}", "DisplayName",
                "classic client lower case");
    }

    std::string err;
};

// --- failures -------------------------------------------------------------------------------

TEST_F(RegistrySearch, MissingStartKeyYieldsMinus15WithTheSystemText) {
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    EXPECT_EQ(-15, search(entry, "Missing"));
    EXPECT_EQ(OpenFailureLine(under("Missing"), ERROR_FILE_NOT_FOUND), err);
    EXPECT_TRUE(entry.results.empty());
}

TEST_F(RegistrySearch, StartKeyDeniedByItsDaclYieldsMinus16) {
    writeSz("Denied", "DisplayName", "Classic Client");
    const DeniedKey denied(HKEY_CURRENT_USER, under("Denied"));
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    EXPECT_EQ(-16, search(entry, "Denied"));
    EXPECT_EQ(OpenFailureLine(under("Denied"), ERROR_ACCESS_DENIED), err);
    EXPECT_TRUE(entry.results.empty());
}

TEST_F(RegistrySearch, NullEntryYieldsMinus1) {
    CapturedStderr errors;
    EXPECT_EQ(-1, TqFindRegistryKeyAndOrValueName(kScratch, nullptr));
    EXPECT_EQ("TqFindRegistryKeyAndOrValueName : The 'searchEntry' argument is invalid.\n",
              errors.text());
}

TEST_F(RegistrySearch, KeyWithoutValuesOrSubKeysYields0) {
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    EXPECT_EQ(0, search(entry));
    EXPECT_EQ("", err);
    EXPECT_TRUE(entry.results.empty());
}

TEST_F(RegistrySearch, EmptySubKeysAloneYield0) {
    CreateKey(HKEY_CURRENT_USER, under("A\\B"));
    CreateKey(HKEY_CURRENT_USER, under("C"));
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    EXPECT_EQ(0, search(entry));
    EXPECT_EQ("", err);
}

TEST_F(RegistrySearch, DeniedSubKeyIsTheAnswerWhenNothingMatches) {
    writeSz("A", "DisplayName", "Classic Client");
    writeSz("B", "Publisher", "Gemalto");
    const DeniedKey denied(HKEY_CURRENT_USER, under("A"));
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    EXPECT_EQ(-16, search(entry));
    EXPECT_EQ(OpenFailureLine(under("A"), ERROR_ACCESS_DENIED), err);
    EXPECT_TRUE(entry.results.empty());
}

TEST_F(RegistrySearch, HitInALaterSubKeyWinsOverADeniedEarlierOne) {
    writeSz("A", "DisplayName", "hidden");
    writeSz("B", "DisplayName", "visible");
    const DeniedKey denied(HKEY_CURRENT_USER, under("A"));
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ(OpenFailureLine(under("A"), ERROR_ACCESS_DENIED), err);
    EXPECT_EQ((std::vector<Hit>{DataHit(under("B"), "DisplayName", REG_SZ, SzBytes("visible"))}),
              Hits(entry));
}

TEST_F(RegistrySearch, DeniedKeyAfterAHitDoesNotHideTheHit) {
    writeSz("A", "DisplayName", "visible");
    writeSz("B", "DisplayName", "hidden");
    const DeniedKey denied(HKEY_CURRENT_USER, under("B"));
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ(OpenFailureLine(under("B"), ERROR_ACCESS_DENIED), err);
    EXPECT_EQ((std::vector<Hit>{DataHit(under("A"), "DisplayName", REG_SZ, SzBytes("visible"))}),
              Hits(entry));
}

TEST_F(RegistrySearch, NullRootMeansLocalMachine) {
    const std::string machinePath = "SOFTWARE\\ZelRegistrySearchTest";
    DeleteKeyTree(HKEY_LOCAL_MACHINE, machinePath);
    WriteString(HKEY_LOCAL_MACHINE, machinePath, "DisplayName", "machine");
    TqRegistrySearchEntry entry;
    entry.flags = SEARCH_RETURN_DATA;
    entry.valueName = "DisplayName";
    entry.valueType = REG_SZ;
    CapturedStderr errors;
    const int result = TqFindRegistryKeyAndOrValueName(machinePath, &entry);
    err = errors.text();
    DeleteKeyTree(HKEY_LOCAL_MACHINE, machinePath);
    EXPECT_EQ(4, result);
    EXPECT_EQ("", err);
    EXPECT_EQ((std::vector<Hit>{DataHit(machinePath, "DisplayName", REG_SZ, SzBytes("machine"))}),
              Hits(entry));
}

TEST_F(RegistrySearch, SearchReadsThe64BitViewSo32BitDataNeedsItsWow6432NodePath) {
    const std::string path = "SOFTWARE\\ZelRegistryViewTest";
    DeleteKeyTree(HKEY_LOCAL_MACHINE, path, KEY_WOW64_32KEY);
    WriteString(HKEY_LOCAL_MACHINE, path, "DisplayName", "32-bit", KEY_WOW64_32KEY);
    TqRegistrySearchEntry entry;
    entry.flags = SEARCH_RETURN_DATA;
    entry.root = HKEY_LOCAL_MACHINE;
    entry.valueName = "DisplayName";
    entry.valueType = REG_SZ;
    CapturedStderr errors;
    const int plain = TqFindRegistryKeyAndOrValueName(path, &entry);
    const std::string plainErr = errors.text();
    const int redirected =
        TqFindRegistryKeyAndOrValueName("SOFTWARE\\Wow6432Node\\ZelRegistryViewTest", &entry);
    DeleteKeyTree(HKEY_LOCAL_MACHINE, path, KEY_WOW64_32KEY);
    EXPECT_EQ(-15, plain);
    EXPECT_EQ(OpenFailureLine(path, ERROR_FILE_NOT_FOUND), plainErr);
    EXPECT_EQ(4, redirected);
    EXPECT_EQ((std::vector<Hit>{DataHit("SOFTWARE\\Wow6432Node\\ZelRegistryViewTest", "DisplayName",
                                        REG_SZ, SzBytes("32-bit"))}),
              Hits(entry));
}

TEST_F(RegistrySearch, AnyOpenKeyCanBeTheRootAndAnEmptyPathIsTheRootItself) {
    writeSz("Child", "DisplayName", "relative");
    TqUniqueRegKey scratch;
    ASSERT_EQ(ERROR_SUCCESS,
              ::RegOpenKeyExA(HKEY_CURRENT_USER, kScratch.c_str(), 0, KEY_READ, scratch.put()));
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    entry.root = scratch.get();
    CapturedStderr errors;
    EXPECT_EQ(4, TqFindRegistryKeyAndOrValueName("", &entry));
    EXPECT_EQ("", errors.text());
    // Child paths are built without a leading separator below an empty path.
    EXPECT_EQ((std::vector<Hit>{DataHit("Child", "DisplayName", REG_SZ, SzBytes("relative"))}),
              Hits(entry));
}

// --- value-name matching ----------------------------------------------------------------------

TEST_F(RegistrySearch, ValueNamedDisplayMatchesASearchForDisplayName) {
    writeSz("Product", "Display", "Classic Client");
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    EXPECT_EQ(4, search(entry));
    // The hit carries the sought name, not the stored one.
    EXPECT_EQ((std::vector<Hit>{
                  DataHit(under("Product"), "DisplayName", REG_SZ, SzBytes("Classic Client"))}),
              Hits(entry));
}

TEST_F(RegistrySearch, LongerOrDifferentlyCasedNamesAndTheDefaultValueDoNotMatch) {
    writeSz("Product", "DisplayName2", "longer");
    writeSz("Product", "displayname", "lower case");
    writeSz("Product", "DISPLAYNAME", "upper case");
    writeSz("Product", "", "default value");
    writeSz("Product", "Name", "not a leading part");
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    EXPECT_EQ(0, search(entry));
    EXPECT_TRUE(entry.results.empty());
    EXPECT_EQ("", err);
}

TEST_F(RegistrySearch, ValueOfAnotherTypeDoesNotMatch) {
    writeValue("Product", "DisplayName", REG_EXPAND_SZ, SzBytes("expandable"));
    writeValue("Product", "DisplayNam", REG_BINARY, TextBytes("binary"));
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    EXPECT_EQ(0, search(entry));
    EXPECT_TRUE(entry.results.empty());
    auto expand = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_EXPAND_SZ);
    EXPECT_EQ(4, search(expand));
    EXPECT_EQ((std::vector<Hit>{
                  DataHit(under("Product"), "DisplayName", REG_EXPAND_SZ, SzBytes("expandable"))}),
              Hits(expand));
}

// --- data comparison --------------------------------------------------------------------------

TEST_F(RegistrySearch, CompareDataNeverMatchesAnEmptyStoredValueEvenWithLength0) {
    writeValue("Empty", "DisplayName", REG_SZ, {});
    writeValue("Empty", "Blob", REG_BINARY, {});
    ASSERT_EQ(0u, ReadValue(HKEY_CURRENT_USER, under("Empty"), "DisplayName").data.size());
    static const unsigned char nothing[1] = {0};
    for (const std::uint32_t flags :
         {SEARCH_COMPARE_DATA, SEARCH_COMPARE_DATA | SEARCH_DATA_PREFIX,
          SEARCH_COMPARE_DATA | SEARCH_DATA_PREFIX | SEARCH_RETURN_DATA}) {
        for (const auto& [name, type] : {std::pair{"DisplayName", REG_SZ}, {"Blob", REG_BINARY}}) {
            auto entry = valueSearch(flags, name, type);
            entry.compareData = nothing;
            entry.compareLength = 0;
            EXPECT_EQ(0, search(entry)) << flags << " " << name;
            EXPECT_TRUE(entry.results.empty());
            entry.compareLength = 1;
            EXPECT_EQ(0, search(entry)) << flags << " " << name;
            EXPECT_TRUE(entry.results.empty());
        }
    }
}

TEST_F(RegistrySearch, CompareDataNeedsCompareBytesAndALength) {
    writeSz("Product", "DisplayName", "Classic Client");
    auto nullData = valueSearch(SEARCH_COMPARE_DATA | SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    nullData.compareLength = 15;
    EXPECT_EQ(0, search(nullData));
    auto zeroLength = valueSearch(SEARCH_COMPARE_DATA | SEARCH_DATA_PREFIX, "DisplayName", REG_SZ);
    zeroLength.compareData = reinterpret_cast<const unsigned char*>("C");
    zeroLength.compareLength = 0;
    EXPECT_EQ(0, search(zeroLength));
    EXPECT_TRUE(zeroLength.results.empty());
}

TEST_F(RegistrySearch, ExactCompareCountsTheStoredTerminator) {
    writeSz("Product", "DisplayName", "Classic Client");
    auto withoutNul = valueSearch(SEARCH_COMPARE_DATA | SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    compareWith(withoutNul, "Classic Client");
    EXPECT_EQ(0, search(withoutNul));
    EXPECT_TRUE(withoutNul.results.empty());

    auto withNul = valueSearch(SEARCH_COMPARE_DATA | SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    const std::string terminated("Classic Client\0", 15);
    compareWith(withNul, terminated);
    EXPECT_EQ(4, search(withNul));
    EXPECT_EQ((std::vector<Hit>{
                  DataHit(under("Product"), "DisplayName", REG_SZ, SzBytes("Classic Client"))}),
              Hits(withNul));
}

TEST_F(RegistrySearch, PrefixCompareNeedsAtLeastTheComparedBytes) {
    writeSz("Product", "DisplayName", "AWP");
    auto entry = valueSearch(SEARCH_COMPARE_DATA | SEARCH_DATA_PREFIX | SEARCH_RETURN_DATA,
                             "DisplayName", REG_SZ);
    compareWith(entry, "AWP 5.2");
    EXPECT_EQ(0, search(entry));
    compareWith(entry, "AW");
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ((std::vector<Hit>{DataHit(under("Product"), "DisplayName", REG_SZ, SzBytes("AWP"))}),
              Hits(entry));
}

// --- the flag combinations of the library's callers -------------------------------------------

TEST_F(RegistrySearch, Flags7CollectEveryProductWhoseDisplayNameBeginsWithTheText) {
    writeProducts();
    // The middleware search: compare, prefix, return data; every hit, in visiting order
    // (sub-keys alphabetically, ignoring case).
    auto entry = valueSearch(7, "DisplayName", REG_SZ);
    compareWith(entry, "Classic Client");
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ("", err);
    EXPECT_EQ((std::vector<Hit>{
                  DataHit(under("Uninstall\\{a0000000-0000-0000-0000-000000000001}"), "DisplayName",
                          REG_SZ, SzBytes("Classic Client 6.0")),
                  DataHit(under("Uninstall\\{B0000000-0000-0000-0000-000000000002}"), "DisplayName",
                          REG_SZ, SzBytes("Classic Client 7.3 Patch 1 64 bits")),
              }),
              Hits(entry));
    EXPECT_EQ(nullptr, entry.data);
}

TEST_F(RegistrySearch, Flags7WithStopAtFirstKeepOnlyTheFirstProduct) {
    writeProducts();
    auto entry = valueSearch(7, "DisplayName", REG_SZ);
    compareWith(entry, "Classic Client");
    entry.stopAtFirst = true;
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ((std::vector<Hit>{DataHit(under("Uninstall\\{a0000000-0000-0000-0000-000000000001}"),
                                        "DisplayName", REG_SZ, SzBytes("Classic Client 6.0"))}),
              Hits(entry));
}

TEST_F(RegistrySearch, Flags7OverMultiStringHardwareIdsMatchTheFirstStringOnly) {
    // The driver-update search: HardwareIds whose first string begins with the text.
    const Bytes ids = {'s', 'c', 'f', 'i', 'l', 't', 'e', 'r', '\\', 'c', 'i',
                       'd', '_', '1', 0,   'o', 't', 'h', 'e', 'r',  0,   0};
    const Bytes later = {'a', 'c', 'p',  'i', 0,   's', 'c', 'f', 'i', 'l', 't',
                         'e', 'r', '\\', 'c', 'i', 'd', '_', '1', 0,   0};
    writeValue("DriverUpdates\\pkg1", "HardwareIds", REG_MULTI_SZ, ids);
    writeValue("DriverUpdates\\pkg2", "HardwareIds", REG_MULTI_SZ, later);
    auto entry = valueSearch(7, "HardwareIds", REG_MULTI_SZ);
    compareWith(entry, "scfilter\\cid_1");
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ(
        (std::vector<Hit>{DataHit(under("DriverUpdates\\pkg1"), "HardwareIds", REG_MULTI_SZ, ids)}),
        Hits(entry));
}

TEST_F(RegistrySearch, NoMatchingProductYields0) {
    writeProducts();
    auto entry = valueSearch(7, "DisplayName", REG_SZ);
    compareWith(entry, "AWP");
    EXPECT_EQ(0, search(entry));
    EXPECT_EQ("", err);
    EXPECT_TRUE(entry.results.empty());
}

TEST_F(RegistrySearch, Flags3RecordTheProductKeyWithoutData) {
    writeProducts();
    // The installed-version lookup: compare with prefix, no data returned.
    auto entry = valueSearch(SEARCH_COMPARE_DATA | SEARCH_DATA_PREFIX, "DisplayName", REG_SZ);
    compareWith(entry, "Classic Client 7");
    entry.stopAtFirst = true;
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ((std::vector<Hit>{ValueHit(under("Uninstall\\{B0000000-0000-0000-0000-000000000002}"),
                                         "DisplayName", REG_SZ)}),
              Hits(entry));
    EXPECT_EQ(nullptr, entry.data);
}

TEST_F(RegistrySearch, Flag1AloneRecordsEveryExactMatchWithoutData) {
    writeSz("A", "Publisher", "Gemalto");
    writeSz("B", "Publisher", "Gemalto SA");
    writeSz("C", "Publisher", "Gemalto");
    auto entry = valueSearch(SEARCH_COMPARE_DATA, "Publisher", REG_SZ);
    const std::string terminated("Gemalto\0", 8);
    compareWith(entry, terminated);
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ((std::vector<Hit>{ValueHit(under("A"), "Publisher", REG_SZ),
                                ValueHit(under("C"), "Publisher", REG_SZ)}),
              Hits(entry));
}

TEST_F(RegistrySearch, Flags14ReadADwordAndIgnoreTheKeyFilterWithoutAKeyName) {
    writeDword("Product", "VersionMajor", 7);
    writeDword("Product", "VersionMinor", 3);
    auto entry = valueSearch(SEARCH_KEY_IN_PATH | SEARCH_RETURN_DATA, "VersionMinor", REG_DWORD);
    entry.stopAtFirst = true;
    EXPECT_EQ(4, search(entry, "Product"));
    EXPECT_EQ(
        (std::vector<Hit>{DataHit(under("Product"), "VersionMinor", REG_DWORD, DwordBytes(3))}),
        Hits(entry));
}

TEST_F(RegistrySearch, Flag4WithStopAtFirstPrefersTheSubKeysValue) {
    writeSz("Agent", "CardRemovalCheck", "own");
    writeSz("Agent\\Nested", "CardRemovalCheck", "nested");
    auto entry = valueSearch(SEARCH_RETURN_DATA, "CardRemovalCheck", REG_SZ);
    entry.stopAtFirst = true;
    EXPECT_EQ(4, search(entry, "Agent"));
    EXPECT_EQ((std::vector<Hit>{
                  DataHit(under("Agent\\Nested"), "CardRemovalCheck", REG_SZ, SzBytes("nested"))}),
              Hits(entry));
}

TEST_F(RegistrySearch, Flag4WithoutStopAtFirstRecordsTheSubKeyThenTheKeyItself) {
    writeSz("Agent", "CardRemovalCheck", "own");
    writeSz("Agent\\Nested", "CardRemovalCheck", "nested");
    auto entry = valueSearch(SEARCH_RETURN_DATA, "CardRemovalCheck", REG_SZ);
    EXPECT_EQ(4, search(entry, "Agent"));
    EXPECT_EQ((std::vector<Hit>{
                  DataHit(under("Agent\\Nested"), "CardRemovalCheck", REG_SZ, SzBytes("nested")),
                  DataHit(under("Agent"), "CardRemovalCheck", REG_SZ, SzBytes("own"))}),
              Hits(entry));
}

TEST_F(RegistrySearch, Flag4TakesTheFirstMatchingValueOfAKey) {
    // Both names are leading parts of the sought one; the first enumerated wins.
    writeDword("Product", "Version", 0x0B020159);
    writeDword("Product", "VersionMajor", 11);
    auto entry = valueSearch(SEARCH_RETURN_DATA, "VersionMajor", REG_DWORD);
    EXPECT_EQ(4, search(entry, "Product"));
    EXPECT_EQ((std::vector<Hit>{
                  DataHit(under("Product"), "VersionMajor", REG_DWORD, DwordBytes(0x0B020159))}),
              Hits(entry));
}

TEST_F(RegistrySearch, SubKeysAreVisitedAlphabeticallyIgnoringCase) {
    writeSz("b", "Tag", "b");
    writeSz("C", "Tag", "C");
    writeSz("A", "Tag", "A");
    writeSz("A\\z", "Tag", "A\\z");
    auto entry = valueSearch(SEARCH_RETURN_DATA, "Tag", REG_SZ);
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ((std::vector<Hit>{DataHit(under("A\\z"), "Tag", REG_SZ, SzBytes("A\\z")),
                                DataHit(under("A"), "Tag", REG_SZ, SzBytes("A")),
                                DataHit(under("b"), "Tag", REG_SZ, SzBytes("b")),
                                DataHit(under("C"), "Tag", REG_SZ, SzBytes("C"))}),
              Hits(entry));
}

TEST_F(RegistrySearch, MatchWithoutDataFlagsRecordsNothing) {
    writeSz("Product", "DisplayName", "Classic Client");
    for (const std::uint32_t flags : {0u, static_cast<unsigned>(SEARCH_DATA_PREFIX),
                                      static_cast<unsigned>(SEARCH_KEY_IN_PATH)}) {
        auto entry = valueSearch(flags, "DisplayName", REG_SZ);
        compareWith(entry, "Classic");
        EXPECT_EQ(0, search(entry)) << flags;
        EXPECT_TRUE(entry.results.empty()) << flags;
        EXPECT_EQ(nullptr, entry.data);
    }
}

// --- key-name searches ------------------------------------------------------------------------

class KeyNameSearch : public RegistrySearch {
protected:
    void SetUp() override {
        RegistrySearch::SetUp();
        CreateKey(HKEY_CURRENT_USER, under("CurrentVersion\\Uninstall\\{A}"));
        CreateKey(HKEY_CURRENT_USER, under("CurrentVersion\\Uninstall\\{B}\\Sub"));
        CreateKey(HKEY_CURRENT_USER, under("CurrentVersion\\Uninstaller"));
        CreateKey(HKEY_CURRENT_USER, under("Other"));
    }
};

TEST_F(KeyNameSearch, Flag8RecordsTheKeyThatEndsInTheNameAndReturns5) {
    auto entry = keySearch(SEARCH_KEY_NAME, "Uninstall");
    EXPECT_EQ(5, search(entry));
    EXPECT_EQ("", err);
    EXPECT_EQ((std::vector<Hit>{KeyHit(under("CurrentVersion\\Uninstall"))}), Hits(entry));
}

TEST_F(KeyNameSearch, Flag8WithStopAtFirstReturns4) {
    auto entry = keySearch(SEARCH_KEY_NAME, "Uninstall");
    entry.stopAtFirst = true;
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ((std::vector<Hit>{KeyHit(under("CurrentVersion\\Uninstall"))}), Hits(entry));
}

TEST_F(KeyNameSearch, Flags48RecordTheNamedKeyOnceForEveryKeyAtOrBelowIt) {
    auto entry = keySearch(SEARCH_KEY_NAME | SEARCH_PATH_WALK_UP, "Uninstall");
    EXPECT_EQ(5, search(entry));
    const Hit uninstall = KeyHit(under("CurrentVersion\\Uninstall"));
    // {A}, {B}\Sub, {B}, then Uninstall itself.
    EXPECT_EQ((std::vector<Hit>{uninstall, uninstall, uninstall, uninstall}), Hits(entry));
}

TEST_F(KeyNameSearch, Flags48WithStopAtFirstStillAddTheStartKeysOwnHit) {
    auto entry = keySearch(SEARCH_KEY_NAME | SEARCH_PATH_WALK_UP, "Uninstall");
    entry.stopAtFirst = true;
    // The walk below stops at {A}; the start key itself is then still examined.
    EXPECT_EQ(4, search(entry, "CurrentVersion\\Uninstall"));
    const Hit uninstall = KeyHit(under("CurrentVersion\\Uninstall"));
    EXPECT_EQ((std::vector<Hit>{uninstall, uninstall}), Hits(entry));
}

TEST_F(KeyNameSearch, Flags28RecordEveryPathContainingTheText) {
    auto entry = keySearch(SEARCH_KEY_NAME | SEARCH_PATH_ANY, "Uninstall");
    EXPECT_EQ(5, search(entry));
    EXPECT_EQ((std::vector<Hit>{KeyHit(under("CurrentVersion\\Uninstall\\{A}")),
                                KeyHit(under("CurrentVersion\\Uninstall\\{B}\\Sub")),
                                KeyHit(under("CurrentVersion\\Uninstall\\{B}")),
                                KeyHit(under("CurrentVersion\\Uninstall")),
                                KeyHit(under("CurrentVersion\\Uninstaller"))}),
              Hits(entry));
}

TEST_F(KeyNameSearch, AbsentNameYields0) {
    auto entry = keySearch(SEARCH_KEY_NAME | SEARCH_PATH_WALK_UP, "Classic");
    EXPECT_EQ(0, search(entry));
    EXPECT_TRUE(entry.results.empty());
}

TEST_F(KeyNameSearch, MissingKeyNameFailsEveryKeyWithMinus1) {
    auto entry = keySearch(SEARCH_KEY_NAME, nullptr);
    EXPECT_EQ(-1, search(entry, "Other"));
    EXPECT_EQ("TqReverseSearchInRegistryPath : An exception occurred - Invalid argument "
              "encountered.\n",
              err);
}

TEST_F(KeyNameSearch, WithoutFlag8OrAValueNameNothingIsSearched) {
    auto entry = keySearch(SEARCH_PATH_ANY, "Uninstall");
    EXPECT_EQ(0, search(entry));
    EXPECT_TRUE(entry.results.empty());
}

class KeyInPathSearch : public RegistrySearch {
protected:
    void SetUp() override {
        RegistrySearch::SetUp();
        writeSz("Uninstall", "DisplayName", "in the Uninstall key");
        writeSz("Uninstall\\{A}", "DisplayName", "below the Uninstall key");
        writeSz("Uninstaller", "DisplayName", "in a longer name");
        writeSz("Other", "DisplayName", "elsewhere");
    }
};

TEST_F(KeyInPathSearch, Flag10ExaminesOnlyKeysEndingInTheName) {
    auto entry = valueSearch(SEARCH_KEY_IN_PATH | SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    entry.keyName = "Uninstall";
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ((std::vector<Hit>{DataHit(under("Uninstall"), "DisplayName", REG_SZ,
                                        SzBytes("in the Uninstall key"))}),
              Hits(entry));
}

TEST_F(KeyInPathSearch, Flags50AlsoExamineKeysBelowTheName) {
    auto entry = valueSearch(SEARCH_KEY_IN_PATH | SEARCH_PATH_WALK_UP | SEARCH_RETURN_DATA,
                             "DisplayName", REG_SZ);
    entry.keyName = "Uninstall";
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ((std::vector<Hit>{DataHit(under("Uninstall\\{A}"), "DisplayName", REG_SZ,
                                        SzBytes("below the Uninstall key")),
                                DataHit(under("Uninstall"), "DisplayName", REG_SZ,
                                        SzBytes("in the Uninstall key"))}),
              Hits(entry));
}

TEST_F(KeyInPathSearch, Flags30ExamineEveryKeyWhosePathContainsTheText) {
    auto entry = valueSearch(SEARCH_KEY_IN_PATH | SEARCH_PATH_ANY | SEARCH_RETURN_DATA,
                             "DisplayName", REG_SZ);
    entry.keyName = "Uninstall";
    EXPECT_EQ(4, search(entry));
    EXPECT_EQ(
        (std::vector<Hit>{
            DataHit(under("Uninstall\\{A}"), "DisplayName", REG_SZ,
                    SzBytes("below the Uninstall key")),
            DataHit(under("Uninstall"), "DisplayName", REG_SZ, SzBytes("in the Uninstall key")),
            DataHit(under("Uninstaller"), "DisplayName", REG_SZ, SzBytes("in a longer name"))}),
        Hits(entry));
}

// --- the walks on their own -------------------------------------------------------------------

class RegistryWalk : public RegistrySearch {
protected:
    TqUniqueRegKey open(const std::string& sub = "") {
        TqUniqueRegKey key;
        EXPECT_EQ(ERROR_SUCCESS,
                  ::RegOpenKeyExA(HKEY_CURRENT_USER, under(sub).c_str(), 0, KEY_READ, key.put()));
        return key;
    }
};

TEST_F(RegistryWalk, ValueWalkReturns2AndHandsTheDataOver) {
    writeSz("", "Publisher", "Gemalto");
    writeSz("", "DisplayName", "Classic Client");
    const TqUniqueRegKey key = open();
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    CapturedStderr errors;
    EXPECT_EQ(2, TqFindRegistryProcessValues(key.get(), 2, &entry));
    EXPECT_EQ("", errors.text());
    ASSERT_NE(nullptr, entry.data);
    EXPECT_EQ(SzBytes("Classic Client"), Bytes(entry.data.get(), entry.data.get() + 15));
    EXPECT_EQ(15u, entry.dataLength);
    EXPECT_TRUE(entry.results.empty());
}

TEST_F(RegistryWalk, ValueWalkComparingWithoutFlag4Returns2AndHandsNothingOver) {
    writeSz("", "DisplayName", "Classic Client");
    const TqUniqueRegKey key = open();
    auto entry = valueSearch(SEARCH_COMPARE_DATA | SEARCH_DATA_PREFIX, "DisplayName", REG_SZ);
    compareWith(entry, "Classic");
    EXPECT_EQ(2, TqFindRegistryProcessValues(key.get(), 1, &entry));
    EXPECT_EQ(nullptr, entry.data);
    EXPECT_EQ(0u, entry.dataLength);
}

TEST_F(RegistryWalk, ValueWalkWithoutDataFlagsReturns0EvenOnAMatch) {
    writeSz("", "DisplayName", "Classic Client");
    const TqUniqueRegKey key = open();
    auto entry = valueSearch(0, "DisplayName", REG_SZ);
    EXPECT_EQ(0, TqFindRegistryProcessValues(key.get(), 1, &entry));
    EXPECT_EQ(nullptr, entry.data);
}

TEST_F(RegistryWalk, ValueWalkReportsAnIndexPastTheEndAndGoesOn) {
    writeSz("", "Other", "x");
    const TqUniqueRegKey key = open();
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    CapturedStderr errors;
    EXPECT_EQ(0, TqFindRegistryProcessValues(key.get(), 3, &entry));
    EXPECT_EQ("TqFindRegistryProcessValues : RegEnumValue(1) - 259\n"
              "TqFindRegistryProcessValues : RegEnumValue(1) - 259\n",
              errors.text());
}

TEST_F(RegistryWalk, ValueWalkRejectsNullArguments) {
    const TqUniqueRegKey key = open();
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    CapturedStderr errors;
    EXPECT_EQ(-1, TqFindRegistryProcessValues(nullptr, 1, &entry));
    EXPECT_EQ(-1, TqFindRegistryProcessValues(key.get(), 1, nullptr));
    EXPECT_EQ("TqFindRegistryProcessValues : Invalid argument(s) supplied.\n"
              "TqFindRegistryProcessValues : Invalid argument(s) supplied.\n",
              errors.text());
}

TEST_F(RegistryWalk, SubKeyWalkReportsAnIndexPastTheEndAndGoesOn) {
    writeSz("Only", "DisplayName", "x");
    const TqUniqueRegKey key = open();
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    CapturedStderr errors;
    EXPECT_EQ(4, TqFindRegistryProcessSubKey(key.get(), kScratch, 2, &entry));
    EXPECT_EQ("TqFindRegistryProcessSubKey : RegEnumKeyEx - 259\n", errors.text());
    EXPECT_EQ((std::vector<Hit>{DataHit(under("Only"), "DisplayName", REG_SZ, SzBytes("x"))}),
              Hits(entry));
}

TEST_F(RegistryWalk, SubKeyWalkWithoutChildrenReturns0) {
    const TqUniqueRegKey key = open();
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    EXPECT_EQ(0, TqFindRegistryProcessSubKey(key.get(), kScratch, 0, &entry));
}

TEST_F(RegistryWalk, SubKeyWalkReturnsTheFirstErrorWhenNothingIsFound) {
    writeSz("A", "x", "x");
    writeSz("B", "x", "x");
    const TqUniqueRegKey key = open();
    const DeniedKey deniedA(HKEY_CURRENT_USER, under("A"));
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    CapturedStderr errors;
    // B finds nothing (0): A's error is the answer.
    EXPECT_EQ(-16, TqFindRegistryProcessSubKey(key.get(), kScratch, 2, &entry));
    EXPECT_EQ(OpenFailureLine(under("A"), ERROR_ACCESS_DENIED), errors.text());
}

TEST_F(RegistryWalk, SubKeyWalkRejectsNullArguments) {
    const TqUniqueRegKey key = open();
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    CapturedStderr errors;
    EXPECT_EQ(-1, TqFindRegistryProcessSubKey(nullptr, kScratch, 1, &entry));
    EXPECT_EQ(-1, TqFindRegistryProcessSubKey(key.get(), kScratch, 1, nullptr));
    EXPECT_EQ("TqFindRegistryProcessSubKey : Invalid argument(s) supplied.\n"
              "TqFindRegistryProcessSubKey : Invalid argument(s) supplied.\n",
              errors.text());
}

// --- ownership ----------------------------------------------------------------------------------

TEST_F(RegistrySearch, ClearResultsDeletesTheHitsAndLeavesTheHandOverSlot) {
    writeSz("A", "DisplayName", "first");
    writeSz("B", "DisplayName", "second");
    auto entry = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    ASSERT_EQ(4, search(entry));
    ASSERT_EQ(2u, entry.results.size());
    entry.data = std::make_unique<unsigned char[]>(3);
    entry.dataLength = 3;
    entry.ClearResults();
    EXPECT_TRUE(entry.results.empty());
    EXPECT_NE(nullptr, entry.data);
    EXPECT_EQ(3u, entry.dataLength);
}

TEST_F(RegistrySearch, AnEntryClearedBetweenSearchesGivesTheSameAnswerAgain) {
    writeProducts();
    auto entry = valueSearch(7, "DisplayName", REG_SZ);
    compareWith(entry, "Classic Client 7");
    ASSERT_EQ(4, search(entry));
    const std::vector<Hit> first = Hits(entry);
    entry.ClearResults();
    ASSERT_EQ(4, search(entry));
    EXPECT_EQ(first, Hits(entry));
    ASSERT_EQ(1u, first.size());
    // Without clearing, hits accumulate in the entry.
    ASSERT_EQ(4, search(entry));
    EXPECT_EQ(2u, entry.results.size());
}

// --- depth ------------------------------------------------------------------------------------

TEST_F(RegistrySearch, TheKeyAtTheDepthLimitIsExaminedButNotWalked) {
    writeSz("A\\B\\C", "DisplayName", "three down");
    writeSz("D\\E\\F\\G", "DisplayName", "four down");
    auto limited = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    CapturedStderr errors;
    EXPECT_EQ(4, TqFindRegistryKeyAndOrValueName(kScratch, &limited, 3));
    EXPECT_EQ("", errors.text());
    EXPECT_EQ(
        (std::vector<Hit>{DataHit(under("A\\B\\C"), "DisplayName", REG_SZ, SzBytes("three down"))}),
        Hits(limited));
    // Nothing below the limit: a value four levels down is not there for the search.
    auto tooShallow = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    EXPECT_EQ(0, TqFindRegistryKeyAndOrValueName(under("D"), &tooShallow, 2));
    EXPECT_TRUE(tooShallow.results.empty());
    // The registry's own nesting limit is far below both.
    EXPECT_EQ(512u, kTqRegistrySearchDepthLimit);
    auto unlimited = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    EXPECT_EQ(4, search(unlimited));
    EXPECT_EQ("", err);
    EXPECT_EQ((std::vector<Hit>{
                  DataHit(under("A\\B\\C"), "DisplayName", REG_SZ, SzBytes("three down")),
                  DataHit(under("D\\E\\F\\G"), "DisplayName", REG_SZ, SzBytes("four down"))}),
              Hits(unlimited));
}

// A link back to the start key is followed as Windows follows it: the product below the start
// key is met again one level deeper each time, down to the depth limit and no further.
TEST_F(RegistrySearch, ALinkLoopIsWalkedToTheDepthLimitAndNoFurther) {
    writeSz("A", "DisplayName", "product");
    const RegistryLinkLoop loop(HKEY_CURRENT_USER, kScratch, "Loop");
    const auto expectLoopHits = [](const std::vector<Hit>& hits) {
        std::string loops;
        for (const Hit& hit : hits) {
            EXPECT_EQ(DataHit(kScratch + loops + "\\A", "DisplayName", REG_SZ, SzBytes("product")),
                      hit);
            loops += "\\Loop";
        }
    };
    auto limited = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    {
        CapturedStderr errors;
        EXPECT_EQ(4, TqFindRegistryKeyAndOrValueName(kScratch, &limited, 10));
        EXPECT_EQ("", errors.text());
    }
    // The product at every level from 1 to 10: 9 links down at the deepest.
    const std::vector<Hit> hits = Hits(limited);
    EXPECT_EQ(10u, hits.size());
    expectLoopHits(hits);

    // With the registry's own limit the walk ends at 512 levels on Windows. Wine's RegOpenKeyExA
    // refuses a path over 255 characters (234, more data), which ends it sooner there: either
    // way it ends, and the hits found are the same product, level by level.
    auto unlimited = valueSearch(SEARCH_RETURN_DATA, "DisplayName", REG_SZ);
    EXPECT_EQ(4, search(unlimited));
    const std::vector<Hit> deep = Hits(unlimited);
    EXPECT_GE(kTqRegistrySearchDepthLimit, deep.size());
    EXPECT_LT(10u, deep.size());
    expectLoopHits(deep);
    if (deep.size() < kTqRegistrySearchDepthLimit) {
        EXPECT_NE(std::string::npos, err.find("Error Code (0x000000ea)")) << err;
    } else {
        EXPECT_EQ("", err);
    }
}

} // namespace
