// The hostile-registry sweep's child: loads the built ZelPlatformMethods64.dll from its own folder
// the way the client does (LoadLibraryA, then ZelPlatformGetExportedInterface), calls exports
// and writes what each answered to a report file as one JSON object. The texts are hex-encoded
// so the sweep reads back every byte exactly. A crash or a hang of the library ends this
// process, not the sweep.
//
//   zel_hostile_probe REPORT LOGFILE read
//       the read-only exports
//   zel_hostile_probe REPORT LOGFILE write
//       the writers: SetATRMiddlewareDetection("GEMSAFE"), SwitchEnrollmentMode("AGILE"),
//       SetIdentityAgentSpringCheck(1), which gives the card-removal check back to the agent
//       while the settings found are still there, then SetIdentityAgentSpringCheck(0)
//
// Exit code 0 once the report is written; 2 for a bad command line, 3 when the DLL cannot be
// loaded, 4 when the report cannot be written.
#include <windows.h>

#include "ZelPlatformMethods64.h"

#include <malloc.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

// What an output pointer holds before the call: an address no allocation can have, so a call
// that neither hands out text nor clears the pointer shows as "untouched".
char gUntouched = 0;
constexpr int kUntouchedLength = -12345;

std::string folderOfThisProgram() {
    char path[MAX_PATH * 4];
    const DWORD length = ::GetModuleFileNameA(nullptr, path, sizeof path);
    std::string folder(path, length);
    folder.erase(folder.find_last_of("\\/") + 1);
    return folder;
}

// A JSON string of text that holds no control characters (names and paths).
std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    return out + "\"";
}

std::string hex(const char* bytes, std::size_t count) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(count * 2);
    for (std::size_t i = 0; i < count; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        out += digits[byte >> 4];
        out += digits[byte & 0x0F];
    }
    return out;
}

class Report {
public:
    // A call that answers with a code only.
    void add(const char* exportName, const std::string& argument, int result) {
        begin(exportName, argument, result);
        calls_ += "}";
    }

    // A call that hands out text: the bytes of its heap block up to the first NUL, the block's
    // size, and whether a NUL ends the text inside the block at all.
    void add(const char* exportName, const std::string& argument, int result, char* text,
             int length) {
        begin(exportName, argument, result);
        calls_ += ",\"length\":" + std::to_string(length);
        if (text == &gUntouched) {
            calls_ += ",\"untouched\":true,\"text\":null}";
            return;
        }
        if (text == nullptr) {
            calls_ += ",\"untouched\":false,\"text\":null}";
            return;
        }
        const std::size_t allocated = _msize(text);
        const std::size_t textLength = strnlen(text, allocated);
        calls_ += ",\"untouched\":false,\"allocated\":" + std::to_string(allocated) +
                  ",\"terminated\":" + (textLength < allocated ? "true" : "false") +
                  ",\"text\":\"" + hex(text, textLength) + "\"}";
    }

    bool write(const char* path) const {
        std::FILE* file = std::fopen(path, "wb");
        if (file == nullptr) {
            return false;
        }
        const std::string document = "{\"calls\":[" + calls_ + "]}\n";
        const bool written =
            std::fwrite(document.data(), 1, document.size(), file) == document.size();
        return std::fclose(file) == 0 && written;
    }

private:
    void begin(const char* exportName, const std::string& argument, int result) {
        if (!calls_.empty()) {
            calls_ += ",";
        }
        calls_ += "{\"export\":" + quoted(exportName) + ",\"argument\":" + quoted(argument) +
                  ",\"result\":" + std::to_string(result);
    }

    std::string calls_;
};

// Names the export on standard error before calling it, so a crash shows where it happened.
void announce(const char* exportName) {
    std::fprintf(stderr, "zel_hostile_probe: calling %s\n", exportName);
    std::fflush(stderr);
}

template <typename Call>
void textCall(Report& report, const ZelPlatformExportedInterface& api, const char* exportName,
              const std::string& argument, Call&& call) {
    announce(exportName);
    char* text = &gUntouched;
    int length = kUntouchedLength;
    const int result = call(&text, &length);
    report.add(exportName, argument, result, text, length);
    if (text != &gUntouched) {
        api.FreeStringData(&text);
    }
}

void readOnlyExports(Report& report, const ZelPlatformExportedInterface& api, const char* log) {
    const std::string module = folderOfThisProgram() + "version_10_0_19041_1.dll";
    textCall(report, api, "GetFileVersion", module, [&](char** text, int* length) {
        return api.GetFileVersion(module.c_str(), text, length, log);
    });
    textCall(report, api, "GetATRMiddlewareDetection", "", [&](char** text, int* length) {
        return api.GetATRMiddlewareDetection(text, length, log);
    });
    textCall(report, api, "OberthurMiddlewareDetection", "", [&](char** text, int* length) {
        return api.OberthurMiddlewareDetection(text, length, log);
    });
    textCall(report, api, "SupportedMiddlewareDetection", "", [&](char** text, int* length) {
        return api.SupportedMiddlewareDetection(text, length, log);
    });
    textCall(report, api, "DetectIdentityAgent", "",
             [&](char** text, int* length) { return api.DetectIdentityAgent(text, length, log); });
    textCall(report, api, "GetEnrollmentMode", "",
             [&](char** text, int* length) { return api.GetEnrollmentMode(text, length, log); });
}

void writers(Report& report, const ZelPlatformExportedInterface& api, const char* log) {
    announce("SetATRMiddlewareDetection");
    report.add("SetATRMiddlewareDetection", "GEMSAFE",
               api.SetATRMiddlewareDetection("GEMSAFE", log));
    announce("SwitchEnrollmentMode");
    report.add("SwitchEnrollmentMode", "AGILE", api.SwitchEnrollmentMode("AGILE", log));
    for (const unsigned char enable : {1, 0}) {
        announce("SetIdentityAgentSpringCheck");
        report.add("SetIdentityAgentSpringCheck", std::to_string(enable),
                   api.SetIdentityAgentSpringCheck(enable, log));
    }
}

// A crash ends the process at once with the exception's code as its exit code (0xC00000FD for a
// stack overflow), instead of waiting in a debugger or ending with a code that looks normal.
LONG WINAPI endWithExceptionCode(EXCEPTION_POINTERS* exception) {
    ::TerminateProcess(::GetCurrentProcess(), exception->ExceptionRecord->ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

// A stack overflow ends the process before anything else runs on what is left of the stack.
LONG WINAPI endAtStackOverflow(EXCEPTION_POINTERS* exception) {
    if (exception->ExceptionRecord->ExceptionCode == EXCEPTION_STACK_OVERFLOW) {
        return endWithExceptionCode(exception);
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

int main(int argc, char** argv) {
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    ::SetUnhandledExceptionFilter(endWithExceptionCode);
    // After a stack overflow, Wine has too little stack left to reach the filter above and ends
    // the process with 0, as if all had gone well; a vectored handler still runs.
    ::AddVectoredExceptionHandler(1, endAtStackOverflow);
    if (argc != 4) {
        std::fprintf(stderr, "usage: zel_hostile_probe REPORT LOGFILE read|write\n");
        return 2;
    }
    const char* reportPath = argv[1];
    const char* log = argv[2];
    const std::string mode = argv[3];

    const std::string dllPath = folderOfThisProgram() + "ZelPlatformMethods64.dll";
    const HMODULE dll = ::LoadLibraryA(dllPath.c_str());
    const auto getInterface =
        dll == nullptr
            ? nullptr
            : reinterpret_cast<ZelPlatformGetExportedInterfaceFn>(reinterpret_cast<void*>(
                  ::GetProcAddress(dll, "ZelPlatformGetExportedInterface")));
    ZelPlatformExportedInterface api{};
    if (getInterface == nullptr || getInterface(&api) != 0) {
        std::fprintf(stderr, "zel_hostile_probe: cannot use %s (%lu)\n", dllPath.c_str(),
                     ::GetLastError());
        return 3;
    }

    Report report;
    if (mode == "read") {
        readOnlyExports(report, api, log);
    } else if (mode == "write") {
        writers(report, api, log);
    } else {
        std::fprintf(stderr, "zel_hostile_probe: unknown command %s\n", mode.c_str());
        return 2;
    }
    if (!report.write(reportPath)) {
        std::fprintf(stderr, "zel_hostile_probe: cannot write %s\n", reportPath);
        return 4;
    }
    return 0;
}
