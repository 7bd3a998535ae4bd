#include "middleware/TqNameFilters.h"
#include "support/CallerTrace.h"

#include <gtest/gtest.h>

namespace {

struct Outcome {
    bool accepted;
    std::string platform;
};

Outcome run(TqNameFilter filter, const std::string& displayName) {
    std::string platform = "unchanged";
    const bool accepted = filter(displayName, platform);
    return {accepted, platform};
}

void expectAccepted(TqNameFilter filter, const std::string& name, const std::string& platform,
                    zeltest::CallSite caller = zeltest::CallSite::current()) {
    const zeltest::CallerTrace trace(caller);
    const Outcome outcome = run(filter, name);
    EXPECT_TRUE(outcome.accepted) << name;
    EXPECT_EQ(platform, outcome.platform) << name;
}

void expectRejected(TqNameFilter filter, const std::string& name,
                    zeltest::CallSite caller = zeltest::CallSite::current()) {
    const zeltest::CallerTrace trace(caller);
    const Outcome outcome = run(filter, name);
    EXPECT_FALSE(outcome.accepted) << name;
    EXPECT_EQ("unchanged", outcome.platform) << name; // written only on acceptance
}

TEST(ClassicClientNameFilter, AcceptsTheKnownShapes) {
    expectAccepted(TqClassicClientNameFilter, "Classic Client 7.3 Patch 1 64 bits", "64");
    expectAccepted(TqClassicClientNameFilter, "Classic Client 6.2 Patch 3 Standard 32 Bit", "32");
}

TEST(ClassicClientNameFilter, WordSizeMayBeFollowedByBitBitsInEitherCaseOfB) {
    for (const char* suffix : {"bit", "bits", "Bit", "Bits"}) {
        expectAccepted(TqClassicClientNameFilter,
                       std::string("Classic Client 7.3 Patch 1 64 ") + suffix, "64");
    }
    // The class "[b|B]" admits a bar as well.
    expectAccepted(TqClassicClientNameFilter, "Classic Client 7.3 Patch 1 32 |it", "32");
    expectRejected(TqClassicClientNameFilter, "Classic Client 7.3 Patch 1 64 bitss");
    expectRejected(TqClassicClientNameFilter, "Classic Client 7.3 Patch 1 64 BIT");
}

TEST(ClassicClientNameFilter, ProductWordIsComparedWithItsLetterCase) {
    expectRejected(TqClassicClientNameFilter, "classic client 7.3 Patch 1 64 bits");
    expectRejected(TqClassicClientNameFilter, "Classic client 7.3 Patch 1 64 bits");
}

TEST(ClassicClientNameFilter, TheWholeNameMustMatch) {
    expectRejected(TqClassicClientNameFilter, "Classic Client 7.3 Patch 1 64 bits (x64)");
    expectRejected(TqClassicClientNameFilter, " Classic Client 7.3 Patch 1 64 bits");
    expectRejected(TqClassicClientNameFilter, "Classic Client 7.3 64 bits");
    expectRejected(TqClassicClientNameFilter, "Classic Client 7 Patch 1 64 bits");
    expectRejected(TqClassicClientNameFilter, "Classic Client 7.3 Patch 1 16 bits");
    expectRejected(TqClassicClientNameFilter, "");
}

TEST(AWPNameFilter, AcceptsThreeVersionNumbersAndABracketedWordSize) {
    expectAccepted(TqAWPNameFilter, "AWP 5.2.1 (64-bit)", "64");
    expectAccepted(TqAWPNameFilter, "AWP 5.2.10 (32-Bit)", "32");
}

TEST(AWPNameFilter, RejectsOtherShapes) {
    expectRejected(TqAWPNameFilter, "AWP 5.2 (64-bit)");
    expectRejected(TqAWPNameFilter, "AWP 5.2.1.7 (64-bit)");
    expectRejected(TqAWPNameFilter, "awp 5.2.1 (64-bit)");
    expectRejected(TqAWPNameFilter, "AWP 5.2.1 (64-bits)");
    expectRejected(TqAWPNameFilter, "AWP 5.2.1 64-bit");
    expectRejected(TqAWPNameFilter, "AWP Middleware 5.2.1 (64-bit)");
}

TEST(IdemiaNameFilter, AcceptsAnyMiddlePartBeforeTheBracketedWordSize) {
    expectAccepted(TqIdemiaNameFilter, "IDEMIA Minidriver for PIV/CIV (32-Bit)", "32");
    expectAccepted(TqIdemiaNameFilter, "IDEMIA Minidriver for ID-One PIV (64-bit)", "64");
    expectAccepted(TqIdemiaNameFilter, "IDEMIA (64-bit)", "64");
}

TEST(IdemiaNameFilter, RejectsANameWithoutBracketedWordSize) {
    expectRejected(TqIdemiaNameFilter, "IDEMIA Minidriver for PIV/CIV");
    expectRejected(TqIdemiaNameFilter, "Idemia Minidriver for PIV/CIV (32-Bit)");
    expectRejected(TqIdemiaNameFilter, "IDEMIA Minidriver (128-bit)");
    expectRejected(TqIdemiaNameFilter, "IDEMIA Minidriver (64-bit) ");
}

} // namespace

namespace {

struct Split {
    std::string build = "build before";
    std::string revision = "revision before";
};

Split splitVersion(const std::string& version) {
    Split split;
    TqSplitDisplayVersion(version, split.build, split.revision);
    return split;
}

TEST(SplitDisplayVersion, FourPartsGiveRevisionAndBuildNumber) {
    const Split split = splitVersion("7.3.1.23");
    EXPECT_EQ("1", split.revision);
    EXPECT_EQ("23", split.build);
}

TEST(SplitDisplayVersion, FurtherPartsAreIgnored) {
    const Split split = splitVersion("1.2.3.4.5");
    EXPECT_EQ("3", split.revision);
    EXPECT_EQ("4", split.build);
}

TEST(SplitDisplayVersion, ThreePartsOrFewerChangeNothing) {
    for (const char* version : {"7.3.1", "7.3", "7", ""}) {
        const Split split = splitVersion(version);
        EXPECT_EQ("revision before", split.revision) << version;
        EXPECT_EQ("build before", split.build) << version;
    }
}

TEST(SplitDisplayVersion, PartsNeedNotBeNumbers) {
    const Split split = splitVersion("a.b.rc1.x y");
    EXPECT_EQ("rc1", split.revision);
    EXPECT_EQ("x y", split.build);
}

} // namespace
