// The files zelplat writes, as an elevated support session meets them in a folder a standard user
// owns: names planted there that lead through hard links, links, devices and pipes.
//
// Links: Wine 8's CreateSymbolicLinkW answers TRUE and makes nothing, and it has no junctions.
// The link Wine 8 has is a Unix symbolic link, which it shows as a reparse point and follows
// when a file is opened through it: the tests make those with /bin/ln (Wine starts Unix
// programs), so zelplat meets a real link.
#include "identityagent/IdentityAgentFixture.h"
#include "identityagent/TqIdentityAgent.h"
#include "support/KitProcesses.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace {

using zeltest::RunProgram;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

bool exists(const std::string& path) {
    return ::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::string tempFolder() {
    char folder[MAX_PATH + 1];
    const DWORD length = ::GetTempPathA(sizeof folder, folder);
    return std::string(folder, length);
}

// Empties a folder and removes it; a link is removed, not what it leads to.
void removeTree(const std::string& folder) {
    WIN32_FIND_DATAA found;
    const TqUniqueFindHandle search(::FindFirstFileA((folder + "\\*").c_str(), &found));
    for (bool more = search.valid(); more; more = ::FindNextFileA(search.get(), &found)) {
        const std::string name = found.cFileName;
        if (name == "." || name == "..") {
            continue;
        }
        const std::string path = folder + "\\" + name;
        const DWORD attributes = found.dwFileAttributes;
        if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
            (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
            removeTree(path);
        } else if (!::DeleteFileA(path.c_str())) {
            ::RemoveDirectoryA(path.c_str());
        }
    }
    ::RemoveDirectoryA(folder.c_str());
}

// The zpl*.tmp files zelplat makes in the temp folder.
int zelplatTemporaryFiles() {
    WIN32_FIND_DATAA found;
    const TqUniqueFindHandle search(::FindFirstFileA((tempFolder() + "zpl*.tmp").c_str(), &found));
    int count = 0;
    for (bool more = search.valid(); more; more = ::FindNextFileA(search.get(), &found)) {
        ++count;
    }
    return count;
}

// Wine starts a Unix program without a process handle to wait on: the caller waits for what
// the program does to appear.
void startUnixProgram(const std::string& commandLine) {
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    std::string line = commandLine;
    ASSERT_TRUE(
        zeltest::CreateTestProcess(nullptr, line, nullptr, FALSE, 0, nullptr, startup, process))
        << commandLine;
    const TqUniqueHandle processHandle(process.hProcess);
    const TqUniqueHandle threadHandle(process.hThread);
}

template <typename Done> bool waitUntil(Done done) {
    for (int tries = 0; tries < 200; ++tries) {
        if (done()) {
            return true;
        }
        ::Sleep(50);
    }
    return false;
}

std::string unixName(const std::string& path) {
    using ToUnix = char* (*)(const WCHAR*);
    const auto toUnix = reinterpret_cast<ToUnix>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleA("kernel32.dll"), "wine_get_unix_file_name")));
    if (toUnix == nullptr) {
        ADD_FAILURE() << "not under Wine";
        return "";
    }
    const std::size_t slash = path.find_last_of('\\');
    std::wstring folder;
    for (const char c : path.substr(0, slash)) {
        folder += static_cast<wchar_t>(c);
    }
    const TqUniqueHeapMemory name(toUnix(folder.c_str()));
    return std::string(static_cast<const char*>(name.get())) + "/" + path.substr(slash + 1);
}

class ZelplatFiles : public ::testing::Test {
protected:
    void SetUp() override {
        const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
        folder_ = tempFolder() + "zelfiles-" + test->name() + "-" +
                  std::to_string(::GetCurrentProcessId());
        remove();
        ASSERT_TRUE(::CreateDirectoryA(folder_.c_str(), nullptr)) << folder_;
    }
    void TearDown() override { remove(); }

    // A link whose target is gone is not there for Wine: Unix removes what Wine leaves.
    void remove() const {
        removeTree(folder_);
        if (exists(folder_)) {
            startUnixProgram("/bin/rm -rf \"" + unixName(folder_) + "\"");
            EXPECT_TRUE(waitUntil([this] { return !exists(folder_); })) << folder_;
        }
    }

    std::string in(const std::string& name) const { return folder_ + "\\" + name; }

    static zeltest::ProcessResult zelplat(const std::string& arguments) {
        return RunProgram("\"" + zeltest::BuiltFile("zelplat.exe") + "\" " + arguments);
    }

    // A Unix symbolic link at `link` to the existing `target` (Windows names).
    static void makeLink(const std::string& target, const std::string& link) {
        ASSERT_TRUE(exists(target)) << target;
        startUnixProgram("/bin/ln -s \"" + unixName(target) + "\" \"" + unixName(link) + "\"");
        ASSERT_TRUE(waitUntil([&link] { return exists(link); })) << link;
    }

    std::string folder_;
};

const char kKept[] = "the support case notes\r\n";

// --- report --output ---------------------------------------------------------------------------

TEST_F(ZelplatFiles, OutputToAnExistingFileIsRefusedAndTheFileKept) {
    const std::string output = in("report.json");
    writeFile(output, kKept);
    const auto run = zelplat("report --output \"" + output + "\"");
    EXPECT_EQ(50u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("zelplat: cannot write " + output + ": the file exists (--force replaces it)\r\n",
              run.err);
    EXPECT_EQ(kKept, readFile(output));
}

TEST_F(ZelplatFiles, ForceReplacesAnExistingOrdinaryFile) {
    const std::string output = in("report.json");
    writeFile(output, std::string(100000, 'x'));
    const auto run = zelplat("report --output \"" + output + "\" --force");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("", run.err);
    const std::string text = readFile(output);
    EXPECT_EQ(0u, text.find("{\r\n")) << text.substr(0, 80);
    EXPECT_EQ(std::string::npos, text.find('x' + std::string("xxxx")));
    EXPECT_EQ("}\r\n", text.substr(text.size() - 3));
}

// A hard link is a second name of the same file: writing it would write the other file.
TEST_F(ZelplatFiles, OutputNamedAsAHardLinkLeavesTheLinkedFileAsItWas) {
    const std::string other = in("other.txt");
    const std::string output = in("report.json");
    writeFile(other, kKept);
    ASSERT_TRUE(::CreateHardLinkA(output.c_str(), other.c_str(), nullptr));

    auto run = zelplat("report --output \"" + output + "\"");
    EXPECT_EQ(50u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("zelplat: cannot write " + output + ": the file exists (--force replaces it)\r\n",
              run.err);
    EXPECT_EQ(kKept, readFile(other));

    run = zelplat("report --force --output \"" + output + "\"");
    EXPECT_EQ(50u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("zelplat: cannot write " + output + ": the file has other hard links\r\n", run.err);
    EXPECT_EQ(kKept, readFile(other));
    EXPECT_EQ(kKept, readFile(output));
}

TEST_F(ZelplatFiles, OutputNamedAsALinkLeavesItsTargetAsItWas) {
    const std::string target = in("target.txt");
    const std::string output = in("report.json");
    writeFile(target, kKept);
    makeLink(target, output);

    auto run = zelplat("report --output \"" + output + "\"");
    EXPECT_EQ(50u, run.exitCode);
    EXPECT_EQ("zelplat: cannot write " + output + ": the file exists (--force replaces it)\r\n",
              run.err);
    EXPECT_EQ(kKept, readFile(target));

    // Windows opens the link itself and sees a reparse point. Wine 8 opens what the link leads
    // to; its name is not the one asked for.
    run = zelplat("report --output \"" + output + "\" --force");
    EXPECT_EQ(50u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("zelplat: cannot write " + output + ": it leads to " + target + "\r\n", run.err);
    EXPECT_EQ(kKept, readFile(target));
}

// A link to nowhere yet: creating the name would create the target.
TEST_F(ZelplatFiles, OutputNamedAsALinkToNothingMakesNothing) {
    const std::string target = in("planted.txt");
    const std::string output = in("report.json");
    writeFile(target, kKept);
    makeLink(target, output);
    ASSERT_TRUE(::DeleteFileA(target.c_str()));
    const auto run = zelplat("report --output \"" + output + "\"");
    EXPECT_EQ(50u, run.exitCode);
    EXPECT_EQ("zelplat: cannot write " + output + ": the file exists (--force replaces it)\r\n",
              run.err);
    EXPECT_FALSE(exists(target));
}

// A folder on the way leads elsewhere: the file made there is the wrong one and is removed.
TEST_F(ZelplatFiles, OutputThroughALinkedFolderIsRefusedAndWhatItMadeRemoved) {
    const std::string elsewhere = in("elsewhere");
    ASSERT_TRUE(::CreateDirectoryA(elsewhere.c_str(), nullptr));
    makeLink(elsewhere, in("cases"));
    const std::string output = in("cases") + "\\report.json";

    const auto run = zelplat("report --output \"" + output + "\"");
    EXPECT_EQ(50u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ("zelplat: cannot write " + output + ": it leads to " + elsewhere +
                  "\\report.json\r\n",
              run.err);
    EXPECT_FALSE(exists(elsewhere + "\\report.json"));
}

// The file made there is removed only when zelplat made it: a replaced one stays as it was.
TEST_F(ZelplatFiles, ForcedOutputThroughALinkedFolderKeepsTheFileThere) {
    const std::string elsewhere = in("elsewhere");
    ASSERT_TRUE(::CreateDirectoryA(elsewhere.c_str(), nullptr));
    writeFile(elsewhere + "\\report.json", kKept);
    makeLink(elsewhere, in("cases"));
    const std::string output = in("cases") + "\\report.json";

    const auto run = zelplat("report --output \"" + output + "\" --force");
    EXPECT_EQ(50u, run.exitCode);
    EXPECT_EQ("zelplat: cannot write " + output + ": it leads to " + elsewhere +
                  "\\report.json\r\n",
              run.err);
    EXPECT_EQ(kKept, readFile(elsewhere + "\\report.json"));
}

TEST_F(ZelplatFiles, OutputToADeviceOrAPipeIsRefused) {
    const std::string nulInFolder = in("nul.txt");
    const struct {
        std::string name;
        std::string why;
    } cases[] = {
        {"NUL", "a device, not a file"},
        {"com1", "a device, not a file"},
        {nulInFolder, "a device, not a file"},
        {"\\\\.\\pipe\\x", "a named pipe, not a file"},
        {"\\\\?\\pipe\\x", "a named pipe, not a file"},
        {"\\\\server\\pipe\\x", "a named pipe, not a file"},
        {"\\\\.\\C:", "a device, not a file"},
        {"\\\\?\\GLOBALROOT\\Device\\Null", "a device, not a file"},
    };
    for (const auto& refused : cases) {
        const auto run = zelplat("report --output \"" + refused.name + "\"");
        EXPECT_EQ(50u, run.exitCode) << refused.name;
        EXPECT_EQ("", run.out) << refused.name;
        EXPECT_EQ("zelplat: cannot write " + refused.name + ": " + refused.why + "\r\n", run.err);
    }
}

TEST_F(ZelplatFiles, EmptyOutputNameIsAUsageError) {
    const auto run = zelplat("report --output \"\"");
    EXPECT_EQ(30u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ(0u, run.err.find("zelplat: report: --output needs a file name\r\n\r\n"
                               "usage: zelplat report [--json | --table] [--output FILE [--force]]"
                               "\r\n"))
        << run.err;
}

TEST_F(ZelplatFiles, ForceWithoutOutputIsAUsageError) {
    const auto run = zelplat("report --force");
    EXPECT_EQ(30u, run.exitCode);
    EXPECT_EQ("", run.out);
    EXPECT_EQ(0u, run.err.find("zelplat: report: --force goes with --output FILE\r\n\r\n"
                               "usage: zelplat report "))
        << run.err;
}

// The long form of a file's name is a file's name.
TEST_F(ZelplatFiles, OutputByItsLongNameIsWritten) {
    const std::string output = "\\\\?\\" + in("report.json");
    const auto run = zelplat("report --output \"" + output + "\"");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("", run.err);
    EXPECT_EQ(0u, readFile(in("report.json")).find("{\r\n"));
}

// --- --log -------------------------------------------------------------------------------------

// Refused before the library is asked: enrollment get would print NOT SET.
TEST_F(ZelplatFiles, LogToADeviceOrAPipeIsRefused) {
    for (const std::string name : {"NUL", "\\\\.\\pipe\\x", "CONOUT$", "\\\\server\\pipe\\x"}) {
        const auto run = zelplat("--log \"" + name + "\" enrollment get");
        EXPECT_EQ(50u, run.exitCode) << name;
        EXPECT_EQ("", run.out) << name;
        const std::string why = name.find("pipe") != std::string::npos ? "a named pipe, not a file"
                                                                       : "a device, not a file";
        EXPECT_EQ("zelplat: cannot log to " + name + ": " + why + "\r\n", run.err);
    }
}

TEST_F(ZelplatFiles, LogToALinkAHardLinkOrAFolderIsRefused) {
    const std::string other = in("other.log");
    writeFile(other, kKept);
    ASSERT_TRUE(::CreateHardLinkA(in("hard.log").c_str(), other.c_str(), nullptr));
    const std::string target = in("target.log");
    writeFile(target, kKept);
    makeLink(target, in("link.log"));
    ASSERT_TRUE(::CreateDirectoryA(in("elsewhere").c_str(), nullptr));
    makeLink(in("elsewhere"), in("folder.log"));
    const struct {
        std::string name;
        std::string why;
    } cases[] = {
        {in("hard.log"), "the file has other hard links"},
        // Wine 8 shows a link to a file as the file (Windows: a reparse point).
        {in("link.log"), "it leads to " + target},
        {in("folder.log"), "a link (reparse point), not an ordinary file"},
        {folder_, "a folder, not a file"},
    };
    for (const auto& refused : cases) {
        const auto run = zelplat("--log \"" + refused.name + "\" enrollment get");
        EXPECT_EQ(50u, run.exitCode) << refused.name;
        EXPECT_EQ("", run.out) << refused.name;
        EXPECT_EQ("zelplat: cannot log to " + refused.name + ": " + refused.why + "\r\n", run.err);
    }
    EXPECT_EQ(kKept, readFile(other));
    EXPECT_EQ(kKept, readFile(target));
}

TEST_F(ZelplatFiles, LogToAnExistingOrdinaryFileIsAppendedTo) {
    const std::string log = in("zelplat.log");
    writeFile(log, kKept);
    const auto run = zelplat("--log \"" + log + "\" enrollment get");
    EXPECT_EQ(10u, run.exitCode);
    EXPECT_EQ("NOT SET\r\n", run.out);
    const std::string text = readFile(log);
    EXPECT_EQ(0u, text.find(kKept));
    EXPECT_NE(std::string::npos,
              text.find("[INFO] TqZelDLLPlatform::getEnrollmentMode : Entered\r\n"));
}

TEST_F(ZelplatFiles, LogToANewFileIsCreated) {
    const std::string log = in("new.log");
    const auto run = zelplat("--log \"" + log + "\" enrollment get");
    EXPECT_EQ(10u, run.exitCode);
    EXPECT_EQ("zelplat: (0x0000000b) Not found.\r\n", run.err);
    EXPECT_NE(std::string::npos,
              readFile(log).find("[INFO] TqZelDLLPlatform::getEnrollmentMode : Entered\r\n"));
}

// --- zelplat's own temporary files ---------------------------------------------------------------

// With an agent installed and running, ia makes the library write a line of its own.
class ZelplatTemporaryFiles : public iatest::IdentityAgentRegistry {};

// The library's console lines go to a file of zelplat's own while it works; it goes away with it.
TEST_F(ZelplatTemporaryFiles, AreGoneWhenZelplatEnds) {
    installVessant();
    zeltest::AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    const int before = zelplatTemporaryFiles();
    const auto run = RunProgram("\"" + zeltest::BuiltFile("zelplat.exe") + "\" --verbose ia");
    EXPECT_EQ(0u, run.exitCode) << run.err;
    // The captured line, shown: the capture worked.
    EXPECT_NE(std::string::npos,
              run.err.find("TqDetectKVRIdentityAgent : Successfully detected KVR IA.\r\n"))
        << run.err;
    EXPECT_EQ(before, zelplatTemporaryFiles());
}

} // namespace
