// Who runs zelplat, and whether that is the right one for a fix: machine-wide fixes need an
// administrator (or SYSTEM); per-user fixes must run as the workstation's user, or they would
// change another account's hive.
#pragma once

#include <string>

struct ProcessAccount {
    std::string name; // "DOMAIN\user"
    std::string sid;  // "S-1-5-21-..."
    bool read = false;
};

ProcessAccount CurrentAccount();

// Whether the process runs with an administrator's rights (an elevated token).
bool RunsElevated();

// "" when the process's user is the workstation's interactive user (or nothing says otherwise);
// else why per-user fixes must not run here.
std::string NotTheWorkstationUser(const ProcessAccount& account);

std::string ComputerName();
