// The check-and-clear sequence of an Oberthur Series 8 card and the two platform operations
// that clear the cache, against the kit's card, minidriver and CSP and the prefix's registry.
#include "card/TqCacheClearance.h"
#include "card/TqEnrollmentMode.h"
#include "logging/ZelLogger.h"
#include "api/TqZelDLLPlatform.h"

#include "support/CapturedStreams.h"
#include "support/TestSupport.h"
#include "support/VirtualCard.h"
#include "support/Workstation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace {

using zelkit::CardState;
using zelkit::KeyKind;
using zelkit::Shown;
using zeltest::ScratchLogFile;

constexpr const char* kSequenceLine = "TqCacheClearance::TqOTS8SCardCheckAndCacheClear : ";
constexpr const char* kAttemptOut = "TqOTS8SCardCheckAndCacheClear : Attempt to clear Smart Card "
                                    "Cache.\n";
const std::vector<unsigned char> kCardcfAfterThreeBumps = {0x04, 0x05, 0x06, 0x04,
                                                           0x08, 0x06, 0x0A, 0x08};

CardState validCard() {
    return zeltest::ValidOberthurCardState();
}

// The OT middleware as its installer registers it.
const zeltest::InstalledProgram kInstalledAwp = {
    "{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)", "Oberthur Technologies", "5.2.1.77", 5, 2};

// The compatibility exchange key has no certificate, however often the cache is reset.
CardState invalidCard() {
    CardState state = validCard();
    state.containers[4].certificate = false;
    return state;
}

// The agile exchange container shows only once the cache has been reset `bumps` times.
CardState refreshingCard(unsigned bumps) {
    CardState state = validCard();
    state.refreshAfterBumps = bumps;
    state.containers[1].shown = Shown::kAfterRefresh;
    return state;
}

long countOf(const std::vector<std::string>& lines, const std::string& line) {
    return std::count(lines.begin(), lines.end(), line);
}

void selectMode(DWORD enableKvrEnrollment) {
    zeltest::WriteDword(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue,
                        enableKvrEnrollment);
}

DWORD storedMode() {
    const auto value = zeltest::ReadValue(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue);
    return value.present && value.data.size() == 4
               ? *reinterpret_cast<const DWORD*>(value.data.data())
               : 0xDEADBEEF;
}

class CardCheckAndCacheClear : public ::testing::Test {
protected:
    void SetUp() override { workstation.install(kInstalledAwp); }

    // Writes the card, selects the AGILE applet as the workstation's setting.
    void insert(const CardState& state, zeltest::CallSite caller = zeltest::CallSite::current()) {
        card.emplace(state, caller);
        selectMode(0);
    }

    int run(const char* reader = zeltest::kKitReader, const char* pin = "1234") {
        zeltest::CapturedStdout output;
        zeltest::CapturedStderr errors;
        const int result = TqOTS8SCardCheckAndCacheClear(reader, pin, log.path());
        err = errors.text();
        out = output.text();
        return result;
    }

    // The sequence's own log lines, without those of the content checks it runs.
    std::vector<std::string> sequenceLines() const {
        std::vector<std::string> lines;
        for (const std::string& line : log.bodies()) {
            if (line.find(kSequenceLine) != std::string::npos) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    zeltest::Workstation workstation;
    std::optional<zeltest::VirtualCard> card;
    ScratchLogFile log;
    std::string out;
    std::string err;
};

TEST_F(CardCheckAndCacheClear, ValidCardIsNeverPresentedThePin) {
    insert(validCard());
    EXPECT_EQ(1, run());
    const CardState state = zeltest::ReadCardState();
    EXPECT_EQ(0u, state.pinPresentations);
    EXPECT_EQ(0u, state.cacheBumps);
    EXPECT_TRUE(state.events.empty()); // not even connected to
    EXPECT_EQ("", out);
    EXPECT_EQ("", err);
    EXPECT_TRUE(sequenceLines().empty());
}

TEST_F(CardCheckAndCacheClear, ThreeUnsuccessfulResetsPresentThePinThreeTimesAndAnswerZero) {
    insert(invalidCard());
    EXPECT_EQ(0, run());
    const CardState state = zeltest::ReadCardState();
    EXPECT_EQ(3u, state.pinPresentations);
    EXPECT_EQ(3, countOf(state.events, "CardAuthenticatePin accepted"));
    EXPECT_EQ(3u, state.cacheBumps);
    EXPECT_EQ(kCardcfAfterThreeBumps, state.cardcf);
    EXPECT_EQ(kAttemptOut, out);
    EXPECT_EQ("TqOTS8SCardCheckAndCacheClear : Failed to reset the Smart Card Cache. Smart Card "
              "content is still invalid.\n",
              err);
    EXPECT_EQ((std::vector<std::string>{
                  std::string("[INFO] ") + kSequenceLine + "Attempt to clear Smart Card Cache.",
                  std::string("[INFO] ") + kSequenceLine +
                      "Failed to reset the Smart Card Cache. Smart Card content is still "
                      "invalid."}),
              sequenceLines());
    // The session was closed: transaction ended, card reset, context released.
    ASSERT_GE(state.events.size(), 3u);
    EXPECT_EQ((std::vector<std::string>{"SCardEndTransaction 1", "SCardDisconnect 1",
                                        "SCardReleaseContext"}),
              std::vector<std::string>(state.events.end() - 3, state.events.end()));
}

TEST_F(CardCheckAndCacheClear, CardRefreshingOnTheSecondResetAnswersTwo) {
    insert(refreshingCard(2));
    EXPECT_EQ(2, run());
    const CardState state = zeltest::ReadCardState();
    EXPECT_EQ(2u, state.pinPresentations);
    EXPECT_EQ(2u, state.cacheBumps);
    EXPECT_EQ(std::string(kAttemptOut) +
                  "TqOTS8SCardCheckAndCacheClear : Successfully reset the Smart Card Cache.\n",
              out);
    EXPECT_EQ("", err);
    EXPECT_EQ(
        (std::vector<std::string>{
            std::string("[INFO] ") + kSequenceLine + "Attempt to clear Smart Card Cache.",
            std::string("[INFO] ") + kSequenceLine + "Successfully reset the Smart Card Cache."}),
        sequenceLines());
    EXPECT_EQ("SCardReleaseContext", state.events.back());
}

TEST_F(CardCheckAndCacheClear, CountersAtTheirLimitWrapToZero) {
    CardState state = refreshingCard(1);
    state.cardcf = std::vector<unsigned char>(8, 0xFF);
    insert(state);
    EXPECT_EQ(2, run());
    const CardState after = zeltest::ReadCardState();
    EXPECT_EQ(std::vector<unsigned char>(8, 0x00), after.cardcf);
    EXPECT_EQ(1, countOf(after.events, "CardWriteFile cardcf 0000000000000000"));
    EXPECT_EQ(1u, after.cacheBumps);
}

TEST_F(CardCheckAndCacheClear, EveryLookupOfTheMinidriversCacheMisses) {
    insert(invalidCard());
    EXPECT_EQ(0, run());
    const CardState state = zeltest::ReadCardState();
    EXPECT_EQ(3u, state.cardReads);
    EXPECT_EQ(3, countOf(state.events, "CspCacheLookupFile cardcf answered 1168"));
    EXPECT_EQ(3, countOf(state.events, "CardReadFile cardcf from the card"));
    EXPECT_EQ(0, countOf(state.events, "CardReadFile cardcf from the cache"));
}

TEST_F(CardCheckAndCacheClear, CompatibilityModeIsRestoredAfterTheChecks) {
    insert(invalidCard());
    selectMode(1);
    EXPECT_EQ(0, run());
    EXPECT_EQ(1u, storedMode());
}

TEST_F(CardCheckAndCacheClear, AgileModeIsRestoredAfterTheChecks) {
    insert(refreshingCard(1));
    selectMode(0);
    EXPECT_EQ(2, run());
    EXPECT_EQ(0u, storedMode());
}

TEST_F(CardCheckAndCacheClear, ModeThatCannotBeRememberedFailsTheFirstCheck) {
    insert(invalidCard());
    zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqEnrollmentKey);
    EXPECT_EQ(-4, run());
    EXPECT_EQ(std::vector<std::string>{std::string("[ERROR] ") + kSequenceLine +
                                       "Exception occurred: TqSmartCardHasValidContent failed. "
                                       "Error code: (0x00000017) Exception occurred."},
              sequenceLines());
    EXPECT_EQ("", out);
    EXPECT_TRUE(zeltest::ReadCardState().events.empty());
}

TEST_F(CardCheckAndCacheClear, NullReaderOrPinIsRefused) {
    insert(invalidCard());
    EXPECT_EQ(-1, run(nullptr, "1234"));
    EXPECT_EQ(-1, run(zeltest::kKitReader, nullptr));
    const std::string line = std::string("[ERROR] ") + kSequenceLine +
                             "Exception occurred: One or more calling arguments is invalid.";
    EXPECT_EQ((std::vector<std::string>{line, line}), log.bodies());
    EXPECT_EQ(0u, zeltest::ReadCardState().pinPresentations);
}

TEST_F(CardCheckAndCacheClear, WrongPinFailsTheFirstResetAndLeavesTheSessionOpen) {
    insert(invalidCard());
    EXPECT_EQ(-4, run(zeltest::kKitReader, "97531"));
    EXPECT_EQ((std::vector<std::string>{
                  std::string("[INFO] ") + kSequenceLine + "Attempt to clear Smart Card Cache.",
                  std::string("[ERROR] ") + kSequenceLine +
                      "Exception occurred: TqOTClearSeries8SmartCardCache failed. Error Code: The "
                      "card cannot be accessed because the wrong PIN was presented. Error Code: "
                      "(0x8010006b)"}),
              sequenceLines());
    const CardState state = zeltest::ReadCardState();
    EXPECT_EQ(1u, state.pinPresentations);
    EXPECT_EQ(0u, state.cacheBumps);
    // No TqUnintMinidriver after a failed attempt: the card stays connected, the minidriver
    // loaded, until the process ends.
    EXPECT_EQ(0, countOf(state.events, "SCardDisconnect 1"));
    EXPECT_EQ(0, countOf(state.events, "SCardReleaseContext"));
    EXPECT_NE(nullptr, ::GetModuleHandleA(zeltest::kKitMinidriverFile));
    EXPECT_EQ(std::string::npos, log.contents().find("97531"));
    EXPECT_EQ(kAttemptOut, out);
}

// The first content check and the checks after each reset fail with texts that differ in one
// letter: "Error code" before any reset, "Error Code" after one.
TEST_F(CardCheckAndCacheClear, FailedFirstCheckSaysErrorCodeWithASmallC) {
    CardState state = invalidCard();
    state.failures = {{"CPGetProvParam.first", static_cast<unsigned long>(NTE_BAD_UID)}};
    insert(state);
    EXPECT_EQ(-4, run());
    EXPECT_EQ(std::vector<std::string>{std::string("[ERROR] ") + kSequenceLine +
                                       "Exception occurred: TqSmartCardHasValidContent failed. "
                                       "Error code: (0x00000004) Internal error."},
              sequenceLines());
    EXPECT_EQ(0u, zeltest::ReadCardState().pinPresentations);
    EXPECT_EQ("", out);
}

TEST_F(CardCheckAndCacheClear, FailedCheckAfterAResetSaysErrorCodeWithACapitalC) {
    CardState state = invalidCard();
    state.failures = {{"CPGetProvParam.first@1", static_cast<unsigned long>(NTE_BAD_UID)}};
    insert(state);
    EXPECT_EQ(-4, run());
    EXPECT_EQ((std::vector<std::string>{
                  std::string("[INFO] ") + kSequenceLine + "Attempt to clear Smart Card Cache.",
                  std::string("[ERROR] ") + kSequenceLine +
                      "Exception occurred: TqSmartCardHasValidContent failed. Error Code: "
                      "(0x00000004) Internal error."}),
              sequenceLines());
    const CardState after = zeltest::ReadCardState();
    EXPECT_EQ(1u, after.pinPresentations);
    EXPECT_EQ(1u, after.cacheBumps);
    EXPECT_EQ(kAttemptOut, out);
}

// A call without a log file writes to the file an earlier call named.
TEST_F(CardCheckAndCacheClear, NullLogFileKeepsThePreviousFile) {
    insert(validCard());
    EXPECT_EQ(1, run()); // names log.path()
    const size_t before = log.bodies().size();
    zeltest::CapturedStdout output;
    zeltest::CapturedStderr errors;
    EXPECT_EQ(-1, TqOTS8SCardCheckAndCacheClear(nullptr, "1234", nullptr));
    const auto bodies = log.bodies();
    ASSERT_EQ(before + 1, bodies.size());
    EXPECT_EQ(std::string("[ERROR] ") + kSequenceLine +
                  "Exception occurred: One or more calling arguments is invalid.",
              bodies.back());
}

TEST_F(CardCheckAndCacheClear, UnregisteredMinidriverFailsTheInit) {
    insert(invalidCard());
    zeltest::UnregisterKitMinidriver();
    EXPECT_EQ(-4, run());
    EXPECT_EQ(std::string("[ERROR] ") + kSequenceLine +
                  "Exception occurred: TqInitMinidriver failed. Error Code: The specified smart "
                  "card name is not recognized. Error Code: (0x8010000d)",
              sequenceLines().back());
    EXPECT_EQ(0u, zeltest::ReadCardState().pinPresentations);
}

TEST_F(CardCheckAndCacheClear, RefusedCardAcquireContextFailsTheInit) {
    CardState state = invalidCard();
    state.acquireContextError = SCARD_E_CARD_UNSUPPORTED;
    insert(state);
    EXPECT_EQ(-4, run());
    EXPECT_EQ(std::string("[ERROR] ") + kSequenceLine +
                  "Exception occurred: TqInitMinidriver failed. Error Code: The smart card does "
                  "not meet minimal requirements for support. Error Code: (0x8010001c)",
              sequenceLines().back());
}

TEST_F(CardCheckAndCacheClear, EmptyReaderFailsTheFirstCheck) {
    insert(invalidCard());
    CardState empty = invalidCard();
    empty.inserted = false;
    zeltest::WriteCardState(empty);
    EXPECT_EQ(-4, run());
    EXPECT_EQ(std::vector<std::string>{std::string("[ERROR] ") + kSequenceLine +
                                       "Exception occurred: TqSmartCardHasValidContent failed. "
                                       "Error code: (0x00000004) Internal error."},
              sequenceLines());
    EXPECT_NE(std::string::npos,
              err.find("TqEnumSmartCardKeyContainers : CryptAcquireContext Failed Error Code "
                       "0x8010000c"));
    EXPECT_EQ("", out);
}

class CardCheckWithoutMiddleware : public ::testing::Test {
protected:
    zeltest::Workstation workstation;
    zeltest::VirtualCard card{invalidCard()};
    ScratchLogFile log;
};

TEST_F(CardCheckWithoutMiddleware, MissingMiddlewareAnswersThreeWithoutTouchingTheCard) {
    zeltest::CapturedStdout output;
    EXPECT_EQ(3, TqOTS8SCardCheckAndCacheClear(zeltest::kKitReader, "1234", log.path()));
    EXPECT_EQ("TqOTS8SCardCheckAndCacheClear : Oberthur Middleware is not installed.\n",
              output.text());
    EXPECT_TRUE(zeltest::ReadCardState().events.empty());
}

TEST_F(CardCheckWithoutMiddleware, FailedDetectionPassesItsOwnCodeOn) {
    zeltest::DeniedKey denied(HKEY_LOCAL_MACHINE, zeltest::kUninstallKey, KEY_WOW64_64KEY);
    zeltest::CapturedStderr errors;
    const int result = TqOTS8SCardCheckAndCacheClear(zeltest::kKitReader, "1234", log.path());
    const std::string err = errors.text();
    EXPECT_EQ(-4, result);
    // The registry search says first what it could not open; the sequence's line comes last.
    const std::string line = "TqOTS8SCardCheckAndCacheClear : An error occurred whilst "
                             "attempting to detect the Oberthur Middleware.\n";
    EXPECT_EQ(0u, err.find("TqFindRegistryKeyAndOrValueName : RegOpenKeyEx Failed for "));
    ASSERT_GE(err.size(), line.size());
    EXPECT_EQ(line, err.substr(err.size() - line.size()));
    EXPECT_TRUE(zeltest::ReadCardState().events.empty());
}

// ---------------------------------------------------------------------------------------------
// The platform operations

class CacheClearOperations : public ::testing::Test {
protected:
    void insert(const CardState& state, zeltest::CallSite caller = zeltest::CallSite::current()) {
        card.emplace(state, caller);
        selectMode(0);
    }
    // Runs the cache clear with a card whose session cannot be opened (the one in the reader
    // when state is null): 4 and no PIN presented. Answers the last log line.
    std::string failedInit(const std::optional<CardState>& state,
                           zeltest::CallSite caller = zeltest::CallSite::current()) {
        const zeltest::CallerTrace trace(caller);
        if (state) {
            insert(*state);
        }
        EXPECT_EQ(4, platform.OberthurCacheClear(zeltest::kKitReader, "1234", log.path()));
        EXPECT_EQ(0u, zeltest::ReadCardState().pinPresentations);
        const auto bodies = log.bodies();
        return bodies.empty() ? std::string() : bodies.back();
    }
    std::optional<zeltest::VirtualCard> card;
    ScratchLogFile previous;
    ScratchLogFile log;
    TqZelDLLPlatform platform;
};

TEST_F(CacheClearOperations, CacheClearResetsThreeTimesAndClosesTheSession) {
    insert(validCard());
    TqLogger().SetFileName(previous.path());
    EXPECT_EQ(0, platform.OberthurCacheClear(zeltest::kKitReader, "1234", log.path()));
    EXPECT_EQ(std::vector<std::string>{"[INFO] TqZelDLLPlatform::OberthurCacheClear : Entered"},
              previous.bodies());
    EXPECT_EQ(
        (std::vector<std::string>{
            "[INFO] TqZelDLLPlatform::OberthurCacheClear : Attempting to clear Smart Card Cache.",
            "[INFO] TqZelDLLPlatform::OberthurCacheClear : Attempt to clear Smart Card Cache "
            "completed.",
            "[INFO] TqZelDLLPlatform::OberthurCacheClear : Leaving"}),
        log.bodies());
    const CardState state = zeltest::ReadCardState();
    EXPECT_EQ(3u, state.pinPresentations);
    EXPECT_EQ(3u, state.cacheBumps);
    EXPECT_EQ(kCardcfAfterThreeBumps, state.cardcf);
    EXPECT_EQ("SCardReleaseContext", state.events.back());
    EXPECT_EQ(nullptr, ::GetModuleHandleA(zeltest::kKitMinidriverFile));
}

TEST_F(CacheClearOperations, CacheClearStopsAtTheFirstFailingClear) {
    insert(validCard());
    EXPECT_EQ(4, platform.OberthurCacheClear(zeltest::kKitReader, "8642", log.path()));
    const std::string wrongPin = "The card cannot be accessed because the wrong PIN was "
                                 "presented. Error Code: (0x8010006b)";
    EXPECT_EQ(
        (std::vector<std::string>{
            "[INFO] TqZelDLLPlatform::OberthurCacheClear : Attempting to clear Smart Card Cache.",
            "[ERROR] TqZelPlatformMethods::TqOTClearSeries8SmartCardCache : Exception occurred: "
            "CardAuthenticatePin failed. Error Code: " +
                wrongPin,
            "[ERROR] TqZelDLLPlatform::OberthurCacheClear : TqOTClearSeries8SmartCardCache "
            "failed. Error Code: " +
                wrongPin}),
        log.bodies());
    EXPECT_EQ(1u, zeltest::ReadCardState().pinPresentations);
    EXPECT_EQ(std::string::npos, log.contents().find("8642"));
}

TEST_F(CacheClearOperations, CacheClearWithoutCardAnswersFour) {
    CardState state = validCard();
    state.inserted = false;
    EXPECT_EQ("[ERROR] TqZelDLLPlatform::OberthurCacheClear : TqInitMinidriver failed. Error "
              "Code: The operation requires a smart card, but no smart card is currently in the "
              "device. Error Code: (0x8010000c)",
              failedInit(state));
}

TEST_F(CacheClearOperations, CacheClearWithUnloadableMinidriverAnswersFour) {
    insert(validCard());
    zeltest::WriteString(HKEY_LOCAL_MACHINE, zeltest::CalaisCardKey(zeltest::kKitCardName),
                         "80000001", "zelkit-no-such-md.dll");
    // The system's text is not a smart-card message: it reads as an unknown smart-card error.
    EXPECT_EQ("[ERROR] TqZelDLLPlatform::OberthurCacheClear : TqInitMinidriver failed. Error "
              "Code: Unknown SCard Error. Windows Error: (0x0000007e) - " +
                  zeltest::SystemText(ERROR_MOD_NOT_FOUND),
              failedInit(std::nullopt));
}

TEST_F(CacheClearOperations, CacheClearWithRefusedContextAnswersFour) {
    CardState state = validCard();
    state.acquireContextError = SCARD_E_CARD_UNSUPPORTED;
    EXPECT_EQ("[ERROR] TqZelDLLPlatform::OberthurCacheClear : TqInitMinidriver failed. Error "
              "Code: The smart card does not meet minimal requirements for support. Error Code: "
              "(0x8010001c)",
              failedInit(state));
}

class CardCheckOperation : public CacheClearOperations {
protected:
    zeltest::Workstation workstation;
    void SetUp() override { workstation.install(kInstalledAwp); }
};

TEST_F(CardCheckOperation, ResetAndValidIsAnAnswerNotAFailure) {
    insert(refreshingCard(1));
    zeltest::CapturedStdout ignoredOutput;
    EXPECT_EQ(
        2, platform.OberthurSeries8CardCheckAndCacheClear(zeltest::kKitReader, "1234", log.path()));
    ignoredOutput.end();
    const auto bodies = log.bodies();
    ASSERT_FALSE(bodies.empty());
    EXPECT_EQ("[INFO] TqZelDLLPlatform::OberthurSeries8CardCheckAndCacheClear : Entered",
              bodies.front());
    EXPECT_EQ("[INFO] TqZelDLLPlatform::OberthurSeries8CardCheckAndCacheClear : Leaving",
              bodies.back());
    EXPECT_EQ(1, countOf(bodies, std::string("[INFO] ") + kSequenceLine +
                                     "Successfully reset the Smart Card Cache."));
}

TEST_F(CardCheckOperation, FailedStepIsTheOperationsFailure) {
    insert(invalidCard());
    zeltest::CapturedStdout ignoredOutput;
    EXPECT_EQ(-4, platform.OberthurSeries8CardCheckAndCacheClear(zeltest::kKitReader, "0000",
                                                                 log.path()));
    ignoredOutput.end();
    EXPECT_EQ("[ERROR] TqZelDLLPlatform::OberthurSeries8CardCheckAndCacheClear : "
              "TqOTS8SCardCheckAndCacheClear failed. Error Code: (0x00000004) Internal error.",
              log.bodies().back());
}

} // namespace
