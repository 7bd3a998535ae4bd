#include "TqDriverSelection.h"

#include <algorithm>
#include <cctype>

namespace {

std::string upperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

} // namespace

int TqIdemiaDriverMatcher(const char*, const std::string&, const TqDriverRecord* record) {
    if (record == nullptr) {
        return kTqDriverNoRecord;
    }
    const std::string name = upperCase(record->FileDescription);
    const std::string product = upperCase(record->ProductName);
    const std::string copyright = upperCase(record->Copyright);
    if (contains(name, "IDEMIA CIVMINIDRIVER") && contains(product, "AWP")) {
        return kTqDriverAccept;
    }
    if (name == "IDPLUG CIV MINIDRIVER" && contains(product, "IDPLUG CLASSIC") &&
        contains(copyright, "IDEMIA")) {
        return kTqDriverAccept;
    }
    return kTqDriverReject;
}

int TqSelectLatestDriver(std::vector<TqDriverRecord>* candidates) {
    if (candidates == nullptr || candidates->empty()) {
        return 0;
    }
    std::stable_sort(candidates->begin(), candidates->end(),
                     [](const TqDriverRecord& a, const TqDriverRecord& b) {
                         return a.installDate > b.installDate;
                     });
    candidates->resize(1);
    return 1;
}
