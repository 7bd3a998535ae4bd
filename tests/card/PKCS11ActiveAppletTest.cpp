// The PKCS#11 applet switch against the kit's PKCS#11 module, loaded the Windows way.
#include "card/TqEnrollmentMode.h"
#include "card/TqPKCS11ActiveApplet.h"
#include "card/TqPKCS11Environment.h"
#include "api/TqZelDLLPlatform.h"

#include "support/CapturedStreams.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using zeltest::ScratchLogFile;

const std::string kKitKey = "Software\\ZelTestKit\\PKCS11";
const std::string kWorker = "OberthurSmartCardDll::TqPKCS11SetActiveApplet : ";
const std::string kFrame = "TqZelDLLPlatform::setEnrollmentMode : ";
const std::string kStartCall = "C_Initialize(NULL) = 0x00000000\n"; // the loader's own

class PKCS11ActiveApplet : public ::testing::Test {
protected:
    void SetUp() override {
        TqUnloadPKCS11Module();
        zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kKitKey);
        zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqEnrollmentKey);
    }
    void TearDown() override {
        TqUnloadPKCS11Module();
        zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kKitKey);
        zeltest::DeleteKeyTree(HKEY_CURRENT_USER, kTqEnrollmentKey);
    }

    void loadKit() {
        ASSERT_EQ(CKR_OK, TqLoadPKCS11Module(zeltest::BuiltFile("kit_pkcs11.dll").c_str()));
        ASSERT_TRUE(TqPKCS11Env().enabled);
        ASSERT_EQ(kStartCall, calls());
    }
    void setKit(const char* name, DWORD value) {
        zeltest::WriteDword(HKEY_CURRENT_USER, kKitKey, name, value);
    }
    void clearKitSetting(const char* name) {
        TqUniqueRegKey key;
        ASSERT_EQ(ERROR_SUCCESS, ::RegOpenKeyExA(HKEY_CURRENT_USER, kKitKey.c_str(), 0,
                                                 KEY_ALL_ACCESS, key.put()));
        ASSERT_EQ(ERROR_SUCCESS, ::RegDeleteValueA(key.get(), name));
    }
    // What the module was asked, in order, with its answers.
    std::string calls() const {
        const auto value = zeltest::ReadValue(HKEY_CURRENT_USER, kKitKey, "Calls");
        return value.present ? std::string(reinterpret_cast<const char*>(value.data.data()))
                             : std::string();
    }

    // Runs the worker and keeps what it wrote to standard error.
    CK_RV run(const char* applet) {
        zeltest::CapturedStderr errors;
        const CK_RV result = TqPKCS11SetActiveApplet(applet, log.path());
        err = errors.text();
        return result;
    }

    std::vector<std::string> failureLines(const std::string& text) const {
        return {"[INFO] " + kWorker + "Entered", "[ERROR] " + kWorker + text};
    }
    std::string stderrLine(const std::string& text) const {
        return "TqPKCS11SetActiveApplet : Exception Occurred - " + text + "\n";
    }

    ScratchLogFile log;
    std::string err;
};

constexpr const char* kNotEnabled = "Error - The PKCS11 Environment is not enabled.";
constexpr const char* kBadArguments =
    "Error - One of more calling arguments to the method are invalid.";

TEST_F(PKCS11ActiveApplet, NullAppletIs7WithTheEnvironmentDisabled) {
    EXPECT_EQ(7u, run(nullptr));
    EXPECT_EQ(failureLines(kBadArguments), log.bodies());
    EXPECT_EQ(stderrLine(kBadArguments), err);
}

TEST_F(PKCS11ActiveApplet, NullAppletIs7WithTheEnvironmentEnabledAndTheModuleUntouched) {
    loadKit();
    EXPECT_EQ(7u, run(nullptr));
    EXPECT_EQ(failureLines(kBadArguments), log.bodies());
    EXPECT_EQ(kStartCall, calls());
}

TEST_F(PKCS11ActiveApplet, DisabledEnvironmentAnswers400ForEveryWordKnownOrNot) {
    for (const char* applet : {"AGILE", "COMPATIBILITY", "AGIL", "bogus", ""}) {
        ScratchLogFile wordLog;
        zeltest::CapturedStderr errors;
        EXPECT_EQ(0x190u, TqPKCS11SetActiveApplet(applet, wordLog.path())) << applet;
        EXPECT_EQ(stderrLine(kNotEnabled), errors.text()) << applet;
        EXPECT_EQ(failureLines(kNotEnabled), wordLog.bodies()) << applet;
    }
}

TEST_F(PKCS11ActiveApplet, EnabledFlagWithoutModuleRecordIsStillNotEnabled) {
    TqPKCS11Env().enabled = true;
    EXPECT_EQ(0x190u, run("AGILE"));
    TqPKCS11Env().enabled = false;
    EXPECT_EQ(stderrLine(kNotEnabled), err);
}

TEST_F(PKCS11ActiveApplet, ModuleRecordWithoutEnabledFlagIsNotEnabled) {
    loadKit();
    TqPKCS11Env().enabled = false;
    EXPECT_EQ(0x190u, run("AGILE"));
    EXPECT_EQ(kStartCall, calls());
}

TEST_F(PKCS11ActiveApplet, AgileRestartsTheModuleWithKvrAgileMode) {
    loadKit();
    EXPECT_EQ(0u, run("AGILE"));
    EXPECT_EQ(kStartCall + "C_Finalize(NULL) = 0x00000000\n"
                           "C_Initialize(flags=0, pReserved=\"KvrAgileMode\") = 0x00000000\n",
              calls());
    EXPECT_EQ((std::vector<std::string>{"[INFO] " + kWorker + "Entered",
                                        "[INFO] " + kWorker + "Leaving"}),
              log.bodies());
    EXPECT_EQ("", err);
    // The minidriver's registry switch is another route: untouched.
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqEnrollmentKey));
}

TEST_F(PKCS11ActiveApplet, CompatibilityRestartsTheModuleWithKvrCompatibleMode) {
    loadKit();
    EXPECT_EQ(0u, run("COMPATIBILITY"));
    EXPECT_EQ(kStartCall + "C_Finalize(NULL) = 0x00000000\n"
                           "C_Initialize(flags=0, pReserved=\"KvrCompatibleMode\") = 0x00000000\n",
              calls());
}

TEST_F(PKCS11ActiveApplet, OnlyThePrefixIsCompared) {
    loadKit();
    EXPECT_EQ(0u, run("COMPATIBILITY_X"));
    EXPECT_EQ(0u, run("AGILE2"));
    EXPECT_EQ(kStartCall + "C_Finalize(NULL) = 0x00000000\n"
                           "C_Initialize(flags=0, pReserved=\"KvrCompatibleMode\") = 0x00000000\n"
                           "C_Finalize(NULL) = 0x00000000\n"
                           "C_Initialize(flags=0, pReserved=\"KvrAgileMode\") = 0x00000000\n",
              calls());
    EXPECT_EQ("", err);
}

TEST_F(PKCS11ActiveApplet, ShorterOrLowerCaseWordIsUnknownAndTheModuleIsNotTouched) {
    loadKit();
    EXPECT_EQ(7u, run("AGIL"));
    EXPECT_EQ(failureLines("Error - Unknown Enrollment setting 'AGIL'."), log.bodies());
    EXPECT_EQ(stderrLine("Error - Unknown Enrollment setting 'AGIL'."), err);
    EXPECT_EQ(7u, run("agile"));
    EXPECT_EQ(stderrLine("Error - Unknown Enrollment setting 'agile'."), err);
    EXPECT_EQ(kStartCall, calls());
}

TEST_F(PKCS11ActiveApplet, FinalizeAnsweringNotInitializedIsAFailure) {
    loadKit();
    setKit("C_Finalize result", 0x190);
    EXPECT_EQ(0x190u, run("AGILE"));
    const std::string text =
        "C_Finalize failed. Error Code(400) - (0x00000190) CKR_CRYPTOKI_NOT_INITIALIZED.";
    EXPECT_EQ(failureLines(text), log.bodies());
    EXPECT_EQ(stderrLine(text), err);
    EXPECT_EQ(kStartCall + "C_Finalize(NULL) = 0x00000190\n", calls()); // no C_Initialize
}

TEST_F(PKCS11ActiveApplet, FailedInitializeLeavesTheModuleFinalized) {
    loadKit();
    setKit("C_Initialize result", 0x6);
    EXPECT_EQ(6u, run("COMPATIBILITY"));
    const std::string text =
        "C_Initialize failed. Error Code(6) - (0x00000006) CKR_FUNCTION_FAILED.";
    EXPECT_EQ(failureLines(text), log.bodies());
    EXPECT_EQ(stderrLine(text), err);
    // Nothing was rolled back: the next switch finds the module finalized and fails on it.
    clearKitSetting("C_Initialize result");
    EXPECT_EQ(0x190u, run("AGILE"));
    EXPECT_EQ(kStartCall + "C_Finalize(NULL) = 0x00000000\n"
                           "C_Initialize(flags=0, pReserved=\"KvrCompatibleMode\") = 0x00000006\n"
                           "C_Finalize(NULL) = 0x00000190\n",
              calls());
}

TEST_F(PKCS11ActiveApplet, VendorCodeFailureIsReportedInUnsignedDecimal) {
    loadKit();
    setKit("C_Finalize result", 0x800003EC);
    EXPECT_EQ(0x800003ECu, run("AGILE"));
    EXPECT_EQ(
        stderrLine("C_Finalize failed. Error Code(2147484652) - (0x800003ec) CKR_EMPTY_CARD."),
        err);
}

TEST_F(PKCS11ActiveApplet, MissingModuleRecordIsTheFirstVendorCode) {
    // The environment check already refuses a missing record, so the lookup is asked directly.
    CK_C_Finalize finalize = reinterpret_cast<CK_C_Finalize>(1);
    EXPECT_EQ(0x800003E9u, TqFindPKCS11Function(nullptr, &CK_FUNCTION_LIST::C_Finalize, finalize));
    EXPECT_EQ(nullptr, finalize);
}

TEST_F(PKCS11ActiveApplet, MissingFunctionListIsTheSecondVendorCode) {
    TqPKCS11Module module; // a record whose list was never filled
    TqPKCS11Env().module = &module;
    TqPKCS11Env().enabled = true;
    const CK_RV result = run("AGILE");
    TqPKCS11Env() = TqPKCS11Environment{};
    EXPECT_EQ(0x800003EAu, result);
    EXPECT_EQ(stderrLine("C_Finalize failed. Error Code(2147484650) - (0x800003ea) "
                         "CKR_BAD_FUNCTION_LIST."),
              err);
}

TEST_F(PKCS11ActiveApplet, NullFinalizeIsTheThirdVendorCode) {
    zeltest::WriteString(HKEY_CURRENT_USER, kKitKey, "Without", "C_Finalize");
    loadKit();
    EXPECT_EQ(0x800003EBu, run("AGILE"));
    EXPECT_EQ(stderrLine("C_Finalize failed. Error Code(2147484651) - (0x800003eb) "
                         "CKR_BAD_FUNCTION."),
              err);
    EXPECT_EQ(kStartCall, calls());
}

int gFinalizeCalls = 0;
CK_RV countingFinalize(CK_VOID_PTR) {
    ++gFinalizeCalls;
    return CKR_OK;
}

// A module record with the test's own function list, enabled in the environment while it lives.
class HandMadeModule {
public:
    explicit HandMadeModule(CK_C_Finalize finalize, CK_C_Initialize initialize = nullptr) {
        list_.C_Finalize = finalize;
        list_.C_Initialize = initialize;
        module_.functionList = &list_;
        TqPKCS11Env().module = &module_;
        TqPKCS11Env().enabled = true;
    }
    ~HandMadeModule() { TqPKCS11Env() = TqPKCS11Environment{}; }
    HandMadeModule(const HandMadeModule&) = delete;
    HandMadeModule& operator=(const HandMadeModule&) = delete;

private:
    CK_FUNCTION_LIST list_{};
    TqPKCS11Module module_;
};

TEST_F(PKCS11ActiveApplet, NullInitializeIsTheThirdVendorCodeAfterAFinalize) {
    CK_RV result = CKR_OK;
    {
        const HandMadeModule module(&countingFinalize);
        result = run("AGILE");
    }
    EXPECT_EQ(0x800003EBu, result);
    EXPECT_EQ(1, gFinalizeCalls);
    EXPECT_EQ(stderrLine("C_Initialize failed. Error Code(2147484651) - (0x800003eb) "
                         "CKR_BAD_FUNCTION."),
              err);
}

TEST_F(PKCS11ActiveApplet, LoaderRefusesWhatItCannotUse) {
    EXPECT_EQ(0x800003E9u, TqLoadPKCS11Module(zeltest::BuiltFile("no_such_module.dll").c_str()));
    EXPECT_FALSE(TqPKCS11Env().enabled);
    // A DLL without C_GetFunctionList.
    EXPECT_EQ(0x800003EAu, TqLoadPKCS11Module(zeltest::BuiltFile("version_none.dll").c_str()));
    EXPECT_FALSE(TqPKCS11Env().enabled);
    EXPECT_EQ(nullptr, TqPKCS11Env().module);
    zeltest::WriteString(HKEY_CURRENT_USER, kKitKey, "Without", "C_Initialize");
    EXPECT_EQ(0x800003EBu, TqLoadPKCS11Module(zeltest::BuiltFile("kit_pkcs11.dll").c_str()));
    EXPECT_FALSE(TqPKCS11Env().enabled);
    EXPECT_EQ(CKR_ARGUMENTS_BAD, TqLoadPKCS11Module(nullptr));
}

// A module is loaded as a minidriver is: a bare name from System32 only (the kit's module lies in
// the program's folder, not there), a share or a device path not at all.
TEST_F(PKCS11ActiveApplet, LoaderNeverSearchesTheProgramsFolderNorLoadsFromAShare) {
    ASSERT_NE(INVALID_FILE_ATTRIBUTES,
              ::GetFileAttributesA(zeltest::BuiltFile("kit_pkcs11.dll").c_str()));
    EXPECT_EQ(0x800003E9u, TqLoadPKCS11Module("kit_pkcs11.dll"));
    EXPECT_EQ(nullptr, ::GetModuleHandleA("kit_pkcs11.dll"));
    for (const std::string& path :
         std::vector<std::string>{std::string("\\\\localhost\\c$\\kit_pkcs11.dll"),
                                  "\\\\?\\UNC\\localhost\\c$\\kit_pkcs11.dll",
                                  "\\\\.\\" + zeltest::BuiltFile("kit_pkcs11.dll"),
                                  "\\\\?\\" + zeltest::BuiltFile("kit_pkcs11.dll")}) {
        EXPECT_EQ(0x800003E9u, TqLoadPKCS11Module(path.c_str())) << path;
        EXPECT_FALSE(TqPKCS11Env().enabled) << path;
        EXPECT_EQ(nullptr, ::GetModuleHandleA("kit_pkcs11.dll")) << path;
    }
}

TEST_F(PKCS11ActiveApplet, UnloadFinalizesTheModuleAndDisablesTheEnvironment) {
    loadKit();
    TqUnloadPKCS11Module();
    EXPECT_FALSE(TqPKCS11Env().enabled);
    EXPECT_EQ(nullptr, TqPKCS11Env().module);
    EXPECT_EQ(kStartCall + "C_Finalize(NULL) = 0x00000000\n", calls());
}

// The switch through the platform operation, with a host provider that asks for this route.
class PKCS11Provider : public TqEnrollmentProvider {
public:
    int isPKCS11Route(const char*) override { return 1; }
    int readEnrollmentMode(char**, int*, const char*) override { return 0; }
};

TEST_F(PKCS11ActiveApplet, PlatformRouteSwitchesThroughTheModule) {
    loadKit();
    PKCS11Provider provider;
    TqZelDLLPlatform platform;
    EXPECT_EQ(0, platform.setEnrollmentMode(&provider, "COMPATIBILITY", log.path()));
    EXPECT_EQ(
        (std::vector<std::string>{"[INFO] " + kFrame + "Entered", "[INFO] " + kWorker + "Entered",
                                  "[INFO] " + kWorker + "Leaving", "[INFO] " + kFrame + "Leaving"}),
        log.bodies());
    EXPECT_EQ(kStartCall + "C_Finalize(NULL) = 0x00000000\n"
                           "C_Initialize(flags=0, pReserved=\"KvrCompatibleMode\") = 0x00000000\n",
              calls());
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqEnrollmentKey));
}

// The operation's text: its prefix, the PKCS#11 name of the code in the parentheses, then the
// common text of the code as every operation of the frame appends it.
TEST_F(PKCS11ActiveApplet, PlatformRouteFailureTextCarriesTheReturnValueName) {
    PKCS11Provider provider;
    TqZelDLLPlatform platform;
    zeltest::CapturedStderr errors;
    EXPECT_EQ(400, platform.setEnrollmentMode(&provider, "AGILE", log.path()));
    EXPECT_EQ(stderrLine(kNotEnabled), errors.text());
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] " + kFrame + "Entered", "[INFO] " + kWorker + "Entered",
                  "[ERROR] " + kWorker + kNotEnabled,
                  "[ERROR] " + kFrame +
                      "TqPKCS11SetActiveApplet failed. Error Code((0x00000190) "
                      "CKR_CRYPTOKI_NOT_INITIALIZED) - (0x00000190) Unknown error."}),
              log.bodies());
}

TEST_F(PKCS11ActiveApplet, PlatformRouteUnknownWordIs7WithItsNames) {
    loadKit();
    PKCS11Provider provider;
    TqZelDLLPlatform platform;
    zeltest::CapturedStderr ignoredErrors;
    EXPECT_EQ(7, platform.setEnrollmentMode(&provider, "agile", log.path()));
    ignoredErrors.end();
    const auto bodies = log.bodies();
    ASSERT_FALSE(bodies.empty());
    EXPECT_EQ("[ERROR] " + kFrame +
                  "TqPKCS11SetActiveApplet failed. Error Code((0x00000007) CKR_ARGUMENTS_BAD) - "
                  "(0x00000007) Failed to cast variable.",
              bodies.back());
}

TEST_F(PKCS11ActiveApplet, PlatformRouteVendorCodeIsReturnedAsItsSignedValue) {
    loadKit();
    setKit("C_Finalize result", 0x800003EB);
    PKCS11Provider provider;
    TqZelDLLPlatform platform;
    zeltest::CapturedStderr ignoredErrors;
    EXPECT_EQ(static_cast<int>(0x800003EBu),
              platform.setEnrollmentMode(&provider, "AGILE", log.path()));
    ignoredErrors.end();
    const auto bodies = log.bodies();
    ASSERT_FALSE(bodies.empty());
    // The common text looks the code up by its absolute value, as for every operation.
    EXPECT_EQ("[ERROR] " + kFrame +
                  "TqPKCS11SetActiveApplet failed. Error Code((0x800003eb) CKR_BAD_FUNCTION) - "
                  "(0x7ffffc15) Unknown error.",
              bodies.back());
}

// A module that throws what is no standard exception: the worker does not swallow it (its
// result would still read CKR_OK), the platform's frame turns it into 23.
CK_RV throwingFinalize(CK_VOID_PTR) {
    throw 42;
}

TEST_F(PKCS11ActiveApplet, ANonStandardExceptionLeavesTheWorker) {
    zeltest::CapturedStderr errors;
    {
        const HandMadeModule module(&throwingFinalize);
        EXPECT_THROW(TqPKCS11SetActiveApplet("AGILE", log.path()), int);
    }
    EXPECT_EQ("", errors.text());
    EXPECT_EQ(std::vector<std::string>{"[INFO] " + kWorker + "Entered"}, log.bodies());
}

TEST_F(PKCS11ActiveApplet, PlatformRouteTurnsANonStandardExceptionInto23) {
    PKCS11Provider provider;
    TqZelDLLPlatform platform;
    zeltest::CapturedStderr errors;
    int result = 0;
    {
        const HandMadeModule module(&throwingFinalize);
        result = platform.setEnrollmentMode(&provider, "AGILE", log.path());
    }
    EXPECT_EQ(23, result);
    EXPECT_EQ("", errors.text());
    EXPECT_EQ(
        (std::vector<std::string>{"[INFO] " + kFrame + "Entered", "[INFO] " + kWorker + "Entered",
                                  "[ERROR] " + kFrame + "Unexpected Error occurred"}),
        log.bodies());
}

CK_RV finalizeThrowingStandard(CK_VOID_PTR) {
    throw std::runtime_error("the module's finalize broke");
}
CK_RV finalizeOk(CK_VOID_PTR) {
    return CKR_OK;
}
CK_RV initializeThrowingStandard(CK_VOID_PTR) {
    throw std::length_error("the module's initialize broke");
}

// A standard exception out of the module is the worker's own to report; the result it had
// stays (0 here: no step had failed yet).
TEST_F(PKCS11ActiveApplet, StandardExceptionOutOfFinalizeIsReportedAndKeepsTheResult) {
    zeltest::CapturedStderr errors;
    int result = -1;
    {
        const HandMadeModule module(&finalizeThrowingStandard);
        result = static_cast<int>(TqPKCS11SetActiveApplet("AGILE", log.path()));
    }
    EXPECT_EQ(0, result);
    EXPECT_EQ("TqPKCS11SetActiveApplet : Exception Occurred - the module's finalize broke\n",
              errors.text());
    EXPECT_EQ((std::vector<std::string>{"[INFO] " + kWorker + "Entered",
                                        "[ERROR] " + kWorker + "the module's finalize broke"}),
              log.bodies());
}

TEST_F(PKCS11ActiveApplet, StandardExceptionOutOfInitializeIsReportedAndKeepsTheResult) {
    zeltest::CapturedStderr errors;
    int result = -1;
    {
        const HandMadeModule module(&finalizeOk, &initializeThrowingStandard);
        result = static_cast<int>(TqPKCS11SetActiveApplet("AGILE", log.path()));
    }
    EXPECT_EQ(0, result);
    EXPECT_EQ("TqPKCS11SetActiveApplet : Exception Occurred - the module's initialize broke\n",
              errors.text());
    EXPECT_EQ((std::vector<std::string>{"[INFO] " + kWorker + "Entered",
                                        "[ERROR] " + kWorker + "the module's initialize broke"}),
              log.bodies());
}

TEST_F(PKCS11ActiveApplet, PlatformRouteRefusesANullAppletBeforeTheWorker) {
    PKCS11Provider provider;
    TqZelDLLPlatform platform;
    zeltest::CapturedStderr errors;
    EXPECT_EQ(1, platform.setEnrollmentMode(&provider, nullptr, log.path()));
    EXPECT_EQ("", errors.text());
    EXPECT_EQ(std::vector<std::string>{"[ERROR] " + kFrame + "applet Argument is invalid"},
              log.bodies());
}

} // namespace
