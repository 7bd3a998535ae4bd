#include "TqRegistryPath.h"

#include "base/TqFailureGuard.h"
#include "base/TqResultCodes.h"

#include <iostream>
#include <stdexcept>

namespace {

// The walk from the end of path towards its start. 1 = found (foundPath written), 0 = not.
int findKeyNameInPath(const std::string& path, const std::string& keyName, std::uint32_t flags,
                      std::string& foundPath) {
    std::string walked = path;
    while (true) {
        const std::size_t position = walked.rfind(keyName);
        if (position == std::string::npos) {
            return 0;
        }
        if ((flags & SEARCH_PATH_ANY) != 0) {
            foundPath = walked;
            return 1;
        }
        const std::size_t end = position + keyName.size();
        const std::string candidate = walked.substr(0, end);
        bool component = false;
        if (position == 0) {
            // Looks at the candidate's second character, not past the match: a name at
            // the very start of the path is only accepted in this odd case.
            component = candidate.size() > 1 && candidate[1] == '\\';
        } else if (walked[position - 1] == '\\') {
            // The right edge is checked one character past the match's end; kept so,
            // since callers' answers depend on it.
            component = end + 1 < walked.size() ? path[end + 1] == '\\' : end == walked.size();
        }
        if (component) {
            foundPath = candidate;
            return 1;
        }
        if ((flags & SEARCH_PATH_WALK_UP) == 0) {
            return 0;
        }
        const std::size_t separator = walked.rfind('\\');
        if (separator == std::string::npos) {
            return 0;
        }
        walked.resize(separator);
    }
}

} // namespace

int TqReverseSearchInRegistryPath(const std::string& path, const std::string& keyName,
                                  std::uint32_t flags, std::string& foundPath) {
    constexpr const char* kName = "TqReverseSearchInRegistryPath";
    return TqGuard<int>(
        [&](int& result) {
            foundPath.clear();
            if (path.empty() || keyName.empty()) {
                result = -tq::kInvalidArguments;
                throw TqFailure("Invalid argument encountered.");
            }
            result = findKeyNameInPath(path, keyName, flags, foundPath);
        },
        [&](const TqCaught& caught) {
            std::cerr << kName << " : An exception occurred - "
                      << (caught.standard() ? caught.text : "unknown exception") << std::endl;
        },
        [&](const TqCaught&, int resultSoFar) noexcept {
            foundPath.clear();
            return resultSoFar != 0 ? resultSoFar : -tq::kExceptionOccurred;
        });
}
