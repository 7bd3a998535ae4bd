#include "TqOTMiddleware.h"

#include "platform/TqWorkerFailure.h"

#include <regex>
#include <stdexcept>

int TqOTMiddlewareSelectionText(std::uint32_t selection, std::string& text) {
    switch (selection) {
    case 1:
        text = "OT Middleware Version 5.2.0 SR5";
        return 1;
    case 2:
        text = "OT Middleware Version 5.2.0 SR1";
        return 1;
    case 3001:
        text = "64bit OT Middleware Version 5.2.0 SR5";
        return 0;
    case 3002:
        text = "64bit OT Admin Middleware Version 5.2.0 SR5";
        return 0;
    case 3003:
        text = "32bit OT Middleware Version 5.2.0 SR5";
        return 0;
    case 3004:
        text = "32bit OT Admin Middleware Version 5.2.0 SR5";
        return 0;
    default:
        break;
    }
    if (selection < 1 || selection > 3004) {
        return 1;
    }
    if (selection <= 1024) {
        text = "OT Middleware";
        return 0;
    }
    text = "Unsupported Middleware selected.";
    return -tq::kUnsupported;
}

int TqParseOTJSONMiddlewareString(const std::string& json,
                                  std::map<std::string, std::string>& pairs, const char* logFile) {
    return TqRunWorker("TqParseOTJSONMiddlewareString", [&](int& result) {
        if (logFile != nullptr) {
            TqLogger().SetFileName(logFile);
        }
        static const std::regex pair(R"x("(.*?)"\s{0,}\:\s{0,}"(.*?)")x");
        pairs.clear();
        if (json.empty()) {
            result = tq::kInvalidLength;
            return;
        }
        if (json.front() != '{' || json.back() != '}') {
            result = tq::kFormatInvalid;
            throw std::runtime_error("JSON string contains invalid formatting.");
        }
        // Only complete lines count: whatever follows the last line feed is not read.
        std::size_t start = 0;
        for (std::size_t end = json.find('\n'); end != std::string::npos;
             start = end + 1, end = json.find('\n', start)) {
            const std::string line = json.substr(start, end - start);
            std::smatch match;
            if (std::regex_search(line, match, pair) && match.size() >= 3) {
                pairs.emplace(match[1].str(), match[2].str());
            }
        }
        result = pairs.empty() ? tq::kNotFound : tq::kSuccess;
    });
}
