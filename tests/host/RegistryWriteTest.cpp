// Text values the library writes: the stored bytes depend on the text alone, never on what
// happens to follow it in memory.
#include "host/TqRegistryWrite.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

namespace {

using zeltest::ReadValue;

const std::string kWriteScratch = "SOFTWARE\\ZelRegistryWriteTest";

class RegistryWrite : public ::testing::Test {
protected:
    void SetUp() override {
        zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kWriteScratch);
        zeltest::CreateKey(HKEY_CURRENT_USER, kWriteScratch);
        ASSERT_EQ(ERROR_SUCCESS, ::RegOpenKeyExA(HKEY_CURRENT_USER, kWriteScratch.c_str(), 0,
                                                 KEY_ALL_ACCESS, key.put()));
    }
    void TearDown() override {
        key.reset();
        zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kWriteScratch);
    }

    TqUniqueRegKey key;
};

// The text's next byte is not a NUL: a plain RegSetValueExA with count 5 would store five bytes
// here, and six where a NUL happens to follow. The library stores six either way.
TEST_F(RegistryWrite, TextFollowedByOtherBytesIsStoredWithItsTerminator) {
    const char buffer[] = {'F', 'a', 'l', 's', 'e', 'X', 'Y', 'Z'};
    ASSERT_EQ(ERROR_SUCCESS,
              TqSetRegistryText(key.get(), "CardRemovalCheck", std::string_view(buffer, 5)));
    const auto value = ReadValue(HKEY_CURRENT_USER, kWriteScratch, "CardRemovalCheck");
    ASSERT_TRUE(value.present);
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), value.type);
    EXPECT_EQ((std::vector<BYTE>{'F', 'a', 'l', 's', 'e', 0}), value.data);
}

TEST_F(RegistryWrite, TextFollowedByANulIsStoredTheSame) {
    ASSERT_EQ(ERROR_SUCCESS, TqSetRegistryText(key.get(), "CardRemovalCheck", "False"));
    const auto value = ReadValue(HKEY_CURRENT_USER, kWriteScratch, "CardRemovalCheck");
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), value.type);
    EXPECT_EQ((std::vector<BYTE>{'F', 'a', 'l', 's', 'e', 0}), value.data);
}

// A count of 0 stores no bytes at all: the registry adds a terminator only to data it is given.
TEST_F(RegistryWrite, EmptyTextIsStoredWithoutBytes) {
    ASSERT_EQ(ERROR_SUCCESS, TqSetRegistryText(key.get(), "Empty", ""));
    const auto value = ReadValue(HKEY_CURRENT_USER, kWriteScratch, "Empty");
    ASSERT_TRUE(value.present);
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), value.type);
    EXPECT_EQ(std::vector<BYTE>{}, value.data);
}

TEST_F(RegistryWrite, AFailedWriteGivesTheRegistryStatus) {
    TqUniqueRegKey readOnly;
    ASSERT_EQ(ERROR_SUCCESS, ::RegOpenKeyExA(HKEY_CURRENT_USER, kWriteScratch.c_str(), 0, KEY_READ,
                                             readOnly.put()));
    EXPECT_EQ(ERROR_ACCESS_DENIED, TqSetRegistryText(readOnly.get(), "Value", "text"));
    EXPECT_FALSE(ReadValue(HKEY_CURRENT_USER, kWriteScratch, "Value").present);
}

} // namespace
