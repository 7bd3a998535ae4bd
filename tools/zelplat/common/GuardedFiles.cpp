// rand_s, for temp names nobody can guess, is declared only on request.
#define _CRT_RAND_S // NOLINT(bugprone-reserved-identifier): the runtime's own switch
#include "common/GuardedFiles.h"

#include <algorithm>
#include <cstdlib>
#include <cwctype>
#include <vector>

namespace {

// A pipe server that zelplat connected to could otherwise act as zelplat, with its rights.
constexpr DWORD kNoImpersonation = SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;

const char kLinkProblem[] = "a link (reparse point), not an ordinary file";
const char kNotDiskProblem[] = "not an ordinary disk file";
const char kFolderProblem[] = "a folder, not a file";
const char kHardLinkProblem[] = "the file has other hard links";
const char kDeviceProblem[] = "a device, not a file";
const char kPipeProblem[] = "a named pipe, not a file";

std::string windowsError(DWORD error) {
    return "Windows error " + std::to_string(error);
}

bool startsWithNoCase(const std::wstring& text, std::size_t at, const wchar_t* prefix) {
    for (std::size_t i = 0; prefix[i] != L'\0'; ++i) {
        if (at + i >= text.size() || std::towlower(text[at + i]) != std::towlower(prefix[i])) {
            return false;
        }
    }
    return true;
}

bool sameNoCase(const std::wstring& a, const std::wstring& b) {
    return ::CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(),
                                  static_cast<int>(b.size()), TRUE) == CSTR_EQUAL;
}

bool isDriveRoot(const std::wstring& path, std::size_t at) {
    return at + 2 < path.size() && std::iswalpha(path[at]) && path[at + 1] == L':' &&
           path[at + 2] == L'\\';
}

// The names Windows gives a device in every folder, also with an extension ("NUL.txt") and
// trailing blanks.
bool isReservedDeviceName(const std::wstring& component) {
    std::wstring base = component.substr(0, component.find_first_of(L".:"));
    while (!base.empty() && base.back() == L' ') {
        base.pop_back();
    }
    for (const wchar_t* name : {L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"}) {
        if (sameNoCase(base, name)) {
            return true;
        }
    }
    if (base.size() == 4 &&
        (startsWithNoCase(base, 0, L"COM") || startsWithNoCase(base, 0, L"LPT"))) {
        const wchar_t digit = base[3];
        return (digit >= L'0' && digit <= L'9') || digit == L'\u00B9' || digit == L'\u00B2' ||
               digit == L'\u00B3';
    }
    return false;
}

// "\\server\pipe\x" and "\\server\mailslot\x": the share part of a UNC name starting at `at`.
bool isPipeShare(const std::wstring& path, std::size_t at) {
    const std::size_t share = path.find(L'\\', at);
    if (share == std::wstring::npos) {
        return false;
    }
    return startsWithNoCase(path, share + 1, L"pipe\\") ||
           startsWithNoCase(path, share + 1, L"mailslot\\") ||
           sameNoCase(path.substr(share + 1), L"pipe") ||
           sameNoCase(path.substr(share + 1), L"mailslot");
}

// The path without the "\\?\" of a long name ("\\?\UNC\server" is "\\server").
std::wstring withoutLongPrefix(const std::wstring& path) {
    if (startsWithNoCase(path, 0, L"\\\\?\\UNC\\")) {
        return L"\\\\" + path.substr(8);
    }
    if (startsWithNoCase(path, 0, L"\\\\?\\")) {
        return path.substr(4);
    }
    return path;
}

std::string handleProblem(HANDLE file) {
    if (::GetFileType(file) != FILE_TYPE_DISK) {
        return kNotDiskProblem;
    }
    BY_HANDLE_FILE_INFORMATION information{};
    if (!::GetFileInformationByHandle(file, &information)) {
        return windowsError(::GetLastError());
    }
    if ((information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return kLinkProblem;
    }
    if ((information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return kFolderProblem;
    }
    if (information.nNumberOfLinks > 1) {
        return kHardLinkProblem;
    }
    return "";
}

// A folder on the way may be a junction or an object-manager link: the file opened must be the
// one named, in the folders named.
std::string finalPathProblem(HANDLE file, const std::wstring& path) {
    std::wstring asked(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(asked.size()),
                                                asked.data(), nullptr);
        if (length == 0) {
            return windowsError(::GetLastError());
        }
        if (length < asked.size()) {
            asked.resize(length);
            break;
        }
        asked.resize(length);
    }
    // The folders may be named by their short names; the file exists now, so the long ones are
    // there to be read.
    std::wstring longName(asked.size() + MAX_PATH, L'\0');
    const DWORD longLength =
        ::GetLongPathNameW(asked.c_str(), longName.data(), static_cast<DWORD>(longName.size()));
    if (longLength != 0 && longLength < longName.size()) {
        asked = longName.substr(0, longLength);
    }
    std::wstring opened(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length =
            ::GetFinalPathNameByHandleW(file, opened.data(), static_cast<DWORD>(opened.size()),
                                        FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
        if (length == 0) {
            return windowsError(::GetLastError());
        }
        if (length < opened.size()) {
            opened.resize(length);
            break;
        }
        opened.resize(length);
    }
    opened = withoutLongPrefix(opened);
    if (!sameNoCase(withoutLongPrefix(asked), opened)) {
        return "it leads to " + SystemCodePageText(opened);
    }
    return "";
}

// Through the handle: the name may lead elsewhere by now.
void deleteThrough(HANDLE file) {
    FILE_DISPOSITION_INFO disposition{};
    disposition.DeleteFile = TRUE;
    ::SetFileInformationByHandle(file, FileDispositionInfo, &disposition, sizeof disposition);
}

} // namespace

void EnforceRedirectionTrust() {
    using SetPolicy = BOOL(WINAPI*)(PROCESS_MITIGATION_POLICY, PVOID, SIZE_T);
    const HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
    if (kernel == nullptr) {
        return;
    }
    const auto setPolicy = reinterpret_cast<SetPolicy>(
        reinterpret_cast<void*>(::GetProcAddress(kernel, "SetProcessMitigationPolicy")));
    if (setPolicy == nullptr) {
        return;
    }
    PROCESS_MITIGATION_REDIRECTION_TRUST_POLICY policy{};
    policy.EnforceRedirectionTrust = 1;
    // Windows before the policy refuses it; the checks on every file still hold.
    setPolicy(ProcessRedirectionTrustPolicy, &policy, sizeof policy);
}

std::wstring WidePath(const std::string& path) {
    const int size =
        ::MultiByteToWideChar(CP_ACP, 0, path.data(), static_cast<int>(path.size()), nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(size > 0 ? size : 0), L'\0');
    if (size > 0) {
        ::MultiByteToWideChar(CP_ACP, 0, path.data(), static_cast<int>(path.size()), wide.data(),
                              size);
    }
    return wide;
}

std::string SystemCodePageText(const std::wstring& wide) {
    const int size = ::WideCharToMultiByte(CP_ACP, 0, wide.data(), static_cast<int>(wide.size()),
                                           nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size > 0 ? size : 0), '\0');
    if (size > 0) {
        ::WideCharToMultiByte(CP_ACP, 0, wide.data(), static_cast<int>(wide.size()), narrow.data(),
                              size, nullptr, nullptr);
    }
    return narrow;
}

bool NarrowPath(const std::wstring& wide, std::string& narrow) {
    BOOL lossy = FALSE;
    const int size =
        ::WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.data(),
                              static_cast<int>(wide.size()), nullptr, 0, nullptr, &lossy);
    if (size <= 0 || lossy) {
        return false;
    }
    narrow.assign(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.data(), static_cast<int>(wide.size()),
                          narrow.data(), size, nullptr, nullptr);
    return true;
}

std::string PathFormProblem(const std::wstring& given) {
    std::wstring path = given;
    for (wchar_t& c : path) {
        if (c == L'/') {
            c = L'\\';
        }
    }
    if (startsWithNoCase(path, 0, L"\\??\\")) {
        return kDeviceProblem;
    }
    if (startsWithNoCase(path, 0, L"\\\\.\\") || startsWithNoCase(path, 0, L"\\\\?\\")) {
        if (startsWithNoCase(path, 4, L"pipe\\") || startsWithNoCase(path, 4, L"mailslot\\")) {
            return kPipeProblem;
        }
        // Only "\\?\C:\..." and "\\?\UNC\..." are long names of files; the rest are devices.
        if (!startsWithNoCase(path, 0, L"\\\\?\\") ||
            !(isDriveRoot(path, 4) || startsWithNoCase(path, 4, L"UNC\\"))) {
            return kDeviceProblem;
        }
        path = withoutLongPrefix(path);
    }
    if (startsWithNoCase(path, 0, L"\\\\") && isPipeShare(path, 2)) {
        return kPipeProblem;
    }
    std::size_t name = path.find_last_of(L'\\');
    name = name == std::wstring::npos ? 0 : name + 1;
    if (name == 0 && path.size() >= 2 && path[1] == L':') {
        name = 2; // "C:NUL"
    }
    if (isReservedDeviceName(path.substr(name))) {
        return kDeviceProblem;
    }
    return "";
}

std::string LogFileProblem(const std::string& path) {
    const std::wstring wide = WidePath(path);
    std::string formProblem = PathFormProblem(wide);
    if (!formProblem.empty()) {
        return formProblem;
    }
    const DWORD attributes = ::GetFileAttributesW(wide.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return ""; // not there yet: the library creates it, or says why it cannot
    }
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return kLinkProblem;
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return kFolderProblem;
    }
    const TqUniqueFile file(::CreateFileW(
        wide.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
        nullptr, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | kNoImpersonation, nullptr));
    if (!file) {
        return "";
    }
    const std::string problem = handleProblem(file.get());
    return problem.empty() ? finalPathProblem(file.get(), wide) : problem;
}

OutputFile CreateOutputFile(const std::string& path, bool replace) {
    OutputFile output;
    const std::wstring wide = WidePath(path);
    output.problem = PathFormProblem(wide);
    if (!output.problem.empty()) {
        return output;
    }
    const DWORD flags = FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT | kNoImpersonation;
    // DELETE: a file made here and then refused is removed through this handle.
    TqUniqueFile file(::CreateFileW(wide.c_str(), GENERIC_WRITE | DELETE, 0, nullptr, CREATE_NEW,
                                    flags, nullptr));
    const bool created = file.valid() && ::GetFileType(file.get()) == FILE_TYPE_DISK;
    if (!file) {
        DWORD error = ::GetLastError();
        if (error == ERROR_FILE_EXISTS && !replace) {
            output.problem = "the file exists (--force replaces it)";
            return output;
        }
        if (error == ERROR_FILE_EXISTS) {
            file.reset(::CreateFileW(wide.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, flags,
                                     nullptr));
            error = ::GetLastError();
        }
        if (!file) {
            output.problem = windowsError(error);
            return output;
        }
    }
    output.problem = handleProblem(file.get());
    if (output.problem.empty()) {
        output.problem = finalPathProblem(file.get(), wide);
    }
    if (!output.problem.empty()) {
        if (created) {
            deleteThrough(file.get());
        }
        return output;
    }
    if (!created && !::SetEndOfFile(file.get())) {
        output.problem = windowsError(::GetLastError());
        return output;
    }
    output.file = std::move(file);
    return output;
}

bool WriteAll(HANDLE file, const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const DWORD chunk = static_cast<DWORD>(std::min<std::size_t>(text.size() - at, 1u << 20));
        DWORD written = 0;
        if (!::WriteFile(file, text.data() + at, chunk, &written, nullptr) || written == 0) {
            return false;
        }
        at += written;
    }
    return true;
}

std::string ReadAll(HANDLE file) {
    LARGE_INTEGER start{};
    if (!::SetFilePointerEx(file, start, nullptr, FILE_BEGIN)) {
        return "";
    }
    std::string text;
    char buffer[4096];
    for (DWORD got = 0; ::ReadFile(file, buffer, sizeof buffer, &got, nullptr) && got > 0;) {
        text.append(buffer, got);
    }
    return text;
}

TqUniqueFile CreateTemporaryFile(DWORD access, DWORD share, DWORD flags, std::wstring& path) {
    wchar_t folder[MAX_PATH + 1] = {};
    const DWORD length = ::GetTempPathW(MAX_PATH + 1, folder);
    // 0: no temp folder; more than the buffer: its name did not fit, and a cut one is no folder.
    if (length == 0 || length > MAX_PATH) {
        return TqUniqueFile();
    }
    // Someone may have made the name first: try a few more before giving up.
    for (int attempt = 0; attempt < 8; ++attempt) {
        unsigned int random[2] = {};
        if (rand_s(&random[0]) != 0 || rand_s(&random[1]) != 0) {
            return TqUniqueFile();
        }
        std::wstring name = L"zpl";
        for (const unsigned int part : random) {
            for (int shift = 28; shift >= 0; shift -= 4) {
                name += L"0123456789ABCDEF"[(part >> shift) & 0xFu];
            }
        }
        path = std::wstring(folder, length) + name + L".tmp";
        TqUniqueFile file(::CreateFileW(path.c_str(), access, share, nullptr, CREATE_NEW,
                                        FILE_ATTRIBUTE_TEMPORARY | flags | kNoImpersonation,
                                        nullptr));
        if (file) {
            return file;
        }
        if (::GetLastError() != ERROR_FILE_EXISTS) {
            return TqUniqueFile();
        }
    }
    return TqUniqueFile();
}
