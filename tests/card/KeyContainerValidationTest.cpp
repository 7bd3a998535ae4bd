// Key-container enumeration and the Oberthur content check against the kit's CSP and card.
#include "card/TqEnrollmentMode.h"
#include "card/TqKeyContainerValidation.h"
#include "base/TqErrorText.h"

#include "support/CapturedStreams.h"
#include "support/TestSupport.h"
#include "support/VirtualCard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using zelkit::CardState;
using zelkit::KeyKind;
using zelkit::Shown;
using zeltest::ScratchLogFile;

constexpr DWORD kNoMoreItems = ERROR_NO_MORE_ITEMS;

// The system's text of a code, and whatever producing it wrote to standard error (Wine has no
// message for some smart-card codes).
std::string systemText(DWORD code) {
    zeltest::CapturedStderr errors;
    const std::string text = TqGetLastErrorAsString(code);
    const std::string err = errors.text();
    return err + "\x01" + text;
}
std::string textOnly(const std::string& both) {
    return both.substr(both.find('\x01') + 1);
}
std::string noteOnly(const std::string& both) {
    return both.substr(0, both.find('\x01'));
}

CardState twoAppletCard() {
    return zeltest::ValidOberthurCardState();
}

class ContainerEnumeration : public ::testing::Test {
protected:
    std::uint32_t enumerate(const char* reader, const char* provider = kTqBaseSmartCardCsp) {
        context.readerName = reader != nullptr ? reader : "";
        zeltest::CapturedStderr errors;
        const std::uint32_t result = TqEnumSmartCardKeyContainers(reader, provider, context);
        err = errors.text();
        return result;
    }
    TqEnumerationContext context;
    std::string err;
};

TEST_F(ContainerEnumeration, RecordsEachContainerWithItsKeyAndCertificate) {
    CardState state = zeltest::OberthurCardState();
    state.containers = {
        {"agile", "signing", KeyKind::kSignature, true, Shown::kAlways},
        {"agile", "exchange", KeyKind::kExchange, false, Shown::kAlways},
        {"agile", "hollow", KeyKind::kNone, false, Shown::kAlways},
    };
    zeltest::VirtualCard card(state);
    context.applet = kTqAgileApplet;
    EXPECT_EQ(kNoMoreItems, enumerate(zeltest::kKitReader));
    EXPECT_EQ("", err);
    ASSERT_EQ(3u, context.containers.size());
    EXPECT_EQ("signing", context.containers[0].name);
    EXPECT_EQ(kTqHoldsSignature | kTqHoldsCertificate, context.containers[0].content);
    EXPECT_EQ(kTqAgileApplet, context.containers[0].applet);
    EXPECT_EQ("exchange", context.containers[1].name);
    EXPECT_EQ(kTqHoldsKeyExchange, context.containers[1].content);
    EXPECT_EQ("hollow", context.containers[2].name);
    EXPECT_EQ(0u, context.containers[2].content);
}

TEST_F(ContainerEnumeration, RecordsCarryTheContextsApplet) {
    zeltest::VirtualCard card(twoAppletCard());
    zeltest::WriteDword(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, 1);
    context.applet = kTqCompatibilityApplet;
    EXPECT_EQ(kNoMoreItems, enumerate(zeltest::kKitReader));
    ASSERT_EQ(3u, context.containers.size());
    EXPECT_EQ("Default Key Container", context.containers[0].name);
    for (const TqKeyContainerRecord& record : context.containers) {
        EXPECT_EQ(kTqCompatibilityApplet, record.applet);
    }
}

TEST_F(ContainerEnumeration, CardWithoutContainersSaysSo) {
    zeltest::VirtualCard card;
    EXPECT_EQ(kNoMoreItems, enumerate(zeltest::kKitReader));
    EXPECT_EQ("TqEnumSmartCardKeyContainers : Card appears to have no containers.\n", err);
    EXPECT_TRUE(context.containers.empty());
}

TEST_F(ContainerEnumeration, EmptyReaderOrProviderNameIsRefused) {
    EXPECT_EQ(static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER), enumerate(""));
    EXPECT_EQ("TqEnumSmartCardKeyContainers : Card Reader Name length is 0.\n", err);
    EXPECT_EQ(static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER),
              enumerate(zeltest::kKitReader, ""));
    EXPECT_EQ("TqEnumSmartCardKeyContainers : CSP Provider Name length is 0.\n", err);
}

TEST_F(ContainerEnumeration, UnknownReaderFailsTheAcquireWithTheSystemText) {
    zeltest::VirtualCard card(twoAppletCard());
    const std::string text = systemText(SCARD_E_UNKNOWN_READER);
    EXPECT_EQ(static_cast<std::uint32_t>(SCARD_E_UNKNOWN_READER), enumerate("Other Reader"));
    EXPECT_EQ(noteOnly(text) +
                  "TqEnumSmartCardKeyContainers : CryptAcquireContext Failed Error Code "
                  "0x80100009 - " +
                  textOnly(text) + "\n",
              err);
}

TEST_F(ContainerEnumeration, UnregisteredProviderFailsTheAcquire) {
    zeltest::VirtualCard card(twoAppletCard());
    zeltest::UnregisterKitCsp();
    const std::string text = systemText(NTE_KEYSET_NOT_DEF);
    EXPECT_EQ(static_cast<std::uint32_t>(NTE_KEYSET_NOT_DEF), enumerate(zeltest::kKitReader));
    EXPECT_EQ(noteOnly(text) +
                  "TqEnumSmartCardKeyContainers : CryptAcquireContext Failed Error Code "
                  "0x80090019 - " +
                  textOnly(text) + "\n",
              err);
}

TEST_F(ContainerEnumeration, ZeroLengthNameIsOnlyAWarningAndOpensTheDefaultContainer) {
    CardState state = zeltest::OberthurCardState();
    state.containers = {
        {"agile", "ORBEN_CCCA first", KeyKind::kSignature, true, Shown::kAlways},
        {"agile", "", KeyKind::kExchange, false, Shown::kAlways},
    };
    zeltest::VirtualCard card(state);
    EXPECT_EQ(kNoMoreItems, enumerate(zeltest::kKitReader));
    EXPECT_EQ("TqEnumSmartCardKeyContainers : Key container name is of zero length. This will be "
              "ignored. Check Smart Card for corruption.\n",
              err);
    ASSERT_EQ(2u, context.containers.size());
    // The empty name opened the reader's default container: the applet's first one.
    EXPECT_EQ("", context.containers[1].name);
    EXPECT_EQ(kTqHoldsSignature | kTqHoldsCertificate, context.containers[1].content);
}

TEST_F(ContainerEnumeration, ContainerThatCannotBeOpenedGetsNoRecordAndTheCheckGoesOn) {
    zeltest::VirtualCard card(twoAppletCard());
    context.readerName = zeltest::kKitReader;
    const std::string text = systemText(NTE_BAD_KEYSET);
    zeltest::CapturedStderr errors;
    EXPECT_EQ(0, checkKeyContainerContent("ORBEN_CCCA compat", context)); // other applet
    EXPECT_EQ(noteOnly(text) + "checkKeyContainerContent : " + textOnly(text) + "\n",
              errors.text());
    EXPECT_TRUE(context.containers.empty());
    EXPECT_EQ(0, checkKeyContainerContent("ORBEN_AUTH agile", context));
    ASSERT_EQ(1u, context.containers.size());
    EXPECT_EQ(kTqHoldsKeyExchange | kTqHoldsCertificate, context.containers[0].content);
}

TEST_F(ContainerEnumeration, NullContainerNameStopsTheCheck) {
    context.readerName = zeltest::kKitReader;
    EXPECT_EQ(1, checkKeyContainerContent(nullptr, context));
    EXPECT_TRUE(context.containers.empty());
}

// ---------------------------------------------------------------------------------------------

// A name that cannot be fetched for another reason than the end of the list: the system's text
// on standard error, and the records gathered so far.
class FailedNameFetch : public ContainerEnumeration {
protected:
    void fetchFailing(const char* call, zeltest::CallSite caller = zeltest::CallSite::current()) {
        const zeltest::CallerTrace trace(caller);
        CardState state = twoAppletCard();
        state.failures = {{call, static_cast<unsigned long>(NTE_BAD_UID)}};
        zeltest::VirtualCard card(state);
        const std::string text = systemText(static_cast<DWORD>(NTE_BAD_UID));
        EXPECT_EQ(static_cast<std::uint32_t>(NTE_BAD_UID), enumerate(zeltest::kKitReader));
        EXPECT_EQ(
            noteOnly(text) +
                "TqEnumSmartCardKeyContainers : CryptGetProvParam Failed Error Code 0x80090001 - " +
                textOnly(text) + "\n",
            err);
    }
};

TEST_F(FailedNameFetch, FirstNameEndsTheListWithTheSystemText) {
    fetchFailing("CPGetProvParam.first");
    EXPECT_TRUE(context.containers.empty());
}

TEST_F(FailedNameFetch, NextNameKeepsTheRecordsSoFar) {
    fetchFailing("CPGetProvParam.next");
    ASSERT_EQ(1u, context.containers.size());
    EXPECT_EQ("ORBEN_CCCA agile", context.containers[0].name);
}

// The enumeration may use any provider; the containers are opened through the base provider
// all the same (the other provider of the kit reports any container opened through it).
TEST_F(ContainerEnumeration, ContainersAreOpenedThroughTheBaseProviderWhoeverListedThem) {
    zeltest::VirtualCard card(twoAppletCard());
    EXPECT_EQ(kNoMoreItems, enumerate(zeltest::kKitReader, zeltest::kOtherCspName));
    ASSERT_EQ(2u, context.containers.size());
    EXPECT_EQ(6u, context.containers[0].content);
    EXPECT_EQ(5u, context.containers[1].content);
    EXPECT_EQ(std::vector<std::string>{"CPAcquireContext ZelKit Other Smart Card Crypto Provider "
                                       "0xF0000040 \\\\.\\ZelKit Reader 0\\"},
              zeltest::ReadCardState().events);
}

TEST(StrictCardKit, OtherProviderReportsAContainerOpenedThroughIt) {
    zeltest::VirtualCard card(twoAppletCard());
    HCRYPTPROV provider = 0;
    ASSERT_TRUE(::CryptAcquireContextA(&provider, "\\\\.\\ZelKit Reader 0\\ORBEN_CCCA agile",
                                       zeltest::kOtherCspName, PROV_RSA_FULL, CRYPT_SILENT));
    ::CryptReleaseContext(provider, 0);
    EXPECT_EQ(std::vector<std::string>{"CPAcquireContext: container \\\\.\\ZelKit Reader "
                                       "0\\ORBEN_CCCA agile opened through ZelKit Other Smart "
                                       "Card Crypto Provider; containers are opened with the "
                                       "Microsoft Base Smart Card Crypto Provider"},
              zeltest::TakeKitViolations());
}

TEST(StrictCardKit, ReportsWrongAcquireFlagsAndAContextNotReleased) {
    zeltest::VirtualCard card(twoAppletCard());
    HCRYPTPROV provider = 0;
    ASSERT_TRUE(::CryptAcquireContextA(&provider, "\\\\.\\ZelKit Reader 0\\", zeltest::kBaseCspName,
                                       PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    const std::vector<std::string> held = zeltest::TakeKitOutstanding();
    ASSERT_EQ(1u, held.size());
    EXPECT_EQ(0u, held[0].rfind("Microsoft Base Smart Card Crypto Provider context ", 0));
    ::CryptReleaseContext(provider, 0);
    EXPECT_EQ((std::vector<std::string>{
                  "CPAcquireContext: dwFlags (enumeration) must be 0xF0000040, was 0xF0000000",
                  "CryptReleaseContext: given " + held[0] + ", which the kit did not hand out"}),
              zeltest::TakeKitViolations());
}

class OberthurContent : public ::testing::Test {
protected:
    int check(const char* reader) {
        zeltest::CapturedStderr errors;
        const int result = TqOTSmartCardValidContent(reader, &records, log.path());
        err = errors.text();
        return result;
    }
    DWORD storedMode() {
        const auto value =
            zeltest::ReadValue(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue);
        return value.present ? *reinterpret_cast<const DWORD*>(value.data.data()) : 0xDEADBEEF;
    }
    std::vector<TqKeyContainerRecord> records;
    ScratchLogFile log;
    std::string err;
};

TEST_F(OberthurContent, NullReaderIsMinusOne) {
    EXPECT_EQ(-1, TqOTSmartCardValidContent(nullptr, nullptr, log.path()));
}

TEST_F(OberthurContent, BothValidAppletsGiveOneAndTheModeIsRestored) {
    zeltest::VirtualCard card(twoAppletCard());
    zeltest::WriteDword(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, 1);
    EXPECT_EQ(1, check(zeltest::kKitReader));
    EXPECT_EQ("", err);
    EXPECT_EQ(1u, storedMode()); // COMPATIBILITY again
    ASSERT_EQ(5u, records.size());
    EXPECT_EQ("ORBEN_CCCA agile", records[0].name);
    EXPECT_EQ(kTqAgileApplet, records[1].applet);
    EXPECT_EQ("Default Key Container", records[2].name);
    EXPECT_EQ(kTqCompatibilityApplet, records[4].applet);
    const auto bodies = log.bodies();
    const std::string valid =
        "[INFO] TqCryptEnumContainers::cardContainsValidContent : Applet content is valid.";
    EXPECT_EQ(2, std::count(bodies.begin(), bodies.end(), valid));
    // The applets were switched in order, AGILE first, and back.
    std::vector<std::string> switches;
    for (const std::string& line : bodies) {
        if (line.find("Switching registry to Applet: ") != std::string::npos) {
            switches.push_back(line.substr(line.find(": Switching") + 2));
        }
    }
    EXPECT_EQ((std::vector<std::string>{"Switching registry to Applet: AGILE",
                                        "Switching registry to Applet: COMPATIBILITY",
                                        "Switching registry to Applet: COMPATIBILITY"}),
              switches);
}

TEST_F(OberthurContent, OneInvalidAppletGivesZeroAndTheModeIsRestored) {
    CardState state = twoAppletCard();
    state.containers[4].certificate = false; // compatibility exchange key without certificate
    zeltest::VirtualCard card(state);
    zeltest::WriteDword(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, 0);
    EXPECT_EQ(0, check(zeltest::kKitReader));
    EXPECT_EQ(0u, storedMode()); // AGILE again
    const auto bodies = log.bodies();
    EXPECT_EQ(1, std::count(bodies.begin(), bodies.end(),
                            "[ERROR] TqCryptEnumContainers::cardContainsValidContent : Applet "
                            "content is invalid."));
}

TEST_F(OberthurContent, StaleCacheShowsInvalidContentUntilRefreshed) {
    CardState state = twoAppletCard();
    state.refreshAfterBumps = 1;
    state.containers[1].shown = Shown::kAfterRefresh; // the agile exchange key appears later
    zeltest::VirtualCard card(state);
    zeltest::WriteDword(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, 0);
    EXPECT_EQ(0, check(zeltest::kKitReader));
    state.cacheBumps = 1;
    zeltest::WriteCardState(state);
    records.clear();
    EXPECT_EQ(1, check(zeltest::kKitReader));
}

TEST_F(OberthurContent, ModeThatCannotBeReadStopsTheCheck) {
    zeltest::VirtualCard card(twoAppletCard()); // no enrollment key at all
    EXPECT_EQ(-23, check(zeltest::kKitReader));
    const std::string message =
        "Failed to cache current enrollment mode. Error code: (0x0000000b) Not found.";
    EXPECT_EQ("TqOTSmartCardHasValidContent : " + message + "\n", err);
    const auto bodies = log.bodies();
    ASSERT_FALSE(bodies.empty());
    EXPECT_EQ("[ERROR] TqZelPlatformMethods::TqOTSmartCardHasValidContent : " + message,
              bodies.back());
    EXPECT_TRUE(records.empty());
}

// A key the user may not open reads as "AGILE" (the lenient read), and the switch to the first
// applet fails.
TEST_F(OberthurContent, FailedSwitchToTheFirstAppletStopsTheCheck) {
    zeltest::VirtualCard card(twoAppletCard());
    zeltest::WriteDword(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, 1);
    {
        const zeltest::DeniedKey denied(HKEY_CURRENT_USER, kTqEnrollmentKey);
        EXPECT_EQ(-23, check(zeltest::kKitReader));
    }
    const std::string message =
        "Failed to switch current enrollment to 'AGILE'. Error Code: (0x00000004) Internal error.";
    EXPECT_EQ("TqOTSmartCardHasValidContent : " + message + "\n", err);
    const auto bodies = log.bodies();
    ASSERT_FALSE(bodies.empty());
    EXPECT_EQ("[ERROR] TqZelPlatformMethods::TqOTSmartCardHasValidContent : " + message,
              bodies.back());
    EXPECT_TRUE(records.empty());
    EXPECT_EQ(1u, storedMode()); // nothing was switched
}

// The checks run, then the switch back to the remembered applet fails: the verdict stands, and
// the text carries the verdict's code, not the switch's.
TEST_F(OberthurContent, FailedSwitchBackKeepsTheVerdictAndSaysSo) {
    CardState state = twoAppletCard();
    state.denyEnrollmentKeyAt = "compatibility";
    zeltest::VirtualCard card(state);
    zeltest::WriteDword(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, 0);
    {
        const zeltest::SavedKeySecurity saved(HKEY_CURRENT_USER, kTqEnrollmentKey);
        EXPECT_EQ(1, check(zeltest::kKitReader));
    }
    const std::string message = "Failed to switch current enrollment to 'AGILE'. Error code: "
                                "(0x00000001) One or more invalid arguments.";
    EXPECT_EQ("TqOTSmartCardHasValidContent : " + message + "\n", err);
    const auto bodies = log.bodies();
    ASSERT_FALSE(bodies.empty());
    EXPECT_EQ("[ERROR] TqZelPlatformMethods::TqOTSmartCardHasValidContent : " + message,
              bodies.back());
    EXPECT_EQ(5u, records.size()); // both applets were read, the default container too
    EXPECT_EQ(1u, storedMode());   // left on the second applet
}

TEST_F(OberthurContent, EnumerationFailureIsMinusFourAndLeavesTheAppletSwitched) {
    zeltest::VirtualCard card(twoAppletCard());
    zeltest::WriteDword(HKEY_CURRENT_USER, kTqEnrollmentKey, kTqEnrollmentValue, 1);
    const std::string text = systemText(SCARD_E_UNKNOWN_READER);
    EXPECT_EQ(-4, check("Other Reader"));
    const std::string message =
        "Failed to enumerate Smart Card Content for  'AGILE' applet. Error Code: " + textOnly(text);
    EXPECT_NE(std::string::npos, err.find("TqOTSmartCardHasValidContent : " + message + "\n"));
    // The failure is raised before the switch back: the minidriver stays on AGILE.
    EXPECT_EQ(0u, storedMode());
}

} // namespace
