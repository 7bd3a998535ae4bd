#include "support/VirtualCard.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <utility>

namespace zeltest {

namespace {

constexpr const char* kEnrollmentKey = "SOFTWARE\\Oberthur Technologies\\Minidriver\\PIVMinidriver";

std::string systemFolder() {
    char folder[MAX_PATH + 1] = {};
    const UINT length = ::GetSystemDirectoryA(folder, sizeof folder);
    return std::string(folder, length) + "\\";
}

} // namespace

std::string CalaisCardKey(const std::string& cardName) {
    return "SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards\\" + cardName;
}

std::string CspProviderKey(const std::string& providerName) {
    return "SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\" + providerName;
}

zelkit::CardState OberthurCardState() {
    zelkit::CardState state;
    state.reader = kKitReader;
    state.atr = {0x3B, 0xDB, 0x96, 0x00, 0x80, 0xB1, 0xFE, 0x45, 0x1F, 0x83, 0x00,
                 0x31, 0xC0, 0x64, 0xC7, 0xFC, 0x10, 0x00, 0x01, 0x90, 0x00, 0xFA};
    state.pin = "1234";
    state.cardcf = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
    state.strict = true;
    return state;
}

zelkit::CardState Relaxed(zelkit::CardState state) {
    state.strict = false;
    return state;
}

zelkit::CardState ValidOberthurCardState() {
    using zelkit::KeyKind;
    using zelkit::Shown;
    zelkit::CardState state = OberthurCardState();
    state.containers = {
        {"agile", "ORBEN_CCCA agile", KeyKind::kSignature, true, Shown::kAlways},
        {"agile", "ORBEN_AUTH agile", KeyKind::kExchange, true, Shown::kAlways},
        {"compatibility", "Default Key Container", KeyKind::kNone, false, Shown::kAlways},
        {"compatibility", "ORBEN_CCCA compat", KeyKind::kSignature, true, Shown::kAlways},
        {"compatibility", "ORBEN_AUTH compat", KeyKind::kExchange, true, Shown::kAlways},
    };
    return state;
}

void WriteCardState(const zelkit::CardState& state, CallSite caller) {
    const CallerTrace trace(caller);
    ASSERT_TRUE(zelkit::SaveCardState(state)) << zelkit::CardStatePath();
}

zelkit::CardState ReadCardState(CallSite caller) {
    const CallerTrace trace(caller);
    zelkit::CardState state;
    EXPECT_TRUE(zelkit::LoadCardState(state)) << zelkit::CardStatePath();
    return state;
}

void RemoveCardState() {
    ::DeleteFileA(zelkit::CardStatePath().c_str());
}

void RegisterKitMinidriver(const zelkit::CardState& state, CallSite caller) {
    const CallerTrace trace(caller);
    const std::string target = systemFolder() + kKitMinidriverFile;
    // A copy left by an earlier test of this run may still be mapped: it is the same file.
    if (!::CopyFileA(BuiltFile("kit_minidriver.dll").c_str(), target.c_str(), FALSE)) {
        ASSERT_NE(INVALID_FILE_ATTRIBUTES, ::GetFileAttributesA(target.c_str()))
            << "cannot copy the kit minidriver to " << target << ": " << ::GetLastError();
    }
    const std::string key = CalaisCardKey(kKitCardName);
    WriteValue(HKEY_LOCAL_MACHINE, key, "ATR", REG_BINARY, state.atr);
    WriteValue(HKEY_LOCAL_MACHINE, key, "ATRMask", REG_BINARY,
               std::vector<BYTE>(state.atr.size(), 0xFF));
    WriteString(HKEY_LOCAL_MACHINE, key, "80000001", kKitMinidriverFile);
    WriteString(HKEY_LOCAL_MACHINE, key, "Crypto Provider", kBaseCspName);
    WriteString(HKEY_LOCAL_MACHINE, key, "Smart Card Key Storage Provider",
                "Microsoft Smart Card Key Storage Provider");
}

void UnregisterKitMinidriver() {
    DeleteKeyTree(HKEY_LOCAL_MACHINE, CalaisCardKey(kKitCardName));
}

namespace {

// A CSP as an installation registers it: its DLL and the provider type (PROV_RSA_FULL).
void registerCsp(const char* name, const char* file) {
    WriteString(HKEY_LOCAL_MACHINE, CspProviderKey(name), "Image Path", BuiltFile(file));
    WriteDword(HKEY_LOCAL_MACHINE, CspProviderKey(name), "Type", 1);
}

} // namespace

void RegisterKitCsp(CallSite caller) {
    const CallerTrace trace(caller);
    registerCsp(kBaseCspName, "kit_csp.dll");
}

void UnregisterKitCsp() {
    DeleteKeyTree(HKEY_LOCAL_MACHINE, CspProviderKey(kBaseCspName));
    DeleteKeyTree(HKEY_LOCAL_MACHINE, CspProviderKey(kOtherCspName));
}

void RegisterKitOtherCsp(CallSite caller) {
    const CallerTrace trace(caller);
    registerCsp(kOtherCspName, "kit_csp_other.dll");
}

std::vector<std::string> TakeKitViolations(CallSite caller) {
    const CallerTrace trace(caller);
    std::vector<std::string> violations;
    zelkit::UpdateCardState(
        [&](zelkit::CardState& state) { violations = std::exchange(state.violations, {}); });
    return violations;
}

std::vector<std::string> TakeKitOutstanding(CallSite caller) {
    const CallerTrace trace(caller);
    std::vector<std::string> outstanding;
    zelkit::UpdateCardState(
        [&](zelkit::CardState& state) { outstanding = std::exchange(state.outstanding, {}); });
    return outstanding;
}

int KitPinCopyCheck(CallSite caller) {
    const CallerTrace trace(caller);
    const HMODULE minidriver = ::GetModuleHandleA(kKitMinidriverFile);
    if (minidriver == nullptr) {
        ADD_FAILURE() << kKitMinidriverFile << " is not loaded";
        return -1;
    }
    using Check = int (*)();
    const auto check = reinterpret_cast<Check>(
        reinterpret_cast<void*>(::GetProcAddress(minidriver, "ZelKitCheckPinCopy")));
    if (check == nullptr) {
        ADD_FAILURE() << "the kit minidriver has no ZelKitCheckPinCopy";
        return -1;
    }
    return check();
}

VirtualCard::VirtualCard(const zelkit::CardState& state, CallSite caller) {
    const CallerTrace trace(caller);
    DeleteKeyTree(HKEY_CURRENT_USER, kEnrollmentKey);
    WriteCardState(state);
    RegisterKitMinidriver(state);
    RegisterKitCsp();
    RegisterKitOtherCsp();
}

VirtualCard::~VirtualCard() {
    zelkit::CardState state;
    if (zelkit::LoadCardState(state)) {
        for (const std::string& violation : state.violations) {
            ADD_FAILURE() << "the virtual card kit was called wrongly: " << violation;
        }
        for (const std::string& held : state.outstanding) {
            ADD_FAILURE() << "not given back to the virtual card kit: " << held;
        }
    }
    UnregisterKitCsp();
    UnregisterKitMinidriver();
    RemoveCardState();
    DeleteKeyTree(HKEY_CURRENT_USER, kEnrollmentKey);
}

} // namespace zeltest
