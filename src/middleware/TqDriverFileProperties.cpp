#include "TqDriverFileProperties.h"

#include "base/TqResultCodes.h"

#include <windows.h>

#include <charconv>
#include <cstdio>
#include <vector>

namespace {

struct Translation {
    WORD language;
    WORD codePage;
};

// One string of the resource's StringFileInfo block for the first listed translation; empty
// when the resource does not carry it.
std::string versionString(const std::vector<char>& block, const Translation& translation,
                          const char* name) {
    char query[128];
    std::snprintf(query, sizeof query, "\\StringFileInfo\\%04x%04x\\%s", translation.language,
                  translation.codePage, name);
    char* text = nullptr;
    UINT length = 0;
    if (!::VerQueryValueA(block.data(), query, reinterpret_cast<void**>(&text), &length) ||
        text == nullptr || length == 0) {
        return {};
    }
    // The length counts the terminator when there is one; never read past it either way.
    std::string value(text, length);
    value.resize(value.find('\0') == std::string::npos ? value.size() : value.find('\0'));
    return value;
}

bool parseNumber(const std::string& text, std::int32_t& number) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && !text.empty();
}

// "7.4.12.0" gives "7" and "4": the first two dot-separated parts, which must be numbers.
bool splitMajorMinor(const std::string& version, std::string& majorText, std::string& minorText,
                     std::int32_t& major, std::int32_t& minor) {
    const std::size_t firstDot = version.find('.');
    if (firstDot == std::string::npos) {
        return false;
    }
    const std::size_t secondDot = version.find('.', firstDot + 1);
    const std::string first = version.substr(0, firstDot);
    const std::string second =
        version.substr(firstDot + 1, secondDot == std::string::npos ? std::string::npos
                                                                    : secondDot - firstDot - 1);
    if (!parseNumber(first, major) || !parseNumber(second, minor)) {
        return false;
    }
    majorText = first;
    minorText = second;
    return true;
}

} // namespace

int TqReadDriverFileProperties(const std::string& filePath, TqDriverRecord& record) {
    DWORD handle = 0;
    const DWORD size = ::GetFileVersionInfoSizeA(filePath.c_str(), &handle);
    if (size == 0) {
        return tq::kNotFound;
    }
    std::vector<char> block(size);
    if (!::GetFileVersionInfoA(filePath.c_str(), handle, size, block.data())) {
        return tq::kNotFound;
    }
    Translation* translations = nullptr;
    UINT length = 0;
    if (!::VerQueryValueA(block.data(), "\\VarFileInfo\\Translation",
                          reinterpret_cast<void**>(&translations), &length) ||
        length < sizeof(Translation)) {
        return tq::kNotFound;
    }
    const Translation translation = translations[0];
    record.FileDescription = versionString(block, translation, "FileDescription");
    record.FileVersion = versionString(block, translation, "FileVersion");
    record.ProductName = versionString(block, translation, "ProductName");
    record.ProductVersion = versionString(block, translation, "ProductVersion");
    record.Copyright = versionString(block, translation, "LegalCopyright");
    if (!splitMajorMinor(record.FileVersion, record.FileVersionMajor, record.FileVersionMinor,
                         record.fileMajor, record.fileMinor) ||
        !splitMajorMinor(record.ProductVersion, record.ProductVersionMajor,
                         record.ProductVersionMinor, record.productMajor, record.productMinor)) {
        return tq::kFormatInvalid;
    }
    return tq::kSuccess;
}
