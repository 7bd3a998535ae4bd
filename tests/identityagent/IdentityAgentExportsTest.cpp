// DetectIdentityAgent and SetIdentityAgentSpringCheck as the client calls them: the built DLL
// loaded with LoadLibraryA, the agent stand-in running as IdentityAgent.exe.
#include "identityagent/IdentityAgentFixture.h"
#include "support/CapturedStreams.h"
#include "support/KitProcesses.h"

#include <malloc.h>

#include <string>
#include <vector>

namespace {

using iatest::Document;
using iatest::ExpectParsedDocument;
using zeltest::AgentStandIn;
using zeltest::CapturedStderr;
using zeltest::CapturedStdout;

class IdentityAgentExports : public iatest::IdentityAgentRegistry {
protected:
    // The document the DLL hands out, checked for its length and heap block on the way.
    std::string detect(int expectedResult,
                       zeltest::CallSite caller = zeltest::CallSite::current()) {
        const zeltest::CallerTrace trace(caller);
        char* text = reinterpret_cast<char*>(0xDEADBEEF);
        int length = -1;
        EXPECT_EQ(expectedResult, api.DetectIdentityAgent(&text, &length, log.path()));
        if (text == nullptr) {
            return "";
        }
        std::string document(text);
        EXPECT_EQ(static_cast<int>(document.size()), length);
        EXPECT_EQ(document.size() + 1, _msize(text));
        api.FreeStringData(&text);
        EXPECT_EQ(nullptr, text);
        return document;
    }

    zeltest::PlatformDll dll;
    const ZelPlatformExportedInterface& api = dll.api();
    zeltest::ScratchLogFile log;
};

TEST_F(IdentityAgentExports, SwitchOffShowsInTheDocumentAndDefaultRestoresIt) {
    installVessant();
    AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    CapturedStderr ignoredErrors;

    EXPECT_EQ(0, api.SetIdentityAgentSpringCheck(0, log.path()));
    std::string document = detect(1);
    EXPECT_EQ(Document("KVR", "2", "11", "off", "false", "true", "pending"), document);
    ExpectParsedDocument(document, "KVR", "2", "11", "off", "false", "true", "pending");

    EXPECT_EQ(0, api.SetIdentityAgentSpringCheck(1, log.path()));
    document = detect(1);
    EXPECT_EQ(Document("KVR", "2", "11", "on", "false", "false", "unknown"), document);
    ExpectParsedDocument(document, "KVR", "2", "11", "on", "false", "false", "unknown");
    ignoredErrors.end();

    EXPECT_FALSE(
        zeltest::ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue).present);
    EXPECT_FALSE(zeltest::ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqZelCheckValue).present);
    std::vector<std::string> expected;
    for (const char* operation : {"setIdentityAgentSpringCheck", "detectIdentityAgent",
                                  "setIdentityAgentSpringCheck", "detectIdentityAgent"}) {
        expected.push_back(std::string("[INFO] TqZelDLLPlatform::") + operation + " : Entered");
        expected.push_back(std::string("[INFO] TqZelDLLPlatform::") + operation + " : Leaving");
    }
    EXPECT_EQ(expected, log.bodies());
}

// The library's progress lines reach the host's standard output through the shared C runtime.
TEST_F(IdentityAgentExports, ProgressLinesGoToTheHostsStandardOutput) {
    installVessant();
    AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    CapturedStdout output;
    CapturedStderr ignoredErrors;
    const std::string document = detect(1);
    ignoredErrors.end();
    EXPECT_EQ("TqDetectKVRIdentityAgent : Successfully detected KVR IA.\n", output.text());
    EXPECT_EQ(Document("KVR", "2", "11", "on", "false", "false", "unknown"), document);
}

TEST_F(IdentityAgentExports, SwitchOffWithoutTheAgentIsARefusedSwitch) {
    installVessant();
    CapturedStderr errors;
    EXPECT_EQ(11, api.SetIdentityAgentSpringCheck(0, log.path()));
    EXPECT_EQ("TqSetKVRIASpringCheck : TqIsProcessExecuting unsuccessful. Result Code: Process not "
              "running\n",
              errors.text());
    EXPECT_FALSE(zeltest::KeyExists(HKEY_CURRENT_USER, kTqIAUserKey));
    EXPECT_EQ((std::vector<std::string>{
                  "[INFO] TqZelDLLPlatform::setIdentityAgentSpringCheck : Entered",
                  "[ERROR] TqZelDLLPlatform::setIdentityAgentSpringCheck : TqSetKVRIASpringCheck "
                  "failed. Error Code: (0x0000000b) Not found."}),
              log.bodies());
}

TEST_F(IdentityAgentExports, AnyNonZeroEnableRestoresTheDefault) {
    installVessant();
    AgentStandIn agent(kTqKVRAgentExecutable);
    ASSERT_TRUE(agent.running());
    ASSERT_EQ(0, api.SetIdentityAgentSpringCheck(0, nullptr));
    EXPECT_EQ(0, api.SetIdentityAgentSpringCheck(0xFF, nullptr));
    EXPECT_FALSE(
        zeltest::ReadValue(HKEY_CURRENT_USER, kTqIAUserKey, kTqCardRemovalCheckValue).present);
}

TEST_F(IdentityAgentExports, NothingInstalledIsAnAnswerNotAFailure) {
    const std::string document = detect(0);
    EXPECT_EQ(Document("unknown", "0", "0", "unknown", "unknown", "unknown", "unknown"), document);
}

// Both detectors failed: the failure is the answer, and the all-unknown document still comes.
TEST_F(IdentityAgentExports, UnreadableUninstallKeyIsAFailureWithTheDocument) {
    zeltest::DeleteKeyTree(HKEY_LOCAL_MACHINE, iatest::kUninstall32);
    CapturedStderr ignoredErrors;
    EXPECT_EQ(Document("unknown", "0", "0", "unknown", "unknown", "unknown", "unknown"),
              detect(-15));
    ignoredErrors.end();
}

} // namespace
