// The driver-package decisions on any version-resource record: the matcher answers one of its
// three verdicts and the selection keeps at most one candidate.
#include "middleware/TqDriverSelection.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> fields(4);
    std::size_t field = 0;
    for (const char c : text) {
        if (c == '\n' && field + 1 < fields.size()) {
            ++field;
        } else {
            fields[field] += c;
        }
    }
    TqDriverRecord record;
    record.FileDescription = fields[0];
    record.ProductName = fields[1];
    record.Copyright = fields[2];
    record.ProductVersion = fields[3];
    record.installDate = size;
    const int verdict = TqIdemiaDriverMatcher("Idemia09MSUpdate", fields[0], &record);
    if (verdict != kTqDriverAccept && verdict != kTqDriverReject) {
        __builtin_trap();
    }
    std::vector<TqDriverRecord> candidates{record, record, TqDriverRecord{}};
    const int selected = TqSelectLatestDriver(&candidates);
    if (selected != 1 || candidates.size() != 1) {
        __builtin_trap();
    }
    return 0;
}
