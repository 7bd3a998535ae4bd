#include "middleware/TqMiddlewareRecord.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

TEST(MiddlewareRecord, DetectedRecordListsTheTenFieldsInOrder) {
    TqMiddlewareValues values;
    values.UUID = "{A1B2C3D4-E5F6-A7B8-C9D0-E1F2A3B4C5D6}";
    values.Name = "Classic Client 7.3 Patch 1 64 bits";
    values.Publisher = "Gemalto";
    values.Platform = "64";
    values.DisplayVersion = "7.3.1.23";
    values.VersionMajor = 7;
    values.VersionMinor = 3;
    values.Revision = "1";
    values.BuildNo = "23";
    const std::string record = TqDetectedRecord("GemaltoMiddleware", values);
    EXPECT_EQ("{\n"
              "\t\"GemaltoMiddleware\": {\n"
              "\t\t\"Detected\": \"true\",\n"
              "\t\t\"UUID\": \"{A1B2C3D4-E5F6-A7B8-C9D0-E1F2A3B4C5D6}\",\n"
              "\t\t\"Name\": \"Classic Client 7.3 Patch 1 64 bits\",\n"
              "\t\t\"Publisher\": \"Gemalto\",\n"
              "\t\t\"Platform\": \"64\",\n"
              "\t\t\"DisplayVersion\": \"7.3.1.23\",\n"
              "\t\t\"VersionMajor\": \"7\",\n"
              "\t\t\"VersionMinor\": \"3\",\n"
              "\t\t\"Revision\": \"1\",\n"
              "\t\t\"BuildNo\": \"23\"\n"
              "\t}\n"
              "}",
              record);
    const auto parsed = nlohmann::json::parse(record);
    EXPECT_EQ("7", parsed["GemaltoMiddleware"]["VersionMajor"]);
}

TEST(MiddlewareRecord, VersionNumbersAreUnsignedDecimal) {
    TqMiddlewareValues values;
    values.VersionMajor = 4294967295u;
    const std::string record = TqDetectedRecord("K", values);
    EXPECT_NE(std::string::npos, record.find("\t\t\"VersionMajor\": \"4294967295\",\n"));
    EXPECT_NE(std::string::npos, record.find("\t\t\"VersionMinor\": \"0\",\n"));
}

TEST(MiddlewareRecord, NotDetectedRecordHasOneFieldWithoutComma) {
    EXPECT_EQ("{\n\t\"OTMiddleware\": {\n\t\t\"Detected\": \"false\"\n\t}\n}",
              TqNotDetectedRecord("OTMiddleware"));
}

TEST(MiddlewareRecord, ExceptionRecordCarriesTheMessage) {
    EXPECT_EQ("{\n\t\"Unknown\": {\n\t\t\"Detected\": \"false\",\n\t\t\"Exception\": \"The search "
              "details arguments are invalid\"\n\t}\n}",
              TqExceptionRecord("Unknown", "The search details arguments are invalid"));
}

TEST(MiddlewareRecord, NothingIsEscaped) {
    EXPECT_EQ("{\n\t\"K\": {\n\t\t\"Detected\": \"false\",\n\t\t\"Exception\": \"a \"quoted\" "
              "C:\\path\"\n\t}\n}",
              TqExceptionRecord("K", "a \"quoted\" C:\\path"));
}

TEST(MiddlewareRecord, SeparatorOfAFieldCanBeTight) {
    EXPECT_EQ("{\n\t\"K\": {\n\t\t\"UUID\":\"N/A\",\n\t\t\"Name\": \"x\"\n\t}\n}",
              TqComposeRecord("K", {{"UUID", "N/A", ":"}, {"Name", "x"}}));
}

} // namespace
