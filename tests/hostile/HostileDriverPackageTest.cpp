// Hostile driver-update records of Windows Update: one IDEMIA minidriver package for each of the
// two Windows-Update rows, in the driver store with the kit's minidriver file, and one of the
// values the library reads of the record (HardwareIds, DriverPackageIds, InstallDate,
// FirstInstallDate) in a hostile form in both.
#include "hostile/HostileSweep.h"

#include <string>
#include <utility>
#include <vector>

namespace {

using namespace hostile;

struct Package {
    const char* entry;
    const char* driverId;
    const char* packageId;
};

const Package kPackages[] = {
    {"ZELTEST-Idemia09", "cid_c6ba7b16-273e-5d46-8495-60e6786fcda0",
     "civminidriver.inf_amd64_zeltest_idemia09"},
    {"ZELTEST-Combined", "cid_9655ffae-6c28-4376-886c-0b0c6db1ab51",
     "civminidriver.inf_amd64_zeltest_combined"},
};

const Bytes kInstallDate = {0x00, 0x40, 0x8C, 0x3A, 0x4A, 0x3C, 0xDB, 0x01};

std::string hardwareId(const Package& package) {
    return std::string("scfilter\\") + package.driverId;
}

std::vector<Variant> variantsOf(const Package& package, const std::string& value) {
    if (value == "HardwareIds") {
        return MultiStringVariants(
            {hardwareId(package), "scfilter\\generic"},
            [&](std::size_t size) { return hardwareId(package) + Letters(size); },
            hardwareId(package) + NonAsciiText());
    }
    if (value == "DriverPackageIds") {
        return MultiStringVariants(
            {package.packageId},
            [&](std::size_t size) { return package.packageId + Letters(size); },
            package.packageId + NonAsciiText());
    }
    return BinaryVariants(kInstallDate);
}

// Whether a package whose value has this form is still reported.
bool packageStillFound(const std::string& value, const std::string& variant) {
    if (IsWrongType(variant)) {
        return false; // InstallDate falls back to FirstInstallDate, which these packages lack
    }
    if (value == "HardwareIds") {
        // The search wants the hardware id at the start of the data.
        return variant == "NoTerminator" || Starts(variant, "Shaped") || variant == "NonAscii";
    }
    if (value == "DriverPackageIds") {
        // Only the package id itself names the package's folder.
        return variant == "NoTerminator";
    }
    return true; // any binary data is an install date
}

// Both packages; a package whose FirstInstallDate is under test has no InstallDate.
void installPackages(Planting& planting, const std::string& valueUnderTest = "") {
    for (const Package& package : kPackages) {
        zeltest::DriverPackage installed;
        installed.entry = package.entry;
        installed.driverId = package.driverId;
        installed.packageId = package.packageId;
        installed.minidriverModule = "civ_idemia_awp.dll";
        if (valueUnderTest == "FirstInstallDate") {
            installed.firstInstallDate = kInstallDate;
        } else {
            installed.installDate = kInstallDate;
        }
        planting.install(installed);
    }
}

// The answers with the packages of the two Windows-Update rows reported as found ("true"),
// not found ("false") or left out ("missing").
ExactAnswers packageAnswers(const std::string& idemia09, const std::string& combined) {
    ExactAnswers exact;
    exact.rows = {
        {"GemaltoMiddleware", "false"},        {"OTMiddleware", "false"},
        {"Idemia09Middleware", "false"},       {"Idemia09MSUpdate", idemia09},
        {"IdemiaCombinedMiddleware", "false"}, {"IdemiaCombinedMinidriverMSUpdate", combined}};
    for (const auto& [row, found] : {std::pair{"Idemia09MSUpdate", idemia09},
                                     std::pair{"IdemiaCombinedMinidriverMSUpdate", combined}}) {
        if (found == "true") {
            exact.fields[row] = {{"UUID", "N/A"},
                                 {"Name", "IDEMIA CIVMinidriver x64"},
                                 {"Publisher", "Copyright (C) IDEMIA 2020"},
                                 {"DisplayVersion", "7.4.12.3"}};
        }
    }
    exact.oberthur = 0;
    exact.atr = 19;
    exact.agent = 0;
    exact.enrollment = 11;
    return exact;
}

HostileState hostileState(const std::string& value, const std::string& variant) {
    const std::string found = packageStillFound(value, variant) ? "true" : "false";
    return {value + "_" + variant,
            [value, variant](Planting& planting) {
                installPackages(planting, value);
                for (const Package& package : kPackages) {
                    Plant(HKEY_LOCAL_MACHINE,
                          std::string(zeltest::kDriverUpdatesKey) + "\\" + package.entry,
                          value.c_str(), DataNamed(variantsOf(package, value), variant));
                }
            },
            false, packageAnswers(found, found)};
}

std::vector<HostileState> driverPackageStates() {
    std::vector<HostileState> states;
    for (const char* value :
         {"HardwareIds", "DriverPackageIds", "InstallDate", "FirstInstallDate"}) {
        for (const std::string& variant : NamesOf(variantsOf(kPackages[0], value))) {
            states.push_back(hostileState(value, variant));
        }
    }
    return states;
}

std::vector<HostileState> keyStates() {
    const std::string updates = zeltest::kDriverUpdatesKey;
    return {
        // The search of both rows fails: both are left out.
        {"DeniedDriverUpdates",
         [updates](Planting& planting) {
             installPackages(planting);
             planting.deny(HKEY_LOCAL_MACHINE, updates);
         },
         false, packageAnswers("missing", "missing")},
        // A record that cannot be read fails the search of the row that finds nothing else.
        {"DeniedIdemia09Record",
         [updates](Planting& planting) {
             installPackages(planting);
             planting.deny(HKEY_LOCAL_MACHINE, updates + "\\ZELTEST-Idemia09");
         },
         false, packageAnswers("missing", "true")},
        // The chain's failure stays behind the records found after it.
        {"KeyChain400BesideRecords",
         [updates](Planting& planting) {
             installPackages(planting);
             MakeKeyChain(HKEY_LOCAL_MACHINE, updates + "\\ZELTEST-Chain", 400);
         },
         false, packageAnswers("true", "true")},
    };
}

class HostileDriverPackage : public HostileSweep {};

TEST_P(HostileDriverPackage, EveryExportAnswersAsDocumented) {
    Sweep(GetParam());
}

INSTANTIATE_TEST_SUITE_P(DriverUpdates, HostileDriverPackage,
                         ::testing::ValuesIn(driverPackageStates()), StateName);
INSTANTIATE_TEST_SUITE_P(DriverUpdateKeys, HostileDriverPackage, ::testing::ValuesIn(keyStates()),
                         StateName);

} // namespace
