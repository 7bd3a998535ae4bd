// The eight bytes written back to "cardcf" to mark the card's cached data stale.
#include "card/TqCacheFreshness.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<std::uint8_t> bump(const std::vector<std::uint8_t>& current) {
    const TqCacheFileBytes bytes = TqBumpCacheFreshness(current.data(), current.size());
    return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
}

TEST(CacheFreshness, BytesZeroAndOneAndTheWordsAtTwoFourAndSixGoUpByOne) {
    EXPECT_EQ((std::vector<std::uint8_t>{0x02, 0x03, 0x04, 0x04, 0x06, 0x06, 0x08, 0x08}),
              bump({0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08}));
}

TEST(CacheFreshness, EveryCounterWrapsToZero) {
    EXPECT_EQ(std::vector<std::uint8_t>(8, 0x00), bump(std::vector<std::uint8_t>(8, 0xFF)));
}

TEST(CacheFreshness, WordsCarryIntoTheirHighByteButNotIntoTheNextCounter) {
    // Byte 1 does not carry into byte 2, nor a wrapping word into the next word.
    EXPECT_EQ((std::vector<std::uint8_t>{0xFF, 0x80, 0x00, 0x01, 0x00, 0x00, 0x35, 0x12}),
              bump({0xFE, 0x7F, 0xFF, 0x00, 0xFF, 0xFF, 0x34, 0x12}));
    EXPECT_EQ((std::vector<std::uint8_t>{0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}),
              bump({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x77}));
}

TEST(CacheFreshness, ShortFileCountsAsPaddedWithZerosAndOnlyEightBytesCount) {
    EXPECT_EQ((std::vector<std::uint8_t>{0x02, 0x03, 0x04, 0x00, 0x01, 0x00, 0x01, 0x00}),
              bump({0x01, 0x02, 0x03}));
    EXPECT_EQ((std::vector<std::uint8_t>{0x02, 0x03, 0x04, 0x04, 0x06, 0x06, 0x08, 0x08}),
              bump({0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A}));
}

TEST(CacheFreshness, NothingReadCountsAsEightZeros) {
    const std::vector<std::uint8_t> fromZeros{0x01, 0x01, 0x01, 0x00, 0x01, 0x00, 0x01, 0x00};
    EXPECT_EQ(fromZeros, bump({}));
    const TqCacheFileBytes fromNull = TqBumpCacheFreshness(nullptr, 8);
    EXPECT_EQ(fromZeros, std::vector<std::uint8_t>(fromNull.begin(), fromNull.end()));
}

} // namespace
