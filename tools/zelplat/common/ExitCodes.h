// zelplat's exit codes where a management tool decides by them: the doctor's verdicts, and the
// tool's own failures on codes of their own, so that a script never takes a broken command line
// or a missing DLL for a verdict on the workstation. When several apply, the highest is given.
#pragma once

namespace zelexit {

inline constexpr int kHealthy = 0;
inline constexpr int kWarningsOnly = 1;
inline constexpr int kProblems = 2; // found, or left after the fixes
inline constexpr int kCouldNotAssess = 10;
inline constexpr int kAccessDenied = 20;
inline constexpr int kRefusedForRights = 21; // needs an administrator, or the workstation's user
inline constexpr int kUsageError = 30;
inline constexpr int kLibraryNotLoaded = 40;
inline constexpr int kCannotWrite = 50;   // an output file or an undo record
inline constexpr int kRecordRefused = 51; // an undo record unreadable, or of another computer

// The table as `zelplat help doctor` and the README show it.
inline constexpr const char* kTableText =
    "Exit codes:\n"
    "   0  healthy: nothing found\n"
    "   1  warnings only\n"
    "   2  problems (found, or left after the fixes)\n"
    "  10  could not assess: a query of the library failed\n"
    "  20  access denied: a registry key zelplat must read or put back refused it\n"
    "  21  a fix refused for rights: it needs an administrator, or must run as the\n"
    "      workstation's user\n"
    "  30  usage error: a command line zelplat does not understand\n"
    "  40  the library cannot be loaded\n"
    "  50  an output file or the undo record cannot be written\n"
    "  51  an undo record cannot be read, or is refused (another computer or account)\n"
    "When several apply, the highest is given.\n";

} // namespace zelexit
