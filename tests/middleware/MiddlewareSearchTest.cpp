// The installed-program search and its records, against Uninstall entries in the prefix.
#include "middleware/TqMiddlewareSearch.h"

#include "support/Seams.h"

#include "support/CapturedStreams.h"
#include "support/TestSupport.h"
#include "support/Workstation.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>

namespace {

using zeltest::InstalledProgram;
using zeltest::ScratchLogFile;

const TqMiddlewareSearchDetails kGemalto{"GemaltoMiddleware", "Classic Client", "Gemalto",
                                         TqClassicClientNameFilter, TqSplitDisplayVersion};

const std::string kNotDetected =
    "{\n\t\"GemaltoMiddleware\": {\n\t\t\"Detected\": \"false\"\n\t}\n}";

std::string detectedRecord(const std::string& key, const std::string& uuid, const std::string& name,
                           const std::string& publisher, const std::string& platform,
                           const std::string& version, const std::string& major,
                           const std::string& minor, const std::string& revision,
                           const std::string& build) {
    return "{\n\t\"" + key + "\": {\n\t\t\"Detected\": \"true\",\n\t\t\"UUID\": \"" + uuid +
           "\",\n\t\t\"Name\": \"" + name + "\",\n\t\t\"Publisher\": \"" + publisher +
           "\",\n\t\t\"Platform\": \"" + platform + "\",\n\t\t\"DisplayVersion\": \"" + version +
           "\",\n\t\t\"VersionMajor\": \"" + major + "\",\n\t\t\"VersionMinor\": \"" + minor +
           "\",\n\t\t\"Revision\": \"" + revision + "\",\n\t\t\"BuildNo\": \"" + build +
           "\"\n\t}\n}";
}

InstalledProgram gemalto(const std::string& entry, const std::string& version = "7.3.1.23") {
    return {entry, "Classic Client 7.3 Patch 1 64 bits", "Gemalto", version, 7, 3};
}

class MiddlewareSearch : public ::testing::Test {
protected:
    struct Answer {
        int result = -99;
        std::string record;
        int length = -1;
        bool delivered = false;
    };

    Answer search(const TqMiddlewareSearchDetails* details) {
        Answer answer;
        char* text = nullptr;
        answer.result = TqMiddlewareDetectionSearchJSON(details, &text, &answer.length, log.path());
        answer.delivered = text != nullptr;
        if (text != nullptr) {
            answer.record = text;
            std::free(text);
        }
        return answer;
    }

    Answer searchOT() {
        Answer answer;
        char* text = nullptr;
        answer.result = TqOTMiddlewareDetectionJSON(&text, &answer.length, log.path());
        answer.delivered = text != nullptr;
        if (text != nullptr) {
            answer.record = text;
            std::free(text);
        }
        return answer;
    }

    zeltest::Workstation workstation;
    ScratchLogFile log;
};

TEST_F(MiddlewareSearch, NoMatchingEntryGivesTheNotDetectedRecord) {
    workstation.install({"{ZELTEST-OTHER}", "Some Other Product 1.0", "Gemalto", "1.0.0.0", 1, 0});
    const Answer answer = search(&kGemalto);
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ(kNotDetected, answer.record);
    EXPECT_EQ(static_cast<int>(kNotDetected.size()), answer.length);
    EXPECT_TRUE(nlohmann::json::accept(answer.record));
    EXPECT_EQ("", log.contents());
}

TEST_F(MiddlewareSearch, FullyDescribedEntryIsDetected) {
    workstation.install(gemalto("{ZELTEST-A1B2C3D4}"));
    const Answer answer = search(&kGemalto);
    EXPECT_EQ(1, answer.result);
    EXPECT_EQ(detectedRecord("GemaltoMiddleware", "{ZELTEST-A1B2C3D4}",
                             "Classic Client 7.3 Patch 1 64 bits", "Gemalto", "64", "7.3.1.23", "7",
                             "3", "1", "23"),
              answer.record);
    const auto parsed = nlohmann::json::parse(answer.record);
    EXPECT_EQ("true", parsed["GemaltoMiddleware"]["Detected"]);
}

TEST_F(MiddlewareSearch, PublisherIsComparedIgnoringLetterCase) {
    InstalledProgram program = gemalto("{ZELTEST-UPPER}");
    program.publisher = "GEMALTO";
    workstation.install(program);
    const Answer answer = search(&kGemalto);
    EXPECT_EQ(1, answer.result);
    EXPECT_NE(std::string::npos, answer.record.find("\t\t\"Publisher\": \"GEMALTO\",\n"));
}

TEST_F(MiddlewareSearch, EntryWithoutVersionMinorIsPassedOver) {
    InstalledProgram program = gemalto("{ZELTEST-NOMINOR}");
    program.versionMinor.reset();
    workstation.install(program);
    EXPECT_EQ(0, search(&kGemalto).result);
}

TEST_F(MiddlewareSearch, EntryOfAnotherPublisherIsPassedOver) {
    InstalledProgram program = gemalto("{ZELTEST-OTHERPUB}");
    program.publisher = "Gemalto Inc.";
    workstation.install(program);
    EXPECT_EQ(0, search(&kGemalto).result);
}

TEST_F(MiddlewareSearch, DisplayNameRejectedByTheFilterIsPassedOver) {
    InstalledProgram program = gemalto("{ZELTEST-LOWER}");
    program.displayName = "Classic Client 7.3 Patch 1 64 bits (beta)";
    workstation.install(program);
    EXPECT_EQ(0, search(&kGemalto).result);
}

TEST_F(MiddlewareSearch, FirstQualifyingEntryInSearchOrderWins) {
    // Sub-keys are visited in alphabetical order, ignoring letter case.
    workstation.install(gemalto("{ZELTEST-B}", "7.3.2.50"));
    workstation.install(gemalto("{ZELTEST-a}", "7.3.1.23"));
    const Answer answer = search(&kGemalto);
    EXPECT_EQ(1, answer.result);
    EXPECT_NE(std::string::npos, answer.record.find("\"UUID\": \"{ZELTEST-a}\""));
    EXPECT_NE(std::string::npos, answer.record.find("\"DisplayVersion\": \"7.3.1.23\""));
}

TEST_F(MiddlewareSearch, ShortVersionKeepsRevisionAndBuildOfAnEarlierRejectedEntry) {
    // The first entry is rejected for its publisher but its version was already split.
    InstalledProgram rejected = gemalto("{ZELTEST-1}", "7.3.9.99");
    rejected.publisher = "Somebody Else";
    workstation.install(rejected);
    workstation.install(gemalto("{ZELTEST-2}", "7.4.1"));
    const Answer answer = search(&kGemalto);
    EXPECT_EQ(1, answer.result);
    EXPECT_EQ(detectedRecord("GemaltoMiddleware", "{ZELTEST-2}",
                             "Classic Client 7.3 Patch 1 64 bits", "Gemalto", "64", "7.4.1", "7",
                             "3", "9", "99"),
              answer.record);
}

TEST_F(MiddlewareSearch, ShortVersionLeavesRevisionAndBuildEmpty) {
    workstation.install(gemalto("{ZELTEST-SHORT}", "7.3"));
    const Answer answer = search(&kGemalto);
    EXPECT_EQ(1, answer.result);
    EXPECT_NE(std::string::npos,
              answer.record.find("\"Revision\": \"\",\n\t\t\"BuildNo\": \"\"\n"));
}

TEST_F(MiddlewareSearch, WithoutFilterThePlatformStaysEmpty) {
    const TqMiddlewareSearchDetails details{"Idemia09Middleware", "IDEMIA Minidriver for PIV/CIV",
                                            "IDEMIA", nullptr, nullptr};
    workstation.install(
        {"{ZELTEST-IDEMIA}", "IDEMIA Minidriver for PIV/CIV", "IDEMIA", "9.1.2.3", 9, 1});
    const Answer answer = search(&details);
    EXPECT_EQ(1, answer.result);
    EXPECT_EQ(detectedRecord("Idemia09Middleware", "{ZELTEST-IDEMIA}",
                             "IDEMIA Minidriver for PIV/CIV", "IDEMIA", "", "9.1.2.3", "9", "1", "",
                             ""),
              answer.record);
}

TEST_F(MiddlewareSearch, DisplayNameIsTrimmedOfBlanks) {
    InstalledProgram program = gemalto("{ZELTEST-BLANKS}");
    program.displayName = "Classic Client 7.3 Patch 1 64 bits  ";
    workstation.install(program);
    const Answer answer = search(&kGemalto);
    EXPECT_EQ(1, answer.result);
    EXPECT_NE(std::string::npos,
              answer.record.find("\"Name\": \"Classic Client 7.3 Patch 1 64 bits\","));
}

TEST_F(MiddlewareSearch, EntriesOfThe32BitViewAreNotSeen) {
    workstation.install(gemalto("{ZELTEST-WOW}"), KEY_WOW64_32KEY);
    EXPECT_EQ(0, search(&kGemalto).result);
}

TEST_F(MiddlewareSearch, NullDetailsGiveAnUnknownExceptionRecord) {
    const Answer answer = search(nullptr);
    EXPECT_EQ(-1, answer.result);
    EXPECT_EQ("{\n\t\"Unknown\": {\n\t\t\"Detected\": \"false\",\n\t\t\"Exception\": \"The search "
              "details arguments are invalid\"\n\t}\n}",
              answer.record);
    EXPECT_EQ(std::vector<std::string>{"[ERROR] TqZelPlatformMethods::"
                                       "TqMiddlewareDetectionSearchJSON : Exception Occurred - The "
                                       "search details arguments are invalid"},
              log.bodies());
}

TEST_F(MiddlewareSearch, DetailsWithoutKeyOrDisplayNameAreRefusedLikeNullDetails) {
    workstation.install(gemalto("{ZELTEST-NOKEY}"));
    const std::string refused =
        "{\n\t\"Unknown\": {\n\t\t\"Detected\": \"false\",\n\t\t"
        "\"Exception\": \"The search details arguments are invalid\"\n\t}\n}";
    TqMiddlewareSearchDetails details = kGemalto;
    details.jsonKey = nullptr;
    Answer answer = search(&details);
    EXPECT_EQ(-1, answer.result);
    EXPECT_EQ(refused, answer.record);
    details = kGemalto;
    details.displayName = nullptr;
    answer = search(&details);
    EXPECT_EQ(-1, answer.result);
    EXPECT_EQ("{\n\t\"GemaltoMiddleware\": {\n\t\t\"Detected\": \"false\",\n\t\t\"Exception\": "
              "\"The search details arguments are invalid\"\n\t}\n}",
              answer.record);
}

TEST_F(MiddlewareSearch, NullOutputsDeliverNothing) {
    char* text = nullptr;
    int length = -1;
    EXPECT_EQ(-1, TqMiddlewareDetectionSearchJSON(&kGemalto, &text, nullptr, log.path()));
    EXPECT_EQ(-1, TqMiddlewareDetectionSearchJSON(&kGemalto, nullptr, &length, log.path()));
    EXPECT_EQ(nullptr, text);
    EXPECT_EQ(-1, length);
    const std::string line = "[ERROR] TqZelPlatformMethods::TqMiddlewareDetectionSearchJSON : "
                             "Exception Occurred - One or more of the json output arguments is "
                             "invalid";
    EXPECT_EQ((std::vector<std::string>{line, line}), log.bodies());
}

TEST_F(MiddlewareSearch, UninstallKeyThatCannotBeReadGivesMinus4AndTheReason) {
    workstation.install(gemalto("{ZELTEST-DENIED}"));
    zeltest::DeniedKey denied(HKEY_LOCAL_MACHINE, zeltest::kUninstallKey, KEY_WOW64_64KEY);
    zeltest::CapturedStderr ignoredErrors; // the registry search reports the failed open
    const Answer answer = search(&kGemalto);
    ignoredErrors.end();
    EXPECT_EQ(-4, answer.result);
    EXPECT_EQ("{\n\t\"GemaltoMiddleware\": {\n\t\t\"Detected\": \"false\",\n\t\t\"Exception\": "
              "\"Failed to search through registry. Error: (0x00000010) Access Denied.\"\n\t}\n}",
              answer.record);
}

TEST(EntryUUID, IsTheLastKeyNameOrTheWholePath) {
    EXPECT_EQ("{A1}", TqEntryUUID("SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\{A1}"));
    EXPECT_EQ("NoBackslash", TqEntryUUID("NoBackslash"));
    EXPECT_EQ("", TqEntryUUID("Trailing\\"));
}

TEST_F(MiddlewareSearch, OTRecordOfTheInstalledAwp) {
    workstation.install(
        {"{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)", "oberthur technologies", "5.2.1.77", 5, 2});
    const Answer answer = searchOT();
    EXPECT_EQ(1, answer.result);
    EXPECT_EQ(detectedRecord("OTMiddleware", "{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)",
                             "oberthur technologies", "64", "5.2.1.77", "5", "2", "1", "77"),
              answer.record);
}

TEST_F(MiddlewareSearch, OTVersionOfFewerThanFourPartsGivesEmptyRevisionAndBuild) {
    workstation.install(
        {"{ZELTEST-AWP3}", "AWP 5.2.1 (32-bit)", "Oberthur Technologies", "5.2.1", 5, 2});
    const Answer answer = searchOT();
    EXPECT_EQ(1, answer.result);
    EXPECT_EQ(detectedRecord("OTMiddleware", "{ZELTEST-AWP3}", "AWP 5.2.1 (32-bit)",
                             "Oberthur Technologies", "32", "5.2.1", "5", "2", "", ""),
              answer.record);
}

TEST_F(MiddlewareSearch, OTNotInstalledAndFailures) {
    Answer answer = searchOT();
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ("{\n\t\"OTMiddleware\": {\n\t\t\"Detected\": \"false\"\n\t}\n}", answer.record);

    char* text = nullptr;
    EXPECT_EQ(-1, TqOTMiddlewareDetectionJSON(&text, nullptr, log.path()));
    EXPECT_EQ(nullptr, text);
    EXPECT_EQ(std::vector<std::string>{"[ERROR] TqZelPlatformMethods::TqOTMiddlewareDetectionJSON "
                                       ": Exception Occurred - One or more calling arguments is "
                                       "invalid"},
              log.bodies());

    zeltest::DeniedKey denied(HKEY_LOCAL_MACHINE, zeltest::kUninstallKey, KEY_WOW64_64KEY);
    zeltest::CapturedStderr ignoredErrors;
    answer = searchOT();
    ignoredErrors.end();
    EXPECT_EQ(-4, answer.result);
    EXPECT_EQ("{\n\t\"OTMiddleware\": {\n\t\t\"Detected\": \"false\",\n\t\t\"Exception\": "
              "\"Failed to search through registry. Error: (0x00000010) Access Denied.\"\n\t}\n}",
              answer.record);
}

// --- a client buffer that cannot be had -------------------------------------------------------

// Fails the first `gAllocationsToFail` allocations of client text, then allocates as usual.
int gAllocationsToFail = 0;
void* failingAllocation(std::size_t count) {
    if (gAllocationsToFail > 0) {
        --gAllocationsToFail;
        return nullptr;
    }
    return std::calloc(count, 1);
}

class MiddlewareSearchWithoutMemory : public MiddlewareSearch {
protected:
    void SetUp() override { gTqClientAllocateHook = failingAllocation; }
    void TearDown() override {
        gTqClientAllocateHook = nullptr;
        gAllocationsToFail = 0;
    }
};

const std::string kBadAllocRecord =
    "{\n\t\"GemaltoMiddleware\": {\n\t\t\"Detected\": \"false\",\n\t\t\"Exception\": "
    "\"std::bad_alloc\"\n\t}\n}";

TEST_F(MiddlewareSearchWithoutMemory, RecordThatCannotBeHandedOutIsMinus23WithTheExceptionRecord) {
    workstation.install(gemalto("{ZELTEST-GEMALTO}"));
    gAllocationsToFail = 1;
    const Answer answer = search(&kGemalto);
    EXPECT_EQ(-23, answer.result);
    EXPECT_EQ(kBadAllocRecord, answer.record);
    EXPECT_EQ(static_cast<int>(kBadAllocRecord.size()), answer.length);
    EXPECT_EQ(std::vector<std::string>{"[ERROR] TqZelPlatformMethods::"
                                       "TqMiddlewareDetectionSearchJSON : Exception Occurred - "
                                       "std::bad_alloc"},
              log.bodies());
}

TEST_F(MiddlewareSearchWithoutMemory, NotDetectedRecordThatCannotBeHandedOutIsMinus23Too) {
    gAllocationsToFail = 1;
    const Answer answer = search(&kGemalto);
    EXPECT_EQ(-23, answer.result);
    EXPECT_EQ(kBadAllocRecord, answer.record);
}

TEST_F(MiddlewareSearchWithoutMemory, NoBufferAtAllIsMinus23AndNothingDelivered) {
    workstation.install(gemalto("{ZELTEST-GEMALTO}"));
    gAllocationsToFail = 2;
    const Answer answer = search(&kGemalto);
    EXPECT_EQ(-23, answer.result);
    EXPECT_FALSE(answer.delivered);
    EXPECT_EQ(-1, answer.length);
    EXPECT_EQ(std::vector<std::string>{"[ERROR] TqZelPlatformMethods::"
                                       "TqMiddlewareDetectionSearchJSON : Exception Occurred - "
                                       "std::bad_alloc"},
              log.bodies());
}

TEST_F(MiddlewareSearchWithoutMemory, OTRecordThatCannotBeHandedOutIsMinus23) {
    gAllocationsToFail = 1;
    Answer answer = searchOT();
    EXPECT_EQ(-23, answer.result);
    EXPECT_EQ("{\n\t\"OTMiddleware\": {\n\t\t\"Detected\": \"false\",\n\t\t\"Exception\": "
              "\"std::bad_alloc\"\n\t}\n}",
              answer.record);
    gAllocationsToFail = 2;
    answer = searchOT();
    EXPECT_EQ(-23, answer.result);
    EXPECT_FALSE(answer.delivered);
    const std::string line = "[ERROR] TqZelPlatformMethods::TqOTMiddlewareDetectionJSON : "
                             "Exception Occurred - std::bad_alloc";
    EXPECT_EQ((std::vector<std::string>{line, line}), log.bodies());
}

} // namespace
