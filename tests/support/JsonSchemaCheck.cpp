#include "support/JsonSchemaCheck.h"

#include "support/TestSupport.h"

#include <algorithm>
#include <fstream>
#include <set>

namespace zeltest {
namespace {

using Json = nlohmann::json;
using Violations = std::vector<std::string>;

bool hasType(const Json& value, const std::string& type) {
    if (type == "object") {
        return value.is_object();
    }
    if (type == "array") {
        return value.is_array();
    }
    if (type == "string") {
        return value.is_string();
    }
    if (type == "integer") {
        return value.is_number_integer();
    }
    if (type == "number") {
        return value.is_number();
    }
    if (type == "boolean") {
        return value.is_boolean();
    }
    return type == "null" && value.is_null();
}

void checkType(const Json& type, const Json& value, const std::string& at, Violations& out) {
    const Json types = type.is_array() ? type : Json::array({type});
    for (const Json& one : types) {
        if (one.is_string() && hasType(value, one.get<std::string>())) {
            return;
        }
    }
    out.push_back(at + ": " + value.dump() + " is not of type " + type.dump());
}

void check(const Json& schema, const Json& value, const std::string& at, Violations& out);

void checkObject(const Json& schema, const Json& value, const std::string& at, Violations& out) {
    if (!value.is_object()) {
        return;
    }
    for (const Json& name : schema.value("required", Json::array())) {
        if (!value.contains(name.get<std::string>())) {
            out.push_back(at + ": required member " + name.dump() + " is missing");
        }
    }
    const Json properties = schema.value("properties", Json::object());
    const Json additional = schema.value("additionalProperties", Json(true));
    for (auto member = value.begin(); member != value.end(); ++member) {
        const std::string path = at + "/" + member.key();
        if (properties.contains(member.key())) {
            check(properties[member.key()], member.value(), path, out);
        } else if (additional.is_boolean() && !additional.get<bool>()) {
            out.push_back(path + ": member not allowed");
        } else if (additional.is_object()) {
            check(additional, member.value(), path, out);
        }
    }
}

void checkItems(const Json& items, const Json& value, const std::string& at, Violations& out) {
    if (!value.is_array()) {
        return;
    }
    for (std::size_t index = 0; index < value.size(); ++index) {
        check(items, value[index], at + "/" + std::to_string(index), out);
    }
}

void check(const Json& schema, const Json& value, const std::string& at, Violations& out) {
    static const std::set<std::string> kKnown = {
        "type", "required", "properties", "additionalProperties", "items",
        "enum", "$schema",  "title",      "description"};
    for (auto keyword = schema.begin(); keyword != schema.end(); ++keyword) {
        if (kKnown.count(keyword.key()) == 0) {
            out.push_back(at + ": schema keyword \"" + keyword.key() + "\" is not supported");
        }
    }
    if (schema.contains("type")) {
        checkType(schema["type"], value, at, out);
    }
    if (schema.contains("enum")) {
        const Json& values = schema["enum"];
        if (std::find(values.begin(), values.end(), value) == values.end()) {
            out.push_back(at + ": " + value.dump() + " is not one of the enum values");
        }
    }
    checkObject(schema, value, at, out);
    if (schema.contains("items")) {
        checkItems(schema["items"], value, at, out);
    }
}

} // namespace

std::vector<std::string> SchemaViolations(const nlohmann::json& schema,
                                          const nlohmann::json& document) {
    Violations violations;
    check(schema, document, "", violations);
    return violations;
}

nlohmann::json ReportSchema() {
    return DocsSchema("report.schema.json");
}

nlohmann::json DocsSchema(const char* fileName) {
    std::ifstream file(BuiltFile(fileName));
    return nlohmann::json::parse(file, nullptr, false);
}

} // namespace zeltest
