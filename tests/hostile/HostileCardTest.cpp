// Hostile card settings: the "ATR" of both JCOP 41 entries of the smart-card database (in both
// registry views, the other values as the GemSafe registration writes them), and the PIV
// minidriver's kTqEnrollmentValue, each in a hostile form, and their keys denied.
#include "hostile/HostileSweep.h"

#include "card/TqATRMiddleware.h"
#include "card/TqEnrollmentMode.h"

#include <string>
#include <utility>
#include <vector>

namespace {

using namespace hostile;

struct JcopEntry {
    std::string path;
    Bytes atr; // as the GemSafe registration writes it
};

const JcopEntry kContact = {kTqJcopContactKey,
                            {0x3B, 0xF9, 0x18, 0x00, 0x00, 0x81, 0x31, 0xFE, 0x45, 0x4A, 0x43, 0x4F,
                             0x50, 0x34, 0x31, 0x56, 0x32, 0x32, 0xAF}};
const JcopEntry kContactless = {
    kTqJcopContactlessKey,
    {0x3B, 0x89, 0x80, 0x01, 0x4A, 0x43, 0x4F, 0x50, 0x34, 0x31, 0x56, 0x32, 0x32, 0x4D}};

// Both entries in both views, as SetATRMiddlewareDetection("GEMSAFE") leaves them, with each
// entry's ATR in the variant's form.
void plantJcopEntries(const std::string& variant) {
    for (REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
        for (const JcopEntry& entry : {kContact, kContactless}) {
            Plant(HKEY_LOCAL_MACHINE, entry.path, "80000001", {REG_SZ, TextBytes("GemSafeMD.dll")},
                  view);
            const PlantedData atr = variant.empty() ? PlantedData{REG_BINARY, entry.atr}
                                                    : DataNamed(BinaryVariants(entry.atr), variant);
            Plant(HKEY_LOCAL_MACHINE, entry.path, "ATR", atr, view);
            Plant(HKEY_LOCAL_MACHINE, entry.path, "ATRMask",
                  {REG_BINARY, Bytes(entry.atr.size(), 0xFF)}, view);
            Plant(HKEY_LOCAL_MACHINE, entry.path, "Crypto Provider",
                  {REG_SZ, TextBytes("Microsoft Base Smart Card Crypto Provider")}, view);
            Plant(HKEY_LOCAL_MACHINE, entry.path, "Smart Card Key Storage Provider",
                  {REG_SZ, TextBytes("Microsoft Smart Card Key Storage Provider")}, view);
        }
    }
}

// Nothing installed but what the state plants.
ExactAnswers quietWorkstation() {
    ExactAnswers exact;
    exact.rows = {
        {"GemaltoMiddleware", "false"},        {"OTMiddleware", "false"},
        {"Idemia09Middleware", "false"},       {"Idemia09MSUpdate", "false"},
        {"IdemiaCombinedMiddleware", "false"}, {"IdemiaCombinedMinidriverMSUpdate", "false"}};
    exact.oberthur = 0;
    exact.agent = 0;
    return exact;
}

std::vector<HostileState> jcopStates() {
    std::vector<HostileState> states;
    for (const std::string& variant : NamesOf(BinaryVariants(kContact.atr))) {
        HostileState state{"ATR_" + variant, [variant](Planting&) { plantJcopEntries(variant); },
                           false, quietWorkstation()};
        // The type is not looked at; the first byte tells the minidriver (0x3B: GemSafe). Any
        // other first byte is unknown, and without the OT middleware that is answer 11.
        const bool gemSafe =
            IsWrongType(variant) || variant == "OneByte" || Starts(variant, "Shaped");
        state.exact.atr = gemSafe ? 0 : 11;
        if (gemSafe) {
            state.exact.atrWord = "GEMSAFE";
        }
        state.exact.enrollment = 11;
        states.push_back(state);
    }
    const std::pair<const char*, const JcopEntry*> entries[] = {{"Contact", &kContact},
                                                                {"Contactless", &kContactless}};
    for (const auto& [entryName, entry] : entries) {
        for (REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
            const std::string path = entry->path;
            HostileState state{std::string("Denied") + entryName +
                                   (view == KEY_WOW64_64KEY ? "Entry64" : "Entry32"),
                               [path, view](Planting& planting) {
                                   plantJcopEntries("");
                                   planting.deny(HKEY_LOCAL_MACHINE, path, view);
                               },
                               false, quietWorkstation()};
            // Only the 64-bit view is read: an entry that cannot be opened there is answer 19.
            state.exact.atr = view == KEY_WOW64_64KEY ? 19 : 0;
            state.exact.enrollment = 11;
            states.push_back(state);
        }
    }
    return states;
}

// GetEnrollmentMode reads at most four bytes of any type; longer data is not read and counts as
// 0, so as AGILE.
std::string enrollmentModeOf(const std::string& variant) {
    if (variant == "TypeQword" || variant == "ZeroBytes" || Starts(variant, "Plain") ||
        Starts(variant, "Shaped")) {
        return "AGILE";
    }
    return "COMPATIBILITY";
}

std::vector<HostileState> enrollmentStates() {
    std::vector<HostileState> states;
    for (const std::string& variant : NamesOf(DwordVariants(1))) {
        HostileState state{"EnableKVREnrollment_" + variant,
                           [variant](Planting&) {
                               Plant(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue,
                                     DataNamed(DwordVariants(1), variant));
                           },
                           false, quietWorkstation()};
        state.exact.atr = 19;
        state.exact.enrollment = 0;
        state.exact.enrollmentMode = enrollmentModeOf(variant);
        states.push_back(state);
    }
    HostileState denied{"DeniedEnrollmentKey",
                        [](Planting& planting) {
                            Plant(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue,
                                  DataNamed(DwordVariants(1), "TypeBinary"));
                            planting.deny(HKEY_CURRENT_USER, kTqEnrollmentKey);
                        },
                        false, quietWorkstation()};
    // A key that cannot be opened is read like a value that cannot be read: AGILE.
    denied.exact.atr = 19;
    denied.exact.enrollment = 0;
    denied.exact.enrollmentMode = "AGILE";
    states.push_back(denied);
    return states;
}

class HostileCard : public HostileSweep {};

TEST_P(HostileCard, EveryExportAnswersAsDocumented) {
    Sweep(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Jcop41, HostileCard, ::testing::ValuesIn(jcopStates()), StateName);
INSTANTIATE_TEST_SUITE_P(Enrollment, HostileCard, ::testing::ValuesIn(enrollmentStates()),
                         StateName);

} // namespace
