// zelplat's exit codes, one table for every command, where a management tool decides by them:
// the answers and the doctor's verdicts, and the tool's own failures on codes of their own, so
// that a script never takes a broken command line or a missing DLL for a verdict on the
// workstation. No code is negative (cmd's `if errorlevel 1` reads those as success) and none is
// a result code of the library (those stay in the text). When several apply, the highest is
// given.
#pragma once

#include <cstdlib>

namespace zelexit {

inline constexpr int kHealthy = 0; // also: the answer is printed, whatever it says
inline constexpr int kWarningsOnly = 1;
inline constexpr int kProblems = 2; // found, or left after the fixes
inline constexpr int kCouldNotAssess = 10;
inline constexpr int kAccessDenied = 20;
inline constexpr int kRefusedForRights = 21; // needs an administrator, or the workstation's user
inline constexpr int kUsageError = 30;
inline constexpr int kLibraryNotLoaded = 40;
inline constexpr int kCannotWrite = 50;   // an output file, the log or an undo record
inline constexpr int kRecordRefused = 51; // an undo record unreadable, or of another computer

// The exit code of a library result that is not one of the command's answers. The library
// returns its common codes as they are or negated.
inline int OfLibraryFailure(int result) {
    constexpr int kLibraryAccessDenied = 16;
    constexpr int kLibraryAccessBlocked = 27;
    constexpr int kLibraryLoadFailed = 29;
    switch (std::abs(result)) {
    case kLibraryAccessDenied:
    case kLibraryAccessBlocked:
        return kAccessDenied;
    case kLibraryLoadFailed:
        return kLibraryNotLoaded;
    default:
        return kCouldNotAssess;
    }
}

// The table as `zelplat help`, `zelplat help doctor` and the README show it.
inline constexpr const char* kTableText =
    "Exit codes (every command):\n"
    "   0  done: the answer is printed, whatever it says; the doctor: nothing found\n"
    "   1  warnings only (the doctor)\n"
    "   2  problems: the doctor's (found, or left after the fixes); card check: the\n"
    "      card is still invalid after its cache was cleared\n"
    "  10  could not assess: a query or a switch of the library failed (the library's\n"
    "      result code and text are shown)\n"
    "  20  access denied: the library, or a registry key zelplat must read or put\n"
    "      back, refused it\n"
    "  21  a fix refused for rights: it needs an administrator, or must run as the\n"
    "      workstation's user\n"
    "  30  usage error: a command line zelplat does not understand, or no PIN given\n"
    "  40  the library cannot be loaded\n"
    "  50  an output file, the log or the undo record cannot be written\n"
    "  51  an undo record cannot be read, or is refused (another computer or account)\n"
    "When several apply, the highest is given.\n";

} // namespace zelexit
