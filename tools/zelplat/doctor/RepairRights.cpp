#include "doctor/RepairRights.h"

#include "common/PlatformDll.h"
#include "base/TqUniqueResource.h"
#include "host/TqProcessUtils.h"

#include <windows.h>

namespace {

std::string accountName(const accountBlock& account) {
    const std::string domain(account.domainName);
    return domain.empty() ? std::string(account.accountName) : domain + "\\" + account.accountName;
}

// SYSTEM, LOCAL SERVICE, NETWORK SERVICE: the accounts management tools and services run as.
bool serviceAccount(const std::string& sid) {
    return sid == "S-1-5-18" || sid == "S-1-5-19" || sid == "S-1-5-20";
}

} // namespace

ProcessAccount CurrentAccount() {
    accountBlock block{};
    ProcessAccount account;
    int result = 0;
    {
        // The library's helpers speak on the console when a query fails.
        const LibraryConsole libraryLines;
        result = TqGetProcessSIDInfo(::GetCurrentProcessId(), &block);
    }
    if (result == 0) {
        account.name = accountName(block);
        account.sid = block.sidString;
        account.read = true;
    }
    return account;
}

bool RunsElevated() {
    TqUniqueHandle token;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.put())) {
        return false;
    }
    TOKEN_ELEVATION elevation{};
    DWORD size = 0;
    return ::GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof elevation,
                                 &size) &&
           elevation.TokenIsElevated != 0;
}

// The interactive user is the owner of the shell, explorer.exe (the first one found: a
// workstation has one interactive session; a terminal server is not this tool's setting). A
// process of another account (elevated as an administrator's account, or started by a management
// tool as SYSTEM) has HKCU of that account, not of the person at the workstation. Under Wine
// every process runs as the one user, so only the path where the accounts agree can be tested.
std::string NotTheWorkstationUser(const ProcessAccount& account) {
    if (!account.read) {
        return "this process's account cannot be read";
    }
    if (serviceAccount(account.sid)) {
        return "this process runs as " + account.name + ", not as the workstation's user";
    }
    processRecord shell{};
    int found = 0;
    accountBlock owner{};
    int ownerRead = -1;
    {
        const LibraryConsole libraryLines;
        found = TqIsProcessExecuting("explorer.exe", false, &shell);
        if (found > 0) {
            ownerRead = TqGetProcessSIDInfo(shell.processId, &owner);
        }
    }
    // No shell (a server core, a session without one): nothing says another user is there.
    if (found <= 0 || ownerRead != 0) {
        return "";
    }
    if (account.sid != owner.sidString) {
        return "this process runs as " + account.name + ", the workstation's user is " +
               accountName(owner);
    }
    return "";
}

std::string ComputerName() {
    char name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = sizeof name;
    if (!::GetComputerNameA(name, &size)) {
        return "";
    }
    return std::string(name, size);
}
