// A DLL left in the folder a program runs from, under the name of a Windows DLL that is not a
// KnownDLL (version.dll, WinSCard.dll), is loaded by Windows' default search order before the
// real one. zelplat.exe runs elevated from wherever support staff put it (a downloads folder, a
// share) and the library runs inside the client: neither may ever map such a file.
//
// Each test copies the program into a folder of its own with marker DLLs beside it under those
// names (kit_planted_marker.dll: it leaves "<name>.loaded" beside itself when a process maps it)
// and runs it with a Wine DLL override for that program (HKCU\Software\Wine\AppDefaults\<exe>\
// DllOverrides: version and winscard "native,builtin", what WINEDLLOVERRIDES=version,winscard=n,b
// sets for a shell), which makes Wine prefer a native DLL and look for it along the search order
// as Windows does. (Wine's own loader trace, WINEDEBUG=+loaddll, shows the same by hand, but it
// goes to Wine's standard error, not to the child's.)
#include "support/TestSupport.h"

#include "base/TqUniqueResource.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <vector>

namespace {

const char* const kPlantedNames[] = {"version.dll", "WinSCard.dll"};

std::string lower(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

const char* const kProgramsRun[] = {"zelplat.exe", "dll_load_check.exe", "planted_control.exe"};

std::string appDefaultsKey(const char* program) {
    return std::string("Software\\Wine\\AppDefaults\\") + program;
}

class PlantedDll : public ::testing::Test {
protected:
    void SetUp() override {
        folder_ = zeltest::ProgramFolder() + "planted\\";
        removeFolder();
        ASSERT_TRUE(::CreateDirectoryA(folder_.c_str(), nullptr)) << ::GetLastError();
        for (const char* program : {"zelplat.exe", "ZelPlatformMethods64.dll", "dll_load_check.exe",
                                    "planted_control.exe"}) {
            copy(zeltest::BuiltFile(program), program);
        }
        for (const char* name : kPlantedNames) {
            copy(zeltest::BuiltFile("kit_planted_marker.dll"), name);
        }
        for (const char* program : kProgramsRun) {
            const std::string key = appDefaultsKey(program) + "\\DllOverrides";
            zeltest::WriteString(HKEY_CURRENT_USER, key, "version", "native,builtin");
            zeltest::WriteString(HKEY_CURRENT_USER, key, "winscard", "native,builtin");
        }
    }
    void TearDown() override {
        for (const char* program : kProgramsRun) {
            zeltest::DeleteKeyTree(HKEY_CURRENT_USER, appDefaultsKey(program));
        }
        removeFolder();
    }

    zeltest::ProcessResult run(const std::string& program, const std::string& arguments) {
        return zeltest::RunProgram("\"" + folder_ + program + "\" " + arguments);
    }

    // The planted DLLs that a process mapped, by their markers' files.
    std::vector<std::string> plantedAndLoaded() const {
        std::vector<std::string> loaded;
        for (const char* name : kPlantedNames) {
            if (::GetFileAttributesA((folder_ + name + ".loaded").c_str()) !=
                INVALID_FILE_ATTRIBUTES) {
                loaded.push_back(name);
            }
        }
        return loaded;
    }

private:
    void copy(const std::string& from, const std::string& name) {
        ASSERT_TRUE(::CopyFileA(from.c_str(), (folder_ + name).c_str(), FALSE))
            << from << ": " << ::GetLastError();
    }
    void removeFolder() {
        WIN32_FIND_DATAA found;
        const HANDLE search = ::FindFirstFileA((folder_ + "*").c_str(), &found);
        if (search != INVALID_HANDLE_VALUE) {
            do {
                ::DeleteFileA((folder_ + found.cFileName).c_str());
            } while (::FindNextFileA(search, &found));
            ::FindClose(search);
        }
        ::RemoveDirectoryA(folder_.c_str());
    }

    std::string folder_;
};

// The setting is real: a program that loads version.dll along the default order gets the planted
// one, and its marker tells.
TEST_F(PlantedDll, AProgramSearchingItsOwnFolderLoadsThePlantedDll) {
    const zeltest::ProcessResult result = run("planted_control.exe", "");
    EXPECT_EQ(0u, result.exitCode);
    EXPECT_EQ(lower("version.dll from " + zeltest::ProgramFolder() + "planted\\version.dll\r\n"),
              lower(result.out));
    EXPECT_EQ(std::vector<std::string>{"version.dll"}, plantedAndLoaded());
}

TEST_F(PlantedDll, ZelplatFileVersionLoadsNothingFromItsOwnFolder) {
    const zeltest::ProcessResult result =
        run("zelplat.exe", "file-version C:\\windows\\system32\\kernel32.dll");
    EXPECT_EQ(0u, result.exitCode) << result.err;
    EXPECT_FALSE(result.out.empty());
    EXPECT_EQ(std::vector<std::string>{}, plantedAndLoaded());
}

// The report asks every export, the card service and the version resources: every delay-loaded
// DLL (winscard, version, shell32) comes from System32.
TEST_F(PlantedDll, ZelplatReportLoadsNothingFromItsOwnFolder) {
    const zeltest::ProcessResult result = run("zelplat.exe", "report --json");
    EXPECT_EQ(0u, result.exitCode) << result.err;
    EXPECT_EQ('{', result.out.empty() ? '\0' : result.out.front());
    EXPECT_EQ(std::vector<std::string>{}, plantedAndLoaded());
}

// A client's process: the host loads the library from its own folder and asks GetFileVersion,
// which loads version.dll. The host neither crashes nor maps the planted file.
TEST_F(PlantedDll, HostAskingGetFileVersionLoadsNoVersionDllFromItsFolder) {
    const zeltest::ProcessResult result = run("dll_load_check.exe", "");
    EXPECT_EQ(0u, result.exitCode) << result.err;
    EXPECT_EQ("shell32.dll not loaded\r\nwinscard.dll not loaded\r\nversion.dll not loaded\r\n"
              "ZelPlatformMethods64.dll loaded\r\nshell32.dll not loaded\r\n"
              "winscard.dll not loaded\r\nversion.dll not loaded\r\nGetFileVersion 0\r\n"
              "version.dll loaded\r\n",
              result.out);
    EXPECT_EQ(std::vector<std::string>{}, plantedAndLoaded());
}

} // namespace

namespace {

std::wstring wideProgramFolder() {
    wchar_t path[MAX_PATH * 2] = {};
    const DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH * 2);
    std::wstring folder(path, length);
    folder.erase(folder.find_last_of(L"\\/") + 1);
    return folder;
}

std::string readWhole(HANDLE file) {
    std::string text;
    ::SetFilePointer(file, 0, nullptr, FILE_BEGIN);
    char buffer[4096];
    DWORD got = 0;
    while (::ReadFile(file, buffer, sizeof buffer, &got, nullptr) && got > 0) {
        text.append(buffer, got);
    }
    return text;
}

} // namespace

// zelplat finds the library by its own path read as wide text: a folder whose name the system
// code page cannot spell (Japanese, under Wine's western code page) works as any other.
TEST(ZelplatFolder, LoadsTheLibraryFromAFolderNamedOutsideTheCodePage) {
    const std::wstring name = L"planted-\u65e5\u672c";
    BOOL lossy = FALSE;
    char narrow[64];
    ::WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, name.c_str(), -1, narrow, sizeof narrow,
                          nullptr, &lossy);
    ASSERT_TRUE(lossy) << "the system code page spells the folder's name: the test shows nothing";
    const std::wstring folder = wideProgramFolder() + name + L"\\";
    ::CreateDirectoryW(folder.c_str(), nullptr);
    for (const wchar_t* file : {L"zelplat.exe", L"ZelPlatformMethods64.dll"}) {
        const std::wstring from = wideProgramFolder() + file;
        ASSERT_TRUE(::CopyFileW(from.c_str(), (folder + file).c_str(), FALSE)) << ::GetLastError();
    }
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    const std::wstring outPath = folder + L"out.txt";
    TqUniqueFile out(::CreateFileW(outPath.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                                   &inherit, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(out);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = out.get();
    startup.hStdError = out.get();
    std::wstring commandLine =
        L"\"" + folder + L"zelplat.exe\" file-version C:\\windows\\system32\\kernel32.dll";
    PROCESS_INFORMATION process{};
    ASSERT_TRUE(::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                 nullptr, &startup, &process))
        << ::GetLastError();
    const TqUniqueHandle processHandle(process.hProcess);
    const TqUniqueHandle threadHandle(process.hThread);
    ASSERT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(process.hProcess, 30000));
    DWORD exitCode = 0xDEADBEEF;
    ::GetExitCodeProcess(process.hProcess, &exitCode);
    const std::string output = readWhole(out.get());
    out.reset();
    EXPECT_EQ(0u, exitCode) << output;
    EXPECT_EQ(std::string::npos, output.find("cannot")) << output;
    EXPECT_FALSE(output.empty());
    for (const wchar_t* file : {L"zelplat.exe", L"ZelPlatformMethods64.dll", L"out.txt"}) {
        ::DeleteFileW((folder + file).c_str());
    }
    ::RemoveDirectoryW(folder.c_str());
}
