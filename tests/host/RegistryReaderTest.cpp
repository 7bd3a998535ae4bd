// The typed registry readers and the installed-product version lookup, against the machine
// hive of the prefix.
#include "host/RegistryHits.h"
#include "support/CapturedStreams.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

namespace {

using namespace zeltest;

const std::string kReaderScratch = "SOFTWARE\\ZelRegistryReaderTest";

std::string reader(const std::string& sub) {
    return sub.empty() ? kReaderScratch : kReaderScratch + "\\" + sub;
}

class RegistryReader : public ::testing::Test {
protected:
    void SetUp() override {
        DeleteKeyTree(HKEY_LOCAL_MACHINE, kReaderScratch);
        CreateKey(HKEY_LOCAL_MACHINE, kReaderScratch);
    }
    void TearDown() override { DeleteKeyTree(HKEY_LOCAL_MACHINE, kReaderScratch); }

    static void write(const std::string& sub, const char* name, DWORD type, const Bytes& data) {
        WriteExactValue(HKEY_LOCAL_MACHINE, reader(sub), name, type, data);
    }
};

// --- string -----------------------------------------------------------------------------------

TEST_F(RegistryReader, StringIsTrimmedOfBlanksAndItsTerminator) {
    WriteString(HKEY_LOCAL_MACHINE, reader(""), "Publisher", "  Gemalto  ");
    std::string out = "stale";
    CapturedStderr errors;
    EXPECT_EQ(1, TqGetRegistryStringValue(nullptr, reader(""), "Publisher", out));
    EXPECT_EQ("", errors.text());
    EXPECT_EQ("Gemalto", out);
}

TEST_F(RegistryReader, StringFromASubKeyIsPreferredToTheKeysOwn) {
    WriteString(HKEY_LOCAL_MACHINE, reader(""), "CardRemovalCheck", "own");
    WriteString(HKEY_LOCAL_MACHINE, reader("Nested"), "CardRemovalCheck", "nested");
    std::string out;
    EXPECT_EQ(1, TqGetRegistryStringValue(nullptr, reader(""), "CardRemovalCheck", out));
    EXPECT_EQ("nested", out);
}

TEST_F(RegistryReader, StringStoredWithoutTerminatorIsReadByItsLength) {
    write("", "DisplayVersion", REG_SZ, TextBytes("7.3.1.23"));
    ASSERT_EQ(8u, ReadValue(HKEY_LOCAL_MACHINE, reader(""), "DisplayVersion").data.size());
    std::string out;
    EXPECT_EQ(1, TqGetRegistryStringValue(nullptr, reader(""), "DisplayVersion", out));
    EXPECT_EQ("7.3.1.23", out);
}

TEST_F(RegistryReader, StringWrittenWithoutCountingItsTerminatorReadsTheSame) {
    // Written the way the spring-check switch writes "False": 5 bytes, no terminator counted.
    // Wine stores the NUL that follows the data in memory as well, so 6 bytes may come back;
    // either way the reader's answer is the bare text.
    {
        TqUniqueRegKey key;
        ASSERT_EQ(ERROR_SUCCESS,
                  ::RegCreateKeyExA(HKEY_LOCAL_MACHINE, kReaderScratch.c_str(), 0, nullptr, 0,
                                    KEY_ALL_ACCESS, nullptr, key.put(), nullptr));
        ASSERT_EQ(ERROR_SUCCESS, ::RegSetValueExA(key.get(), "CardRemovalCheck", 0, REG_SZ,
                                                  reinterpret_cast<const BYTE*>("False"), 5));
    }
    const StoredValue stored = ReadValue(HKEY_LOCAL_MACHINE, kReaderScratch, "CardRemovalCheck");
    ASSERT_TRUE(stored.data == TextBytes("False") || stored.data == SzBytes("False"));
    std::string out;
    EXPECT_EQ(1, TqGetRegistryStringValue(nullptr, kReaderScratch, "CardRemovalCheck", out));
    EXPECT_EQ("False", out);
}

// What follows the first NUL is no part of the text: a client that takes the string up to its
// terminator would otherwise see a length that counts bytes it never reads.
TEST_F(RegistryReader, StringEndsAtItsFirstNul) {
    write("", "Odd", REG_SZ, Bytes{'a', 0, 'b', 0, 0});
    std::string out;
    EXPECT_EQ(1, TqGetRegistryStringValue(nullptr, reader(""), "Odd", out));
    EXPECT_EQ("a", out);
}

TEST_F(RegistryReader, EmptyStringIsFoundAndEmpty) {
    write("", "Comments", REG_SZ, {});
    std::string out = "stale";
    EXPECT_EQ(1, TqGetRegistryStringValue(nullptr, reader(""), "Comments", out));
    EXPECT_EQ("", out);
}

TEST_F(RegistryReader, AbsentStringYields0AndLeavesTheOutput) {
    write("", "Publisher", REG_EXPAND_SZ, SzBytes("expandable, not a string"));
    std::string out = "untouched";
    CapturedStderr errors;
    EXPECT_EQ(0, TqGetRegistryStringValue(nullptr, reader(""), "Publisher", out));
    EXPECT_EQ("", errors.text());
    EXPECT_EQ("untouched", out);
}

TEST_F(RegistryReader, StringUnderAMissingKeyYieldsMinus15) {
    std::string out;
    CapturedStderr errors;
    EXPECT_EQ(-15, TqGetRegistryStringValue(nullptr, reader("Missing"), "Publisher", out));
    EXPECT_EQ(OpenFailureLine(reader("Missing"), ERROR_FILE_NOT_FOUND), errors.text());
}

TEST_F(RegistryReader, StringUnderADeniedKeyYieldsMinus16) {
    WriteString(HKEY_LOCAL_MACHINE, reader("Denied"), "Publisher", "Gemalto");
    const DeniedKey denied(HKEY_LOCAL_MACHINE, reader("Denied"));
    std::string out;
    CapturedStderr errors;
    EXPECT_EQ(-16, TqGetRegistryStringValue(nullptr, reader("Denied"), "Publisher", out));
    EXPECT_EQ(OpenFailureLine(reader("Denied"), ERROR_ACCESS_DENIED), errors.text());
}

TEST_F(RegistryReader, ReadersAlwaysSearchTheMachineHive) {
    const std::string userPath = "Software\\ZelRegistryReaderUserTest";
    WriteString(HKEY_CURRENT_USER, userPath, "Publisher", "per user");
    std::string out;
    CapturedStderr errors;
    const int result = TqGetRegistryStringValue(HKEY_CURRENT_USER, userPath, "Publisher", out);
    const std::string err = errors.text();
    DeleteKeyTree(HKEY_CURRENT_USER, userPath);
    EXPECT_EQ(-15, result);
    EXPECT_EQ(OpenFailureLine(userPath, ERROR_FILE_NOT_FOUND), err);
}

TEST_F(RegistryReader, EmptyPathOrNameYieldsMinus1ForEveryReader) {
    std::string text;
    std::vector<std::string> texts;
    std::uint32_t number = 0;
    std::unique_ptr<unsigned char[]> bytes;
    std::uint32_t length = 0;
    CapturedStderr errors;
    EXPECT_EQ(-1, TqGetRegistryStringValue(nullptr, "", "Publisher", text));
    EXPECT_EQ(-1, TqGetRegistryMultiStringValue(nullptr, reader(""), "", texts));
    EXPECT_EQ(-1, TqGetRegistryDWORDValue(nullptr, "", "VersionMajor", number));
    EXPECT_EQ(-1, TqGetRegistryBinaryValue(nullptr, reader(""), "", bytes, length));
    EXPECT_EQ("TqGetRegistryStringValue : Exception Occurred - One or more arguments is "
              "invalid.\n"
              "TqGetRegistryMultiStringValue : Exception Occurred - One or more arguments is "
              "invalid.\n"
              "TqGetRegistryDWORDValue : Exception Occurred - One or more arguments is "
              "invalid.\n"
              "TqGetRegistryBinaryValue : Exception Occurred - One or more arguments is "
              "invalid.\n",
              errors.text());
}

// --- multi-string -----------------------------------------------------------------------------

TEST_F(RegistryReader, MultiStringPiecesAreTrimmedUpToTheEmptyPiece) {
    write(
        "", "DriverPackageIds", REG_MULTI_SZ,
        Bytes{' ', 'p', 'k', 'g', '1', ' ', 0, 'p', 'k', 'g', '2', 0, 0, 'l', 'o', 's', 't', 0, 0});
    std::vector<std::string> out{"stale"};
    EXPECT_EQ(1, TqGetRegistryMultiStringValue(nullptr, reader(""), "DriverPackageIds", out));
    EXPECT_EQ((std::vector<std::string>{"pkg1", "pkg2"}), out);
}

TEST_F(RegistryReader, MultiStringWithoutTerminatorsKeepsItsLastPiece) {
    write("", "DriverPackageIds", REG_MULTI_SZ, Bytes{'a', 0, 'b', 'c'});
    std::vector<std::string> out;
    EXPECT_EQ(1, TqGetRegistryMultiStringValue(nullptr, reader(""), "DriverPackageIds", out));
    EXPECT_EQ((std::vector<std::string>{"a", "bc"}), out);
}

TEST_F(RegistryReader, BlankPieceIsKeptAsAnEmptyText) {
    write("", "DriverPackageIds", REG_MULTI_SZ, Bytes{'a', 0, ' ', 0, 'b', 0, 0});
    std::vector<std::string> out;
    EXPECT_EQ(1, TqGetRegistryMultiStringValue(nullptr, reader(""), "DriverPackageIds", out));
    EXPECT_EQ((std::vector<std::string>{"a", "", "b"}), out);
}

TEST_F(RegistryReader, EmptyMultiStringIsFoundWithNoPieces) {
    write("", "DriverPackageIds", REG_MULTI_SZ, Bytes{0, 0});
    std::vector<std::string> out{"stale"};
    EXPECT_EQ(1, TqGetRegistryMultiStringValue(nullptr, reader(""), "DriverPackageIds", out));
    EXPECT_TRUE(out.empty());
}

TEST_F(RegistryReader, AbsentMultiStringYields0AndLeavesTheOutput) {
    WriteString(HKEY_LOCAL_MACHINE, reader(""), "DriverPackageIds", "a plain string");
    std::vector<std::string> out{"untouched"};
    EXPECT_EQ(0, TqGetRegistryMultiStringValue(nullptr, reader(""), "DriverPackageIds", out));
    EXPECT_EQ((std::vector<std::string>{"untouched"}), out);
}

// --- DWORD ------------------------------------------------------------------------------------

TEST_F(RegistryReader, DwordOfFourBytesIsReadAsStored) {
    WriteDword(HKEY_LOCAL_MACHINE, reader(""), "VersionMajor", 0x01020304);
    std::uint32_t out = 0xDEADBEEF;
    EXPECT_EQ(1, TqGetRegistryDWORDValue(nullptr, reader(""), "VersionMajor", out));
    EXPECT_EQ(0x01020304u, out);
}

TEST_F(RegistryReader, DwordStoredWithTwoBytesCopiesTwoBytesOverZero) {
    write("", "VersionMajor", REG_DWORD, Bytes{0x34, 0x12});
    ASSERT_EQ(2u, ReadValue(HKEY_LOCAL_MACHINE, reader(""), "VersionMajor").data.size());
    std::uint32_t out = 0xDEADBEEF;
    EXPECT_EQ(1, TqGetRegistryDWORDValue(nullptr, reader(""), "VersionMajor", out));
    EXPECT_EQ(0x1234u, out);
}

TEST_F(RegistryReader, DwordStoredWithEightBytesCopiesOnlyTheFirstFour) {
    write("", "VersionMajor", REG_DWORD, Bytes{1, 2, 3, 4, 5, 6, 7, 8});
    std::uint32_t out = 0xDEADBEEF;
    EXPECT_EQ(1, TqGetRegistryDWORDValue(nullptr, reader(""), "VersionMajor", out));
    EXPECT_EQ(0x04030201u, out);
}

TEST_F(RegistryReader, DwordStoredEmptyReadsAsZero) {
    write("", "VersionMajor", REG_DWORD, {});
    std::uint32_t out = 0xDEADBEEF;
    EXPECT_EQ(1, TqGetRegistryDWORDValue(nullptr, reader(""), "VersionMajor", out));
    EXPECT_EQ(0u, out);
}

TEST_F(RegistryReader, AbsentDwordYields0AndLeavesTheOutput) {
    WriteString(HKEY_LOCAL_MACHINE, reader(""), "VersionMajor", "7");
    std::uint32_t out = 0xDEADBEEF;
    EXPECT_EQ(0, TqGetRegistryDWORDValue(nullptr, reader(""), "VersionMajor", out));
    EXPECT_EQ(0xDEADBEEFu, out);
}

// --- binary -----------------------------------------------------------------------------------

TEST_F(RegistryReader, BinaryIsCopiedIntoABufferOfItsOwn) {
    const Bytes date = {0x00, 0x80, 0x3E, 0xD5, 0xDE, 0xB1, 0x9D, 0x01};
    write("", "InstallDate", REG_BINARY, date);
    std::unique_ptr<unsigned char[]> out;
    std::uint32_t length = 0xDEADBEEF;
    EXPECT_EQ(1, TqGetRegistryBinaryValue(nullptr, reader(""), "InstallDate", out, length));
    ASSERT_EQ(8u, length);
    ASSERT_NE(nullptr, out);
    EXPECT_EQ(date, Bytes(out.get(), out.get() + length));
}

TEST_F(RegistryReader, EmptyBinaryIsFoundWithLength0) {
    write("", "InstallDate", REG_BINARY, {});
    std::unique_ptr<unsigned char[]> out;
    std::uint32_t length = 0xDEADBEEF;
    EXPECT_EQ(1, TqGetRegistryBinaryValue(nullptr, reader(""), "InstallDate", out, length));
    EXPECT_EQ(0u, length);
}

TEST_F(RegistryReader, AbsentBinaryYields0AndLeavesTheOutput) {
    WriteDword(HKEY_LOCAL_MACHINE, reader(""), "InstallDate", 20);
    std::unique_ptr<unsigned char[]> out;
    std::uint32_t length = 0xDEADBEEF;
    EXPECT_EQ(0, TqGetRegistryBinaryValue(nullptr, reader(""), "InstallDate", out, length));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(0xDEADBEEFu, length);
}

// --- installed version ------------------------------------------------------------------------

const std::string kUninstall32 =
    "SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
// The same key as a 32-bit program names it.
const std::string kUninstall = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";

std::string product(const std::string& code) {
    return kUninstall32 + "\\" + code;
}

class InstalledAppVersion : public ::testing::Test {
protected:
    // A fresh prefix has no 32-bit Uninstall key (nor, maybe, a 64-bit one): keys made here
    // are removed again, and one that was there stays.
    void SetUp() override {
        uninstallExisted_ = KeyExists(HKEY_LOCAL_MACHINE, kUninstall32);
        nativeUninstallExisted_ = KeyExists(HKEY_LOCAL_MACHINE, kUninstall, KEY_WOW64_64KEY);
        removeProducts();
        CreateKey(HKEY_LOCAL_MACHINE, kUninstall32);
    }
    void TearDown() override {
        removeProducts();
        if (uninstallExisted_) {
            CreateKey(HKEY_LOCAL_MACHINE, kUninstall32);
        } else {
            DeleteKeyTree(HKEY_LOCAL_MACHINE, kUninstall32);
        }
        if (!nativeUninstallExisted_) {
            DeleteKeyTree(HKEY_LOCAL_MACHINE, kUninstall, KEY_WOW64_64KEY);
        }
    }

    static void removeProducts() {
        for (const char* code : kCodes) {
            DeleteKeyTree(HKEY_LOCAL_MACHINE, product(code));
            DeleteKeyTree(HKEY_LOCAL_MACHINE, kUninstall + "\\" + code, KEY_WOW64_64KEY);
        }
    }

    struct Version {
        int result = -99;
        std::int32_t major = -7;
        std::int32_t minor = -7;
        std::string keyPath = "untouched";
        std::string err;
    };
    static Version lookUp(const char* displayName) {
        Version version;
        CapturedStderr errors;
        version.result = TqGetInstalledAppVerNo(nullptr, displayName, nullptr, &version.major,
                                                &version.minor, &version.keyPath);
        version.err = errors.text();
        return version;
    }

    static constexpr const char* kCodes[] = {"{ZEL00000-0000-0000-0000-00000000000A}",
                                             "{ZEL00000-0000-0000-0000-00000000000B}",
                                             "{ZEL00000-0000-0000-0000-00000000000C}"};
    bool uninstallExisted_ = false;
    bool nativeUninstallExisted_ = false;
};

TEST_F(InstalledAppVersion, DisplayVersionGivesMajorAndMinorWithoutVersionValues) {
    const std::string key = product(kCodes[0]);
    WriteString(HKEY_LOCAL_MACHINE, key, "DisplayName", "Vessant Identity Agent");
    WriteString(HKEY_LOCAL_MACHINE, key, "DisplayVersion", "11.2.345");
    const Version version = lookUp("Vessant Identity Agent");
    EXPECT_EQ(1, version.result);
    EXPECT_EQ(11, version.major);
    EXPECT_EQ(2, version.minor);
    EXPECT_EQ(key, version.keyPath);
    EXPECT_EQ("", version.err);
}

TEST_F(InstalledAppVersion, VersionDwordsArePreferredToTheDisplayVersion) {
    const std::string key = product(kCodes[0]);
    WriteString(HKEY_LOCAL_MACHINE, key, "DisplayName", "KVR Identity Agent");
    WriteString(HKEY_LOCAL_MACHINE, key, "DisplayVersion", "11.2.345");
    WriteDword(HKEY_LOCAL_MACHINE, key, "VersionMajor", 12);
    WriteDword(HKEY_LOCAL_MACHINE, key, "VersionMinor", 5);
    const Version version = lookUp("KVR Identity Agent");
    EXPECT_EQ(1, version.result);
    EXPECT_EQ(12, version.major);
    EXPECT_EQ(5, version.minor);
    EXPECT_EQ(key, version.keyPath);
}

TEST_F(InstalledAppVersion, OneVersionDwordAloneFallsBackToTheDisplayVersion) {
    const std::string key = product(kCodes[0]);
    WriteString(HKEY_LOCAL_MACHINE, key, "DisplayName", "KVR Identity Agent");
    WriteString(HKEY_LOCAL_MACHINE, key, "DisplayVersion", "11.2.345");
    WriteDword(HKEY_LOCAL_MACHINE, key, "VersionMajor", 12);
    const Version version = lookUp("KVR Identity Agent");
    EXPECT_EQ(1, version.result);
    EXPECT_EQ(11, version.major);
    EXPECT_EQ(2, version.minor);
}

TEST_F(InstalledAppVersion, StoredDisplayNameNeedOnlyBeginWithTheText) {
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[1]), "DisplayName",
                "KVR Halden Identity Agent 12");
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[1]), "DisplayVersion", "12.1");
    const Version version = lookUp("KVR Halden Identity Agent");
    EXPECT_EQ(1, version.result);
    EXPECT_EQ(12, version.major);
    EXPECT_EQ(1, version.minor);
    EXPECT_EQ(product(kCodes[1]), version.keyPath);
}

TEST_F(InstalledAppVersion, FirstProductInKeyOrderWins) {
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[2]), "DisplayName", "KVR Identity Agent");
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[2]), "DisplayVersion", "3.0");
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[1]), "DisplayName", "KVR Identity Agent");
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[1]), "DisplayVersion", "2.0");
    const Version version = lookUp("KVR Identity Agent");
    EXPECT_EQ(1, version.result);
    EXPECT_EQ(2, version.major);
    EXPECT_EQ(product(kCodes[1]), version.keyPath);
}

TEST_F(InstalledAppVersion, SingleNumberGivesMinor0) {
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[0]), "DisplayName", "KVR Identity Agent");
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[0]), "DisplayVersion", "v7");
    const Version version = lookUp("KVR Identity Agent");
    EXPECT_EQ(1, version.result);
    EXPECT_EQ(7, version.major);
    EXPECT_EQ(0, version.minor);
}

TEST_F(InstalledAppVersion, VersionValueNamedVersionAnswersForBothDwords) {
    // "Version" is a leading part of "VersionMajor" and "VersionMinor" and comes first.
    const std::string key = product(kCodes[0]);
    WriteString(HKEY_LOCAL_MACHINE, key, "DisplayName", "KVR Identity Agent");
    WriteDword(HKEY_LOCAL_MACHINE, key, "Version", 0x0B020159);
    WriteDword(HKEY_LOCAL_MACHINE, key, "VersionMajor", 11);
    WriteDword(HKEY_LOCAL_MACHINE, key, "VersionMinor", 2);
    const Version version = lookUp("KVR Identity Agent");
    EXPECT_EQ(1, version.result);
    EXPECT_EQ(0x0B020159, version.major);
    EXPECT_EQ(0x0B020159, version.minor);
}

TEST_F(InstalledAppVersion, ProductWithoutAnyVersionYields0AndWritesNothing) {
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[0]), "DisplayName", "KVR Identity Agent");
    const Version version = lookUp("KVR Identity Agent");
    EXPECT_EQ(0, version.result);
    EXPECT_EQ(-7, version.major);
    EXPECT_EQ(-7, version.minor);
    EXPECT_EQ("untouched", version.keyPath);
    EXPECT_EQ("", version.err);
}

TEST_F(InstalledAppVersion, DisplayVersionWithoutDigitsYields0) {
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[0]), "DisplayName", "KVR Identity Agent");
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[0]), "DisplayVersion", "unknown");
    const Version version = lookUp("KVR Identity Agent");
    EXPECT_EQ(0, version.result);
    EXPECT_EQ(-7, version.major);
}

TEST_F(InstalledAppVersion, DisplayVersionTooLargeForInt32Yields0) {
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[0]), "DisplayName", "KVR Identity Agent");
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[0]), "DisplayVersion", "1.99999999999");
    const Version version = lookUp("KVR Identity Agent");
    EXPECT_EQ(0, version.result);
    EXPECT_EQ("TqParseVersionNoString : Exception Occurred - stoi argument out of range\n",
              version.err);
    EXPECT_EQ(-7, version.major);
}

TEST_F(InstalledAppVersion, UnknownProductYields0) {
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[0]), "DisplayName", "Classic Client");
    const Version version = lookUp("KVR Identity Agent");
    EXPECT_EQ(0, version.result);
    EXPECT_EQ("untouched", version.keyPath);
    EXPECT_EQ("", version.err);
}

TEST_F(InstalledAppVersion, ProductWrittenByA32BitInstallerIsFound) {
    WriteString(HKEY_LOCAL_MACHINE, kUninstall + "\\" + kCodes[0], "DisplayName",
                "KVR Identity Agent", KEY_WOW64_32KEY);
    WriteString(HKEY_LOCAL_MACHINE, kUninstall + "\\" + kCodes[0], "DisplayVersion", "11.0",
                KEY_WOW64_32KEY);
    const Version version = lookUp("KVR Identity Agent");
    EXPECT_EQ(1, version.result);
    EXPECT_EQ(11, version.major);
    EXPECT_EQ(product(kCodes[0]), version.keyPath);
}

TEST_F(InstalledAppVersion, The64BitUninstallKeyIsNotSearched) {
    const std::string native = kUninstall + "\\" + kCodes[0];
    WriteString(HKEY_LOCAL_MACHINE, native, "DisplayName", "KVR Identity Agent", KEY_WOW64_64KEY);
    WriteString(HKEY_LOCAL_MACHINE, native, "DisplayVersion", "11.0", KEY_WOW64_64KEY);
    const Version version = lookUp("KVR Identity Agent");
    EXPECT_EQ(0, version.result);
    EXPECT_EQ("untouched", version.keyPath);
}

TEST_F(InstalledAppVersion, FirstHitMayComeFromAProductWhoseSubKeyCannotBeOpened) {
    // A's own DisplayName is recorded although A reports its sub-key's error; B's hit then
    // makes the search succeed, and A is the product whose version is looked up.
    const std::string a = product(kCodes[0]);
    const std::string b = product(kCodes[1]);
    WriteString(HKEY_LOCAL_MACHINE, a, "DisplayName", "KVR Identity Agent");
    WriteString(HKEY_LOCAL_MACHINE, a + "\\Denied", "DisplayVersion", "9.9");
    WriteString(HKEY_LOCAL_MACHINE, b, "DisplayName", "KVR Identity Agent");
    WriteString(HKEY_LOCAL_MACHINE, b, "DisplayVersion", "2.0");
    const DeniedKey denied(HKEY_LOCAL_MACHINE, a + "\\Denied");
    const Version version = lookUp("KVR Identity Agent");
    EXPECT_EQ(0, version.result);
    EXPECT_EQ("untouched", version.keyPath);
    const std::string openFailure = OpenFailureLine(a + "\\Denied", ERROR_ACCESS_DENIED);
    const std::string dwordFailure =
        "TqGetInstalledAppVerNo : TqFindRegistryKeyAndOrValueName(1) failed. Error Code -16.\n";
    EXPECT_EQ(openFailure + openFailure + dwordFailure + openFailure + dwordFailure + openFailure,
              version.err);
}

TEST_F(InstalledAppVersion, NullArgumentsYieldMinus1) {
    std::int32_t major = 0;
    std::int32_t minor = 0;
    std::string keyPath;
    CapturedStderr errors;
    EXPECT_EQ(-1, TqGetInstalledAppVerNo(nullptr, nullptr, nullptr, &major, &minor, &keyPath));
    EXPECT_EQ(-1, TqGetInstalledAppVerNo(nullptr, "KVR", nullptr, nullptr, &minor, &keyPath));
    EXPECT_EQ(-1, TqGetInstalledAppVerNo(nullptr, "KVR", nullptr, &major, nullptr, &keyPath));
    EXPECT_EQ("TqGetInstalledAppVerNo : One or more calling arguments is NULL.\n"
              "TqGetInstalledAppVerNo : One or more calling arguments is NULL.\n"
              "TqGetInstalledAppVerNo : One or more calling arguments is NULL.\n",
              errors.text());
}

TEST_F(InstalledAppVersion, DeniedProductKeyFailsTheLookupWithMinus16) {
    WriteString(HKEY_LOCAL_MACHINE, product(kCodes[0]), "DisplayName", "KVR Identity Agent");
    const DeniedKey denied(HKEY_LOCAL_MACHINE, product(kCodes[0]));
    const Version version = lookUp("KVR Identity Agent");
    EXPECT_EQ(-16, version.result);
    EXPECT_EQ(OpenFailureLine(product(kCodes[0]), ERROR_ACCESS_DENIED) +
                  "TqGetInstalledAppVerNo : TqFindRegistryKeyAndOrValueName(1) failed. Error "
                  "Code -16.\n",
              version.err);
    EXPECT_EQ("untouched", version.keyPath);
}

TEST_F(InstalledAppVersion, MissingUninstallKeyFailsTheLookupWithMinus15) {
    // Only an Uninstall key without entries of other programs may be taken away for the test;
    // TearDown puts an existing one back.
    TqUniqueRegKey uninstall;
    ASSERT_EQ(ERROR_SUCCESS, ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, kUninstall32.c_str(), 0, KEY_READ,
                                             uninstall.put()));
    DWORD subKeys = 1;
    DWORD values = 1;
    ASSERT_EQ(ERROR_SUCCESS,
              ::RegQueryInfoKeyA(uninstall.get(), nullptr, nullptr, nullptr, &subKeys, nullptr,
                                 nullptr, &values, nullptr, nullptr, nullptr, nullptr));
    uninstall.reset();
    ASSERT_EQ(0u, subKeys + values) << "the 32-bit Uninstall key holds other programs";
    DeleteKeyTree(HKEY_LOCAL_MACHINE, kUninstall32);
    const Version version = lookUp("KVR Identity Agent");
    EXPECT_EQ(-15, version.result);
    EXPECT_EQ(OpenFailureLine(kUninstall32, ERROR_FILE_NOT_FOUND) +
                  "TqGetInstalledAppVerNo : TqFindRegistryKeyAndOrValueName(1) failed. Error "
                  "Code -15.\n",
              version.err);
}

} // namespace
