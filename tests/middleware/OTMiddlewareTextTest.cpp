#include "middleware/TqOTMiddleware.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

namespace {

struct Selection {
    int result;
    std::string text;
};

Selection select(std::uint32_t selection) {
    std::string text = "unchanged";
    const int result = TqOTMiddlewareSelectionText(selection, text);
    return {result, text};
}

TEST(OTMiddlewareSelectionText, FixedMappingOfEverySelectionRange) {
    EXPECT_EQ((std::pair{1, std::string("unchanged")}),
              std::pair(select(0).result, select(0).text));
    EXPECT_EQ(1, select(1).result);
    EXPECT_EQ("OT Middleware Version 5.2.0 SR5", select(1).text);
    EXPECT_EQ(1, select(2).result);
    EXPECT_EQ("OT Middleware Version 5.2.0 SR1", select(2).text);
    for (std::uint32_t selection : {3u, 512u, 1023u, 1024u}) {
        EXPECT_EQ(0, select(selection).result) << selection;
        EXPECT_EQ("OT Middleware", select(selection).text) << selection;
    }
    for (std::uint32_t selection : {1025u, 2000u, 3000u}) {
        EXPECT_EQ(-14, select(selection).result) << selection;
        EXPECT_EQ("Unsupported Middleware selected.", select(selection).text) << selection;
    }
    EXPECT_EQ(0, select(3001).result);
    EXPECT_EQ("64bit OT Middleware Version 5.2.0 SR5", select(3001).text);
    EXPECT_EQ("64bit OT Admin Middleware Version 5.2.0 SR5", select(3002).text);
    EXPECT_EQ("32bit OT Middleware Version 5.2.0 SR5", select(3003).text);
    EXPECT_EQ(0, select(3004).result);
    EXPECT_EQ("32bit OT Admin Middleware Version 5.2.0 SR5", select(3004).text);
    for (std::uint32_t selection : {3005u, 0xFFFFFFFFu}) {
        EXPECT_EQ(1, select(selection).result) << selection;
        EXPECT_EQ("unchanged", select(selection).text) << selection;
    }
}

class ParseOTRecord : public ::testing::Test {
protected:
    int parse(const std::string& json) {
        pairs = {{"stale", "entry"}};
        return TqParseOTJSONMiddlewareString(json, pairs, log.path());
    }
    zeltest::ScratchLogFile log;
    std::map<std::string, std::string> pairs;
};

TEST_F(ParseOTRecord, DetectedRecordYieldsItsTenPairs) {
    const std::string record = "{\n\t\"OTMiddleware\": {\n\t\t\"Detected\": \"true\",\n"
                               "\t\t\"UUID\": \"{78CD21FA-042D-4AA8-A087-A082215EB661}\",\n"
                               "\t\t\"Name\": \"AWP 5.2.1 (64-bit)\",\n"
                               "\t\t\"Publisher\": \"Oberthur Technologies\",\n"
                               "\t\t\"Platform\": \"64\",\n\t\t\"DisplayVersion\": \"5.2.1.77\",\n"
                               "\t\t\"VersionMajor\": \"5\",\n\t\t\"VersionMinor\": \"2\",\n"
                               "\t\t\"Revision\": \"1\",\n\t\t\"BuildNo\": \"77\"\n\t}\n}";
    EXPECT_EQ(0, parse(record));
    EXPECT_EQ(
        (std::map<std::string, std::string>{{"Detected", "true"},
                                            {"UUID", "{78CD21FA-042D-4AA8-A087-A082215EB661}"},
                                            {"Name", "AWP 5.2.1 (64-bit)"},
                                            {"Publisher", "Oberthur Technologies"},
                                            {"Platform", "64"},
                                            {"DisplayVersion", "5.2.1.77"},
                                            {"VersionMajor", "5"},
                                            {"VersionMinor", "2"},
                                            {"Revision", "1"},
                                            {"BuildNo", "77"}}),
        pairs);
    EXPECT_EQ("", log.contents());
}

TEST_F(ParseOTRecord, NotDetectedAndExceptionRecordsYieldTheirPairs) {
    EXPECT_EQ(0, parse("{\n\t\"OTMiddleware\": {\n\t\t\"Detected\": \"false\"\n\t}\n}"));
    EXPECT_EQ((std::map<std::string, std::string>{{"Detected", "false"}}), pairs);
    EXPECT_EQ(0, parse("{\n\t\"OTMiddleware\": {\n\t\t\"Detected\": \"false\",\n\t\t\"Exception\": "
                       "\"Failed to search through registry. Error: (0x00000010) Access "
                       "Denied.\"\n\t}\n}"));
    EXPECT_EQ("Failed to search through registry. Error: (0x00000010) Access Denied.",
              pairs["Exception"]);
}

TEST_F(ParseOTRecord, EmptyTextIs2) {
    EXPECT_EQ(2, parse(""));
    EXPECT_TRUE(pairs.empty());
}

TEST_F(ParseOTRecord, TextWithoutEnclosingBracesIs25) {
    EXPECT_EQ(25, parse("\"Detected\": \"true\"\n}"));
    EXPECT_EQ(25, parse("{\n\"Detected\": \"true\"\n"));
    EXPECT_TRUE(pairs.empty());
    const std::string refused = "[ERROR] TqZelPlatformMethods::TqParseOTJSONMiddlewareString : "
                                "Exception occurred: JSON string contains invalid formatting.";
    EXPECT_EQ((std::vector<std::string>{refused, refused}), log.bodies());
}

TEST_F(ParseOTRecord, NoPairIs11) {
    EXPECT_EQ(11, parse("{\n\t\"OTMiddleware\": {\n\t}\n}"));
    EXPECT_EQ(11, parse("{}"));
}

TEST_F(ParseOTRecord, TheTextAfterTheLastLineFeedIsNotRead) {
    EXPECT_EQ(11, parse("{\"Detected\": \"true\"}"));
    EXPECT_EQ(0, parse("{\n\"A\": \"1\"\n\"B\": \"2\"}"));
    EXPECT_EQ((std::map<std::string, std::string>{{"A", "1"}}), pairs);
}

TEST_F(ParseOTRecord, AKeySeenTwiceKeepsItsFirstValue) {
    EXPECT_EQ(0, parse("{\n\"Detected\": \"true\"\n\"Detected\": \"false\"\n}"));
    EXPECT_EQ("true", pairs["Detected"]);
}

TEST_F(ParseOTRecord, SpacingAroundTheColonIsFree) {
    EXPECT_EQ(0, parse("{\n\"A\":\"1\"\n\"B\"  :  \"2\"\n}"));
    EXPECT_EQ((std::map<std::string, std::string>{{"A", "1"}, {"B", "2"}}), pairs);
}

} // namespace
