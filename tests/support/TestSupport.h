// Helpers shared by the test programs: paths, scratch log files, the real registry of the
// Wine prefix, child processes and the built DLL.
#pragma once

#include <windows.h>

#include "ZelPlatformMethods64.h"
#include "base/TqUniqueResource.h"
#include "support/CallerTrace.h"

#include <string>
#include <vector>

namespace zeltest {

// Folder of the running test program, ending in a backslash. The build puts every program,
// the library and the test kit's modules there.
std::string ProgramFolder();
std::string BuiltFile(const char* name);

// The system's own text of a Windows error code, as FormatMessage gives it on this host (with
// its trailing "\r\n").
std::string SystemText(DWORD code);

// A log file path of its own in the temp folder; the file is removed at destruction.
class ScratchLogFile {
public:
    ScratchLogFile();
    ~ScratchLogFile();
    ScratchLogFile(const ScratchLogFile&) = delete;
    ScratchLogFile& operator=(const ScratchLogFile&) = delete;

    const char* path() const { return path_.c_str(); }
    std::string contents() const;
    // The lines with the "[timestamp][PID 0x...]" prefix checked and removed: what remains
    // starts at the level, "[INFO] TqZelDLLPlatform::getEnrollmentMode : Entered". A line
    // without that prefix, or with another thread's id, fails the test and is kept whole.
    std::vector<std::string> bodies(CallSite caller = CallSite::current()) const;

private:
    std::string path_;
};

// Registry of the prefix. view is 0, KEY_WOW64_64KEY or KEY_WOW64_32KEY.
void DeleteKeyTree(HKEY root, const std::string& path, REGSAM view = 0);
bool KeyExists(HKEY root, const std::string& path, REGSAM view = 0);
void CreateKey(HKEY root, const std::string& path, REGSAM view = 0,
               CallSite caller = CallSite::current());
void WriteValue(HKEY root, const std::string& path, const char* name, DWORD type,
                const std::vector<BYTE>& data, REGSAM view = 0,
                CallSite caller = CallSite::current());
void WriteDword(HKEY root, const std::string& path, const char* name, DWORD value, REGSAM view = 0,
                CallSite caller = CallSite::current());
void WriteString(HKEY root, const std::string& path, const char* name, const std::string& value,
                 REGSAM view = 0, CallSite caller = CallSite::current());
// Stores exactly these bytes, also for string types: RegSetValueExA adds a terminating NUL to
// string data whenever the byte after the given count happens to be NUL, so the helper puts a
// non-NUL byte there. Use it for string data stored without a terminator.
void WriteExactValue(HKEY root, const std::string& path, const char* name, DWORD type,
                     const std::vector<BYTE>& data, REGSAM view = 0,
                     CallSite caller = CallSite::current());

struct StoredValue {
    bool present = false;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};
StoredValue ReadValue(HKEY root, const std::string& path, const char* name, REGSAM view = 0);

// Keeps a key's security as it is now (the key is created when missing) and puts it back at the
// end through a handle opened now, whatever is done to the key meanwhile.
class SavedKeySecurity {
public:
    SavedKeySecurity(HKEY root, const std::string& path, REGSAM view = 0,
                     CallSite caller = CallSite::current());
    ~SavedKeySecurity();
    SavedKeySecurity(const SavedKeySecurity&) = delete;
    SavedKeySecurity& operator=(const SavedKeySecurity&) = delete;

    HKEY key() const { return key_.get(); }

private:
    TqUniqueRegKey key_;
    std::vector<BYTE> original_;
};

// Denies everyone every access to a key (DACL "D:(D;;KA;;;WD)") while it lives; the old
// security comes back at the end.
class DeniedKey {
public:
    DeniedKey(HKEY root, const std::string& path, REGSAM view = 0,
              CallSite caller = CallSite::current());

private:
    SavedKeySecurity saved_;
};

// A registry link named name under root\\parent (64-bit view) that leads back to parent itself,
// the loop a user can make in their own HKCU: every walk through it meets parent again, one
// level deeper each time. The link is volatile, and the object deletes it (the link, not its
// target) when it goes. Only HKEY_LOCAL_MACHINE and HKEY_CURRENT_USER are roots it knows.
class RegistryLinkLoop {
public:
    RegistryLinkLoop(HKEY root, const std::string& parent, const std::string& name,
                     CallSite caller = CallSite::current());
    ~RegistryLinkLoop();
    RegistryLinkLoop(const RegistryLinkLoop&) = delete;
    RegistryLinkLoop& operator=(const RegistryLinkLoop&) = delete;

private:
    HKEY root_;
    std::string path_;
    CallSite made_;
};

// CreateProcessA for the tests. Under heavy load Wine now and then refuses a start with
// ERROR_INTERNAL_ERROR, and a second start succeeds: that one error is tried again, once, and
// the retry is recorded as the test's property "process_start_retried".
BOOL CreateTestProcess(const char* application, std::string& commandLine,
                       SECURITY_ATTRIBUTES* processAttributes, BOOL inheritHandles, DWORD flags,
                       const char* folder, STARTUPINFOA& startup, PROCESS_INFORMATION& created);

// Runs a command line to its end with standard output and error in files of their own. A
// program still running after 30 s is terminated and marked timedOut.
struct ProcessResult {
    DWORD exitCode = 0xDEADBEEF;
    bool timedOut = false;
    std::string out;
    std::string err;
};
ProcessResult RunProgram(const std::string& commandLine, CallSite caller = CallSite::current());
// The same with input piped into its standard input; the pipe ends after the input.
ProcessResult RunProgramWithInput(const std::string& commandLine, const std::string& input,
                                  CallSite caller = CallSite::current());

// The built ZelPlatformMethods64.dll, loaded the way the client loads it.
class PlatformDll {
public:
    explicit PlatformDll(CallSite caller = CallSite::current());
    const ZelPlatformExportedInterface& api() const { return table_; }
    HMODULE module() const { return module_.get(); }

private:
    TqUniqueModule module_;
    ZelPlatformExportedInterface table_{};
};

} // namespace zeltest
