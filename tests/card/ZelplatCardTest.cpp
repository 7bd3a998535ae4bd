// zelplat card as support staff run it: a separate process against the kit's smart-card
// service (its winscard.dll in the prefix's System32, by override), minidriver and CSP.
#include "card/TqEnrollmentMode.h"

#include "support/TestSupport.h"
#include "support/VirtualCard.h"
#include "support/Workstation.h"

#include <gtest/gtest.h>

#include <optional>

namespace {

using zelkit::CardState;

const zeltest::InstalledProgram kInstalledAwp = {
    "{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)", "Oberthur Technologies", "5.2.1.77", 5, 2};

std::string atrText(const CardState& state) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const unsigned char byte : state.atr) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}

// The zpl*.tmp files zelplat makes in the temp folder (the log it lends the library).
int zelplatTemporaryFiles() {
    char folder[MAX_PATH + 1];
    const DWORD length = ::GetTempPathA(sizeof folder, folder);
    WIN32_FIND_DATAA found;
    const TqUniqueFindHandle search(
        ::FindFirstFileA((std::string(folder, length) + "zpl*.tmp").c_str(), &found));
    int count = 0;
    for (bool more = search.valid(); more; more = ::FindNextFileA(search.get(), &found)) {
        ++count;
    }
    return count;
}

// The compatibility exchange key has no certificate, however often the cache is reset.
CardState invalidCard() {
    CardState state = zeltest::Relaxed(zeltest::ValidOberthurCardState());
    state.containers[4].certificate = false;
    return state;
}

// The agile exchange container shows only once the cache has been reset once.
CardState refreshingCard() {
    CardState state = zeltest::Relaxed(zeltest::ValidOberthurCardState());
    state.refreshAfterBumps = 1;
    state.containers[1].shown = zelkit::Shown::kAfterRefresh;
    return state;
}

// The temporary logs zelplat lends the library ("zpl*.tmp" in the temp folder).
int lentLogFiles() {
    char folder[MAX_PATH];
    ::GetTempPathA(sizeof folder, folder);
    WIN32_FIND_DATAA found;
    const TqUniqueFindHandle search(
        ::FindFirstFileA((std::string(folder) + "zpl*.tmp").c_str(), &found));
    int count = 0;
    for (bool more = search.valid(); more; more = ::FindNextFileA(search.get(), &found) != 0) {
        ++count;
    }
    return count;
}

class ZelplatCard : public ::testing::Test {
protected:
    void SetUp() override { zeltest::RemoveCardState(); }
    void TearDown() override {
        card.reset();
        zeltest::RemoveCardState();
    }

    void insert(const CardState& state, zeltest::CallSite caller = zeltest::CallSite::current()) {
        card.emplace(state, caller);
        zeltest::WriteDword(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, 0);
    }

    static zeltest::ProcessResult zelplat(const std::string& arguments) {
        return zeltest::RunProgram("\"" + zeltest::BuiltFile("zelplat.exe") + "\" " + arguments);
    }
    // With the PIN (or whatever a script gives) piped into zelplat's standard input.
    static zeltest::ProcessResult zelplat(const std::string& arguments, const std::string& input) {
        return zeltest::RunProgramWithInput(
            "\"" + zeltest::BuiltFile("zelplat.exe") + "\" " + arguments, input);
    }

    zeltest::Workstation workstation;
    std::optional<zeltest::VirtualCard> card;
};

TEST_F(ZelplatCard, ListShowsTheReaderItsCardAndTheCardsMinidriver) {
    insert(zeltest::Relaxed(zeltest::ValidOberthurCardState()));
    const auto run = zelplat("card list");
    EXPECT_EQ(0u, run.exitCode);
    const std::string atr = atrText(zeltest::Relaxed(zeltest::ValidOberthurCardState()));
    EXPECT_EQ("READER           CARD     ATR" + std::string(atr.size() - 1, ' ') +
                  "CARD NAME                         MINIDRIVER\r\n"
                  "ZelKit Reader 0  present  " +
                  atr + "  Oberthur Technologies KVR Device  zelkitmd.dll\r\n",
              run.out);
    EXPECT_EQ("", run.err);
}

TEST_F(ZelplatCard, ListShowsAnEmptyReader) {
    CardState state = zeltest::Relaxed(zeltest::ValidOberthurCardState());
    state.inserted = false;
    insert(state);
    const auto run = zelplat("card list");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("READER           CARD   ATR  CARD NAME  MINIDRIVER\r\n"
              "ZelKit Reader 0  empty  -    -          -\r\n",
              run.out);
}

TEST_F(ZelplatCard, ListShowsACardWithoutAMinidriver) {
    insert(zeltest::Relaxed(zeltest::ValidOberthurCardState()));
    ASSERT_EQ(ERROR_SUCCESS,
              ::RegDeleteKeyValueA(HKEY_LOCAL_MACHINE,
                                   zeltest::CalaisCardKey(zeltest::kKitCardName).c_str(),
                                   "80000001"));
    auto run = zelplat("card list");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_NE(std::string::npos, run.out.find("  Oberthur Technologies KVR Device  none\r\n"))
        << run.out;
    // Not in the smart-card database at all: no card name either.
    zeltest::UnregisterKitMinidriver();
    run = zelplat("card list");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_NE(std::string::npos, run.out.find("ZelKit Reader 0  present  ")) << run.out;
    EXPECT_NE(std::string::npos, run.out.find("  -          -\r\n")) << run.out;
}

TEST_F(ZelplatCard, ListWithoutAReaderSaysSo) {
    const auto run = zelplat("card list");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("No smart-card reader found.\r\n", run.out);
    EXPECT_EQ("", run.err);
}

TEST_F(ZelplatCard, CheckOfAValidCardDoesNothingAndExits0) {
    workstation.install(kInstalledAwp);
    insert(zeltest::Relaxed(zeltest::ValidOberthurCardState()));
    const auto run = zelplat("card check \"ZelKit Reader 0\" --pin-stdin", "1234\n");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("The card's content is valid; nothing was done.\r\n", run.out);
    EXPECT_EQ(0u, zeltest::ReadCardState().pinPresentations);
}

TEST_F(ZelplatCard, CheckClearsTheCacheOfAStaleCardAndExits0) {
    workstation.install(kInstalledAwp);
    insert(refreshingCard());
    const auto run = zelplat("card check \"ZelKit Reader 0\" --pin-stdin", "1234\n");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("The card's content was invalid; its cache was cleared and it is valid now.\r\n",
              run.out);
    // The library's own progress lines are kept off the streams (--verbose shows them).
    EXPECT_EQ("", run.err);
    EXPECT_EQ(1u, zeltest::ReadCardState().cacheBumps);
}

TEST_F(ZelplatCard, CheckOfAnInvalidCardExits2AfterThreeClears) {
    workstation.install(kInstalledAwp);
    insert(invalidCard());
    const auto run = zelplat("card check \"ZelKit Reader 0\" --pin-stdin", "1234\n");
    EXPECT_EQ(2u, run.exitCode);
    EXPECT_EQ("The card's content is invalid; its cache was cleared three times and it is still "
              "invalid.\r\n",
              run.out);
    EXPECT_EQ(3u, zeltest::ReadCardState().pinPresentations);
}

TEST_F(ZelplatCard, CheckWithAWrongPinShowsTheReasonAndExits10) {
    workstation.install(kInstalledAwp);
    insert(invalidCard());
    const int temporaryFiles = zelplatTemporaryFiles();
    const auto run = zelplat("card check \"ZelKit Reader 0\"", "97531\r\n");
    EXPECT_EQ(10u, run.exitCode);
    // The log zelplat lent the library, read back above, is gone with zelplat.
    EXPECT_EQ(temporaryFiles, zelplatTemporaryFiles());
    EXPECT_EQ("", run.out);
    // Every ERROR line of the library's log, in order: the first check's verdict, the failed
    // PIN, the sequence's and the operation's own failure.
    const std::string wrongPin = "The card cannot be accessed because the wrong PIN was "
                                 "presented. Error Code: (0x8010006b)";
    EXPECT_EQ("zelplat: [ERROR] TqCryptEnumContainers::cardContainsValidContent : Applet content "
              "is invalid.\r\n"
              "zelplat: [ERROR] TqZelPlatformMethods::TqOTClearSeries8SmartCardCache : Exception "
              "occurred: CardAuthenticatePin failed. Error Code: " +
                  wrongPin +
                  "\r\n"
                  "zelplat: [ERROR] TqCacheClearance::TqOTS8SCardCheckAndCacheClear : Exception "
                  "occurred: TqOTClearSeries8SmartCardCache failed. Error Code: " +
                  wrongPin +
                  "\r\n"
                  "zelplat: [ERROR] TqZelDLLPlatform::OberthurSeries8CardCheckAndCacheClear : "
                  "TqOTS8SCardCheckAndCacheClear failed. Error Code: (0x00000004) Internal "
                  "error.\r\n"
                  "zelplat: (0x00000004) Internal error.\r\n",
              run.err);
    EXPECT_EQ(std::string::npos, run.err.find("97531"));
    EXPECT_EQ(1u, zeltest::ReadCardState().pinPresentations);
}

TEST_F(ZelplatCard, CheckWithoutTheMiddlewareCouldNotAssessAndExits10) {
    insert(invalidCard());
    const auto run = zelplat("card check \"ZelKit Reader 0\" --pin-stdin", "1234\n");
    EXPECT_EQ(10u, run.exitCode);
    EXPECT_EQ("The Oberthur middleware is not installed; the card was not checked.\r\n", run.out);
    EXPECT_EQ("", run.err);
}

TEST_F(ZelplatCard, CheckWithoutAReaderFails) {
    workstation.install(kInstalledAwp);
    const auto run = zelplat("card check \"ZelKit Reader 0\" --pin-stdin", "1234\n");
    EXPECT_EQ(10u, run.exitCode);
    EXPECT_EQ("", run.out);
    const std::string last = "zelplat: (0x00000004) Internal error.\r\n";
    ASSERT_GE(run.err.size(), last.size()) << run.err;
    EXPECT_EQ(last, run.err.substr(run.err.size() - last.size()));
    EXPECT_NE(std::string::npos,
              run.err.find("zelplat: [ERROR] TqCacheClearance::TqOTS8SCardCheckAndCacheClear : "
                           "Exception occurred: TqSmartCardHasValidContent failed."))
        << run.err;
}

TEST_F(ZelplatCard, ClearCacheBumpsTheCountersThreeTimes) {
    insert(zeltest::Relaxed(zeltest::ValidOberthurCardState()));
    const auto run = zelplat("card clear-cache \"ZelKit Reader 0\"", "1234\n");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("The card's cache was cleared: its freshness counters were bumped three times.\r\n",
              run.out);
    EXPECT_EQ("", run.err);
    const CardState state = zeltest::ReadCardState();
    EXPECT_EQ(3u, state.cacheBumps);
    EXPECT_EQ(3u, state.pinPresentations);
}

TEST_F(ZelplatCard, ClearCacheWithAWrongPinShowsTheReasonAndExits10) {
    insert(zeltest::Relaxed(zeltest::ValidOberthurCardState()));
    const int lentBefore = lentLogFiles();
    const auto run = zelplat("card clear-cache \"ZelKit Reader 0\" --pin-stdin", "8642\n");
    EXPECT_EQ(10u, run.exitCode);
    EXPECT_EQ("", run.out);
    const std::string wrongPin = "The card cannot be accessed because the wrong PIN was "
                                 "presented. Error Code: (0x8010006b)";
    EXPECT_EQ("zelplat: [ERROR] TqZelPlatformMethods::TqOTClearSeries8SmartCardCache : Exception "
              "occurred: CardAuthenticatePin failed. Error Code: " +
                  wrongPin +
                  "\r\n"
                  "zelplat: [ERROR] TqZelDLLPlatform::OberthurCacheClear : "
                  "TqOTClearSeries8SmartCardCache failed. Error Code: " +
                  wrongPin +
                  "\r\n"
                  "zelplat: (0x00000004) Internal error.\r\n",
              run.err);
    EXPECT_EQ(0u, zeltest::ReadCardState().cacheBumps);
    // The log lent to the library is gone again.
    EXPECT_EQ(lentBefore, lentLogFiles());
}

TEST_F(ZelplatCard, ClearCacheWithoutACardExits10) {
    CardState state = zeltest::Relaxed(zeltest::ValidOberthurCardState());
    state.inserted = false;
    insert(state);
    const auto run = zelplat("card clear-cache \"ZelKit Reader 0\"", "1234\n");
    EXPECT_EQ(10u, run.exitCode);
    const std::string noCard = "The operation requires a smart card, but no smart card is "
                               "currently in the device. Error Code: (0x8010000c)";
    EXPECT_EQ("zelplat: [ERROR] TqZelPlatformMethods::TqInitMinidriver : Exception occurred: "
              "SCardConnect failed. Error Code: " +
                  noCard +
                  "\r\n"
                  "zelplat: [ERROR] TqZelDLLPlatform::OberthurCacheClear : TqInitMinidriver "
                  "failed. Error Code: " +
                  noCard +
                  "\r\n"
                  "zelplat: (0x00000004) Internal error.\r\n",
              run.err);
}

// The text a --pin anywhere among the card words is refused with, before the card's usage.
const char kPinRefused[] =
    "zelplat: card: --pin is not accepted: a PIN on the command line is visible to other "
    "programs; type it when asked, or pipe it with --pin-stdin\r\n\r\n";

TEST_F(ZelplatCard, APinOnTheCommandLineIsRefusedAndNeverPresented) {
    workstation.install(kInstalledAwp);
    insert(invalidCard());
    const std::string usage = zelplat("card --help").out;
    ASSERT_EQ(0u, usage.find("usage: zelplat card list\r\n")) << usage;
    for (const char* arguments :
         {"card check \"ZelKit Reader 0\" --pin 1234",
          "card clear-cache \"ZelKit Reader 0\" --pin 1234",
          "card check \"ZelKit Reader 0\" --PIN=1234", "card check --pin 1234 \"ZelKit Reader 0\"",
          "card check \"ZelKit Reader 0\" --pin-stdin --pin 1234"}) {
        // Even with the PIN waiting on standard input.
        const auto run = zelplat(arguments, "1234\n");
        EXPECT_EQ(30u, run.exitCode) << arguments;
        EXPECT_EQ("", run.out) << arguments;
        EXPECT_EQ(kPinRefused + usage, run.err) << arguments;
    }
    const CardState state = zeltest::ReadCardState();
    EXPECT_EQ(0u, state.pinPresentations);
    EXPECT_EQ(0u, state.cacheBumps);
}

TEST_F(ZelplatCard, APinPipedWithPinStdinIsPresentedAsTyped) {
    workstation.install(kInstalledAwp);
    CardState state = invalidCard();
    state.pin = "86420135";
    insert(state);
    // A wrong PIN would end the clearing at the first presentation with exit code 10.
    const auto run = zelplat("card check \"ZelKit Reader 0\" --pin-stdin", "86420135\r\n");
    EXPECT_EQ(2u, run.exitCode);
    EXPECT_EQ("The card's content is invalid; its cache was cleared three times and it is still "
              "invalid.\r\n",
              run.out);
    EXPECT_EQ("", run.err);
    EXPECT_EQ(std::string::npos, run.out.find("86420135"));
    const CardState seen = zeltest::ReadCardState();
    EXPECT_EQ(3u, seen.pinPresentations);
    EXPECT_EQ(3u, seen.cacheBumps);
}

TEST_F(ZelplatCard, AnEmptyOrMissingPinIsRefusedBeforeTheCard) {
    workstation.install(kInstalledAwp);
    insert(invalidCard());
    const struct {
        const char* arguments;
        const char* input;
        const char* err;
    } cases[] = {
        {"card check \"ZelKit Reader 0\" --pin-stdin", "\r\n",
         "zelplat: card: the PIN is empty\r\n"},
        {"card clear-cache \"ZelKit Reader 0\"", "", "zelplat: card: the PIN is empty\r\n"},
    };
    for (const auto& step : cases) {
        const auto run = zelplat(step.arguments, step.input);
        EXPECT_EQ(30u, run.exitCode) << step.arguments;
        EXPECT_EQ("", run.out) << step.arguments;
        EXPECT_EQ(step.err, run.err) << step.arguments;
    }
    const auto tooLong = zelplat("card check \"ZelKit Reader 0\"", std::string(256, '1') + "\n");
    EXPECT_EQ(30u, tooLong.exitCode);
    EXPECT_EQ("zelplat: card: the PIN is longer than 255 characters\r\n", tooLong.err);
    // No standard input at all.
    const auto none = zelplat("card check \"ZelKit Reader 0\" --pin-stdin");
    EXPECT_EQ(30u, none.exitCode);
    EXPECT_EQ("zelplat: card: the PIN could not be read from standard input\r\n", none.err);
    EXPECT_EQ(0u, zeltest::ReadCardState().pinPresentations);
}

TEST_F(ZelplatCard, CardHelpAndUnknownWords) {
    for (const char* arguments : {"card --help", "help card", "Card /?", "CARD check -h"}) {
        const auto run = zelplat(arguments);
        EXPECT_EQ(0u, run.exitCode) << arguments;
        EXPECT_EQ(0u, run.out.find("usage: zelplat card list\r\n")) << arguments;
    }
    for (const char* arguments : {"card", "card frobnicate", "card check", "card list extra",
                                  "card check R --pin", "card check R --pin-stdin extra"}) {
        const auto run = zelplat(arguments);
        EXPECT_EQ(30u, run.exitCode) << arguments;
        EXPECT_EQ("", run.out) << arguments;
        EXPECT_NE(std::string::npos, run.err.find("usage: zelplat card list")) << arguments;
    }
}

} // namespace
