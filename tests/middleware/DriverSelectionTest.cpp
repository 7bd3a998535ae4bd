#include "middleware/TqDriverSelection.h"

#include <gtest/gtest.h>

namespace {

TqDriverRecord driver(std::string name, std::string product, std::string copyright,
                      std::uint64_t installDate = 0) {
    TqDriverRecord record;
    record.FileDescription = std::move(name);
    record.ProductName = std::move(product);
    record.Copyright = std::move(copyright);
    record.installDate = installDate;
    return record;
}

TEST(IdemiaDriverMatcher, AcceptsTheCivMinidriverOfAwp) {
    const auto record = driver("IDEMIA CIVMinidriver 64", "Oberthur AWP", "");
    EXPECT_EQ(5, TqIdemiaDriverMatcher("K", "C:\\x.dll", &record));
    const auto lower = driver("idemia civminidriver", "awp suite", "");
    EXPECT_EQ(5, TqIdemiaDriverMatcher("K", "C:\\x.dll", &lower));
}

TEST(IdemiaDriverMatcher, AcceptsTheIdplugMinidriverOnlyWithAllThreeFields) {
    const auto record = driver("IDPlug CIV Minidriver", "IDPlug Classic 2", "(c) IDEMIA 2020");
    EXPECT_EQ(5, TqIdemiaDriverMatcher("K", "", &record));
    const auto noCopyright = driver("IDPlug CIV Minidriver", "IDPlug Classic 2", "(c) Other");
    EXPECT_EQ(6, TqIdemiaDriverMatcher("K", "", &noCopyright));
    // The name must be exactly the product's, not merely contain it.
    const auto longer = driver("IDPlug CIV Minidriver x64", "IDPlug Classic", "IDEMIA");
    EXPECT_EQ(6, TqIdemiaDriverMatcher("K", "", &longer));
}

TEST(IdemiaDriverMatcher, RejectsOtherPackagesAndAnswers1WithoutRecord) {
    const auto record = driver("IDEMIA CIVMinidriver", "Other product", "IDEMIA");
    EXPECT_EQ(6, TqIdemiaDriverMatcher("K", "", &record));
    EXPECT_EQ(1, TqIdemiaDriverMatcher("K", "", nullptr));
}

TEST(SelectLatestDriver, KeepsOnlyTheLatestInstalled) {
    std::vector<TqDriverRecord> candidates = {
        driver("ten", "", "", 10), driver("twenty", "", "", 20), driver("five", "", "", 5)};
    EXPECT_EQ(1, TqSelectLatestDriver(&candidates));
    ASSERT_EQ(1u, candidates.size());
    EXPECT_EQ("twenty", candidates[0].FileDescription);
    EXPECT_EQ(20u, candidates[0].installDate);
}

TEST(SelectLatestDriver, ComparesTheWhole64BitValue) {
    std::vector<TqDriverRecord> candidates = {driver("low", "", "", 0x00000000FFFFFFFFull),
                                              driver("high", "", "", 0x0000000100000000ull)};
    EXPECT_EQ(1, TqSelectLatestDriver(&candidates));
    EXPECT_EQ("high", candidates[0].FileDescription);
}

TEST(SelectLatestDriver, NoListSelectsNothing) {
    EXPECT_EQ(0, TqSelectLatestDriver(nullptr));
    std::vector<TqDriverRecord> none;
    EXPECT_EQ(0, TqSelectLatestDriver(&none));
}

} // namespace
