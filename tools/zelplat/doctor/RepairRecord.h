// The undo record: one JSON file per repair (docs/undo-record.schema.json), created new in a
// folder of its scope, holding every value the repair may touch as it was before.
#pragma once

#include "doctor/RepairRegistry.h"
#include "doctor/RepairRights.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

using RecordJson = nlohmann::ordered_json;

inline constexpr int kUndoRecordSchemaVersion = 1;

// Its moves move strings and nlohmann's json, which do not throw; clang-tidy cannot see through
// the json's invariant checks.
// NOLINTNEXTLINE(bugprone-exception-escape)
struct UndoRecord {
    RepairScope scope = RepairScope::kMachine;
    std::string time;     // "2026-11-25T13:20:05Z"
    std::string computer; // GetComputerName
    ProcessAccount account;
    std::string command; // "doctor --fix", "doctor --undo FILE"
    RecordJson findings; // the doctor's findings when it was made (an array)
    RecordJson fixes;    // the fixes about to be applied (an array of commands)
    std::vector<SavedKey> keys;
};

RecordJson UndoRecordJson(const UndoRecord& record);

// The record in a file; false and why not when the text is not a record zelplat can put back.
// Only the keys and values a fix of the record's scope touches are accepted.
bool ReadUndoRecord(const std::string& path, UndoRecord& record, std::string& problem);

// Writes the record as a new file of the scope's folder (created when missing; the machine's
// readable by administrators and SYSTEM only), never over a file or through a link. Returns the
// file's path, or "" and why not.
std::string WriteUndoRecord(const UndoRecord& record, const char* kind, std::string& problem);

// "2026-11-25T13:20:05Z", now.
std::string UtcTimeText();
