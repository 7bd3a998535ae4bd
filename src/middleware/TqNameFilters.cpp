#include "TqNameFilters.h"

#include "base/TqFailure.h"
#include "base/TqPattern.h"
#include "base/TqStringUtil.h"
#include "base/TqResultCodes.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace {

// How one product's display name is recognised.
struct NameShape {
    const TqPattern& pattern;
    std::size_t minimumSubMatches; // whole match included
    std::size_t maximumSubMatches;
    std::size_t productGroup;
    std::string_view productWord;
    std::size_t platformGroup; // 0: the last group
};

bool matchShape(const NameShape& shape, const std::string& displayName, std::string& platform) {
    TqPattern::Groups match;
    if (!shape.pattern.fullMatch(displayName, match) || match.size() < shape.minimumSubMatches ||
        match.size() > shape.maximumSubMatches) {
        return false;
    }
    if (match.text(displayName, shape.productGroup) != shape.productWord) {
        return false;
    }
    const std::size_t platformGroup =
        shape.platformGroup != 0 ? shape.platformGroup : match.size() - 1;
    const std::string_view word = match.text(displayName, platformGroup);
    if (word != "32" && word != "64") {
        return false;
    }
    platform = word;
    return true;
}

// The patterns are compiled once per process; "[b|B]" also admits "|", as the names have always
// been matched. Display names come from any installer, so the matcher is the linear one.
const TqPattern& classicClientPattern() {
    static const TqPattern pattern(
        R"(^(Classic Client)\s([0-9]{1,}\.[0-9]{1,})\sPatch\s([0-9]{1,})\s[A-Za-z\s]{0,}(64|32)\s[b|B]it[s]{0,1}$)");
    return pattern;
}

const TqPattern& awpPattern() {
    static const TqPattern pattern(
        R"(^(AWP)\s([0-9]{1,}\.[0-9]{1,}\.[0-9]{1,})\s\((64|32)\-[b|B]it\)$)");
    return pattern;
}

const TqPattern& idemiaPattern() {
    static const TqPattern pattern(R"(^(IDEMIA)\s(.*)\((64|32)\-[b|B]it\)$)");
    return pattern;
}

} // namespace

bool TqClassicClientNameFilter(const std::string& displayName, std::string& platform) {
    return matchShape({classicClientPattern(), 5, 5, 1, "Classic Client", 4}, displayName,
                      platform);
}

bool TqAWPNameFilter(const std::string& displayName, std::string& platform) {
    return matchShape({awpPattern(), 4, 4, 1, "AWP", 3}, displayName, platform);
}

bool TqIdemiaNameFilter(const std::string& displayName, std::string& platform) {
    return matchShape({idemiaPattern(), 3, SIZE_MAX, 1, "IDEMIA", 0}, displayName, platform);
}

void TqSplitDisplayVersion(const std::string& displayVersion, std::string& buildNumber,
                           std::string& revision) {
    std::vector<std::string> parts;
    const int result = TqSplitString(displayVersion, R"(\.)", parts);
    if (result != 0) {
        throw TqFailure("Failed to split string. Error : " + TqGetCommonResultText(result));
    }
    if (parts.size() > 3) {
        revision = parts[2];
        buildNumber = parts[3];
    }
}
