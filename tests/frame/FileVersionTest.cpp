#include "host/TqFileVersion.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using zeltest::BuiltFile;
using zeltest::PlatformDll;
using zeltest::ScratchLogFile;

char* const kSentinel = reinterpret_cast<char*>(0xDEADBEEF);

struct VersionAnswer {
    int result = -1;
    char* text = kSentinel;
    int length = -1;
};

VersionAnswer queryVersion(const std::string& path, const char* logFile) {
    VersionAnswer answer;
    answer.result =
        ZelDLLCommonCPPGetFileVersion(path.c_str(), &answer.text, &answer.length, logFile);
    return answer;
}

TEST(FileVersion, ModuleWithVersion10_0_19041_1YieldsItsMajorNumber) {
    ScratchLogFile log;
    VersionAnswer answer = queryVersion(BuiltFile("version_10_0_19041_1.dll"), log.path());
    ASSERT_EQ(0, answer.result);
    ASSERT_NE(nullptr, answer.text);
    EXPECT_STREQ("10", answer.text);
    EXPECT_EQ(2, answer.length);
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] ZelPlatformMethods::ZelDLLCommonCPPGetFileVersion : Entered",
                  "[INFO] ZelPlatformMethods::ZelDLLCommonCPPGetFileVersion : Leaving"}),
              log.bodies());
    std::free(answer.text);
}

TEST(FileVersion, OurOwnLibraryReportsItsMajorVersion) {
    VersionAnswer answer = queryVersion(BuiltFile("ZelPlatformMethods64.dll"), nullptr);
    ASSERT_EQ(0, answer.result);
    EXPECT_STREQ("1", answer.text);
    EXPECT_EQ(1, answer.length);
    std::free(answer.text);
}

TEST(FileVersion, ModuleWithoutVersionResourceFailsAtTheSizeQuery) {
    ScratchLogFile log;
    const VersionAnswer answer = queryVersion(BuiltFile("version_none.dll"), log.path());
    // A module without a resource section: ERROR_RESOURCE_DATA_NOT_FOUND, which has no row in
    // the mapping, so an internal error.
    EXPECT_EQ(4, answer.result);
    EXPECT_EQ(nullptr, answer.text);
    EXPECT_EQ(0, answer.length);
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] ZelPlatformMethods::ZelDLLCommonCPPGetFileVersion : Entered",
                  "[ERROR] ZelPlatformMethods::ZelDLLCommonCPPGetFileVersion : "
                  "GetFileVersionInfoSize: (0x00000714) - " +
                      zeltest::SystemText(ERROR_RESOURCE_DATA_NOT_FOUND)}),
              log.bodies());
}

TEST(FileVersion, MissingFileIsNotFound) {
    ScratchLogFile log;
    const VersionAnswer answer = queryVersion(zeltest::ProgramFolder() + "missing.dll", log.path());
    EXPECT_EQ(11, answer.result);
    EXPECT_EQ(nullptr, answer.text);
    const auto bodies = log.bodies();
    ASSERT_EQ(2u, bodies.size());
    EXPECT_EQ("[ERROR] ZelPlatformMethods::ZelDLLCommonCPPGetFileVersion : "
              "GetFileVersionInfoSize: (0x00000002) - " +
                  zeltest::SystemText(ERROR_FILE_NOT_FOUND),
              bodies[1]);
}

TEST(FileVersion, MissingFolderIsNotFoundToo) {
    ScratchLogFile log;
    const VersionAnswer answer = queryVersion("C:\\no\\such\\module.dll", log.path());
    EXPECT_EQ(11, answer.result);
    const auto bodies = log.bodies();
    ASSERT_EQ(2u, bodies.size());
    EXPECT_EQ("[ERROR] ZelPlatformMethods::ZelDLLCommonCPPGetFileVersion : "
              "GetFileVersionInfoSize: (0x00000003) - " +
                  zeltest::SystemText(ERROR_PATH_NOT_FOUND),
              bodies[1]);
}

TEST(FileVersion, FileThatIsNoModuleFails) {
    ScratchLogFile textFile;
    {
        TqUniqueFile file(::CreateFileA(textFile.path(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
        DWORD written = 0;
        ASSERT_TRUE(::WriteFile(file.get(), "not a module", 12, &written, nullptr));
    }
    const VersionAnswer answer = queryVersion(textFile.path(), nullptr);
    EXPECT_NE(0, answer.result);
    EXPECT_EQ(nullptr, answer.text);
    EXPECT_EQ(0, answer.length);
}

TEST(FileVersion, SignatureOtherThanFeef04bdYieldsZero) {
    VersionAnswer answer = queryVersion(BuiltFile("version_bad_signature.dll"), nullptr);
    ASSERT_EQ(0, answer.result);
    EXPECT_STREQ("0", answer.text);
    EXPECT_EQ(1, answer.length);
    std::free(answer.text);
}

TEST(FileVersion, RootBlockWithoutFixedInformationIsAnInvalidSize) {
    ScratchLogFile log;
    const VersionAnswer answer = queryVersion(BuiltFile("version_empty_root.dll"), log.path());
    EXPECT_EQ(3, answer.result);
    EXPECT_EQ(nullptr, answer.text);
    const auto bodies = log.bodies();
    ASSERT_EQ(2u, bodies.size());
    EXPECT_EQ("[ERROR] ZelPlatformMethods::ZelDLLCommonCPPGetFileVersion : VerQueryValue size is "
              "invalid.",
              bodies[1]);
}

TEST(FileVersion, NullArgumentsAreRefusedAfterEntered) {
    ScratchLogFile log;
    char* text = kSentinel;
    int length = -1;
    EXPECT_EQ(1, ZelDLLCommonCPPGetFileVersion(nullptr, &text, &length, log.path()));
    EXPECT_EQ(nullptr, text); // the handler nulls it; the caller's value was never freed
    EXPECT_EQ(-1, length);
    const std::string path = BuiltFile("version_10_0_19041_1.dll");
    EXPECT_EQ(1, ZelDLLCommonCPPGetFileVersion(path.c_str(), nullptr, &length, log.path()));
    text = kSentinel;
    EXPECT_EQ(1, ZelDLLCommonCPPGetFileVersion(path.c_str(), &text, nullptr, log.path()));
    EXPECT_EQ(nullptr, text);
    const std::string entered =
        "[INFO] ZelPlatformMethods::ZelDLLCommonCPPGetFileVersion : Entered";
    const std::string refused = "[ERROR] ZelPlatformMethods::ZelDLLCommonCPPGetFileVersion : One "
                                "or more calling arguments is invalid";
    EXPECT_EQ((std::vector<std::string>{entered, refused, entered, refused, entered, refused}),
              log.bodies());
}

TEST(FileVersion, ExportForwardsToTheSameRoutine) {
    PlatformDll dll;
    ScratchLogFile log;
    char* text = nullptr;
    int length = 0;
    const std::string path = BuiltFile("version_10_0_19041_1.dll");
    ASSERT_EQ(0, dll.api().GetFileVersion(path.c_str(), &text, &length, log.path()));
    EXPECT_STREQ("10", text);
    EXPECT_EQ(2, length);
    dll.api().FreeStringData(&text);
    EXPECT_EQ(nullptr, text);
    EXPECT_EQ(11, dll.api().GetFileVersion("C:\\no\\such.dll", &text, &length, log.path()));
    EXPECT_EQ(nullptr, text);
    EXPECT_EQ(1, dll.api().GetFileVersion(nullptr, nullptr, nullptr, log.path()));
    const auto bodies = log.bodies();
    ASSERT_EQ(6u, bodies.size());
    EXPECT_EQ("[INFO] ZelPlatformMethods::ZelDLLCommonCPPGetFileVersion : Leaving", bodies[1]);
    EXPECT_EQ("[ERROR] ZelPlatformMethods::ZelDLLCommonCPPGetFileVersion : One or more calling "
              "arguments is invalid",
              bodies[5]);
}

} // namespace
