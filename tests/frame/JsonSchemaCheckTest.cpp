// The schema check that the report tests rely on: it must accept what fits and name what does
// not, keyword by keyword.
#include "support/JsonSchemaCheck.h"

#include <gtest/gtest.h>

namespace {

using nlohmann::json;
using Violations = std::vector<std::string>;

const json kSchema = json::parse(R"({
  "type": "object",
  "required": ["name", "entries"],
  "properties": {
    "name": {"type": "string"},
    "count": {"type": ["integer", "null"]},
    "view": {"type": "string", "enum": ["64-bit", "32-bit"]},
    "entries": {"type": "array", "items": {"type": "object", "additionalProperties": false,
                "properties": {"atr": {"type": "string"}}}},
    "records": {"type": "object", "additionalProperties": {"type": "string"}}
  },
  "additionalProperties": false
})");

TEST(JsonSchemaCheck, AcceptsADocumentThatFits) {
    const json document = json::parse(R"({"name": "x", "count": null, "view": "32-bit",
        "entries": [{"atr": "3B"}, {}], "records": {"a": "b"}})");
    EXPECT_EQ(Violations{}, zeltest::SchemaViolations(kSchema, document));
}

TEST(JsonSchemaCheck, NamesAMissingRequiredMember) {
    EXPECT_EQ(Violations{": required member \"entries\" is missing"},
              zeltest::SchemaViolations(kSchema, json::parse(R"({"name": "x"})")));
}

TEST(JsonSchemaCheck, NamesAValueOfTheWrongType) {
    // Members are checked in name order.
    EXPECT_EQ((Violations{"/count: \"7\" is not of type [\"integer\",\"null\"]",
                          "/name: 7 is not of type \"string\""}),
              zeltest::SchemaViolations(
                  kSchema, json::parse(R"({"name": 7, "count": "7", "entries": []})")));
    EXPECT_EQ(Violations{": [] is not of type \"object\""},
              zeltest::SchemaViolations(kSchema, json::array()));
}

TEST(JsonSchemaCheck, NamesAMemberTheSchemaDoesNotAllow) {
    EXPECT_EQ((Violations{"/entries/1/mask: member not allowed", "/extra: member not allowed"}),
              zeltest::SchemaViolations(
                  kSchema, json::parse(R"({"name": "x", "entries": [{"atr": "3B"}, {"mask": "FF"}],
                                           "extra": 1})")));
}

TEST(JsonSchemaCheck, ChecksEveryItemAndEveryAdditionalMember) {
    EXPECT_EQ((Violations{"/entries/0/atr: 59 is not of type \"string\"",
                          "/records/b: true is not of type \"string\""}),
              zeltest::SchemaViolations(kSchema, json::parse(R"({"name": "x",
                  "entries": [{"atr": 59}], "records": {"a": "b", "b": true}})")));
}

TEST(JsonSchemaCheck, NamesAValueOutsideTheEnum) {
    EXPECT_EQ(Violations{"/view: \"16-bit\" is not one of the enum values"},
              zeltest::SchemaViolations(
                  kSchema, json::parse(R"({"name": "x", "entries": [], "view": "16-bit"})")));
}

TEST(JsonSchemaCheck, RefusesAKeywordItDoesNotCheck) {
    const json schema = json::parse(R"({"type": "string", "pattern": "^3B"})");
    EXPECT_EQ(Violations{": schema keyword \"pattern\" is not supported"},
              zeltest::SchemaViolations(schema, json("3B")));
}

TEST(JsonSchemaCheck, TheReportSchemaIsFoundAndRequiresTheSevenSections) {
    const json schema = zeltest::ReportSchema();
    ASSERT_TRUE(schema.is_object());
    const Violations violations = zeltest::SchemaViolations(schema, json::object());
    EXPECT_EQ(7u, violations.size());
    for (const std::string& violation : violations) {
        EXPECT_NE(std::string::npos, violation.find("required member")) << violation;
    }
}

} // namespace
