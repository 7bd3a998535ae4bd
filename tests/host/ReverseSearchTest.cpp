// Where a key name sits in a registry path: the component rules of the reverse search,
// including the ones that look odd on purpose.
#include "host/TqRegistryPath.h"
#include "support/CapturedStreams.h"

#include <gtest/gtest.h>

namespace {

using zeltest::CapturedStderr;

const std::string kUninstallChild = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\X";
const std::string kUninstall = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";

struct Found {
    int result;
    std::string path;
};

Found reverse(const std::string& path, const std::string& keyName, std::uint32_t flags) {
    Found found{-99, "sentinel"};
    found.result = TqReverseSearchInRegistryPath(path, keyName, flags, found.path);
    return found;
}

TEST(ReverseSearch, NameFollowedByAComponentIsNotFoundWithoutWalkUp) {
    CapturedStderr errors;
    const Found found = reverse(kUninstallChild, "Uninstall", 0);
    EXPECT_EQ("", errors.text());
    EXPECT_EQ(0, found.result);
    EXPECT_EQ("", found.path);
}

TEST(ReverseSearch, WalkUpFindsTheNameOnceItEndsThePath) {
    const Found found = reverse(kUninstallChild, "Uninstall", SEARCH_PATH_WALK_UP);
    EXPECT_EQ(1, found.result);
    EXPECT_EQ(kUninstall, found.path);
}

TEST(ReverseSearch, NameEndingThePathIsFound) {
    const Found found = reverse(kUninstall, "Uninstall", 0);
    EXPECT_EQ(1, found.result);
    EXPECT_EQ(kUninstall, found.path);
}

TEST(ReverseSearch, WalkUpClimbsSeveralLevels) {
    const Found found = reverse(kUninstall + "\\{A}\\B\\C", "CurrentVersion", SEARCH_PATH_WALK_UP);
    EXPECT_EQ(1, found.result);
    EXPECT_EQ("SOFTWARE\\Microsoft\\Windows\\CurrentVersion", found.path);
}

TEST(ReverseSearch, TheCheckLooksOneCharacterPastTheMatch) {
    // "UninstallQ" is accepted as "Uninstall": the character after the match is not checked,
    // the one after that is the separator.
    const Found found = reverse("SOFTWARE\\UninstallQ\\X", "Uninstall", 0);
    EXPECT_EQ(1, found.result);
    EXPECT_EQ("SOFTWARE\\Uninstall", found.path);
}

TEST(ReverseSearch, LongerComponentIsNotTheName) {
    EXPECT_EQ(0, reverse("SOFTWARE\\UninstallData", "Uninstall", 0).result);
    EXPECT_EQ(0, reverse("SOFTWARE\\UninstallData\\X", "Uninstall", 0).result);
    EXPECT_EQ(0, reverse("SOFTWARE\\UninstallX", "Uninstall", 0).result);
}

TEST(ReverseSearch, NameAsTheEndOfALongerComponentIsNotFound) {
    const Found found = reverse("SOFTWARE\\MyUninstall", "Uninstall", SEARCH_PATH_WALK_UP);
    EXPECT_EQ(0, found.result);
    EXPECT_EQ("", found.path);
}

TEST(ReverseSearch, NameAtTheStartOfThePathIsAlmostNeverAccepted) {
    EXPECT_EQ(0, reverse("Uninstall\\X", "Uninstall", 0).result);
    EXPECT_EQ(0, reverse("Uninstall\\X", "Uninstall", SEARCH_PATH_WALK_UP).result);
    EXPECT_EQ(0, reverse("Uninstall", "Uninstall", 0).result);
    EXPECT_EQ(0, reverse("A\\B", "A", 0).result);
}

TEST(ReverseSearch, NameAtTheStartIsAcceptedWhenItsSecondCharacterIsASeparator) {
    const Found found = reverse("A\\B\\C", "A\\B", 0);
    EXPECT_EQ(1, found.result);
    EXPECT_EQ("A\\B", found.path);
}

TEST(ReverseSearch, TheLastOccurrenceIsExaminedFirst) {
    const std::string path = "SOFTWARE\\Uninstall\\Vendor\\Uninstall";
    const Found found = reverse(path, "Uninstall", 0);
    EXPECT_EQ(1, found.result);
    EXPECT_EQ(path, found.path);
}

TEST(ReverseSearch, WalkUpReachesAnEarlierOccurrence) {
    const Found found =
        reverse("SOFTWARE\\Uninstall\\Vendor\\MyUninstall\\X", "Uninstall", SEARCH_PATH_WALK_UP);
    EXPECT_EQ(1, found.result);
    EXPECT_EQ("SOFTWARE\\Uninstall", found.path);
}

TEST(ReverseSearch, AnyOccurrenceYieldsTheWholePath) {
    const Found found = reverse(kUninstallChild, "Uninstall", SEARCH_PATH_ANY);
    EXPECT_EQ(1, found.result);
    EXPECT_EQ(kUninstallChild, found.path);
    const Found inside = reverse("SOFTWARE\\MyUninstaller\\X", "Uninstall", SEARCH_PATH_ANY);
    EXPECT_EQ(1, inside.result);
    EXPECT_EQ("SOFTWARE\\MyUninstaller\\X", inside.path);
}

TEST(ReverseSearch, MatchingIsCaseSensitive) {
    EXPECT_EQ(0, reverse(kUninstall, "uninstall", SEARCH_PATH_ANY).result);
}

TEST(ReverseSearch, AbsentNameClearsTheFoundPath) {
    const Found found = reverse(kUninstallChild, "Classic", SEARCH_PATH_WALK_UP | SEARCH_PATH_ANY);
    EXPECT_EQ(0, found.result);
    EXPECT_EQ("", found.path);
}

TEST(ReverseSearch, EmptyPathOrNameYieldsMinus1) {
    CapturedStderr errors;
    const Found emptyPath = reverse("", "Uninstall", 0);
    const Found emptyName = reverse(kUninstall, "", SEARCH_PATH_ANY);
    EXPECT_EQ("TqReverseSearchInRegistryPath : An exception occurred - Invalid argument "
              "encountered.\n"
              "TqReverseSearchInRegistryPath : An exception occurred - Invalid argument "
              "encountered.\n",
              errors.text());
    EXPECT_EQ(-1, emptyPath.result);
    EXPECT_EQ("", emptyPath.path);
    EXPECT_EQ(-1, emptyName.result);
    EXPECT_EQ("", emptyName.path);
}

} // namespace
