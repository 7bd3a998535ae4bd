#include "commandline/Usage.h"

#include "common/ExitCodes.h"
#include "common/Words.h"

#include <cstdio>

namespace {

const char kUsage[] =
    "usage: zelplat [--log FILE] [--verbose] COMMAND [ARGUMENTS]\n"
    "\n"
    "Asks ZelPlatformMethods64.dll (next to zelplat.exe) about this workstation.\n"
    "\n"
    "commands:\n"
    "  report [--json|--table] [--output FILE [--force]]\n"
    "                                       every read-only answer in one document\n"
    "  doctor [--json]                      what is wrong here, and the command that fixes it\n"
    "                                       (exit 0: nothing, 1: warnings, 2: problems)\n"
    "  doctor --fix [--yes|--dry-run] [--scope machine|user] [--json]\n"
    "                                       apply the fixes the doctor names, asking first,\n"
    "                                       with an undo record\n"
    "  doctor --undo FILE                   put back what an undo record holds\n"
    "  card list                            readers, their cards and the cards' minidrivers\n"
    "  card check READER [--pin-stdin]      check the card's key containers, and clear its\n"
    "                                       minidriver cache when they look invalid\n"
    "  card clear-cache READER [--pin-stdin]\n"
    "                                       clear the card's minidriver cache\n"
    "  enrollment get                       applet the PIV minidriver presents\n"
    "  enrollment set AGILE|COMPATIBILITY   switch the PIV minidriver's applet\n"
    "  file-version PATH                    major file version of a module\n"
    "  middleware [--table]                 supported smart-card middleware (JSON, or a table)\n"
    "  oberthur                             the OT middleware record\n"
    "  atr get                              minidriver the JCOP 41 card entries name\n"
    "  atr set GEMSAFE|PIVMINIDRIVER        point the JCOP 41 card entries at a minidriver\n"
    "  ia                                   the Identity Agent document (JSON)\n"
    "  ia --table                           the Identity Agent and its spring check, readable\n"
    "  ia spring-check off|default          switch the spring check off for this user, or\n"
    "                                       back to the agent's default\n"
    "  help COMMAND                         more about one command (also: COMMAND --help,\n"
    "                                       COMMAND -h, COMMAND /?)\n"
    "\n"
    "options:\n"
    "  --log FILE   append the library's log lines to FILE (an ordinary file, not a link,\n"
    "               device or pipe)\n"
    "  --verbose    show the library's own console lines on standard error\n"
    "  --help, -h, -?, /?\n"
    "               show this text, or after a command that command's own\n"
    "  --version    show zelplat's version\n"
    "\n"
    "Words are taken in any letter case, and --log, --verbose and --help anywhere on the\n"
    "line. The answer goes to standard output, and nothing else does; a failure is explained\n"
    "on standard error with the library's result code and text. The library's own console\n"
    "lines are shown only with --verbose.\n"
    "\n";

// What an unknown command or an empty line gets: where to look, not every command's usage.
const char kShortUsage[] = "usage: zelplat [--log FILE] [--verbose] COMMAND [ARGUMENTS]\n"
                           "commands: report, doctor, card, enrollment, file-version, middleware,\n"
                           "          oberthur, atr, ia, help\n"
                           "zelplat help shows them all; zelplat help COMMAND one of them.\n";

struct CommandHelp {
    const char* command;
    const char* text;
    const char* exitCodes = ""; // the table of the codes a management tool decides by
};

const CommandHelp kCommandHelp[] = {
    {"report",
     "usage: zelplat report [--json | --table] [--output FILE [--force]]\n"
     "\n"
     "Every read-only answer of the library in one document, and the registry entries behind\n"
     "them. Nothing on the workstation is changed. Sections: library, fileVersions,\n"
     "enrollment, atr, middleware, oberthur, identityAgent; each carries the result code of\n"
     "the export it asked and that code's text. A registry key the tool could not read is\n"
     "listed under the section's deniedKeys.\n"
     "\n"
     "  --json          one JSON object (the default); its schema is docs/report.schema.json\n"
     "  --table         the same answers as aligned SECTION / FIELD / VALUE lines\n"
     "  --output FILE   write the document to FILE instead of standard output; FILE must\n"
     "                  not exist yet\n"
     "  --force         with --output: replace FILE when it is an ordinary file\n"
     "\n"
     "FILE is refused when it is a device, a pipe, a link (reparse point), has other hard\n"
     "links or, through a linked folder, leads elsewhere.\n"
     "\n"
     "Exit code 0 when the report was made, whatever it says; 40 when the library cannot be\n"
     "loaded; 50 when FILE cannot be written.\n"},
    {"doctor",
     "usage: zelplat doctor [--json]\n"
     "       zelplat doctor --fix [--yes | --dry-run] [--scope machine|user] [--json]\n"
     "       zelplat doctor --undo FILE\n"
     "       zelplat doctor ... [--expect KEY=VALUE,... | --expect FILE] [--only RULE]\n"
     "                          [--skip RULE]\n"
     "\n"
     "Reads the report and says what is wrong with this workstation's smart-card setup: for\n"
     "each finding its rule, its severity (problem or warning), the facts it read and the\n"
     "zelplat command that fixes it. Without --fix nothing on the workstation is changed.\n"
     "\n"
     "  --json      the findings as one JSON object, for a management tool\n"
     "  --fix       apply the fixes that are switches of the library (atr set, enrollment\n"
     "              set, ia spring-check), each after asking; then run the rules again\n"
     "  --yes       with --fix: apply without asking, for a script\n"
     "  --dry-run   with --fix: only show what would be applied\n"
     "  --scope     with --fix: only the machine-wide fixes (atr set; run as an\n"
     "              administrator or SYSTEM) or only the per-user ones (enrollment set, ia\n"
     "              spring-check; run as the workstation's user)\n"
     "  --undo      put back every value an undo record holds, after writing a record of\n"
     "              its own (exit 0 when all of it is back)\n"
     "  --expect    the intended state: spring-check=default|off, applet=AGILE|COMPATIBILITY,\n"
     "              minidriver=GEMSAFE|PIVMINIDRIVER, comma-separated; or a JSON file with\n"
     "              the same keys and \"skip\": [rules]. A setting that differs is a finding\n"
     "  --only, --skip  only this rule's findings, or none of this rule's (repeatable)\n"
     "\n"
     "Each fix is judged on the state it would produce before it is offered: one that would\n"
     "point the card at a minidriver that is not installed, leave a new problem or bring its\n"
     "own finding back, and one that would confirm the spring check switched off or choose\n"
     "an applet that no --expect declares, is \"needs a person\" with the reason.\n"
     "\n"
     "Before a fix changes anything, the values it may touch are written to a new undo\n"
     "record: %ProgramData%\\ZelPlatform\\repairs\\ for machine-wide fixes (administrators\n"
     "and SYSTEM only), %LOCALAPPDATA%\\ZelPlatform\\repairs\\ for per-user ones. A fix that\n"
     "fails part-way is undone from the record.\n"
     "\n",
     zelexit::kTableText},
    {"card",
     "usage: zelplat card list\n"
     "       zelplat card check READER [--pin-stdin]\n"
     "       zelplat card clear-cache READER [--pin-stdin]\n"
     "\n"
     "  list          every reader, whether a card is in it, the card's ATR, the card name the\n"
     "                smart-card database gives that ATR and the minidriver it names\n"
     "  check         checks the key containers of the Oberthur card in READER on both\n"
     "                applets; when they look invalid, clears the card's minidriver cache (up to\n"
     "                three times, presenting the PIN each time) and checks again. Exit 0:\n"
     "                valid, or valid after the cache was cleared; 2: still invalid after\n"
     "                three clearings; 10: the Oberthur middleware is not installed (the card\n"
     "                was not checked), or the check failed\n"
     "  clear-cache   presents the PIN and clears the card's minidriver cache three times,\n"
     "                without checking the card first; exit 0, or 10 when a step failed\n"
     "\n"
     "The PIN is asked for and typed without echo at a console; otherwise, and always with\n"
     "--pin-stdin, it is the first line of standard input (for a script). It is never taken\n"
     "from the command line, where other programs could read it. A failure's reason, from the\n"
     "library's log, is shown on standard error. An empty or unreadable PIN exits 30.\n"},
    {"enrollment",
     "usage: zelplat enrollment get\n"
     "       zelplat enrollment set AGILE|COMPATIBILITY\n"
     "\n"
     "The applet the PIV minidriver presents for enrollment (the per-user EnableKVREnrollment\n"
     "setting). get prints AGILE, COMPATIBILITY or NOT SET (exit 10, with the library's\n"
     "result: 11 when the key is missing, 4 when the value is).\n"},
    {"file-version",
     "usage: zelplat file-version PATH\n"
     "\n"
     "The major file version of a module, from its version resource (exit 10, with the\n"
     "library's result 11, when it is not found).\n"},
    {"middleware",
     "usage: zelplat middleware [--table]\n"
     "\n"
     "The supported smart-card middleware document the client receives; --table gives one\n"
     "aligned line per row.\n"},
    {"oberthur", "usage: zelplat oberthur\n"
                 "\n"
                 "The OTMiddleware record; exit 0 whether or not the middleware is detected, 10\n"
                 "when the detection failed.\n"},
    {"atr",
     "usage: zelplat atr get\n"
     "       zelplat atr set GEMSAFE|PIVMINIDRIVER\n"
     "\n"
     "Which minidriver the JCOP 41 card entries of the smart-card database give the card; set\n"
     "rewrites both entries in the 64-bit and the 32-bit registry view.\n"},
    {"ia", "usage: zelplat ia [--table]\n"
           "       zelplat ia spring-check off|default\n"
           "\n"
           "The Identity Agent document, or a readable summary of it; spring-check switches the\n"
           "agent's card-removal check off for this user (the agent must run) or back to its\n"
           "default.\n"},
    {"help", "usage: zelplat help COMMAND\n"
             "\n"
             "More about one command: report, doctor, card, enrollment, file-version, middleware,\n"
             "oberthur, atr, ia.\n"},
};

const CommandHelp* findHelp(const std::string& command) {
    for (const CommandHelp& help : kCommandHelp) {
        if (SameWord(command, help.command)) {
            return &help;
        }
    }
    return nullptr;
}

} // namespace

void PrintUsage() {
    std::fputs(kUsage, stdout);
    std::fputs(zelexit::kTableText, stdout);
}

bool PrintCommandHelp(const std::string& command) {
    const CommandHelp* help = findHelp(command);
    if (help == nullptr) {
        return false;
    }
    std::fputs(help->text, stdout);
    std::fputs(help->exitCodes, stdout);
    return true;
}

int UsageError(const std::string& problem) {
    std::fprintf(stderr, "zelplat: %s\n\n%s", problem.c_str(), kShortUsage);
    return zelexit::kUsageError;
}

int CommandUsageError(const std::string& command, const std::string& problem) {
    const CommandHelp* help = findHelp(command);
    std::fprintf(stderr, "zelplat: %s\n\n%s%s", problem.c_str(),
                 help != nullptr ? help->text : kShortUsage,
                 help != nullptr ? help->exitCodes : "");
    return zelexit::kUsageError;
}
