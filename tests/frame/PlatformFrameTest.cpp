// The common call frame of the platform operations, driven through the class itself.
#include "api/TqZelDLLPlatform.h"

#include "card/TqEnrollmentMode.h"
#include "logging/ZelLogger.h"
#include "support/CapturedStreams.h"
#include "support/TestSupport.h"
#include "support/Workstation.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace {

using zeltest::ScratchLogFile;

char* const kGarbage = reinterpret_cast<char*>(0xDEADBEEF);

class PlatformFrame : public ::testing::Test {
protected:
    void SetUp() override { zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqEnrollmentKey); }
    void TearDown() override { zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqEnrollmentKey); }

    ScratchLogFile log;
    TqZelDLLPlatform platform;
};

// A host's provider object; what it does is chosen per test.
class TestProvider : public TqEnrollmentProvider {
public:
    enum class Read { kText, kThrowAfterText, kThrowNonStandard };
    TestProvider(int route, Read read) : route_(route), read_(read) {}
    int isPKCS11Route(const char*) override { return route_; }
    int readEnrollmentMode(char** modeOut, int* modeLengthOut, const char*) override {
        ++reads;
        *modeOut = static_cast<char*>(std::malloc(9));
        std::memcpy(*modeOut, "PROVIDER", 9);
        *modeLengthOut = 8;
        if (read_ == Read::kThrowAfterText) {
            throw std::runtime_error("provider read failed");
        }
        if (read_ == Read::kThrowNonStandard) {
            throw 42;
        }
        return 7; // ignored: the operation reports success once the provider has answered
    }
    int reads = 0;

private:
    int route_;
    Read read_;
};

TEST(FailureTest, NonZeroRowsFailOnAnyCodeNegativeRowsOnlyOnNegativeCodes) {
    EXPECT_FALSE(TqWorkerFailed(TqFailureTest::kNonZero, 0));
    EXPECT_TRUE(TqWorkerFailed(TqFailureTest::kNonZero, 2));
    EXPECT_TRUE(TqWorkerFailed(TqFailureTest::kNonZero, -2));
    EXPECT_FALSE(TqWorkerFailed(TqFailureTest::kNegative, 0));
    EXPECT_FALSE(TqWorkerFailed(TqFailureTest::kNegative, 2)); // a "found" answer
    EXPECT_TRUE(TqWorkerFailed(TqFailureTest::kNegative, -2));
}

TEST_F(PlatformFrame, NullOutputIsRefusedBeforeEntered) {
    int length = -1;
    EXPECT_EQ(1, platform.getEnrollmentMode(nullptr, nullptr, &length, log.path()));
    EXPECT_EQ(-1, length);
    EXPECT_EQ(std::vector<std::string>{"[ERROR] TqZelDLLPlatform::getEnrollmentMode : One or "
                                       "more calling arguments is invalid"},
              log.bodies());
}

TEST_F(PlatformFrame, RefusedCallNullsTheCallersPointerWithoutFreeingIt) {
    char* mode = kGarbage; // freeing this would crash the test
    EXPECT_EQ(1, platform.getEnrollmentMode(nullptr, &mode, nullptr, log.path()));
    EXPECT_EQ(nullptr, mode);
}

TEST_F(PlatformFrame, WorkerResultsOfTheGetAreReturnedWithTheirAnswer) {
    char* mode = nullptr;
    int length = 0;
    EXPECT_EQ(11, platform.getEnrollmentMode(nullptr, &mode, &length, log.path()));
    ASSERT_NE(nullptr, mode);
    EXPECT_STREQ("NOT SET", mode);
    EXPECT_EQ(7, length);
    std::free(mode);
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] TqZelDLLPlatform::getEnrollmentMode : Entered",
                  "[WARN] TqZelPlatformMethods::TqGetEnrollmentMode : Registry VKey Not Set",
                  "[INFO] TqZelDLLPlatform::getEnrollmentMode : Leaving"}),
              log.bodies());
}

TEST_F(PlatformFrame, ProviderOnThePKCS11RouteAnswersInsteadOfTheRegistry) {
    TestProvider provider(1, TestProvider::Read::kText);
    char* mode = nullptr;
    int length = 0;
    EXPECT_EQ(0, platform.getEnrollmentMode(&provider, &mode, &length, log.path()));
    EXPECT_EQ(1, provider.reads);
    EXPECT_STREQ("PROVIDER", mode);
    EXPECT_EQ(8, length);
    std::free(mode);
    // No line of the registry worker: it was not asked.
    EXPECT_EQ((std::vector<std::string>{"[INFO] TqZelDLLPlatform::getEnrollmentMode : Entered",
                                        "[INFO] TqZelDLLPlatform::getEnrollmentMode : Leaving"}),
              log.bodies());
}

// A provider as a host built elsewhere lays it out: a pointer to a table of three operations,
// each called with the object first. The library calls the first and the third, never the
// second.
struct ProviderBySlots {
    using Slot = void (*)();
    const Slot* table;
    int availabilityCalls = 0;
    int secondCalls = 0;
    int readCalls = 0;
};

int slotAvailability(ProviderBySlots* self, const char*) {
    ++self->availabilityCalls;
    return 1;
}
int slotSecond(ProviderBySlots* self, char**, int*, const char*) {
    ++self->secondCalls;
    return 0;
}
int slotRead(ProviderBySlots* self, char** modeOut, int* modeLengthOut, const char*) {
    ++self->readCalls;
    *modeOut = static_cast<char*>(std::malloc(6));
    std::memcpy(*modeOut, "AGILE", 6);
    *modeLengthOut = 5;
    return 0;
}

const ProviderBySlots::Slot kProviderSlots[] = {
    reinterpret_cast<ProviderBySlots::Slot>(&slotAvailability),
    reinterpret_cast<ProviderBySlots::Slot>(&slotSecond),
    reinterpret_cast<ProviderBySlots::Slot>(&slotRead),
};

TEST_F(PlatformFrame, ProviderReadIsItsThirdOperation) {
    ProviderBySlots provider{kProviderSlots};
    char* mode = nullptr;
    int length = 0;
    EXPECT_EQ(0, platform.getEnrollmentMode(reinterpret_cast<TqEnrollmentProvider*>(&provider),
                                            &mode, &length, log.path()));
    EXPECT_EQ(1, provider.availabilityCalls);
    EXPECT_EQ(0, provider.secondCalls);
    EXPECT_EQ(1, provider.readCalls);
    ASSERT_NE(nullptr, mode);
    EXPECT_STREQ("AGILE", mode);
    EXPECT_EQ(5, length);
    std::free(mode);
}

TEST_F(PlatformFrame, ProviderOffTheRouteLeavesTheReadToTheRegistry) {
    TestProvider provider(0, TestProvider::Read::kText);
    char* mode = nullptr;
    int length = 0;
    EXPECT_EQ(11, platform.getEnrollmentMode(&provider, &mode, &length, log.path()));
    EXPECT_EQ(0, provider.reads);
    EXPECT_STREQ("NOT SET", mode);
    std::free(mode);
}

TEST_F(PlatformFrame, TextStoredBeforeAFailureIsReleasedAndThePointerNulled) {
    TestProvider provider(1, TestProvider::Read::kThrowAfterText);
    char* mode = nullptr;
    int length = 0;
    EXPECT_EQ(23, platform.getEnrollmentMode(&provider, &mode, &length, log.path()));
    EXPECT_EQ(nullptr, mode);
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] TqZelDLLPlatform::getEnrollmentMode : Entered",
                  "[ERROR] TqZelDLLPlatform::getEnrollmentMode : provider read failed"}),
              log.bodies());
}

TEST_F(PlatformFrame, ExceptionOfNoStandardTypeIsCaughtToo) {
    TestProvider provider(1, TestProvider::Read::kThrowNonStandard);
    char* mode = nullptr;
    int length = 0;
    EXPECT_EQ(23, platform.getEnrollmentMode(&provider, &mode, &length, log.path()));
    EXPECT_EQ(nullptr, mode);
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] TqZelDLLPlatform::getEnrollmentMode : Entered",
                  "[ERROR] TqZelDLLPlatform::getEnrollmentMode : Unexpected Error occurred"}),
              log.bodies());
}

TEST_F(PlatformFrame, FailingSwitchCarriesTheWorkerCodeAndItsText) {
    EXPECT_EQ(4, platform.setEnrollmentMode(nullptr, "agile", log.path()));
    const auto bodies = log.bodies();
    ASSERT_FALSE(bodies.empty());
    EXPECT_EQ("[ERROR] TqZelDLLPlatform::setEnrollmentMode : TqSwitchEnrollmentMode failed. "
              "Error Code: (0x00000004) Internal error.",
              bodies.back());
}

TEST_F(PlatformFrame, NullAppletIsRefused) {
    EXPECT_EQ(1, platform.setEnrollmentMode(nullptr, nullptr, log.path()));
    EXPECT_EQ(
        std::vector<std::string>{
            "[ERROR] TqZelDLLPlatform::setEnrollmentMode : applet Argument is invalid"},
        log.bodies());
}

TEST_F(PlatformFrame, PKCS11RouteOfTheSwitchLeavesTheRegistryAlone) {
    // No PKCS#11 module is loaded here: the route fails with the module's "not initialized".
    TestProvider provider(1, TestProvider::Read::kText);
    zeltest::CapturedStderr ignoredErrors;
    EXPECT_EQ(400, platform.setEnrollmentMode(&provider, "AGILE", log.path()));
    ignoredErrors.end();
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqEnrollmentKey));
    const auto bodies = log.bodies();
    ASSERT_FALSE(bodies.empty());
    EXPECT_EQ("[ERROR] TqZelDLLPlatform::setEnrollmentMode : TqPKCS11SetActiveApplet failed. "
              "Error Code((0x00000190) CKR_CRYPTOKI_NOT_INITIALIZED) - (0x00000190) Unknown error.",
              bodies.back());
}

TEST_F(PlatformFrame, CardCheckWithoutReaderFailsWithTheSequencesCode) {
    EXPECT_EQ(-1, platform.OberthurSeries8CardCheckAndCacheClear(nullptr, "1234", log.path()));
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] TqZelDLLPlatform::OberthurSeries8CardCheckAndCacheClear : Entered",
                  "[ERROR] TqCacheClearance::TqOTS8SCardCheckAndCacheClear : Exception occurred: "
                  "One or more calling arguments is invalid.",
                  "[ERROR] TqZelDLLPlatform::OberthurSeries8CardCheckAndCacheClear : "
                  "TqOTS8SCardCheckAndCacheClear failed. Error Code: (0x00000001) One or more "
                  "invalid arguments."}),
              log.bodies());
}

TEST_F(PlatformFrame, CardCheckAnswerOfThreeIsNoFailure) {
    zeltest::Workstation workstation; // no OT middleware installed
    zeltest::CapturedStdout output;
    EXPECT_EQ(3, platform.OberthurSeries8CardCheckAndCacheClear("Reader 0", "1234", log.path()));
    EXPECT_EQ("TqOTS8SCardCheckAndCacheClear : Oberthur Middleware is not installed.\n",
              output.text());
    const auto bodies = log.bodies();
    ASSERT_FALSE(bodies.empty());
    EXPECT_EQ("[INFO] TqZelDLLPlatform::OberthurSeries8CardCheckAndCacheClear : Entered",
              bodies.front());
    EXPECT_EQ("[INFO] TqZelDLLPlatform::OberthurSeries8CardCheckAndCacheClear : Leaving",
              bodies.back());
}

TEST_F(PlatformFrame, CacheClearLogsEnteredToThePreviouslySetFile) {
    ScratchLogFile previous;
    TqLogger().SetFileName(previous.path());
    EXPECT_EQ(4, platform.OberthurCacheClear("", "1234", log.path()));
    EXPECT_EQ(std::vector<std::string>{"[INFO] TqZelDLLPlatform::OberthurCacheClear : Entered"},
              previous.bodies());
    const std::string unknownReader =
        "The specified reader name is not recognized. Error Code: (0x80100009)";
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] TqZelDLLPlatform::OberthurCacheClear : Attempting to clear Smart Card "
                  "Cache.",
                  "[ERROR] TqZelPlatformMethods::TqInitMinidriver : Exception occurred: One or "
                  "more calling arguments is invalid. Error Code: " +
                      unknownReader,
                  "[ERROR] TqZelDLLPlatform::OberthurCacheClear : TqInitMinidriver failed. Error "
                  "Code: " +
                      unknownReader}),
              log.bodies());
}

TEST_F(PlatformFrame, CacheClearWithoutLogFileKeepsThePreviousOne) {
    TqLogger().SetFileName(log.path());
    EXPECT_EQ(4, platform.OberthurCacheClear(nullptr, nullptr, nullptr));
    const auto bodies = log.bodies();
    ASSERT_EQ(4u, bodies.size());
    EXPECT_EQ("[INFO] TqZelDLLPlatform::OberthurCacheClear : Entered", bodies[0]);
    EXPECT_EQ("[INFO] TqZelDLLPlatform::OberthurCacheClear : Attempting to clear Smart Card Cache.",
              bodies[1]);
}

TEST_F(PlatformFrame, TagOfTheObjectPrefixesItsLines) {
    TqZelDLLPlatform tagged("Host");
    EXPECT_EQ(1, tagged.setEnrollmentMode(nullptr, nullptr, log.path()));
    EXPECT_EQ(
        std::vector<std::string>{
            "[ERROR] Host::TqZelDLLPlatform::setEnrollmentMode : applet Argument is invalid"},
        log.bodies());
}

} // namespace
