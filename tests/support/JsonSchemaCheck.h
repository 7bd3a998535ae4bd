// A JSON Schema check for the subset of keywords that docs/report.schema.json uses: type,
// required, properties, additionalProperties, items and enum (plus the annotations $schema,
// title and description). Any other keyword is itself reported as a violation, so the schema
// cannot come to rely on one that is not checked.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace zeltest {

// One line per violation, "/atr/entries/0/view: \"16-bit\" is not one of the enum values";
// empty when the document fits the schema.
std::vector<std::string> SchemaViolations(const nlohmann::json& schema,
                                          const nlohmann::json& document);

// docs/report.schema.json, as the build copies it beside the test programs.
nlohmann::json ReportSchema();

// A schema of docs/ by its file name ("doctor.schema.json", "undo-record.schema.json"), as the
// build copies it beside the test programs.
nlohmann::json DocsSchema(const char* fileName);

} // namespace zeltest
