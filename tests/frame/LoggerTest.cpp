#include "logging/ZelLogger.h"

#include "support/CapturedStreams.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <thread>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>

namespace {

using zeltest::CapturedStderr;
using zeltest::CapturedStdout;
using zeltest::ScratchLogFile;

TEST(ZelLogger, WritesNothingBeforeAFileIsSet) {
    ZelLogger logger;
    CapturedStdout output;
    CapturedStderr errors;
    logger.Log(kLogError, "Tag", "Function", "message");
    logger.Log(kLogError | kLogEcho, "Tag", "Function", "message");
    EXPECT_EQ("", errors.text());
    EXPECT_EQ("", output.text());
    EXPECT_EQ("", logger.fileName());
}

TEST(ZelLogger, TheProcessWideLoggerStartsWithoutAFile) {
    EXPECT_EQ("", TqLogger().fileName());
}

TEST(ZelLogger, EveryLineEndsInCarriageReturnLineFeed) {
    ScratchLogFile log;
    ZelLogger logger;
    logger.SetFileName(log.path());
    logger.Log(kLogInfo, "T", "F", "one");
    logger.Log(kLogError, "T", "F", "two");
    const std::string text = log.contents();
    const std::string first = "[INFO] T::F : one\r\n";
    const std::string second = "[ERROR] T::F : two\r\n";
    ASSERT_EQ(2, std::count(text.begin(), text.end(), '\n')) << text;
    EXPECT_EQ(2, std::count(text.begin(), text.end(), '\r')) << text;
    EXPECT_NE(std::string::npos, text.find(first)) << text;
    EXPECT_EQ(text.size() - second.size(), text.find(second)) << text;
}

TEST(ZelLogger, LineCarriesTimestampThreadLevelTagFunctionAndMessage) {
    ScratchLogFile log;
    ZelLogger logger;
    logger.SetFileName(log.path());
    SYSTEMTIME before;
    ::GetLocalTime(&before);
    logger.Log(kLogInfo, "TqZelPlatformMethods", "TqGetEnrollmentMode", "Registry VKey Not Set");

    const std::string text = log.contents();
    std::smatch match;
    ASSERT_TRUE(std::regex_match(
        text, match,
        std::regex(
            R"(\[([1-9][0-9]?)-([1-9][0-9]?)-([0-9]{4}) [0-9]{2}:[0-9]{2}:[0-9]{2}:[0-9]{3}\]\[PID 0x([0-9A-F]{8})\](.*)\r\n)")))
        << text;
    EXPECT_EQ(std::to_string(before.wDay), match[1].str());
    EXPECT_EQ(std::to_string(before.wMonth), match[2].str());
    EXPECT_EQ(std::to_string(before.wYear), match[3].str());
    EXPECT_EQ(std::stoul(match[4].str(), nullptr, 16), ::GetCurrentThreadId());
    EXPECT_EQ("[INFO] TqZelPlatformMethods::TqGetEnrollmentMode : Registry VKey Not Set",
              match[5].str());
}

TEST(ZelLogger, EmptyTagLeavesOutTheSeparator) {
    ScratchLogFile log;
    ZelLogger logger;
    logger.SetFileName(log.path());
    logger.Log(kLogInfo, "", "TqZelDLLPlatform::getEnrollmentMode", "Entered");
    EXPECT_EQ(std::vector<std::string>{"[INFO] TqZelDLLPlatform::getEnrollmentMode : Entered"},
              log.bodies());
}

TEST(ZelLogger, TimestampIsDayFirstWithoutPaddingOfDayMonthAndYear) {
    const std::string stamp = ZelLogger::getDateTime();
    EXPECT_TRUE(std::regex_match(
        stamp,
        std::regex(R"([1-9][0-9]?-[1-9][0-9]?-[0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2}:[0-9]{3})")))
        << stamp;
}

TEST(ZelLogger, ThreadIdIsUpperCaseHexWidthEight) {
    char expected[16];
    std::snprintf(expected, sizeof expected, "0x%08lX", ::GetCurrentThreadId());
    EXPECT_EQ(expected, ZelLogger::getCurrentThreadID());
}

TEST(ZelLogger, DefaultMaskDropsTraceAndDebug) {
    ScratchLogFile log;
    ZelLogger logger;
    logger.SetFileName(log.path());
    logger.Log(kLogTrace, "T", "F", "trace");
    logger.Log(kLogDebug, "T", "F", "debug");
    logger.Log(kLogInfo, "T", "F", "info");
    logger.Log(kLogWarn, "T", "F", "warn");
    logger.Log(kLogError, "T", "F", "error");
    logger.Log(kLogFatal, "T", "F", "fatal");
    EXPECT_EQ((std::vector<std::string>{"[INFO] T::F : info", "[WARN] T::F : warn",
                                        "[ERROR] T::F : error", "[FATAL] T::F : fatal"}),
              log.bodies());
}

TEST(ZelLogger, LevelsOutsideTheRangeAndTheBareEchoBitWriteNothing) {
    ScratchLogFile log;
    ZelLogger logger;
    logger.SetFileName(log.path());
    CapturedStdout output;
    logger.Log(0, "T", "F", "zero");
    logger.Log(64, "T", "F", "echo only");
    logger.Log(128, "T", "F", "too high");
    logger.Log(0xFFFFFFFFu, "T", "F", "all bits");
    EXPECT_EQ("", output.text());
    EXPECT_EQ("", log.contents());
}

TEST(ZelLogger, SeveralLevelBitsAreNamedAfterTheHighest) {
    ScratchLogFile log;
    ZelLogger logger;
    logger.SetFileName(log.path());
    logger.Log(kLogInfo | kLogWarn, "T", "F", "two bits");
    logger.Log(kLogInfo | kLogDebug, "T", "F", "debug is masked off");
    logger.Log(127, "T", "F", "every bit");
    EXPECT_EQ(std::vector<std::string>{"[WARN] T::F : two bits"}, log.bodies());
}

TEST(ZelLogger, EchoBitAlsoWritesTheLineToStandardOutput) {
    ScratchLogFile log;
    ZelLogger logger;
    logger.SetFileName(log.path());
    CapturedStdout output;
    logger.Log(kLogError | kLogEcho, "T", "F", "echoed");
    const std::string out = output.text();
    EXPECT_EQ(std::vector<std::string>{"[ERROR] T::F : echoed"}, log.bodies());
    std::string fileLine = log.contents();
    ASSERT_FALSE(fileLine.empty());
    ASSERT_EQ("\r\n", fileLine.substr(fileLine.size() - 2)); // the file's line end
    fileLine.resize(fileLine.size() - 2);
    EXPECT_EQ(fileLine + "\n", out);
}

TEST(ZelLogger, NullFileNameIsRefused) {
    ZelLogger logger;
    try {
        logger.SetFileName(nullptr);
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ("Invalid file name", error.what());
    }
}

TEST(ZelLogger, FileThatCannotBeOpenedIsReportedAndLaterLinesAreDropped) {
    ZelLogger logger;
    CapturedStderr openErrors;
    logger.SetFileName("C:\\no\\such\\folder\\zel.log");
    EXPECT_EQ("ZelLogger::SetFileName : Failed to open log file 'C:\\no\\such\\folder\\zel.log'",
              openErrors.text());
    EXPECT_EQ("", logger.fileName());
    CapturedStderr droppedLineErrors;
    logger.Log(kLogError, "T", "F", "dropped");
    EXPECT_EQ("", droppedLineErrors.text());
}

TEST(ZelLogger, FileIsAppendedToNotTruncated) {
    ScratchLogFile log;
    {
        TqUniqueFile file(::CreateFileA(log.path(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
        DWORD written = 0;
        ASSERT_TRUE(::WriteFile(file.get(), "earlier\n", 8, &written, nullptr));
    }
    ZelLogger logger;
    logger.SetFileName(log.path());
    logger.Log(kLogInfo, "T", "F", "later");
    const std::string text = log.contents();
    EXPECT_EQ(0u, text.find("earlier\n["));
    EXPECT_EQ(text.size() - std::string("[INFO] T::F : later\r\n").size(),
              text.find("[INFO] T::F : later\r\n"));
}

TEST(ZelLogger, OpenFileIsSharedForReadingAndWritingAndEachLineIsFlushed) {
    ScratchLogFile log;
    ZelLogger logger;
    logger.SetFileName(log.path());
    logger.Log(kLogInfo, "T", "F", "first");
    // Another writer, as a second process would open it.
    TqUniqueFile other(::CreateFileA(log.path(), FILE_APPEND_DATA | GENERIC_READ,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                     nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(other.valid()) << ::GetLastError();
    DWORD written = 0;
    ASSERT_TRUE(::WriteFile(other.get(), "other writer\n", 13, &written, nullptr));
    logger.Log(kLogInfo, "T", "F", "second");
    const std::string text = log.contents();
    const auto first = text.find("[INFO] T::F : first\r\n");
    const auto between = text.find("other writer\n");
    const auto second = text.find("[INFO] T::F : second\r\n");
    ASSERT_NE(std::string::npos, first);
    ASSERT_NE(std::string::npos, between);
    ASSERT_NE(std::string::npos, second);
    EXPECT_LT(first, between);
    EXPECT_LT(between, second);
}

// A relative name, set again after the current folder changed: a reopen would create the file
// in the new folder, the kept handle still writes to the first one.
TEST(ZelLogger, SettingTheSameNameAgainKeepsTheOpenFile) {
    ScratchLogFile log;
    const std::string path = log.path();
    const std::string folder = path.substr(0, path.find_last_of('\\') + 1);
    const std::string name = path.substr(folder.size());
    const std::string otherFolder = zeltest::ProgramFolder();
    ASSERT_NE(folder, otherFolder);
    char saved[MAX_PATH];
    ASSERT_NE(0u, ::GetCurrentDirectoryA(MAX_PATH, saved));
    {
        ZelLogger logger;
        ASSERT_TRUE(::SetCurrentDirectoryA(folder.c_str()));
        logger.SetFileName(name.c_str());
        logger.Log(kLogInfo, "T", "F", "before");
        ASSERT_TRUE(::SetCurrentDirectoryA(otherFolder.c_str()));
        logger.SetFileName(name.c_str());
        logger.Log(kLogInfo, "T", "F", "after");
    }
    ::SetCurrentDirectoryA(saved);
    const bool createdElsewhere =
        ::GetFileAttributesA((otherFolder + name).c_str()) != INVALID_FILE_ATTRIBUTES;
    ::DeleteFileA((otherFolder + name).c_str());
    EXPECT_FALSE(createdElsewhere);
    EXPECT_EQ((std::vector<std::string>{"[INFO] T::F : before", "[INFO] T::F : after"}),
              log.bodies());
}

// Shared for reading and writing only: nobody deletes or renames the file under the logger.
TEST(ZelLogger, OpenFileCannotBeDeletedOrRenamedByOthers) {
    ScratchLogFile log;
    const std::string moved = std::string(log.path()) + ".moved";
    {
        ZelLogger logger;
        logger.SetFileName(log.path());
        logger.Log(kLogInfo, "T", "F", "kept");
        EXPECT_FALSE(::DeleteFileA(log.path()));
        EXPECT_EQ(static_cast<DWORD>(ERROR_SHARING_VIOLATION), ::GetLastError());
        EXPECT_FALSE(::MoveFileA(log.path(), moved.c_str()));
        EXPECT_EQ(static_cast<DWORD>(ERROR_SHARING_VIOLATION), ::GetLastError());
        EXPECT_EQ(INVALID_FILE_ATTRIBUTES, ::GetFileAttributesA(moved.c_str()));
    }
    EXPECT_EQ(std::vector<std::string>{"[INFO] T::F : kept"}, log.bodies());
}

TEST(ZelLogger, ANewNameClosesTheOldFile) {
    ScratchLogFile first;
    ScratchLogFile second;
    ZelLogger logger;
    logger.SetFileName(first.path());
    logger.Log(kLogInfo, "T", "F", "one");
    logger.SetFileName(second.path());
    logger.Log(kLogInfo, "T", "F", "two");
    EXPECT_EQ(std::vector<std::string>{"[INFO] T::F : one"}, first.bodies());
    EXPECT_EQ(std::vector<std::string>{"[INFO] T::F : two"}, second.bodies());
    // Closed: nothing holds the first file any longer, so it can be opened exclusively.
    TqUniqueFile exclusive(::CreateFileA(first.path(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                         OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_TRUE(exclusive.valid()) << ::GetLastError();
}

// --- several threads ----------------------------------------------------------------------------

constexpr int kThreads = 8;
constexpr int kLinesPerThread = 1000;

// Every line of a file whole: the prefix of one of the writing threads, the level, the tag and
// a message "line <thread> <n>". Counts the lines per thread; a torn line fails the test.
std::map<int, int> linesPerThread(const ScratchLogFile& log) {
    std::map<int, int> counts;
    const std::string text = log.contents();
    std::size_t start = 0;
    for (std::size_t end = text.find("\r\n"); end != std::string::npos;
         start = end + 2, end = text.find("\r\n", start)) {
        const std::string line = text.substr(start, end - start);
        const std::size_t body = line.find("][INFO] T::F : line ");
        int thread = -1;
        int number = -1;
        if (line.rfind("[", 0) != 0 || line.find("][PID 0x") == std::string::npos ||
            body == std::string::npos ||
            std::sscanf(line.c_str() + body + 20, "%d %d", &thread, &number) != 2 ||
            line !=
                line.substr(0, body + 20) + std::to_string(thread) + " " + std::to_string(number)) {
            ADD_FAILURE() << "torn or foreign line: " << line;
            continue;
        }
        ++counts[thread];
    }
    EXPECT_EQ(text.size(), start) << "text after the last line end";
    return counts;
}

TEST(ZelLoggerThreads, EightThreadsWritingOneFileLeaveEveryLineWhole) {
    ScratchLogFile log;
    ZelLogger logger;
    logger.SetFileName(log.path());
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&logger, t] {
            for (int n = 0; n < kLinesPerThread; ++n) {
                logger.Log(kLogInfo, "T", "F",
                           "line " + std::to_string(t) + " " + std::to_string(n));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::map<int, int> counts = linesPerThread(log);
    ASSERT_EQ(static_cast<std::size_t>(kThreads), counts.size());
    for (const auto& [thread, lines] : counts) {
        EXPECT_EQ(kLinesPerThread, lines) << "thread " << thread;
    }
}

// Threads that keep renaming the file while others write: every line is whole, in one of the
// two files, and none is lost.
TEST(ZelLoggerThreads, RenamingTheFileWhileOthersWriteLosesAndTearsNoLine) {
    ScratchLogFile first;
    ScratchLogFile second;
    std::map<int, int> total;
    {
        ZelLogger logger;
        logger.SetFileName(first.path());
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&logger, &first, &second, t] {
                for (int n = 0; n < kLinesPerThread; ++n) {
                    logger.SetFileName(((t + n) % 2 == 0 ? first : second).path());
                    logger.Log(kLogInfo, "T", "F",
                               "line " + std::to_string(t) + " " + std::to_string(n));
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    for (const ScratchLogFile* log : {&first, &second}) {
        for (const auto& [thread, lines] : linesPerThread(*log)) {
            total[thread] += lines;
        }
    }
    ASSERT_EQ(static_cast<std::size_t>(kThreads), total.size());
    for (const auto& [thread, lines] : total) {
        EXPECT_EQ(kLinesPerThread, lines) << "thread " << thread;
    }
}

} // namespace
