// How long the read-only detection exports of the shipped DLL take and how many registry calls
// they make, against one plain walk of the trees they search; and how much longer the DLL takes
// to load than an empty DLL built the same way.
//
// The DLL is loaded from beside this program, as the client loads it, and its advapi32 import
// entries are pointed at counting wrappers. For each product count the installed programs of
// both registry views are filled (run it in a Wine prefix of its own: the trees are emptied and
// refilled), then each export and the walk of its trees are timed in turn, five times.
#include "BenchRegistry.h"
#include "RegistryCallCounter.h"
#include "ZelPlatformMethods64.h"
#include "base/TqUniqueResource.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr int kRuns = 5;
constexpr int kLoadRuns = 7;
constexpr int kDriverUpdateRecords = 8;
constexpr int kReportedCount = 2000;
constexpr const char* kLibraryName = "ZelPlatformMethods64.dll";
constexpr const char* kEmptyLibraryName = "ZelEmptyDll.dll";
constexpr const char* kProbeName = "zel_load_probe.exe";

using TreeSet = std::array<bool, kBenchTrees>;

struct Export {
    const char* name;
    const char* shortName;
    ZelJsonQueryFn function;
};

// What one product count gave for one export.
struct ExportFigures {
    double walkMs = 0;
    double exportMs = 0;
    std::uint64_t calls = 0;
    std::uint64_t minimum = 0;
    bool callsVaried = false;
    RegCallCounts counts;
    TreeSet trees{};
    std::set<std::string> otherKeys;
    int result = 0;

    double ratio() const { return exportMs / walkMs; }
    double callShare() const { return static_cast<double>(calls) / static_cast<double>(minimum); }
};

struct CountFigures {
    int products = 0;
    double writeMs = 0;
    std::array<TreeWalk, kBenchTrees> trees;
    std::vector<ExportFigures> exports;
};

std::string besideThisProgram(const char* file) {
    char path[MAX_PATH * 4];
    std::string folder(path, ::GetModuleFileNameA(nullptr, path, sizeof path));
    folder.erase(folder.find_last_of("\\/") + 1);
    return folder + file;
}

double nowMs() {
    static const double frequency = [] {
        LARGE_INTEGER f;
        ::QueryPerformanceFrequency(&f);
        return static_cast<double>(f.QuadPart);
    }();
    LARGE_INTEGER counter;
    ::QueryPerformanceCounter(&counter);
    return static_cast<double>(counter.QuadPart) * 1000.0 / frequency;
}

template <typename T> T median(std::vector<T> samples) {
    std::sort(samples.begin(), samples.end());
    const std::size_t middle = samples.size() / 2;
    return samples.size() % 2 != 0 ? samples[middle] : (samples[middle - 1] + samples[middle]) / 2;
}

// The library as the client loads it, from beside this program, its registry calls counted.
class PlatformLibrary {
public:
    PlatformLibrary() {
        module_.reset(::LoadLibraryA(besideThisProgram(kLibraryName).c_str()));
        if (!module_) {
            BenchFail("LoadLibraryA ZelPlatformMethods64.dll", static_cast<long>(::GetLastError()));
        }
        const auto getInterface =
            reinterpret_cast<ZelPlatformGetExportedInterfaceFn>(reinterpret_cast<void*>(
                ::GetProcAddress(module_.get(), "ZelPlatformGetExportedInterface")));
        if (getInterface == nullptr || getInterface(&api_) != 0) {
            BenchFail("ZelPlatformGetExportedInterface", static_cast<long>(::GetLastError()));
        }
        counted_ = CountRegistryCallsOf(module_.get());
    }
    const ZelPlatformExportedInterface& api() const { return api_; }
    const std::vector<std::string>& countedFunctions() const { return counted_; }

    // The four read-only detection exports. OberthurMiddlewareDetection is the JSON one: the
    // table has no other.
    std::vector<Export> detectionExports() const {
        return {
            {"SupportedMiddlewareDetection", "Supported", api_.SupportedMiddlewareDetection},
            {"OberthurMiddlewareDetection", "Oberthur", api_.OberthurMiddlewareDetection},
            {"GetATRMiddlewareDetection", "GetATR", api_.GetATRMiddlewareDetection},
            {"DetectIdentityAgent", "IdentityAgent", api_.DetectIdentityAgent},
        };
    }

private:
    TqUniqueModule module_;
    ZelPlatformExportedInterface api_{};
    std::vector<std::string> counted_;
};

struct ExportCall {
    double ms = 0;
    RegCallCounts counts;
    int result = 0;
};

ExportCall callExport(const PlatformLibrary& library, const Export& exported) {
    char* document = nullptr;
    int length = 0;
    ExportCall call;
    ResetRegCallCounts();
    const double start = nowMs();
    call.result = exported.function(&document, &length, nullptr);
    call.ms = nowMs() - start;
    call.counts = CurrentRegCallCounts();
    library.api().FreeStringData(&document);
    return call;
}

// One call with the keys it opens from HKEY_LOCAL_MACHINE written down: which trees it searches.
void calibrate(const PlatformLibrary& library, const Export& exported, ExportFigures& figures) {
    RecordMachineOpens(true);
    figures.result = callExport(library, exported).result;
    RecordMachineOpens(false);
    for (const RecordedOpen& open : TakeRecordedOpens()) {
        const BenchTree tree = BenchTreeOf(open.path, open.access);
        if (tree == BenchTree::kCount) {
            figures.otherKeys.insert(open.path);
        } else {
            figures.trees[static_cast<std::size_t>(tree)] = true;
        }
    }
}

double walkTrees(const TreeSet& trees) {
    const double start = nowMs();
    for (std::size_t tree = 0; tree < kBenchTrees; ++tree) {
        if (trees[tree]) {
            WalkBenchTree(static_cast<BenchTree>(tree));
        }
    }
    return nowMs() - start;
}

CountFigures measure(const PlatformLibrary& library, int products) {
    CountFigures figures;
    figures.products = products;
    const double writeStart = nowMs();
    FillInstalledPrograms(products);
    figures.writeMs = nowMs() - writeStart;
    for (std::size_t tree = 0; tree < kBenchTrees; ++tree) {
        figures.trees[tree] = WalkBenchTree(static_cast<BenchTree>(tree));
    }
    const std::vector<Export> exports = library.detectionExports();
    figures.exports.resize(exports.size());
    for (std::size_t e = 0; e < exports.size(); ++e) {
        ExportFigures& exportFigures = figures.exports[e];
        calibrate(library, exports[e], exportFigures);
        for (std::size_t tree = 0; tree < kBenchTrees; ++tree) {
            if (exportFigures.trees[tree]) {
                exportFigures.minimum += figures.trees[tree].minimumCalls();
            }
        }
    }
    std::vector<std::vector<double>> walkMs(exports.size());
    std::vector<std::vector<double>> exportMs(exports.size());
    std::vector<std::vector<std::uint64_t>> calls(exports.size());
    for (int run = 0; run < kRuns; ++run) {
        for (std::size_t e = 0; e < exports.size(); ++e) {
            walkMs[e].push_back(walkTrees(figures.exports[e].trees));
            const ExportCall call = callExport(library, exports[e]);
            exportMs[e].push_back(call.ms);
            calls[e].push_back(call.counts.total());
            figures.exports[e].counts = call.counts;
        }
    }
    for (std::size_t e = 0; e < exports.size(); ++e) {
        ExportFigures& exportFigures = figures.exports[e];
        exportFigures.walkMs = median(walkMs[e]);
        exportFigures.exportMs = median(exportMs[e]);
        exportFigures.calls = median(calls[e]);
        exportFigures.callsVaried =
            *std::min_element(calls[e].begin(), calls[e].end()) != exportFigures.calls ||
            *std::max_element(calls[e].begin(), calls[e].end()) != exportFigures.calls;
    }
    return figures;
}

void printTableHead(const std::vector<Export>& exports) {
    std::printf("%6s %9s", "", "");
    for (const Export& exported : exports) {
        std::printf(" | %-34s", exported.shortName);
    }
    std::printf("\n%6s %9s", "N", "write");
    for (std::size_t e = 0; e < exports.size(); ++e) {
        std::printf(" | %8s %8s %6s %9s", "walk", "export", "ratio", "calls/min");
    }
    std::printf("\n");
}

void printRow(const CountFigures& figures) {
    std::printf("%6d %9.0f", figures.products, figures.writeMs);
    for (const ExportFigures& exported : figures.exports) {
        std::printf(" | %8.2f %8.2f %6.2f %9.3f", exported.walkMs, exported.exportMs,
                    exported.ratio(), exported.callShare());
    }
    std::printf("\n");
    std::fflush(stdout);
}

void printDetails(const CountFigures& figures, const std::vector<Export>& exports) {
    std::printf("\nN = %d:", figures.products);
    for (std::size_t tree = 0; tree < kBenchTrees; ++tree) {
        const TreeWalk& walk = figures.trees[tree];
        std::printf(" %s %llu keys, %llu sub-keys, %llu values (minimum %llu calls);",
                    BenchTreeLabel(static_cast<BenchTree>(tree)),
                    static_cast<unsigned long long>(walk.keys),
                    static_cast<unsigned long long>(walk.subKeys),
                    static_cast<unsigned long long>(walk.values),
                    static_cast<unsigned long long>(walk.minimumCalls()));
    }
    std::printf("\n");
    for (std::size_t e = 0; e < exports.size(); ++e) {
        const ExportFigures& exported = figures.exports[e];
        std::printf("  %s (answer %d) searches", exports[e].name, exported.result);
        for (std::size_t tree = 0; tree < kBenchTrees; ++tree) {
            if (exported.trees[tree]) {
                std::printf(" %s", BenchTreeLabel(static_cast<BenchTree>(tree)));
            }
        }
        std::printf("; also opens:");
        if (exported.otherKeys.empty()) {
            std::printf(" nothing else");
        }
        for (const std::string& key : exported.otherKeys) {
            std::printf(" [%s]", key.c_str());
        }
        std::printf(
            "\n    calls %llu%s, minimum %llu:", static_cast<unsigned long long>(exported.calls),
            exported.callsVaried ? " (varied between runs)" : "",
            static_cast<unsigned long long>(exported.minimum));
        for (std::size_t call = 0; call < kRegCallKinds; ++call) {
            if (exported.counts.calls[call] != 0) {
                std::printf(" %s %llu", RegCallName(static_cast<RegCall>(call)),
                            static_cast<unsigned long long>(exported.counts.calls[call]));
            }
        }
        std::printf("\n");
    }
}

// What one probe run of a DLL said: its first load's time and the line on the delay-loaded DLLs.
struct ProbeRun {
    double microseconds = 0;
    std::string delayLoaded;
};

ProbeRun runProbe(const std::string& dll, const char* loadedBefore) {
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    if (!::CreatePipe(&readEnd, &writeEnd, &inherit, 0)) {
        BenchFail("CreatePipe", static_cast<long>(::GetLastError()));
    }
    const TqUniqueHandle reader(readEnd);
    TqUniqueHandle writer(writeEnd);
    ::SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writeEnd;
    startup.hStdError = writeEnd;
    startup.hStdInput = ::GetStdHandle(STD_INPUT_HANDLE);
    PROCESS_INFORMATION process{};
    std::string commandLine =
        "\"" + besideThisProgram(kProbeName) + "\" \"" + dll + "\" " + loadedBefore;
    if (!::CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                          &startup, &process)) {
        BenchFail("CreateProcessA zel_load_probe.exe", static_cast<long>(::GetLastError()));
    }
    const TqUniqueHandle processHandle(process.hProcess);
    const TqUniqueHandle threadHandle(process.hThread);
    writer.reset();
    std::string output;
    char buffer[512];
    DWORD read = 0;
    while (::ReadFile(readEnd, buffer, sizeof buffer, &read, nullptr) && read > 0) {
        output.append(buffer, read);
    }
    ::WaitForSingleObject(process.hProcess, INFINITE);
    ProbeRun run;
    const std::size_t load = output.find("load_us ");
    if (load == std::string::npos) {
        std::fprintf(stderr, "zel_load_probe said: %s\n", output.c_str());
        BenchFail("zel_load_probe", -1);
    }
    run.microseconds = std::strtod(output.c_str() + load + 8, nullptr);
    const std::size_t delayed = output.find("delay-loaded ");
    if (delayed != std::string::npos) {
        run.delayLoaded = output.substr(delayed, output.find_first_of("\r\n", delayed) - delayed);
    }
    return run;
}

// The copy handed to the client: stripped, in dist/ beside bin/. The copy beside this program
// keeps its debug information, which Wine reads in at load.
std::string shippedLibrary() {
    const std::string shipped = besideThisProgram("..\\dist\\") + kLibraryName;
    return ::GetFileAttributesA(shipped.c_str()) != INVALID_FILE_ATTRIBUTES
               ? shipped
               : besideThisProgram(kLibraryName);
}

// The first LoadLibrary of the shipped DLL over that of the empty DLL, each in fresh processes,
// the runs interleaved; and, to show where the time goes, the DLL with its debug information
// and both DLLs once advapi32 and version are loaded.
double measureLoad() {
    constexpr const char* kSystemImports = "advapi32.dll version.dll";
    struct Case {
        const char* label;
        std::string dll;
        const char* loadedBefore;
        std::vector<double> samples;
    };
    std::vector<Case> cases = {
        {"shipped (stripped)", shippedLibrary(), "", {}},
        {"empty, stripped the same way", besideThisProgram(kEmptyLibraryName), "", {}},
        {"beside the bench (debug info)", besideThisProgram(kLibraryName), "", {}},
        {"shipped, advapi32+version loaded", shippedLibrary(), kSystemImports, {}},
        {"empty, advapi32+version loaded",
         besideThisProgram(kEmptyLibraryName),
         kSystemImports,
         {}},
    };
    std::string delayLoaded;
    for (int run = 0; run < kLoadRuns; ++run) {
        for (Case& loadCase : cases) {
            const ProbeRun probe = runProbe(loadCase.dll, loadCase.loadedBefore);
            loadCase.samples.push_back(probe.microseconds);
            if (&loadCase == &cases.front()) {
                delayLoaded = probe.delayLoaded;
            }
        }
    }
    std::printf("\nFirst LoadLibraryA in a fresh process, median of %d, in us:\n", kLoadRuns);
    for (const Case& loadCase : cases) {
        std::printf("  %-34s %9.0f  %s\n", loadCase.label, median(loadCase.samples),
                    loadCase.dll.c_str());
    }
    std::printf("%s\n", delayLoaded.c_str());
    return median(cases[0].samples) / median(cases[1].samples);
}

void printFinalLines(const CountFigures* reported, const std::vector<Export>& exports,
                     double load) {
    std::printf("\n");
    if (reported != nullptr) {
        for (std::size_t e = 0; e < exports.size(); ++e) {
            std::printf("ratio %s %.2f\n", exports[e].name, reported->exports[e].ratio());
        }
        for (std::size_t e = 0; e < exports.size(); ++e) {
            std::printf("calls %s %llu %llu\n", exports[e].name,
                        static_cast<unsigned long long>(reported->exports[e].calls),
                        static_cast<unsigned long long>(reported->exports[e].minimum));
        }
    }
    std::printf("load %.1f\n", load);
}

} // namespace

int main(int argc, char** argv) {
    std::vector<int> counts = {500, 2000, 10000};
    if (argc > 1) {
        counts.clear();
        for (int i = 1; i < argc; ++i) {
            if (std::atoi(argv[i]) > 0) {
                counts.push_back(std::atoi(argv[i]));
            }
        }
    }
    DeleteBenchTrees();
    FillDriverUpdates(kDriverUpdateRecords);
    WriteCardEntries();
    const PlatformLibrary library;
    const std::vector<Export> exports = library.detectionExports();

    std::printf("N products in each registry view's Uninstall key (12 values each), %d driver "
                "updates.\nwrite: filling both views; walk: one plain walk of the trees the export "
                "searches; export:\nthe export through the loaded DLL. Medians of %d interleaved "
                "runs, times in ms; ratio =\nexport/walk; calls/min = the export's registry calls "
                "over the fewest that read its trees.\nCounted imports:",
                kDriverUpdateRecords, kRuns);
    for (const std::string& name : library.countedFunctions()) {
        std::printf(" %s", name.c_str());
    }
    std::printf("\n\n");
    printTableHead(exports);
    std::fflush(stdout);
    std::vector<CountFigures> all;
    for (const int products : counts) {
        all.push_back(measure(library, products));
        printRow(all.back());
    }
    const CountFigures* reported = nullptr;
    for (const CountFigures& figures : all) {
        printDetails(figures, exports);
        if (figures.products == kReportedCount) {
            reported = &figures;
        }
    }
    DeleteBenchTrees();
    const double load = measureLoad();
    printFinalLines(reported, exports, load);
    return 0;
}
