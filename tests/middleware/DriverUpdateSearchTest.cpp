// Driver packages of Windows Update: driver-update records in the registry of the prefix and
// package folders in its driver store, with minidriver files built by this project.
#include "middleware/TqDriverUpdateSearch.h"

#include "support/CapturedStreams.h"
#include "support/TestSupport.h"
#include "support/Workstation.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using zeltest::DriverPackage;
using zeltest::InstallDateBytes;
using zeltest::ScratchLogFile;

const char* const kDriverId = "cid_c6ba7b16-273e-5d46-8495-60e6786fcda0";
const std::string kNotDetected =
    "{\n\t\"Idemia09MSUpdate\": {\n\t\t\"Detected\": \"false\"\n\t}\n}";

std::string detectedAwpRecord() {
    return "{\n\t\"Idemia09MSUpdate\": {\n"
           "\t\t\"Detected\": \"true\",\n"
           "\t\t\"UUID\":\"N/A\",\n"
           "\t\t\"Name\": \"IDEMIA CIVMinidriver x64\",\n"
           "\t\t\"Publisher\": \"Copyright (C) IDEMIA 2020\",\n"
           "\t\t\"Platform\": \"64\",\n"
           "\t\t\"DisplayVersion\": \"7.4.12.3\",\n"
           "\t\t\"VersionMajor\": \"7\",\n"
           "\t\t\"VersionMinor\": \"4\",\n"
           "\t\t\"Revision\": \"0\",\n"
           "\t\t\"BuildNo\": \"0\"\n"
           "\t}\n}";
}

DriverPackage package(const std::string& name, std::uint64_t installDate,
                      const char* module = "civ_idemia_awp.dll") {
    DriverPackage result;
    result.entry = "ZELTEST-" + name;
    result.driverId = kDriverId;
    result.packageId = "civminidriver.inf_amd64_zeltest_" + name;
    result.installDate = InstallDateBytes(installDate);
    result.minidriverModule = module;
    return result;
}

// A matcher that accepts everything and stops at once, counting its calls.
int gMatcherCalls = 0;
int acceptFirstAndStop(const char*, const std::string&, const TqDriverRecord*) {
    ++gMatcherCalls;
    return kTqDriverAcceptAndStop;
}

class DriverUpdateSearch : public ::testing::Test {
protected:
    int search(const char* jsonKey = "Idemia09MSUpdate", const char* driverId = kDriverId,
               TqDriverMatcher matcher = TqIdemiaDriverMatcher) {
        records = {"stale"};
        return TqMSUpdateDriverDetectionSearchJSON(jsonKey, driverId, matcher, TqSelectLatestDriver,
                                                   &records, log.path());
    }

    zeltest::Workstation workstation;
    ScratchLogFile log;
    std::vector<std::string> records;
};

TEST_F(DriverUpdateSearch, NoMatchingHardwareIdGivesOneNotDetectedRecord) {
    DriverPackage other = package("other", 10);
    other.driverId = "cid_00000000-0000-0000-0000-000000000000";
    workstation.install(other);
    EXPECT_EQ(0, search());
    EXPECT_EQ(std::vector<std::string>{kNotDetected}, records);
    EXPECT_EQ("", log.contents());
}

TEST_F(DriverUpdateSearch, AcceptedPackageIsReportedWithFixedUuidRevisionAndBuild) {
    workstation.install(package("one", 10));
    EXPECT_EQ(1, search());
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(detectedAwpRecord(), records[0]);
    EXPECT_TRUE(nlohmann::json::accept(records[0]));
}

TEST_F(DriverUpdateSearch, LatestInstalledOfTwoAcceptedPackagesIsReported) {
    workstation.install(package("a", 20, "civ_idplug.dll"));
    workstation.install(package("b", 10));
    EXPECT_EQ(1, search());
    ASSERT_EQ(1u, records.size());
    EXPECT_NE(std::string::npos, records[0].find("\"Name\": \"IDPlug CIV Minidriver\""));

    workstation.install(package("c", 30));
    EXPECT_EQ(1, search());
    EXPECT_EQ(detectedAwpRecord(), records[0]);
}

TEST_F(DriverUpdateSearch, MatcherAnswering4EndsTheWalkAtTheFirstHit) {
    workstation.install(package("a", 10, "civ_idplug.dll"));
    workstation.install(package("b", 99));
    gMatcherCalls = 0;
    EXPECT_EQ(1, search("Idemia09MSUpdate", kDriverId, acceptFirstAndStop));
    EXPECT_EQ(1, gMatcherCalls);
    EXPECT_NE(std::string::npos, records[0].find("\"Name\": \"IDPlug CIV Minidriver\""));
}

TEST_F(DriverUpdateSearch, FirstInstallDateStandsInForAMissingInstallDate) {
    DriverPackage first = package("first", 0);
    first.installDate.reset();
    first.firstInstallDate = InstallDateBytes(50);
    workstation.install(first);
    workstation.install(package("later", 40, "civ_idplug.dll"));
    EXPECT_EQ(1, search());
    EXPECT_EQ(detectedAwpRecord(), records[0]);
}

TEST_F(DriverUpdateSearch, PackageWithoutAnyInstallDateIsSkipped) {
    DriverPackage undated = package("undated", 0);
    undated.installDate.reset();
    workstation.install(undated);
    EXPECT_EQ(0, search());
}

TEST_F(DriverUpdateSearch, ShortInstallDateFillsTheLowBytes) {
    DriverPackage shortDate = package("short", 0);
    shortDate.installDate = std::vector<BYTE>{0x30}; // 48
    workstation.install(shortDate);
    workstation.install(package("eight", 47, "civ_idplug.dll"));
    EXPECT_EQ(1, search());
    EXPECT_EQ(detectedAwpRecord(), records[0]);
}

TEST_F(DriverUpdateSearch, PackageMissingFromTheDriverStoreIsSkipped) {
    DriverPackage missing = package("missing", 10);
    missing.folderInDriverStore = false;
    workstation.install(missing);
    EXPECT_EQ(0, search());
    EXPECT_EQ(std::vector<std::string>{kNotDetected}, records);
}

TEST_F(DriverUpdateSearch, PackageFolderWithoutMinidriverFileIsSkipped) {
    workstation.install(package("empty", 10, nullptr));
    EXPECT_EQ(0, search());
}

TEST_F(DriverUpdateSearch, RejectedAndUnreadablePackagesAreSkipped) {
    workstation.install(package("other", 10, "civ_other_vendor.dll"));
    workstation.install(package("badversion", 20, "civ_bad_version.dll"));
    EXPECT_EQ(0, search());
    workstation.install(package("good", 5));
    EXPECT_EQ(1, search());
}

TEST_F(DriverUpdateSearch, NullArgumentsGiveAnExceptionRecord) {
    EXPECT_EQ(-1, search(nullptr));
    EXPECT_EQ(std::vector<std::string>{"{\n\t\"Unknown\": {\n\t\t\"Detected\": \"false\",\n\t\t"
                                       "\"Exception\": \"One or more calling arguments is "
                                       "null\"\n\t}\n}"},
              records);
    EXPECT_EQ(-1, search("Idemia09MSUpdate", nullptr));
    EXPECT_EQ(std::vector<std::string>{"{\n\t\"Idemia09MSUpdate\": {\n\t\t\"Detected\": "
                                       "\"false\",\n\t\t\"Exception\": \"One or more calling "
                                       "arguments is null\"\n\t}\n}"},
              records);
    const std::string line = "[ERROR] TqZelPlatformMethods::TqMSUpdateDriverDetectionSearchJSON : "
                             "Exception Occurred - One or more calling arguments is null";
    EXPECT_EQ((std::vector<std::string>{line, line}), log.bodies());
}

TEST_F(DriverUpdateSearch, MissingDriverUpdatesKeyIsARegistryFailure) {
    zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, zeltest::kDriverUpdatesKey, KEY_WOW64_64KEY);
    zeltest::CapturedStderr ignoredErrors;
    EXPECT_EQ(-4, search());
    ignoredErrors.end();
    EXPECT_EQ(std::vector<std::string>{"{\n\t\"Idemia09MSUpdate\": {\n\t\t\"Detected\": "
                                       "\"false\",\n\t\t\"Exception\": \"Failed to search through "
                                       "registry. Error: (0x0000000f) Requested Resource Does not "
                                       "exist.\"\n\t}\n}"},
              records);
}

TEST_F(DriverUpdateSearch, WithoutAnOutputTheResultStillTells) {
    workstation.install(package("one", 10));
    EXPECT_EQ(1, TqMSUpdateDriverDetectionSearchJSON("Idemia09MSUpdate", kDriverId,
                                                     TqIdemiaDriverMatcher, TqSelectLatestDriver,
                                                     nullptr, nullptr));
}

} // namespace
