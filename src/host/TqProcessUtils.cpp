#include "TqProcessUtils.h"
#include "base/TqFailure.h"

#include "host/TqFailureLine.h"
#include "host/TqProcessSeam.h"
#include "base/TqUniqueResource.h"
#include "base/TqErrorText.h"
#include "base/TqResultCodes.h"

#include <psapi.h>
#include <sddl.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

constexpr const char* kSIDInfoName = "TqGetProcessSIDInfo";
constexpr const char* kImageFileName = "TqGetProcessImageFileName";
constexpr const char* kIsExecutingName = "TqIsProcessExecuting";
constexpr const char* kDateInfoName = "TqGetProcessDateInfo";
constexpr const char* kServiceStatusName = "TqGetServiceStatus";

constexpr const char* kInvalidArguments = "Invalid argument(s) supplied.";

constexpr DWORD kMaxProcessIds = 2048;
constexpr DWORD kImagePathCharacters = MAX_PATH;

// A failed system call: its text, the Windows code and the result the caller gets.
[[noreturn]] void failCall(const std::string& text, DWORD windowsCode, int result) {
    throw TqFailure(text, result, windowsCode);
}

// Most calls answer with the common code of their Windows error, negated.
[[noreturn]] void failCall(const std::string& text, DWORD windowsCode) {
    failCall(text, windowsCode, -TqCommonCodeOfWindowsError(windowsCode));
}

std::string errorCodeSuffix(DWORD code) {
    return " Error Code (0x" + TqFormatHex8(code) + ")";
}

// Runs body(result) and turns whatever it throws into one standard-error line and a negative
// code, so that no exception leaves a utility.
template <typename Body> int runUtility(const char* function, Body&& body) noexcept {
    bool reported = false;
    return TqGuard<int>(
        std::forward<Body>(body),
        [&](const TqCaught& caught) {
            const TqFailure* call = TqFailedCall(caught);
            TqWriteFailureLine(function, caught,
                               call != nullptr ? errorCodeSuffix(call->windowsCode()) : "");
            reported = true;
        },
        [&](const TqCaught& caught, int resultSoFar) noexcept {
            // When writing the diagnostic itself failed, the code still reaches the caller.
            return reported ? TqCodeOfFailure(caught, resultSoFar, -tq::kExceptionOccurred)
                            : -tq::kExceptionOccurred;
        });
}

// Copies text into a fixed field, cut to leave room for the terminator; returns the length kept.
template <std::size_t N> std::uint32_t copyField(char (&field)[N], const std::string& text) {
    const std::size_t length = std::min(text.size(), N - 1);
    std::memcpy(field, text.data(), length);
    field[length] = '\0';
    return static_cast<std::uint32_t>(length);
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// "failed(1)" is the size query, "failed(2)" the call that fills the buffer (the token read
// says "failed(1)" for both).
std::string lookupFailure(const char* call, int step, DWORD code) {
    return std::string(call) + " failed(" + std::to_string(step) + ") - " +
           TqGetLastErrorAsString(code) + ".";
}

BOOL getTokenUser(HANDLE token, void* buffer, DWORD size, DWORD* needed) {
    return TqGetTokenInformation(token, TokenUser, buffer, size, needed);
}

std::vector<BYTE> readTokenUser(HANDLE token) {
    DWORD size = 0;
    if (!getTokenUser(token, nullptr, 0, &size)) {
        const DWORD code = ::GetLastError();
        if (code != ERROR_INSUFFICIENT_BUFFER) {
            failCall(lookupFailure("GetTokenInformation", 1, code), code);
        }
    }
    std::vector<BYTE> user(size);
    if (!getTokenUser(token, user.data(), size, &size)) {
        const DWORD code = ::GetLastError();
        // Both token reads, the size and the data, report as step 1.
        failCall(lookupFailure("GetTokenInformation", 1, code), code);
    }
    return user;
}

void lookUpAccount(PSID sid, accountBlock& out) {
    DWORD nameSize = 0;
    DWORD domainSize = 0;
    SID_NAME_USE use = SidTypeUnknown;
    if (!::LookupAccountSidA(nullptr, sid, nullptr, &nameSize, nullptr, &domainSize, &use)) {
        const DWORD code = ::GetLastError();
        if (code != ERROR_INSUFFICIENT_BUFFER) {
            failCall(lookupFailure("LookupAccountSid", 1, code), code);
        }
    }
    std::vector<char> name(nameSize + 1, '\0');
    std::vector<char> domain(domainSize + 1, '\0');
    if (!::LookupAccountSidA(nullptr, sid, name.data(), &nameSize, domain.data(), &domainSize,
                             &use)) {
        const DWORD code = ::GetLastError();
        failCall(lookupFailure("LookupAccountSid", 2, code), code);
    }
    out.accountNameLength = copyField(out.accountName, std::string(name.data()));
    out.domainNameLength = copyField(out.domainName, std::string(domain.data()));
}

// Without its string form the account is still usable; the SID string simply stays empty.
void convertSid(PSID sid, accountBlock& out) {
    char* text = nullptr;
    if (!::ConvertSidToStringSidA(sid, &text)) {
        const DWORD code = ::GetLastError();
        std::cerr << kSIDInfoName << " : Warning ConvertSidToStringSid failed - "
                  << TqGetLastErrorAsString(code) << "." << errorCodeSuffix(code)
                  << " - SID will not be available." << std::endl;
        return;
    }
    const TqUniqueLocalMemory owner(text);
    out.sidStringLength = copyField(out.sidString, std::string(text));
}

} // namespace

int TqGetProcessSIDInfo(std::uint32_t processId, accountBlock* out) {
    return runUtility(kSIDInfoName, [&](int& result) {
        if (out == nullptr) {
            result = -tq::kInvalidArguments;
            throw TqFailure("Process Handle is invalid.");
        }
        *out = accountBlock{};
        const TqUniqueHandle process(
            ::OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, processId));
        if (!process) {
            failCall("OpenProcess Failed for Process ID " + std::to_string(processId) + ".",
                     ::GetLastError());
        }
        TqUniqueHandle token;
        if (!::OpenProcessToken(process.get(), TOKEN_QUERY, token.put())) {
            const DWORD code = ::GetLastError();
            failCall("OpenProcessToken failed - " + TqGetLastErrorAsString(code) + ".", code);
        }
        std::vector<BYTE> user = readTokenUser(token.get());
        const PSID sid = reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid;
        lookUpAccount(sid, *out);
        convertSid(sid, *out);
    });
}

int TqGetProcessImageFileName(std::uint32_t processId, std::string& fileName) {
    return runUtility(kImageFileName, [&](int&) {
        fileName.clear();
        const TqUniqueHandle process(
            ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
        if (!process) {
            failCall("OpenProcess failed.", ::GetLastError());
        }
        char path[kImagePathCharacters];
        DWORD length = kImagePathCharacters;
        if (!::QueryFullProcessImageNameA(process.get(), 0, path, &length)) {
            failCall("QueryFullProcessImageName failed.", ::GetLastError());
        }
        const std::string fullPath(path, length);
        const std::size_t separator = fullPath.find_last_of('\\');
        fileName = separator == std::string::npos ? fullPath : fullPath.substr(separator + 1);
    });
}

namespace {

// The caller's own account, which the other processes' accounts are compared with. False when
// the caller may not read it: with no account to compare with, nothing can match.
bool readCallerAccount(accountBlock& caller, int& result) {
    const int status = TqGetProcessSIDInfo(::GetCurrentProcessId(), &caller);
    if (std::abs(status) == tq::kAccessDenied) {
        return false;
    }
    if (status != 0) {
        result = status;
        throw TqFailure("Failed to get the process SID Information for the active process.");
    }
    return true;
}

std::vector<DWORD> runningProcessIds() {
    std::vector<DWORD> ids(kMaxProcessIds);
    DWORD bytes = 0;
    if (!::EnumProcesses(ids.data(), static_cast<DWORD>(ids.size() * sizeof(DWORD)), &bytes)) {
        failCall("EnumProcesses failed.", ::GetLastError());
    }
    ids.resize(bytes / sizeof(DWORD));
    return ids;
}

// soughtName is lower-case: image names are compared ignoring letter case.
bool runsExecutable(DWORD id, const std::string& soughtName) {
    std::string imageName;
    return id != 0 && TqGetProcessImageFileName(id, imageName) == 0 &&
           lowerCase(imageName) == soughtName;
}

// Reads the process's account into account. A process whose account may not be read is simply
// someone else's; any other failure is worth a line.
bool runsAsCaller(DWORD id, const accountBlock& caller, accountBlock& account) {
    const int status = TqGetProcessSIDInfo(id, &account);
    if (status != 0) {
        if (std::abs(status) != tq::kAccessDenied) {
            std::cerr << kIsExecutingName
                      << " : Failed to get the process SID Information for the given process."
                      << std::endl;
        }
        return false;
    }
    return account.sidStringLength == caller.sidStringLength &&
           std::memcmp(account.sidString, caller.sidString, caller.sidStringLength) == 0;
}

// The record keeps the name as the caller wrote it. Without its times the process is still
// found.
void recordFoundProcess(DWORD id, const std::string& givenName, bool sameUserOnly,
                        processRecord* out) {
    copyField(out->executableName, givenName);
    out->processId = id;
    if (TqGetProcessDateInfo(out, sameUserOnly) != 0) {
        std::cerr << kIsExecutingName << " : Warning - Failed to obtain process Date/Time info."
                  << std::endl;
    }
}

} // namespace

int TqIsProcessExecuting(const char* executableName, bool sameUserOnly, processRecord* out) {
    return runUtility(kIsExecutingName, [&](int& result) {
        // The name may live inside out itself (a record looked up by its own name): it is
        // copied before the record is zeroed, and the record is zeroed before any check fails.
        const std::string givenName(executableName != nullptr ? executableName : "");
        if (out != nullptr) {
            *out = processRecord{};
        }
        if (givenName.empty() || out == nullptr) {
            result = -tq::kInvalidArguments;
            throw TqFailure(kInvalidArguments);
        }
        accountBlock caller{};
        if (sameUserOnly && !readCallerAccount(caller, result)) {
            return;
        }
        const std::string soughtName = lowerCase(givenName);
        for (const DWORD id : runningProcessIds()) {
            accountBlock account{};
            if (!runsExecutable(id, soughtName) ||
                (sameUserOnly && !runsAsCaller(id, caller, account))) {
                continue;
            }
            if (sameUserOnly) {
                out->account = account;
            }
            recordFoundProcess(id, givenName, sameUserOnly, out);
            result = 1;
            return;
        }
    });
}

int TqGetProcessDateInfo(processRecord* record, bool sameUserOnly) {
    return runUtility(kDateInfoName, [&](int& result) {
        if (record == nullptr) {
            result = -tq::kInvalidArguments;
            throw TqFailure(kInvalidArguments);
        }
        record->creationTime = FILETIME{};
        record->exitTime = FILETIME{};
        record->kernelTime = FILETIME{};
        record->userTime = FILETIME{};
        if (record->processId == 0) {
            const std::string name(record->executableName,
                                   strnlen(record->executableName, sizeof record->executableName));
            if (name.empty()) {
                result = -tq::kInvalidArguments;
                throw TqFailure("Process ID and Process Name are both unset.");
            }
            const int found = TqIsProcessExecuting(name.c_str(), sameUserOnly, record);
            if (found < 0) {
                result = -found;
                throw TqFailure("Error occured while detecting executable '" + name + "'");
            }
            if (found == 0) {
                result = tq::kNotFound;
                throw TqFailure("Failed to detect running executable '" + name + "'");
            }
        }
        const TqUniqueHandle process(
            ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, record->processId));
        if (!process) {
            failCall("OpenProcess failed.", ::GetLastError());
        }
        FILETIME creation{}, exit{}, kernel{}, user{};
        if (!::GetProcessTimes(process.get(), &creation, &exit, &kernel, &user)) {
            failCall("GetProcessTimes failed.", ::GetLastError());
        }
        record->creationTime = creation;
        record->exitTime = exit;
        record->kernelTime = kernel;
        record->userTime = user;
    });
}

int TqGetServiceStatus(const char* serviceName) {
    return runUtility(kServiceStatusName, [&](int& result) {
        if (serviceName == nullptr) {
            result = -tq::kInvalidArguments;
            throw TqFailure(kInvalidArguments);
        }
        // Unlike the other utilities every failure here reads -4, whatever the Windows code:
        // the Identity Agent detection only tells a known state from none.
        const TqUniqueServiceHandle manager(
            ::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ENUMERATE_SERVICE));
        if (!manager) {
            failCall("OpenSCManager failed.", ::GetLastError(), -tq::kInternalError);
        }
        // Deliberately the same text as a failed manager open: it is established output.
        const TqUniqueServiceHandle service(
            ::OpenServiceA(manager.get(), serviceName, SERVICE_QUERY_STATUS));
        if (!service) {
            failCall("OpenSCManager failed.", ::GetLastError(), -tq::kInternalError);
        }
        SERVICE_STATUS_PROCESS status{};
        DWORD needed = 0;
        if (!::QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO,
                                    reinterpret_cast<BYTE*>(&status), sizeof status, &needed)) {
            failCall("QueryServiceStatusEx failed.", ::GetLastError(), -tq::kInternalError);
        }
        result = static_cast<int>(status.dwCurrentState);
    });
}
