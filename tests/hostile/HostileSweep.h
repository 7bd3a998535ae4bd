// The hostile-registry sweep: registry states an installer, an administrator or a broken disk can
// leave behind, planted in the real registry of the Wine prefix, and every export called on them
// from a child process (zel_hostile_probe). Whatever the state, the probe must end normally in
// time, every answer must be one the export documents, every length must match its text, every
// document must be JSON (read in the ANSI code page the library's texts are in, like every
// narrow text of the Windows API), and the read-only exports must leave the registry as they
// found it. Each state also pins down the exact answers it leads to.
#pragma once

#include <windows.h>

#include "support/CallerTrace.h"
#include "support/KitProcesses.h"
#include "support/TestSupport.h"
#include "support/Workstation.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace hostile {

using Bytes = std::vector<BYTE>;

inline constexpr std::size_t k8KiB = 8 * 1024;
inline constexpr std::size_t k64KiB = 64 * 1024;
inline constexpr std::size_t k1MiB = 1024 * 1024;

// "8KiB", "64KiB", "1MiB", and the size a variant's name ends in (0 for none).
std::string SizeName(std::size_t size);
std::size_t SizeIn(const std::string& variant);
// A variant of another type than the value's ("TypeBinary"), and the kind of a variant.
bool IsWrongType(const std::string& variant);
bool Starts(const std::string& variant, const char* kind);

// Filler text of exactly count bytes.
std::string Letters(std::size_t count);
std::string Digits(std::size_t count);
std::string Blanks(std::size_t count);
// Bytes outside ASCII, each one a character of the ANSI code page.
std::string NonAsciiText();

Bytes TextBytes(const std::string& text);
Bytes SzBytes(const std::string& text); // with its terminating NUL

// A value as it is planted: its type and its exact bytes.
struct PlantedData {
    DWORD type = REG_NONE;
    Bytes bytes;
};

// One hostile form of a value; the test case's name ends in its name.
struct Variant {
    std::string name;
    PlantedData data;
};

// Text of about the given size that still passes what the library checks of the value.
using Shaper = std::function<std::string(std::size_t)>;

// A string value: every other type, 0 and 1 byte, no terminator, an embedded NUL, 8 KiB, 64 KiB
// and 1 MiB of plain letters and (with a shaper) of shaped text, and text outside ASCII.
std::vector<Variant> StringVariants(const std::string& valid, const Shaper& shaped,
                                    const std::string& nonAscii);
// A REG_DWORD value: every other type, 0 and 1 byte, 8 KiB to 1 MiB of letters and of the valid
// number followed by letters, and four bytes outside ASCII.
std::vector<Variant> DwordVariants(DWORD valid);
// A REG_BINARY value: every other type, 0 and 1 byte, 8 KiB to 1 MiB of letters and of the valid
// bytes followed by letters, and bytes outside ASCII.
std::vector<Variant> BinaryVariants(const Bytes& valid);
// A REG_MULTI_SZ value: every other type, 0 and 1 byte, no terminator, an empty first string,
// 8 KiB to 1 MiB of letters and of shaped text, and text outside ASCII.
std::vector<Variant> MultiStringVariants(const std::vector<std::string>& valid,
                                         const Shaper& shaped, const std::string& nonAscii);

std::vector<std::string> NamesOf(const std::vector<Variant>& variants);
const PlantedData& DataNamed(const std::vector<Variant>& variants, const std::string& name);

// Writes exactly these bytes with this type (view: KEY_WOW64_64KEY or KEY_WOW64_32KEY).
void Plant(HKEY root, const std::string& path, const char* valueName, const PlantedData& data,
           REGSAM view = KEY_WOW64_64KEY, zeltest::CallSite caller = zeltest::CallSite::current());
// A chain of keys named "n", depth levels below path, each made through its parent's handle (a
// registry path of any length). Returns the handle-free path of the deepest key.
std::string MakeKeyChain(HKEY root, const std::string& path, int depth,
                         zeltest::CallSite caller = zeltest::CallSite::current());

// Every key, value type and value byte below the keys the sweep plants in.
class RegistrySnapshot {
public:
    static RegistrySnapshot Take();

    struct Item {
        bool key = false;
        LSTATUS openStatus = ERROR_SUCCESS; // a key that could not be opened
        DWORD type = REG_NONE;
        Bytes bytes;
        bool operator==(const Item& other) const = default;
    };
    std::map<std::string, Item> items;
};

void ExpectUnchanged(const RegistrySnapshot& before, const RegistrySnapshot& after,
                     zeltest::CallSite caller = zeltest::CallSite::current());

// One export call as the probe reported it.
struct ProbeCall {
    std::string exportName;
    std::string argument;
    int result = 0;
    int length = 0;
    bool untouched = false;
    bool hasText = false;
    std::string text; // up to the first NUL of the heap block
    std::size_t allocated = 0;
    bool terminated = false;
};

struct ProbeRun {
    zeltest::ProcessResult process;
    bool reported = false;
    std::vector<ProbeCall> calls;

    const ProbeCall* call(const std::string& exportName) const;
};

// Runs zel_hostile_probe with the command: "read" (the read-only exports) or "write" (the
// writers).
ProbeRun RunProbe(const std::string& command,
                  zeltest::CallSite caller = zeltest::CallSite::current());

// The text of an answer in the ANSI code page the library works in, as UTF-8.
std::string AnsiToUtf8(const std::string& text);

void ExpectEndedNormally(const ProbeRun& run, std::size_t calls,
                         zeltest::CallSite caller = zeltest::CallSite::current());
void ExpectReadAnswersDocumented(const ProbeRun& run,
                                 zeltest::CallSite caller = zeltest::CallSite::current());

// The exact answers a state leads to, beyond what every state must satisfy. Empty fields are not
// checked.
struct ExactAnswers {
    // SupportedMiddlewareDetection rows: key -> "true" or "false" (its "Detected"), or
    // "missing" (the row is left out), or "exception" (Detected "false" with an Exception).
    std::map<std::string, std::string> rows;
    // Exact fields of detected rows: key -> field -> text.
    std::map<std::string, std::map<std::string, std::string>> fields;
    std::optional<int> oberthur; // OberthurMiddlewareDetection's result
    std::optional<int> atr;      // GetATRMiddlewareDetection's result
    std::optional<std::string> atrWord;
    std::optional<int> agent;                       // DetectIdentityAgent's result
    std::map<std::string, std::string> agentFields; // "ia.name", "springCheck.status", ...
    std::optional<int> enrollment;                  // GetEnrollmentMode's result
    std::optional<std::string> enrollmentMode;
};

void ExpectExactAnswers(const ProbeRun& run, const ExactAnswers& expected,
                        zeltest::CallSite caller = zeltest::CallSite::current());

class Planting;

// One planted state: its test case name, how to plant it, and what it must answer exactly.
struct HostileState {
    std::string name;
    std::function<void(Planting&)> plant;
    bool agentRunning = false; // IdentityAgent.exe runs, from before the planting on
    ExactAnswers exact;
};

inline void PrintTo(const HostileState& state, std::ostream* out) {
    *out << state.name;
}

inline std::string StateName(const ::testing::TestParamInfo<HostileState>& info) {
    return info.param.name;
}

// The fixture of every sweep suite: removes whatever any state plants before and after each
// case, plants the case's state and runs the probes on it.
class HostileSweep : public ::testing::TestWithParam<HostileState> {
protected:
    void SetUp() override;
    void TearDown() override;

    // Plants the state, then calls the read-only exports on it, then the writers.
    void Sweep(const HostileState& state);

private:
    static void removePlantedKeys();

    zeltest::Workstation workstation_;
    std::vector<std::unique_ptr<zeltest::DeniedKey>> denied_;
    bool policiesExisted_ = false;
};

// What a state's plant function may do.
class Planting {
public:
    Planting(zeltest::Workstation& workstation,
             std::vector<std::unique_ptr<zeltest::DeniedKey>>& denied)
        : workstation_(workstation), denied_(denied) {}

    // Installs a driver package (its registry entry and its driver-store folder).
    void install(const zeltest::DriverPackage& package,
                 zeltest::CallSite caller = zeltest::CallSite::current()) {
        workstation_.install(package, caller);
    }
    // Denies everyone every access to the key until the case ends.
    void deny(HKEY root, const std::string& path, REGSAM view = KEY_WOW64_64KEY,
              zeltest::CallSite caller = zeltest::CallSite::current());

private:
    zeltest::Workstation& workstation_;
    std::vector<std::unique_ptr<zeltest::DeniedKey>>& denied_;
};

} // namespace hostile
