// The verdict over a card's key containers, for any list of records the CSP could report: never
// a crash, and a valid verdict always has every content bit.
#include "card/TqKeyContainerVerdict.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    TqEnumerationContext context;
    context.applet = data[0] % 4;
    context.cardType = data[1] % 4;
    std::size_t at = 2;
    while (at + 2 <= size) {
        TqKeyContainerRecord record;
        record.content = data[at] & 0x7;
        record.applet = data[at + 1] % 4;
        const std::size_t length = std::min<std::size_t>(data[at + 1] / 4, size - at - 2);
        record.name.assign(reinterpret_cast<const char*>(data + at + 2), length);
        context.containers.push_back(record);
        at += 2 + length;
    }
    const TqContentVerdict verdict = TqJudgeKeyContainers(context);
    if (verdict.valid && (verdict.bits & kTqCompleteContent) != kTqCompleteContent) {
        __builtin_trap();
    }
    return 0;
}
