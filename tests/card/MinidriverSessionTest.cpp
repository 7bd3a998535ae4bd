// The minidriver session of the cache clearing, against the kit's smart-card service and
// minidriver, loaded as Windows loads them.
#include "card/TqMinidriverSession.h"

#include "support/CapturedStreams.h"
#include "support/TestSupport.h"
#include "support/VirtualCard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

namespace {

using zelkit::CardState;
using zeltest::ScratchLogFile;

constexpr const char* kWorkerLine = "[ERROR] TqZelPlatformMethods::";

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string moduleFile(HMODULE module) {
    char path[MAX_PATH * 2] = {};
    const DWORD length = ::GetModuleFileNameA(module, path, sizeof path);
    return std::string(path, length);
}

std::string systemFile(const char* name) {
    char folder[MAX_PATH + 1] = {};
    const UINT length = ::GetSystemDirectoryA(folder, sizeof folder);
    return std::string(folder, length) + "\\" + name;
}

// "(0x0000007e) - <the system's text>": how a Windows error reads in a message.
std::string windowsText(DWORD code) {
    char hex[16];
    std::snprintf(hex, sizeof hex, "%08lx", code);
    return std::string("(0x") + hex + ") - " + zeltest::SystemText(code);
}

void registerMinidriverFile(const std::string& file) {
    zeltest::WriteString(HKEY_LOCAL_MACHINE, zeltest::CalaisCardKey(zeltest::kKitCardName),
                         "80000001", file);
}

int asResult(DWORD code) {
    return static_cast<int>(code);
}

class MinidriverSession : public ::testing::Test {
protected:
    void TearDown() override {
        if (opened) {
            TqUnintMinidriver(module, &cardData, nullptr);
        }
    }

    int init(const char* reader = zeltest::kKitReader) {
        const int result = TqInitMinidriver(reader, &cardData, &module, log.path());
        opened = result == 0;
        return result;
    }
    int uninit() {
        opened = false;
        return TqUnintMinidriver(module, &cardData, log.path());
    }
    int clear(const char* pin = "1234") {
        return TqOTClearSeries8SmartCardCache(zeltest::kKitReader, pin, &cardData, log.path());
    }
    void expectLogged(const char* worker, const std::string& message,
                      zeltest::CallSite caller = zeltest::CallSite::current()) {
        const zeltest::CallerTrace trace(caller);
        EXPECT_EQ(std::vector<std::string>{kWorkerLine + std::string(worker) + " : " + message},
                  log.bodies());
    }

    ScratchLogFile log;
    CARD_DATA cardData{};
    HMODULE module = nullptr;
    bool opened = false;
};

class MinidriverSessionWithCard : public MinidriverSession {
protected:
    zeltest::VirtualCard card;
};

// ---------------------------------------------------------------------------------------------
// TqInitMinidriver

TEST_F(MinidriverSessionWithCard, InitFillsTheVersion7TableFromTheServiceAndTheCard) {
    ASSERT_EQ(0, init());
    EXPECT_EQ(7u, cardData.dwVersion);
    const std::vector<BYTE> atr = zeltest::OberthurCardState().atr;
    ASSERT_EQ(atr.size(), cardData.cbAtr);
    EXPECT_EQ(atr, std::vector<BYTE>(cardData.pbAtr, cardData.pbAtr + cardData.cbAtr));
    ASSERT_NE(nullptr, cardData.pwszCardName);
    EXPECT_EQ(0, std::wcscmp(L"Oberthur Technologies KVR Device", cardData.pwszCardName));
    EXPECT_NE(0u, cardData.hSCardCtx);
    EXPECT_NE(0u, cardData.hScard);
    EXPECT_NE(nullptr, cardData.pvVendorSpecific); // the minidriver's own context
    EXPECT_NE(nullptr, cardData.pfnCardAuthenticatePin);
    EXPECT_NE(nullptr, cardData.pfnCardReadFile);
    EXPECT_NE(nullptr, cardData.pfnCardWriteFile);
    EXPECT_EQ(
        (std::vector<std::string>{"SCardConnectA ZelKit Reader 0", "SCardBeginTransaction",
                                  "CardAcquireContext version 7 Oberthur Technologies KVR Device"}),
        zeltest::ReadCardState().events);
    EXPECT_TRUE(log.bodies().empty());
}

TEST_F(MinidriverSessionWithCard, RegisteredBareNameIsLoadedFromTheSystemFolder) {
    ASSERT_EQ(0, init());
    ASSERT_NE(nullptr, module);
    EXPECT_EQ(lower(systemFile(zeltest::kKitMinidriverFile)), lower(moduleFile(module)));
}

TEST_F(MinidriverSessionWithCard, HostCallbacksAllocateFromTheHeapAndNeverHitTheCache) {
    ASSERT_EQ(0, init());
    wchar_t tag[] = L"cardcf";
    PBYTE data = reinterpret_cast<PBYTE>(0xDEADBEEF);
    DWORD size = 0xDEADBEEF;
    EXPECT_EQ(static_cast<DWORD>(ERROR_NOT_FOUND),
              cardData.pfnCspCacheLookupFile(nullptr, tag, 0, &data, &size));
    EXPECT_EQ(reinterpret_cast<PBYTE>(0xDEADBEEF), data); // nothing handed out
    EXPECT_EQ(0xDEADBEEFu, size);
    BYTE bytes[] = {1, 2, 3};
    EXPECT_EQ(0u, cardData.pfnCspCacheAddFile(nullptr, tag, 0, bytes, sizeof bytes));
    EXPECT_EQ(static_cast<DWORD>(ERROR_NOT_FOUND),
              cardData.pfnCspCacheLookupFile(nullptr, tag, 0, &data, &size)); // still nothing
    EXPECT_EQ(0u, cardData.pfnCspCacheDeleteFile(nullptr, tag, 0));

    auto* memory = static_cast<BYTE*>(cardData.pfnCspAlloc(16));
    ASSERT_NE(nullptr, memory);
    EXPECT_TRUE(std::all_of(memory, memory + 16, [](BYTE b) { return b == 0; }));
    EXPECT_EQ(16u, ::HeapSize(::GetProcessHeap(), 0, memory));
    memory[0] = 0x5A;
    memory = static_cast<BYTE*>(cardData.pfnCspReAlloc(memory, 64));
    ASSERT_NE(nullptr, memory);
    EXPECT_EQ(0x5A, memory[0]);
    EXPECT_TRUE(std::all_of(memory + 16, memory + 64, [](BYTE b) { return b == 0; }));
    cardData.pfnCspFree(memory);
}

TEST_F(MinidriverSessionWithCard, EmptyReaderNameIsRefusedBeforeTheServiceIsAsked) {
    EXPECT_EQ(asResult(SCARD_E_UNKNOWN_READER), init(""));
    expectLogged("TqInitMinidriver",
                 "Exception occurred: One or more calling arguments is invalid. Error Code: The "
                 "specified reader name is not recognized. Error Code: (0x80100009)");
    EXPECT_EQ(nullptr, module);
    EXPECT_TRUE(zeltest::ReadCardState().events.empty());
    EXPECT_EQ(asResult(SCARD_E_UNKNOWN_READER),
              TqInitMinidriver(nullptr, &cardData, &module, nullptr));
}

TEST_F(MinidriverSessionWithCard, MissingTableOrModuleOutputIsRefused) {
    EXPECT_EQ(asResult(SCARD_E_INVALID_PARAMETER),
              TqInitMinidriver(zeltest::kKitReader, nullptr, &module, log.path()));
    EXPECT_EQ(asResult(SCARD_E_INVALID_PARAMETER),
              TqInitMinidriver(zeltest::kKitReader, &cardData, nullptr, log.path()));
    const std::string line = std::string(kWorkerLine) +
                             "TqInitMinidriver : Exception occurred: One or more calling "
                             "arguments is invalid. Error Code: One or more of the supplied "
                             "parameters could not be properly interpreted. Error Code: "
                             "(0x80100004)";
    EXPECT_EQ((std::vector<std::string>{line, line}), log.bodies());
}

TEST_F(MinidriverSessionWithCard, UnknownReaderFailsTheConnectAndReleasesTheContext) {
    EXPECT_EQ(asResult(SCARD_E_UNKNOWN_READER), init("Other Reader"));
    expectLogged("TqInitMinidriver",
                 "Exception occurred: SCardConnect failed. Error Code: The specified reader name "
                 "is not recognized. Error Code: (0x80100009)");
    EXPECT_EQ(std::vector<std::string>{"SCardReleaseContext"}, zeltest::ReadCardState().events);
}

TEST_F(MinidriverSessionWithCard, RefusedServiceContextIsTheFirstStepsFailure) {
    CardState state = zeltest::OberthurCardState();
    state.failures = {{"SCardEstablishContext", SCARD_E_NO_SERVICE}};
    zeltest::WriteCardState(state);
    EXPECT_EQ(asResult(SCARD_E_NO_SERVICE), init());
    expectLogged("TqInitMinidriver",
                 "Exception occurred: SCardEstablishContext failed. Error Code: The smart card "
                 "resource manager is not running. Error Code: (0x8010001d)");
    EXPECT_EQ(nullptr, module);
    EXPECT_TRUE(zeltest::ReadCardState().events.empty()); // nothing connected, nothing to release
}

TEST_F(MinidriverSessionWithCard, FailedStatusStopsBeforeTheMinidriverIsLoaded) {
    CardState state = zeltest::OberthurCardState();
    state.failures = {{"SCardStatusA", SCARD_W_REMOVED_CARD}};
    zeltest::WriteCardState(state);
    EXPECT_EQ(asResult(SCARD_W_REMOVED_CARD), init());
    expectLogged("TqInitMinidriver",
                 "Exception occurred: SCardStatus failed. Error Code: The smart card has been "
                 "removed, so further communication is not possible. Error Code: "
                 "(0x80100069)");
    EXPECT_EQ(nullptr, module);
    EXPECT_EQ(nullptr, ::GetModuleHandleA(zeltest::kKitMinidriverFile));
}

TEST_F(MinidriverSessionWithCard, EmptyReaderHasNoCardToConnectTo) {
    CardState state = zeltest::OberthurCardState();
    state.inserted = false;
    zeltest::WriteCardState(state);
    EXPECT_EQ(asResult(SCARD_E_NO_SMARTCARD), init());
    expectLogged("TqInitMinidriver",
                 "Exception occurred: SCardConnect failed. Error Code: The operation requires a "
                 "smart card, but no smart card is currently in the device. Error Code: "
                 "(0x8010000c)");
    EXPECT_EQ(nullptr, module);
}

TEST_F(MinidriverSessionWithCard, UnregisteredCardHasNoMinidriverName) {
    zeltest::UnregisterKitMinidriver();
    EXPECT_EQ(asResult(SCARD_E_UNKNOWN_CARD), init());
    expectLogged("TqInitMinidriver",
                 "Exception occurred: SCardGetCardTypeProviderName failed. Error Code: The "
                 "specified smart card name is not recognized. Error Code: (0x8010000d)");
    EXPECT_EQ(std::vector<std::string>{"SCardReleaseContext"}, zeltest::ReadCardState().events);
}

TEST_F(MinidriverSessionWithCard, CardEntryWithoutAMinidriverValueCountsAsUnknown) {
    zeltest::UnregisterKitMinidriver();
    zeltest::WriteString(HKEY_LOCAL_MACHINE, zeltest::CalaisCardKey(zeltest::kKitCardName),
                         "Crypto Provider", zeltest::kBaseCspName);
    EXPECT_EQ(asResult(SCARD_E_UNKNOWN_CARD), init());
}

TEST_F(MinidriverSessionWithCard, MinidriverThatCannotBeLoadedGivesTheSystemsText) {
    registerMinidriverFile("zelkit-no-such-md.dll");
    EXPECT_EQ(asResult(ERROR_MOD_NOT_FOUND), init());
    expectLogged("TqInitMinidriver", "Exception occurred: LoadLibrary failed. Error Code: " +
                                         windowsText(ERROR_MOD_NOT_FOUND));
    EXPECT_EQ(nullptr, module);
    // What was acquired before the load is released again, the card left as it was.
    EXPECT_EQ((std::vector<std::string>{"SCardConnectA ZelKit Reader 0", "SCardDisconnect 0",
                                        "SCardReleaseContext"}),
              zeltest::ReadCardState().events);
}

TEST_F(MinidriverSessionWithCard, BareNameIsNotLookedForInTheProgramsFolder) {
    // The program's folder holds kit_minidriver.dll; the system folder does not.
    ASSERT_NE(INVALID_FILE_ATTRIBUTES,
              ::GetFileAttributesA(zeltest::BuiltFile("kit_minidriver.dll").c_str()));
    ASSERT_EQ(INVALID_FILE_ATTRIBUTES,
              ::GetFileAttributesA(systemFile("kit_minidriver.dll").c_str()));
    registerMinidriverFile("kit_minidriver.dll");
    EXPECT_EQ(asResult(ERROR_MOD_NOT_FOUND), init());
    EXPECT_EQ(nullptr, ::GetModuleHandleA("kit_minidriver.dll"));
}

TEST_F(MinidriverSessionWithCard, RegisteredFullPathIsLoadedAsItStands) {
    const std::string path = zeltest::BuiltFile("kit_minidriver.dll");
    registerMinidriverFile(path);
    ASSERT_EQ(0, init());
    EXPECT_EQ(lower(path), lower(moduleFile(module)));
}

TEST_F(MinidriverSessionWithCard, RegisteredFullPathWithForwardSlashesIsLoaded) {
    std::string path = zeltest::BuiltFile("kit_minidriver.dll");
    std::replace(path.begin(), path.end(), '\\', '/');
    registerMinidriverFile(path);
    ASSERT_EQ(0, init());
    EXPECT_EQ(lower(zeltest::BuiltFile("kit_minidriver.dll")), lower(moduleFile(module)));
}

// A share, a UNC path in the \\?\ form and device paths name no local file of the workstation:
// nothing is loaded from them.
TEST_F(MinidriverSessionWithCard, SharesAndDevicePathsAreRefused) {
    const std::string local = zeltest::BuiltFile("kit_minidriver.dll");
    for (const std::string& path : std::vector<std::string>{
             std::string("\\\\localhost\\c$\\kit_minidriver.dll"),
             "\\\\?\\UNC\\localhost\\c$\\kit_minidriver.dll", "\\\\.\\" + local, "\\\\?\\" + local,
             "//localhost/c$/kit_minidriver.dll"}) {
        SCOPED_TRACE(path);
        registerMinidriverFile(path);
        EXPECT_EQ(asResult(ERROR_BAD_PATHNAME), init());
        EXPECT_EQ(nullptr, module);
        EXPECT_EQ(nullptr, ::GetModuleHandleA("kit_minidriver.dll"));
    }
    // One line per refusal, each naming the bad path's error.
    const std::string refused =
        kWorkerLine + std::string("TqInitMinidriver : ") +
        "Exception occurred: LoadLibrary failed. Error Code: " + windowsText(ERROR_BAD_PATHNAME);
    EXPECT_EQ(std::vector<std::string>(5, refused), log.bodies());
}

TEST_F(MinidriverSessionWithCard, RelativePathIsRefused) {
    registerMinidriverFile("bin\\zelkitmd.dll");
    EXPECT_EQ(asResult(ERROR_BAD_PATHNAME), init());
    expectLogged("TqInitMinidriver", "Exception occurred: LoadLibrary failed. Error Code: " +
                                         windowsText(ERROR_BAD_PATHNAME));
}

TEST_F(MinidriverSessionWithCard, ModuleWithoutCardAcquireContextIsUnloadedAgain) {
    const std::string path = zeltest::BuiltFile("version_none.dll");
    registerMinidriverFile(path);
    EXPECT_EQ(asResult(ERROR_PROC_NOT_FOUND), init());
    expectLogged("TqInitMinidriver",
                 "Exception occurred: GetProcAddress failed. Error Code: Unknown SCard Error. "
                 "Windows Error: " +
                     windowsText(ERROR_PROC_NOT_FOUND));
    EXPECT_EQ(nullptr, module);
    EXPECT_EQ(nullptr, ::GetModuleHandleA(path.c_str()));
}

TEST_F(MinidriverSessionWithCard, RefusedCardAcquireContextLeavesNothingBehind) {
    CardState state = zeltest::OberthurCardState();
    state.acquireContextError = SCARD_E_CARD_UNSUPPORTED;
    zeltest::WriteCardState(state);
    std::memset(&cardData, 0xCC, sizeof cardData);
    module = reinterpret_cast<HMODULE>(0xDEADBEEF);
    EXPECT_EQ(asResult(SCARD_E_CARD_UNSUPPORTED), init());
    expectLogged("TqInitMinidriver",
                 "Exception occurred: CardAcquireContext failed. Error Code: The smart card does "
                 "not meet minimal requirements for support. Error Code: (0x8010001c)");
    EXPECT_EQ(nullptr, module);
    const CARD_DATA zero{};
    EXPECT_EQ(0, std::memcmp(&zero, &cardData, sizeof cardData));
    EXPECT_EQ(nullptr, ::GetModuleHandleA(zeltest::kKitMinidriverFile));
    EXPECT_EQ(
        (std::vector<std::string>{"SCardConnectA ZelKit Reader 0", "CardAcquireContext refused",
                                  "SCardDisconnect 0", "SCardReleaseContext"}),
        zeltest::ReadCardState().events);
}

// ---------------------------------------------------------------------------------------------
// TqUnintMinidriver

TEST_F(MinidriverSessionWithCard, UninitEndsTheTransactionResetsTheCardAndUnloads) {
    ASSERT_EQ(0, init());
    ASSERT_NE(nullptr, ::GetModuleHandleA(zeltest::kKitMinidriverFile));
    EXPECT_EQ(0, uninit());
    EXPECT_EQ((std::vector<std::string>{
                  "SCardConnectA ZelKit Reader 0", "SCardBeginTransaction",
                  "CardAcquireContext version 7 Oberthur Technologies KVR Device",
                  "SCardEndTransaction 1", "SCardDisconnect 1", "SCardReleaseContext"}),
              zeltest::ReadCardState().events); // no CardDeleteContext
    EXPECT_EQ(nullptr, ::GetModuleHandleA(zeltest::kKitMinidriverFile));
    EXPECT_EQ(0u, cardData.hScard);
    EXPECT_EQ(0u, cardData.hSCardCtx);
    EXPECT_EQ(nullptr, cardData.pbAtr);
    EXPECT_EQ(nullptr, cardData.pwszCardName);
    EXPECT_TRUE(log.bodies().empty());
}

TEST_F(MinidriverSessionWithCard, UninitOfAnEmptyTableDoesNothing) {
    EXPECT_EQ(0, TqUnintMinidriver(nullptr, &cardData, log.path()));
    EXPECT_TRUE(zeltest::ReadCardState().events.empty());
    EXPECT_TRUE(log.bodies().empty());
}

TEST_F(MinidriverSession, UninitWithoutTableIsACommunicationsError) {
    EXPECT_EQ(asResult(SCARD_E_COMM_DATA_LOST), TqUnintMinidriver(nullptr, nullptr, log.path()));
    EXPECT_EQ(std::vector<std::string>{"[ERROR] TqZelPlatformMethods::TqUnintMinidriver : "
                                       "pCardData argument is invalid. A communications error "
                                       "with the smart card has been detected. Error Code: "
                                       "(0x8010002f)"},
              log.bodies());
}

// ---------------------------------------------------------------------------------------------
// TqOTClearSeries8SmartCardCache

class CacheClear : public MinidriverSession {
protected:
    void start(const CardState& state) {
        zeltest::WriteCardState(state);
        ASSERT_EQ(0, init());
    }
    zeltest::VirtualCard card;
};

TEST_F(CacheClear, PresentsThePinOnceAndWritesEveryCounterPlusOne) {
    start(zeltest::OberthurCardState());
    EXPECT_EQ(0, clear());
    const CardState state = zeltest::ReadCardState();
    EXPECT_EQ((std::vector<unsigned char>{0x02, 0x03, 0x04, 0x04, 0x06, 0x06, 0x08, 0x08}),
              state.cardcf);
    EXPECT_EQ(1u, state.pinPresentations);
    EXPECT_EQ(1u, state.cacheBumps);
    EXPECT_EQ(1u, state.cardReads);
    EXPECT_EQ("CardWriteFile cardcf 0203040406060808", state.events.back());
    EXPECT_TRUE(log.bodies().empty());
}

TEST_F(CacheClear, CountersAtTheirLimitWrapToZero) {
    CardState state = zeltest::OberthurCardState();
    state.cardcf = std::vector<unsigned char>(8, 0xFF);
    start(state);
    EXPECT_EQ(0, clear());
    EXPECT_EQ(std::vector<unsigned char>(8, 0x00), zeltest::ReadCardState().cardcf);
    EXPECT_EQ("CardWriteFile cardcf 0000000000000000", zeltest::ReadCardState().events.back());
}

TEST_F(CacheClear, ShortCardcfStillGetsAnEightByteWrite) {
    CardState state = zeltest::OberthurCardState();
    state.cardcf = {0x01, 0x02, 0x03};
    start(state);
    EXPECT_EQ(0, clear());
    EXPECT_EQ("CardWriteFile cardcf 0203040001000100", zeltest::ReadCardState().events.back());
}

TEST_F(CacheClear, LongCardcfIsCutToItsFirstEightBytes) {
    CardState state = zeltest::OberthurCardState();
    state.cardcf = {0xFE, 0x7F, 0xFF, 0x00, 0xFF, 0xFF, 0x34, 0x12, 0x99, 0x98};
    start(state);
    EXPECT_EQ(0, clear());
    EXPECT_EQ((std::vector<unsigned char>{0xFF, 0x80, 0x00, 0x01, 0x00, 0x00, 0x35, 0x12}),
              zeltest::ReadCardState().cardcf);
}

TEST_F(CacheClear, EveryReadAsksTheHostCacheAndGoesToTheCard) {
    start(zeltest::OberthurCardState());
    ASSERT_EQ(0, clear());
    ASSERT_EQ(0, clear());
    const CardState state = zeltest::ReadCardState();
    EXPECT_EQ(2u, state.cardReads);
    const auto count = [&](const std::string& event) {
        return std::count(state.events.begin(), state.events.end(), event);
    };
    EXPECT_EQ(2, count("CspCacheLookupFile cardcf answered 1168"));
    EXPECT_EQ(2, count("CardReadFile cardcf from the card"));
    EXPECT_EQ(0, count("CardReadFile cardcf from the cache"));
    // The second read saw the first write: nothing came from a copy kept by the host.
    EXPECT_EQ((std::vector<unsigned char>{0x03, 0x04, 0x05, 0x04, 0x07, 0x06, 0x09, 0x08}),
              state.cardcf);
}

TEST_F(CacheClear, WrongPinStopsBeforeTheCardIsReadAndNeverShowsThePin) {
    start(zeltest::OberthurCardState());
    EXPECT_EQ(asResult(SCARD_W_WRONG_CHV), clear("9876"));
    expectLogged("TqOTClearSeries8SmartCardCache",
                 "Exception occurred: CardAuthenticatePin failed. Error Code: The card cannot be "
                 "accessed because the wrong PIN was presented. Error Code: (0x8010006b)");
    const CardState state = zeltest::ReadCardState();
    EXPECT_EQ(1u, state.pinPresentations);
    EXPECT_EQ(0u, state.cardReads);
    EXPECT_EQ(0u, state.cacheBumps);
    EXPECT_EQ(std::string::npos, log.contents().find("9876"));
}

// A PIN long enough that the kit can tell a wiped copy from a freed one (see the kit), and
// larger than the texts a failure allocates after it.
const std::string kLongPinText = [] {
    std::string pin;
    for (int digit = 0; pin.size() < 600; digit = (digit + 7) % 10) {
        pin += static_cast<char>('1' + digit % 9);
    }
    return pin;
}();
const char* const kLongPin = kLongPinText.c_str();

TEST_F(CacheClear, PinCopyIsWipedOnceTheCardHasSeenIt) {
    CardState state = zeltest::OberthurCardState();
    state.pin = kLongPin;
    start(state);
    zeltest::CapturedStdout output;
    zeltest::CapturedStderr errors;
    EXPECT_EQ(0, clear(kLongPin));
    EXPECT_EQ(0, zeltest::KitPinCopyCheck()); // already checked by the read that followed
    EXPECT_EQ(std::string::npos, output.text().find(kLongPinText.substr(0, 12)));
    EXPECT_EQ(std::string::npos, errors.text().find(kLongPinText.substr(0, 12)));
    EXPECT_EQ(std::string::npos, log.contents().find(kLongPinText.substr(0, 12)));
}

// The refused PIN goes to no log line and no console line. (Its copy is wiped on the same path
// as in the next test, where the kit can still see the freed copy.)
TEST_F(CacheClear, RefusedPinIsWrittenNowhere) {
    CardState state = zeltest::OberthurCardState();
    state.pin = kLongPin;
    start(state);
    const std::string wrong = std::string(kLongPin).replace(0, 1, "9");
    zeltest::CapturedStdout output;
    zeltest::CapturedStderr errors;
    EXPECT_EQ(asResult(SCARD_W_WRONG_CHV), clear(wrong.c_str()));
    for (const std::string& text : {output.text(), errors.text(), log.contents()}) {
        EXPECT_EQ(std::string::npos, text.find(wrong.substr(0, 8)));
    }
}

TEST_F(CacheClear, PinCopyIsWipedWhenPresentingItFails) {
    CardState state = zeltest::OberthurCardState();
    state.pin = kLongPin;
    state.failures = {{"CardAuthenticatePin", SCARD_E_COMM_DATA_LOST}};
    start(state);
    zeltest::CapturedStdout output;
    zeltest::CapturedStderr errors;
    EXPECT_EQ(asResult(SCARD_E_COMM_DATA_LOST), clear(kLongPin));
    EXPECT_EQ(1, zeltest::KitPinCopyCheck());
    for (const std::string& text : {output.text(), errors.text(), log.contents()}) {
        EXPECT_EQ(std::string::npos, text.find(kLongPinText.substr(0, 12)));
    }
}

TEST_F(CacheClear, FailedReadAfterThePinLeavesTheCopyWiped) {
    CardState state = zeltest::OberthurCardState();
    state.pin = kLongPin;
    state.failures = {{"CardReadFile", SCARD_E_COMM_DATA_LOST}};
    start(state);
    EXPECT_EQ(asResult(SCARD_E_COMM_DATA_LOST), clear(kLongPin));
    EXPECT_EQ(0, zeltest::KitPinCopyCheck()); // checked when the read came
    EXPECT_EQ(std::string::npos, log.contents().find(kLongPinText.substr(0, 12)));
}

TEST_F(CacheClear, FailedWriteGivesTheReadBufferBackAllTheSame) {
    CardState state = zeltest::OberthurCardState();
    state.failures = {{"CardWriteFile", SCARD_E_COMM_DATA_LOST}};
    start(state);
    EXPECT_EQ(asResult(SCARD_E_COMM_DATA_LOST), clear());
    EXPECT_TRUE(zeltest::TakeKitOutstanding().empty());
}

TEST_F(CacheClear, StrictKitReportsAReadBufferThatIsNotGivenBack) {
    start(zeltest::OberthurCardState());
    std::string pin = "1234";
    DWORD attempts = 0;
    wchar_t user[] = L"user";
    ASSERT_EQ(0u,
              cardData.pfnCardAuthenticatePin(&cardData, user, reinterpret_cast<PBYTE>(pin.data()),
                                              static_cast<DWORD>(pin.size()), &attempts));
    char root[] = "";
    char file[] = "cardcf";
    PBYTE data = nullptr;
    DWORD size = 0;
    ASSERT_EQ(0u, cardData.pfnCardReadFile(&cardData, root, file, 0, &data, &size));
    const std::vector<std::string> held = zeltest::TakeKitOutstanding();
    ASSERT_EQ(1u, held.size());
    EXPECT_EQ(0u, held[0].rfind("CardReadFile buffer ", 0)) << held[0];
    cardData.pfnCspFree(data);
}

TEST_F(CacheClear, StrictKitReportsWrongFileArgumentsAndAPinWithItsNul) {
    start(zeltest::OberthurCardState());
    BYTE pin[] = "1234";
    DWORD attempts = 0;
    wchar_t user[] = L"user";
    // Five bytes with the NUL: not the card's PIN either.
    EXPECT_EQ(static_cast<DWORD>(SCARD_W_WRONG_CHV),
              cardData.pfnCardAuthenticatePin(&cardData, user, pin, sizeof pin, &attempts));
    PBYTE data = nullptr;
    DWORD size = 0;
    char file[] = "cardcf";
    EXPECT_EQ(0u, cardData.pfnCardReadFile(&cardData, nullptr, file, 0, &data, &size));
    cardData.pfnCspFree(data);
    EXPECT_EQ((std::vector<std::string>{
                  "CardAuthenticatePin: cbPin must be the PIN's length without a NUL, more than "
                  "0, was 5 bytes holding a NUL or none",
                  "CardReadFile: pszDirectoryName must be \"\", was null"}),
              zeltest::TakeKitViolations());
}

TEST_F(CacheClear, MissingArgumentsAreRefusedWithoutPresentingAnything) {
    start(zeltest::OberthurCardState());
    CARD_DATA empty{};
    const char* pin = "1234";
    EXPECT_EQ(asResult(SCARD_E_INVALID_PARAMETER),
              TqOTClearSeries8SmartCardCache("", pin, &cardData, log.path()));
    EXPECT_EQ(asResult(SCARD_E_INVALID_PARAMETER),
              TqOTClearSeries8SmartCardCache(nullptr, pin, &cardData, log.path()));
    EXPECT_EQ(asResult(SCARD_E_INVALID_PARAMETER),
              TqOTClearSeries8SmartCardCache(zeltest::kKitReader, "", &cardData, log.path()));
    EXPECT_EQ(asResult(SCARD_E_INVALID_PARAMETER),
              TqOTClearSeries8SmartCardCache(zeltest::kKitReader, nullptr, &cardData, log.path()));
    EXPECT_EQ(asResult(SCARD_E_INVALID_PARAMETER),
              TqOTClearSeries8SmartCardCache(zeltest::kKitReader, pin, nullptr, log.path()));
    // A table no minidriver has filled has no entry points to call.
    EXPECT_EQ(asResult(SCARD_E_INVALID_PARAMETER),
              TqOTClearSeries8SmartCardCache(zeltest::kKitReader, pin, &empty, log.path()));
    const std::string line = std::string(kWorkerLine) +
                             "TqOTClearSeries8SmartCardCache : Exception occurred: One or more "
                             "calling arguments is invalid.";
    EXPECT_EQ(std::vector<std::string>(6, line), log.bodies());
    EXPECT_EQ(0u, zeltest::ReadCardState().pinPresentations);
}

TEST_F(CacheClear, CardPulledAfterThePinFailsTheRead) {
    start(zeltest::OberthurCardState());
    zelkit::UpdateCardState([](CardState& state) { state.inserted = false; });
    EXPECT_EQ(asResult(SCARD_W_REMOVED_CARD), clear());
    expectLogged("TqOTClearSeries8SmartCardCache",
                 "Exception occurred: CardReadFile failed. Error Code: The smart card has been "
                 "removed, so further communication is not possible. Error Code: (0x80100069)");
    EXPECT_EQ(0u, zeltest::ReadCardState().cacheBumps);
}

TEST_F(CacheClear, ReadOnlyCardFailsTheWrite) {
    CardState state = zeltest::OberthurCardState();
    state.readOnly = true;
    start(state);
    EXPECT_EQ(asResult(SCARD_E_READ_ONLY_CARD), clear());
    expectLogged("TqOTClearSeries8SmartCardCache",
                 "Exception occurred: CardWriteFile failed. Error Code: The smart card is read - "
                 "only and cannot be written to. Error Code: (0x80100034)");
    EXPECT_EQ(zeltest::OberthurCardState().cardcf, zeltest::ReadCardState().cardcf);
}

} // namespace
