// The per-call read snapshot: while a scope is open on a thread, a key of the Uninstall and
// driver-update trees is read once and later searches are answered from that read. Changing the
// registry between two searches shows which of them read it afresh.
#include "host/TqRegistryKeyRead.h"
#include "host/TqRegistrySearch.h"
#include "host/TqRegistrySnapshot.h"
#include "support/Seams.h"
#include "support/CapturedStreams.h"
#include "support/TestSupport.h"
#include "support/Workstation.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using namespace zeltest;

const std::string kEntry = std::string(kUninstallKey) + "\\ZELTEST-Snapshot";
const std::string kOutside = "SOFTWARE\\ZelRegistrySnapshotTest";

std::string publisherOf(const std::string& key) {
    std::string publisher = "<none>";
    TqGetRegistryStringValue(nullptr, key, "Publisher", publisher);
    return publisher;
}

std::string uninstallStringOf(const std::string& key) {
    std::string text = "<none>";
    TqGetRegistryStringValue(nullptr, key, "UninstallString", text);
    return text;
}

class RegistrySnapshot : public ::testing::Test {
protected:
    void SetUp() override {
        DeleteKeyTree(HKEY_LOCAL_MACHINE, kOutside);
        WriteString(HKEY_LOCAL_MACHINE, kEntry, "Publisher", "First");
        WriteString(HKEY_LOCAL_MACHINE, kEntry, "UninstallString", "First");
    }
    void TearDown() override {
        TqAllowRegistrySnapshots(true);
        DeleteKeyTree(HKEY_LOCAL_MACHINE, kOutside);
    }

    static void rewrite(const std::string& key, const char* name) {
        WriteString(HKEY_LOCAL_MACHINE, key, name, "Second");
    }

    Workstation workstation;
};

TEST_F(RegistrySnapshot, WithoutAScopeEverySearchReadsTheRegistry) {
    EXPECT_EQ("First", publisherOf(kEntry));
    rewrite(kEntry, "Publisher");
    EXPECT_EQ("Second", publisherOf(kEntry));
}

TEST_F(RegistrySnapshot, InsideAScopeAKeyIsReadOnce) {
    const TqRegistrySnapshotScope scope;
    EXPECT_EQ("First", publisherOf(kEntry));
    rewrite(kEntry, "Publisher");
    EXPECT_EQ("First", publisherOf(kEntry));
}

TEST_F(RegistrySnapshot, TheSnapshotEndsWithTheOutermostScope) {
    {
        const TqRegistrySnapshotScope outer;
        EXPECT_EQ("First", publisherOf(kEntry));
        {
            const TqRegistrySnapshotScope nested; // does nothing
            rewrite(kEntry, "Publisher");
            EXPECT_EQ("First", publisherOf(kEntry));
        }
        EXPECT_EQ("First", publisherOf(kEntry));
    }
    EXPECT_EQ("Second", publisherOf(kEntry));
}

TEST_F(RegistrySnapshot, AValueDetectionNeverSeeksIsReadAfresh) {
    const TqRegistrySnapshotScope scope;
    EXPECT_EQ("First", publisherOf(kEntry));
    EXPECT_EQ("First", uninstallStringOf(kEntry));
    rewrite(kEntry, "UninstallString");
    EXPECT_EQ("Second", uninstallStringOf(kEntry));
}

TEST_F(RegistrySnapshot, KeysOutsideTheSearchedTreesAreReadAfresh) {
    WriteString(HKEY_LOCAL_MACHINE, kOutside, "Publisher", "First");
    const TqRegistrySnapshotScope scope;
    EXPECT_EQ("First", publisherOf(kOutside));
    rewrite(kOutside, "Publisher");
    EXPECT_EQ("Second", publisherOf(kOutside));
}

TEST_F(RegistrySnapshot, TheTreesAreRecognisedWhateverTheLetterCase) {
    const std::string entry =
        "software\\microsoft\\windows\\currentversion\\UNINSTALL\\ZELTEST-Snapshot";
    const TqRegistrySnapshotScope scope;
    EXPECT_EQ("First", publisherOf(entry));
    rewrite(kEntry, "Publisher");
    EXPECT_EQ("First", publisherOf(entry));
}

TEST_F(RegistrySnapshot, AKeyThatOnlyBeginsLikeATreeIsNotInIt) {
    const std::string lookalike = std::string(kUninstallKey) + "Elsewhere";
    DeleteKeyTree(HKEY_LOCAL_MACHINE, lookalike);
    WriteString(HKEY_LOCAL_MACHINE, lookalike, "Publisher", "First");
    {
        const TqRegistrySnapshotScope scope;
        EXPECT_EQ("First", publisherOf(lookalike));
        rewrite(lookalike, "Publisher");
        EXPECT_EQ("Second", publisherOf(lookalike));
    }
    DeleteKeyTree(HKEY_LOCAL_MACHINE, lookalike);
}

TEST_F(RegistrySnapshot, AFailureIsReplayedAsItWasRead) {
    const std::string missing = std::string(kUninstallKey) + "\\ZELTEST-NotYet";
    const TqRegistrySnapshotScope scope;
    std::string publisher;
    CapturedStderr firstErrors;
    EXPECT_EQ(-15, TqGetRegistryStringValue(nullptr, missing, "Publisher", publisher));
    const std::string first = firstErrors.text();
    EXPECT_EQ("TqFindRegistryKeyAndOrValueName : RegOpenKeyEx Failed for '" + missing +
                  "'. Error Code ",
              first.substr(0, first.find("Error Code ") + 11));
    WriteString(HKEY_LOCAL_MACHINE, missing, "Publisher", "Late");
    CapturedStderr secondErrors;
    EXPECT_EQ(-15, TqGetRegistryStringValue(nullptr, missing, "Publisher", publisher));
    EXPECT_EQ(first, secondErrors.text());
    EXPECT_EQ("", publisher);
}

TEST_F(RegistrySnapshot, EachThreadHasItsOwn) {
    const TqRegistrySnapshotScope scope;
    EXPECT_EQ("First", publisherOf(kEntry));
    rewrite(kEntry, "Publisher");
    std::string seenElsewhere;
    std::thread([&] { seenElsewhere = publisherOf(kEntry); }).join();
    EXPECT_EQ("Second", seenElsewhere);
    EXPECT_EQ("First", publisherOf(kEntry));
}

TEST_F(RegistrySnapshot, DisallowedScopesOpenNothing) {
    TqAllowRegistrySnapshots(false);
    const TqRegistrySnapshotScope scope;
    EXPECT_EQ("First", publisherOf(kEntry));
    rewrite(kEntry, "Publisher");
    EXPECT_EQ("Second", publisherOf(kEntry));
}

TEST(RegistryKeyRead, KeepsTheDataOfValuesWhoseNameCanMatch) {
    const TqKeptValueNames kept = {"DisplayName", nullptr, "Publisher"};
    EXPECT_TRUE(TqKeepsValue(kept, "DisplayName"));
    EXPECT_TRUE(TqKeepsValue(kept, "Display")); // a leading part matches, as in the search
    EXPECT_TRUE(TqKeepsValue(kept, "Publisher"));
    EXPECT_FALSE(TqKeepsValue(kept, "DisplayNameX"));
    EXPECT_FALSE(TqKeepsValue(kept, "UninstallString"));
    EXPECT_FALSE(TqKeepsValue(kept, ""));
    EXPECT_FALSE(TqKeepsValue({}, "DisplayName"));
}

TEST(RegistryKeyRead, RecordsEveryNameAndTheKeptDataWithTheStatusOfEachRead) {
    DeleteKeyTree(HKEY_LOCAL_MACHINE, kOutside);
    WriteString(HKEY_LOCAL_MACHINE, kOutside, "DisplayName", "Kept");
    WriteString(HKEY_LOCAL_MACHINE, kOutside, "Other", "Not kept");
    CreateKey(HKEY_LOCAL_MACHINE, kOutside + "\\Child");
    const TqRegistryKeyRead read = TqReadRegistryKey(HKEY_LOCAL_MACHINE, kOutside, {"DisplayName"});
    EXPECT_EQ(ERROR_SUCCESS, read.openStatus);
    EXPECT_EQ(ERROR_SUCCESS, read.countStatus);
    ASSERT_EQ(1u, read.subKeys.size());
    EXPECT_EQ("Child", read.subKeys[0].name);
    ASSERT_EQ(2u, read.values.size());
    EXPECT_EQ("DisplayName", read.values[0].name);
    EXPECT_EQ(static_cast<std::uint32_t>(REG_SZ), read.values[0].type);
    EXPECT_TRUE(read.values[0].kept);
    EXPECT_EQ((std::vector<unsigned char>{'K', 'e', 'p', 't', 0}), read.values[0].data);
    EXPECT_EQ("Other", read.values[1].name);
    EXPECT_FALSE(read.values[1].kept);
    EXPECT_TRUE(read.values[1].data.empty());
    DeleteKeyTree(HKEY_LOCAL_MACHINE, kOutside);

    const TqRegistryKeyRead missing = TqReadRegistryKey(HKEY_LOCAL_MACHINE, kOutside, {});
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, missing.openStatus);
    EXPECT_TRUE(missing.subKeys.empty());
    EXPECT_TRUE(missing.values.empty());
}

} // namespace
