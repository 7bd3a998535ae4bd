// The supported-middleware document, whole, for workstations made in the prefix.
#include "middleware/TqSupportedMiddleware.h"

#include "logging/ZelLogger.h"
#include "support/Seams.h"

#include "support/CapturedStreams.h"
#include "support/TestSupport.h"
#include "support/Workstation.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <cstring>

namespace {

using zeltest::DriverPackage;
using zeltest::InstalledProgram;
using zeltest::ScratchLogFile;

std::string notDetected(const std::string& key) {
    return "\t\"" + key + "\": {\n\t\t\"Detected\": \"false\"\n\t}";
}

std::string failed(const std::string& key, const std::string& message) {
    return "\t\"" + key + "\": {\n\t\t\"Detected\": \"false\",\n\t\t\"Exception\": \"" + message +
           "\"\n\t}";
}

std::string detected(const std::string& key, const std::string& uuid, const std::string& name,
                     const std::string& publisher, const std::string& platform,
                     const std::string& version, const std::string& major, const std::string& minor,
                     const std::string& revision, const std::string& build,
                     const char* uuidSeparator = ": ") {
    return "\t\"" + key + "\": {\n\t\t\"Detected\": \"true\",\n\t\t\"UUID\"" + uuidSeparator +
           "\"" + uuid + "\",\n\t\t\"Name\": \"" + name + "\",\n\t\t\"Publisher\": \"" + publisher +
           "\",\n\t\t\"Platform\": \"" + platform + "\",\n\t\t\"DisplayVersion\": \"" + version +
           "\",\n\t\t\"VersionMajor\": \"" + major + "\",\n\t\t\"VersionMinor\": \"" + minor +
           "\",\n\t\t\"Revision\": \"" + revision + "\",\n\t\t\"BuildNo\": \"" + build + "\"\n\t}";
}

std::string document(const std::vector<std::string>& records) {
    std::string text = "{\n";
    for (std::size_t i = 0; i < records.size(); ++i) {
        text += (i == 0 ? "" : ",\n") + records[i];
    }
    return text + "\n}\n";
}

const std::vector<std::string> kNothingInstalled = {
    notDetected("GemaltoMiddleware"),        notDetected("OTMiddleware"),
    notDetected("Idemia09Middleware"),       notDetected("Idemia09MSUpdate"),
    notDetected("IdemiaCombinedMiddleware"), notDetected("IdemiaCombinedMinidriverMSUpdate")};

class SupportedMiddleware : public ::testing::Test {
protected:
    struct Answer {
        int result = -99;
        std::string text;
        int length = -1;
    };

    Answer detect() {
        Answer answer;
        char* text = nullptr;
        answer.result = TqSupportedMiddlewareDetectionJSON(&text, &answer.length, log.path());
        if (text != nullptr) {
            answer.text = text;
            std::free(text);
        }
        return answer;
    }

    void installTypicalWorkstation() {
        workstation.install({"{ZELTEST-GEMALTO}", "Classic Client 7.3 Patch 1 64 bits", "Gemalto",
                             "7.3.1.23", 7, 3});
        workstation.install(
            {"{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)", "Oberthur Technologies", "5.2.1.77", 5, 2});
        workstation.install({"{ZELTEST-IDEMIA09}", "IDEMIA Minidriver for PIV/CIV (64-bit)",
                             "IDEMIA", "9.0.1.5", 9, 0});
        workstation.install({"{ZELTEST-IDEMIACIV}", "IDEMIA Minidriver for CIV (64-bit)", "IDEMIA",
                             "10.2.3.4", 10, 2});
        DriverPackage idemia09;
        idemia09.entry = "ZELTEST-PKG09";
        idemia09.driverId = "cid_c6ba7b16-273e-5d46-8495-60e6786fcda0";
        idemia09.packageId = "civminidriver.inf_amd64_zeltest09";
        idemia09.installDate = zeltest::InstallDateBytes(0x01D9000000000000ull);
        idemia09.minidriverModule = "civ_idemia_awp.dll";
        workstation.install(idemia09);
        DriverPackage combined;
        combined.entry = "ZELTEST-PKGCOMBINED";
        combined.driverId = "cid_9655ffae-6c28-4376-886c-0b0c6db1ab51";
        combined.packageId = "civminidriver.inf_amd64_zeltestcombined";
        combined.installDate = zeltest::InstallDateBytes(0x01DA000000000000ull);
        combined.minidriverModule = "civ_idplug.dll";
        workstation.install(combined);
    }

    zeltest::Workstation workstation;
    ScratchLogFile log;
};

TEST_F(SupportedMiddleware, NothingInstalledGivesSixNotDetectedRecords) {
    const Answer answer = detect();
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ("{\n"
              "\t\"GemaltoMiddleware\": {\n\t\t\"Detected\": \"false\"\n\t},\n"
              "\t\"OTMiddleware\": {\n\t\t\"Detected\": \"false\"\n\t},\n"
              "\t\"Idemia09Middleware\": {\n\t\t\"Detected\": \"false\"\n\t},\n"
              "\t\"Idemia09MSUpdate\": {\n\t\t\"Detected\": \"false\"\n\t},\n"
              "\t\"IdemiaCombinedMiddleware\": {\n\t\t\"Detected\": \"false\"\n\t},\n"
              "\t\"IdemiaCombinedMinidriverMSUpdate\": {\n\t\t\"Detected\": \"false\"\n\t}\n"
              "}\n",
              answer.text);
    EXPECT_EQ(static_cast<int>(answer.text.size()), answer.length);
    const auto parsed = nlohmann::json::parse(answer.text);
    EXPECT_EQ(6u, parsed.size());
    EXPECT_EQ("", log.contents());
}

TEST_F(SupportedMiddleware, TypicalWorkstationReportsEveryRow) {
    installTypicalWorkstation();
    const Answer answer = detect();
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ(
        document({
            detected("GemaltoMiddleware", "{ZELTEST-GEMALTO}", "Classic Client 7.3 Patch 1 64 bits",
                     "Gemalto", "64", "7.3.1.23", "7", "3", "1", "23"),
            detected("OTMiddleware", "{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)", "Oberthur Technologies",
                     "64", "5.2.1.77", "5", "2", "1", "77"),
            // No version parser on this row: revision and build stay empty.
            detected("Idemia09Middleware", "{ZELTEST-IDEMIA09}",
                     "IDEMIA Minidriver for PIV/CIV (64-bit)", "IDEMIA", "64", "9.0.1.5", "9", "0",
                     "", ""),
            detected("Idemia09MSUpdate", "N/A", "IDEMIA CIVMinidriver x64",
                     "Copyright (C) IDEMIA 2020", "64", "7.4.12.3", "7", "4", "0", "0", ":"),
            detected("IdemiaCombinedMiddleware", "{ZELTEST-IDEMIACIV}",
                     "IDEMIA Minidriver for CIV (64-bit)", "IDEMIA", "64", "10.2.3.4", "10", "2",
                     "3", "4"),
            detected("IdemiaCombinedMinidriverMSUpdate", "N/A", "IDPlug CIV Minidriver",
                     "(c) IDEMIA 2021", "64", "4.2.1.7", "4", "2", "0", "0", ":"),
        }),
        answer.text);
    const auto parsed = nlohmann::json::parse(answer.text);
    EXPECT_EQ("true", parsed["IdemiaCombinedMinidriverMSUpdate"]["Detected"]);
}

// Bytes an installer left after a NUL in a string value are no part of the text: the document
// and its length stop where a client's reading of the string stops.
TEST_F(SupportedMiddleware, StringValuesEndAtTheirFirstNul) {
    workstation.install(
        {"{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)", "Oberthur Technologies", "5.2.1.77", 5, 2});
    const std::string key = std::string(zeltest::kUninstallKey) + "\\{ZELTEST-AWP}";
    const std::string version("5.2.1.77\0garbage 9.9.9.9\0", 26);
    zeltest::WriteExactValue(HKEY_LOCAL_MACHINE, key, "DisplayVersion", REG_SZ,
                             std::vector<BYTE>(version.begin(), version.end()));
    const std::string name("AWP 5.2.1 (64-bit)\0 trailing text", 33);
    zeltest::WriteExactValue(HKEY_LOCAL_MACHINE, key, "DisplayName", REG_SZ,
                             std::vector<BYTE>(name.begin(), name.end()));
    const Answer answer = detect();
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ(document({notDetected("GemaltoMiddleware"),
                        detected("OTMiddleware", "{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)",
                                 "Oberthur Technologies", "64", "5.2.1.77", "5", "2", "1", "77"),
                        notDetected("Idemia09Middleware"), notDetected("Idemia09MSUpdate"),
                        notDetected("IdemiaCombinedMiddleware"),
                        notDetected("IdemiaCombinedMinidriverMSUpdate")}),
              answer.text);
    EXPECT_EQ(static_cast<int>(answer.text.size()), answer.length);
    EXPECT_EQ(std::string::npos, answer.text.find('\0'));
}

TEST_F(SupportedMiddleware, SecondIdemiaNameIsTriedWhenTheFirstFindsNothing) {
    workstation.install({"{ZELTEST-IDONE}", "IDEMIA Minidriver for ID-One PIV (32-Bit)", "IDEMIA",
                         "11.0.4.8", 11, 0});
    const Answer answer = detect();
    EXPECT_EQ(0, answer.result);
    std::vector<std::string> expected = kNothingInstalled;
    expected[4] = detected("IdemiaCombinedMiddleware", "{ZELTEST-IDONE}",
                           "IDEMIA Minidriver for ID-One PIV (32-Bit)", "IDEMIA", "32", "11.0.4.8",
                           "11", "0", "4", "8");
    EXPECT_EQ(document(expected), answer.text);
}

TEST_F(SupportedMiddleware, FailedInstalledProgramSearchesLeaveOutRowsOneAndTwoOnly) {
    installTypicalWorkstation();
    zeltest::DeniedKey denied(HKEY_LOCAL_MACHINE, zeltest::kUninstallKey, KEY_WOW64_64KEY);
    zeltest::CapturedStderr ignoredErrors;
    const Answer answer = detect();
    ignoredErrors.end();
    EXPECT_EQ(0, answer.result);
    const std::string reason =
        "Failed to search through registry. Error: (0x00000010) Access Denied.";
    // The first record joined opens the document with "{"; row 5 does not retry after a failure.
    EXPECT_EQ(document({
                  failed("Idemia09Middleware", reason),
                  detected("Idemia09MSUpdate", "N/A", "IDEMIA CIVMinidriver x64",
                           "Copyright (C) IDEMIA 2020", "64", "7.4.12.3", "7", "4", "0", "0", ":"),
                  failed("IdemiaCombinedMiddleware", reason),
                  detected("IdemiaCombinedMinidriverMSUpdate", "N/A", "IDPlug CIV Minidriver",
                           "(c) IDEMIA 2021", "64", "4.2.1.7", "4", "2", "0", "0", ":"),
              }),
              answer.text);
    EXPECT_TRUE(nlohmann::json::accept(answer.text));
}

TEST_F(SupportedMiddleware, FailedDriverSearchesLeaveOutRowsFourAndSix) {
    zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, zeltest::kDriverUpdatesKey, KEY_WOW64_64KEY);
    zeltest::CapturedStderr ignoredErrors;
    const Answer answer = detect();
    ignoredErrors.end();
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ(document({kNothingInstalled[0], kNothingInstalled[1], kNothingInstalled[2],
                        kNothingInstalled[4]}),
              answer.text);
}

TEST_F(SupportedMiddleware, RowsThreeAndFiveAreJoinedEvenWhenEverySearchFails) {
    // So the document is never empty this way, and the "nothing joined" code 4 does not occur.
    zeltest::DeniedKey uninstall(HKEY_LOCAL_MACHINE, zeltest::kUninstallKey, KEY_WOW64_64KEY);
    zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, zeltest::kDriverUpdatesKey, KEY_WOW64_64KEY);
    zeltest::CapturedStderr ignoredErrors;
    const Answer answer = detect();
    ignoredErrors.end();
    EXPECT_EQ(0, answer.result);
    const std::string reason =
        "Failed to search through registry. Error: (0x00000010) Access Denied.";
    EXPECT_EQ(document({failed("Idemia09Middleware", reason),
                        failed("IdemiaCombinedMiddleware", reason)}),
              answer.text);
}

TEST_F(SupportedMiddleware, NullLengthGivesCode1AndNoText) {
    // This worker only hands its log file on to the row searches, which never run here: the
    // line goes to the file set before.
    TqLogger().SetFileName(log.path());
    char* text = nullptr;
    EXPECT_EQ(1, TqSupportedMiddlewareDetectionJSON(&text, nullptr, log.path()));
    EXPECT_EQ(nullptr, text);
    int length = -1;
    EXPECT_EQ(1, TqSupportedMiddlewareDetectionJSON(nullptr, &length, log.path()));
    EXPECT_EQ(-1, length);
    const std::string line = "[ERROR] TqZelPlatformMethods::TqSupportedMiddlewareDetectionJSON : "
                             "Exception Occurred - One or more calling arguments is invalid";
    EXPECT_EQ((std::vector<std::string>{line, line}), log.bodies());
}

TEST(CombineMWResults, FirstRecordOpensTheDocumentAndLaterOnesFollowAComma) {
    std::ostringstream document;
    TqCombineMWResults(document, "{\n\t\"A\": {\n\t\t\"Detected\": \"false\"\n\t}\n}");
    EXPECT_EQ("{\n\t\"A\": {\n\t\t\"Detected\": \"false\"\n\t}", document.str());
    TqCombineMWResults(document, "{\n\n\t\"B\": {}\n\n}");
    EXPECT_EQ("{\n\t\"A\": {\n\t\t\"Detected\": \"false\"\n\t},\n\t\"B\": {}", document.str());
}

TEST(CombineMWResults, RecordWithoutBracesIsReportedAndSkipped) {
    std::ostringstream document;
    zeltest::CapturedStderr errors;
    TqCombineMWResults(document, "no braces at all");
    TqCombineMWResults(document, "{ only an opening one");
    EXPECT_EQ("TqCombineMWResults : Exception Occurred - The JSON record has no opening brace.\n"
              "TqCombineMWResults : Exception Occurred - The JSON record has no closing brace.\n",
              errors.text());
    EXPECT_EQ("", document.str());
}

TEST_F(SupportedMiddleware, ExportHandsOutTheDocument) {
    zeltest::PlatformDll dll;
    char* text = nullptr;
    int length = 0;
    ASSERT_EQ(0, dll.api().SupportedMiddlewareDetection(&text, &length, log.path()));
    ASSERT_NE(nullptr, text);
    EXPECT_EQ(document(kNothingInstalled), std::string(text));
    EXPECT_EQ(static_cast<int>(std::strlen(text)), length);
    dll.api().FreeStringData(&text);
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] TqZelDLLPlatform::SupportedMiddlewareDetectionJSON : Entered",
                  "[INFO] TqZelDLLPlatform::SupportedMiddlewareDetectionJSON : Leaving"}),
              log.bodies());
}

TEST_F(SupportedMiddleware, OberthurExportHandsOutTheOTRecord) {
    workstation.install(
        {"{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)", "Oberthur Technologies", "5.2.1.77", 5, 2});
    zeltest::PlatformDll dll;
    char* text = nullptr;
    int length = 0;
    ASSERT_EQ(1, dll.api().OberthurMiddlewareDetection(&text, &length, log.path()));
    EXPECT_EQ("{\n" +
                  detected("OTMiddleware", "{ZELTEST-AWP}", "AWP 5.2.1 (64-bit)",
                           "Oberthur Technologies", "64", "5.2.1.77", "5", "2", "1", "77") +
                  "\n}",
              std::string(text));
    dll.api().FreeStringData(&text);
}

// --- a client buffer that cannot be had -------------------------------------------------------

// Fails every allocation of client text of at least this many bytes; the rows' own records are
// smaller and are handed out as usual.
std::size_t gFailFromSize = 0;
void* allocationFailingFromSize(std::size_t count) {
    return count >= gFailFromSize ? nullptr : std::calloc(count, 1);
}

class SupportedMiddlewareWithoutMemory : public SupportedMiddleware {
protected:
    void TearDown() override { gTqClientAllocateHook = nullptr; }
};

const std::string kBadAllocDocument = "{\n\t\"MiddlewareDetection\": {\n\t\t\"Detected\": "
                                      "\"false\",\n\t\t\"Exception\": \"std::bad_alloc\"\n\t}\n}";

TEST_F(SupportedMiddlewareWithoutMemory, DocumentThatCannotBeHandedOutIs23WithTheExceptionRecord) {
    gFailFromSize = document(kNothingInstalled).size() + 1;
    gTqClientAllocateHook = allocationFailingFromSize;
    const Answer answer = detect();
    EXPECT_EQ(23, answer.result);
    EXPECT_EQ(kBadAllocDocument, answer.text);
    EXPECT_EQ(static_cast<int>(kBadAllocDocument.size()), answer.length);
    EXPECT_EQ(std::vector<std::string>{"[ERROR] TqZelPlatformMethods::"
                                       "TqSupportedMiddlewareDetectionJSON : Exception Occurred - "
                                       "std::bad_alloc"},
              log.bodies());
}

TEST_F(SupportedMiddlewareWithoutMemory, NoBufferForTheExceptionRecordEitherIs23AndNoDocument) {
    ASSERT_LT(notDetected("IdemiaCombinedMiddleware").size() + 4, kBadAllocDocument.size());
    gFailFromSize = kBadAllocDocument.size() + 1;
    gTqClientAllocateHook = allocationFailingFromSize;
    const Answer answer = detect();
    EXPECT_EQ(23, answer.result);
    EXPECT_EQ("", answer.text);
    EXPECT_EQ(-1, answer.length);
    EXPECT_EQ(std::vector<std::string>{"[ERROR] TqZelPlatformMethods::"
                                       "TqSupportedMiddlewareDetectionJSON : Exception Occurred - "
                                       "std::bad_alloc"},
              log.bodies());
}

} // namespace
