// The count rules and the verdict on key-container records, and their log lines.
#include "card/TqKeyContainerValidation.h"
#include "card/TqKeyContainerVerdict.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using zeltest::ScratchLogFile;

const std::string kInfo = "[INFO] TqCryptEnumContainers::cardContainsValidContent : ";
const std::string kWarn = "[WARN] TqCryptEnumContainers::cardContainsValidContent : ";
const std::string kError = "[ERROR] TqCryptEnumContainers::cardContainsValidContent : ";

constexpr std::uint32_t kSignatureWithCertificate = kTqHoldsSignature | kTqHoldsCertificate;
constexpr std::uint32_t kExchangeWithCertificate = kTqHoldsKeyExchange | kTqHoldsCertificate;

TqEnumerationContext context(int cardType, int applet,
                             std::vector<std::pair<std::string, std::uint32_t>> records) {
    TqEnumerationContext made;
    made.readerName = "Reader";
    made.cardType = cardType;
    made.applet = applet;
    for (auto& [name, content] : records) {
        made.containers.push_back({name, content, applet});
    }
    return made;
}

const std::string kValid = kInfo + "Applet content is valid.";
const std::string kInvalid = kError + "Applet content is invalid.";

std::vector<std::string> framed(std::vector<std::string> lines) {
    lines.insert(lines.begin(), kInfo + "Entered");
    lines.push_back(kInfo + "Leaving");
    return lines;
}

class ContainerVerdict : public ::testing::Test {
protected:
    bool judge(const TqEnumerationContext& made) {
        return cardContainsValidContent(made, log.path());
    }
    ScratchLogFile log;
};

TEST_F(ContainerVerdict, GemaltoCardWithBothNamedContainersAndCertificatesIsValid) {
    const auto made = context(kTqGemaltoCard, kTqAgileApplet,
                              {{"ORBEN_CCCA sign", kSignatureWithCertificate},
                               {"ORBEN_AUTH auth", kExchangeWithCertificate}});
    EXPECT_TRUE(judge(made));
    EXPECT_EQ(framed({kValid}), log.bodies());
    EXPECT_EQ(kTqCompleteContent, TqJudgeKeyContainers(made).bits);
}

TEST_F(ContainerVerdict, GemaltoCardNeedsExactlyTwoContainers) {
    EXPECT_FALSE(judge(
        context(kTqGemaltoCard, kTqAgileApplet, {{"ORBEN_CCCA", kSignatureWithCertificate}})));
    EXPECT_FALSE(judge(context(kTqGemaltoCard, kTqAgileApplet,
                               {{"ORBEN_CCCA", kSignatureWithCertificate},
                                {"ORBEN_AUTH", kExchangeWithCertificate},
                                {"third", kExchangeWithCertificate}})));
    EXPECT_EQ((std::vector<std::string>{
                  kInfo + "Entered",
                  kError + "Not enough Key Containers present to validate Gemalto Smart Card.",
                  kInfo + "Leaving", kInfo + "Entered",
                  kError + "Too many Key Containers present to validate Gemalto Smart Card.",
                  kInfo + "Leaving"}),
              log.bodies());
}

TEST_F(ContainerVerdict, OberthurDefaultContainerOfAnyCaseIsNeitherCountedNorExamined) {
    for (const char* name :
         {"Default Key Container", "default key container", "DEFAULT KEY CONTAINER"}) {
        ScratchLogFile caseLog;
        const auto made = context(kTqOberthurCard, kTqCompatibilityApplet,
                                  {{name, 0},
                                   {"ORBEN_CCCA sign", kSignatureWithCertificate},
                                   {"ORBEN_AUTH auth", kExchangeWithCertificate}});
        EXPECT_TRUE(cardContainsValidContent(made, caseLog.path())) << name;
        // Content 0 would have ended the examination had it been examined.
        EXPECT_EQ(
            framed({kInfo + "Default Key Container encountered on Oberthur Compatibility applet",
                    kInfo + "Ignoring encountered Default Key Container on Oberthur "
                            "Compatibility applet",
                    kValid}),
            caseLog.bodies())
            << name;
    }
}

TEST_F(ContainerVerdict, DefaultContainerOnAGemaltoCardIsExamined) {
    const auto made =
        context(kTqGemaltoCard, kTqAgileApplet,
                {{"Default Key Container", 0}, {"ORBEN_CCCA sign", kSignatureWithCertificate}});
    EXPECT_FALSE(judge(made));
    EXPECT_EQ(framed({kWarn + "Key Container 'Default Key Container' appears to be completely "
                              "empty, no key pair or certificate is reported as present.",
                      kInvalid}),
              log.bodies());
}

TEST_F(ContainerVerdict, ThreeContainersOnOneOberthurAppletAreTooManyBeforeAnyIsExamined) {
    const auto made = context(kTqOberthurCard, kTqAgileApplet,
                              {{"ORBEN_CCCA", kSignatureWithCertificate},
                               {"ORBEN_AUTH", kExchangeWithCertificate},
                               {"empty", 0}});
    EXPECT_FALSE(judge(made));
    EXPECT_EQ(framed({kError + "Too many Key Containers present on the Agile applet of the "
                               "Oberthur Smart Card."}),
              log.bodies());
    EXPECT_FALSE(TqJudgeKeyContainers(made).examined);
}

TEST_F(ContainerVerdict, CompatibilityCountIsCheckedBeforeAgileCount) {
    TqEnumerationContext made;
    made.cardType = kTqOberthurCard;
    made.applet = kTqCompatibilityApplet;
    for (int i = 0; i < 3; ++i) {
        made.containers.push_back({"agile" + std::to_string(i), kTqHoldsSignature, kTqAgileApplet});
        made.containers.push_back(
            {"compat" + std::to_string(i), kTqHoldsSignature, kTqCompatibilityApplet});
    }
    EXPECT_FALSE(judge(made));
    EXPECT_EQ(framed({kError + "Too many Key Containers present on the Compatibility applet of "
                               "the Oberthur Smart Card."}),
              log.bodies());
}

TEST_F(ContainerVerdict, TooFewOberthurContainersNameTheApplet) {
    EXPECT_FALSE(judge(context(kTqOberthurCard, kTqCompatibilityApplet, {{"one", 0}})));
    EXPECT_FALSE(judge(context(kTqOberthurCard, kTqAgileApplet, {})));
    EXPECT_FALSE(judge(context(kTqOberthurCard, 3, {{"one", 0}}))); // no applet to name
    EXPECT_EQ((std::vector<std::string>{
                  kInfo + "Entered",
                  kError + "Not enough Key Containers present to validate the Compatibility "
                           "applet on the Oberthur Smart Card.",
                  kInfo + "Leaving", kInfo + "Entered",
                  kError + "Not enough Key Containers present to validate the Agile applet on "
                           "the Oberthur Smart Card.",
                  kInfo + "Leaving", kInfo + "Entered", kInfo + "Leaving"}),
              log.bodies());
}

TEST_F(ContainerVerdict, NamedSignatureWithoutCertificateSetsOnlyItsNameBit) {
    const auto made = context(
        kTqOberthurCard, kTqAgileApplet,
        {{"ORBEN_CCCA sign", kTqHoldsSignature}, {"ORBEN_AUTH auth", kExchangeWithCertificate}});
    const TqContentVerdict verdict = TqJudgeKeyContainers(made);
    EXPECT_EQ(kTqNamedSignature | kTqNamedExchange | kTqExchangeCertificate, verdict.bits);
    EXPECT_FALSE(judge(made));
    EXPECT_EQ(framed({kWarn + "Encountered AT_SIGNATURE Key Container 'ORBEN_CCCA sign' does not "
                              "contain an associated X.509 Certificate.",
                      kInvalid}),
              log.bodies());
}

TEST_F(ContainerVerdict, WronglyNamedContainersAreWarnedAbout) {
    const auto made =
        context(kTqOberthurCard, kTqAgileApplet,
                {{"orben_ccca lower", kSignatureWithCertificate}, {"AUTH", kTqHoldsKeyExchange}});
    EXPECT_FALSE(judge(made));
    EXPECT_EQ(kTqSignatureCertificate, TqJudgeKeyContainers(made).bits);
    EXPECT_EQ(framed({kWarn + "Encountered AT_SIGNATURE Key Container 'orben_ccca lower' is not "
                              "correctly named for ZEL operations",
                      kWarn + "Encountered AT_KEYEXCHANGE Key Container 'AUTH' is not correctly "
                              "named for ZEL operations",
                      kWarn + "Encountered AT_KEYEXCHANGE Key Container 'AUTH' does not contain "
                              "an associated X.509 Certificate.",
                      kInvalid}),
              log.bodies());
}

TEST_F(ContainerVerdict, RoleNameCountsAnywhereInTheName) {
    EXPECT_TRUE(judge(context(kTqOberthurCard, kTqAgileApplet,
                              {{"xx-ORBEN_CCCA-yy", kSignatureWithCertificate},
                               {"{guid}ORBEN_AUTH", kExchangeWithCertificate}})));
}

TEST_F(ContainerVerdict, EmptyContainerEndsTheExamination) {
    TqEnumerationContext made =
        context(kTqOberthurCard, kTqAgileApplet, {{"ORBEN_CCCA sign", kSignatureWithCertificate}});
    made.containers.push_back({"hollow", 0, kTqCompatibilityApplet});
    made.containers.push_back(
        {"ORBEN_AUTH auth", kExchangeWithCertificate, kTqCompatibilityApplet});
    EXPECT_FALSE(judge(made));
    // The exchange container after it was never looked at: no bits of its own.
    EXPECT_EQ(kTqNamedSignature | kTqSignatureCertificate, TqJudgeKeyContainers(made).bits);
    EXPECT_EQ(framed({kWarn + "Key Container 'hollow' appears to be completely empty, no key pair "
                              "or certificate is reported as present.",
                      kInvalid}),
              log.bodies());
}

TEST_F(ContainerVerdict, DuplicateAfterTwoCompleteContainersDoesNotSpoilTheVerdict) {
    TqEnumerationContext made = context(kTqOberthurCard, kTqAgileApplet,
                                        {{"ORBEN_CCCA sign", kSignatureWithCertificate},
                                         {"ORBEN_AUTH auth", kExchangeWithCertificate}});
    made.containers.push_back({"Default Key Container", 0, kTqCompatibilityApplet});
    made.containers.push_back({"ORBEN_CCCA again", kTqHoldsSignature, kTqCompatibilityApplet});
    EXPECT_TRUE(judge(made));
    const auto bodies = log.bodies();
    ASSERT_GE(bodies.size(), 3u);
    EXPECT_EQ(kWarn + "Already encountered an AT_SIGNATURE Key Container. The key Container "
                      "'ORBEN_CCCA again' also reports as AT_SIGNAUTRE.",
              bodies[bodies.size() - 3]);
    EXPECT_EQ(kValid, bodies[bodies.size() - 2]);
}

TEST_F(ContainerVerdict, DuplicateExchangeMessageKeepsItsTwoBlanks) {
    const auto made = context(kTqGemaltoCard, kTqAgileApplet,
                              {{"ORBEN_AUTH one", kExchangeWithCertificate},
                               {"ORBEN_AUTH two", kExchangeWithCertificate}});
    EXPECT_FALSE(judge(made));
    EXPECT_EQ(framed({kWarn + "Already encountered an  AT_KEYEXCHANGE Key Container. The key "
                              "Container 'ORBEN_AUTH two' also reports as AT_KEYEXCHANGE.",
                      kInvalid}),
              log.bodies());
}

TEST_F(ContainerVerdict, DuplicateBeforeTheOtherRoleEndsTheExaminationEarly) {
    const auto made = context(kTqGemaltoCard, kTqAgileApplet,
                              {{"ORBEN_CCCA one", kSignatureWithCertificate},
                               {"ORBEN_CCCA two", kSignatureWithCertificate}});
    EXPECT_FALSE(judge(made));
    EXPECT_EQ(kTqNamedSignature | kTqSignatureCertificate, TqJudgeKeyContainers(made).bits);
}

TEST_F(ContainerVerdict, OtherCardTypeSkipsTheCountRules) {
    EXPECT_TRUE(judge(context(7, kTqAgileApplet,
                              {{"ORBEN_CCCA", kSignatureWithCertificate},
                               {"ORBEN_AUTH", kExchangeWithCertificate},
                               {"ORBEN_AUTH extra", kExchangeWithCertificate},
                               {"Default Key Container", 0}})));
    ScratchLogFile emptyLog;
    // No records at all: straight to the verdict.
    EXPECT_FALSE(cardContainsValidContent(context(7, kTqAgileApplet, {}), emptyLog.path()));
    EXPECT_EQ(framed({kInvalid}), emptyLog.bodies());
}

} // namespace
