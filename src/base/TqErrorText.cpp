#include "TqErrorText.h"

#include "TqResultCodes.h"
#include "base/TqUniqueResource.h"

#include <cstdio>
#include <iostream>

std::string TqGetLastErrorAsString(std::uint32_t errorCode) {
    char* text = nullptr;
    const DWORD length = ::FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, errorCode, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
        reinterpret_cast<char*>(&text), 0, nullptr);
    const TqUniqueLocalMemory owner(text);
    if (length == 0 || text == nullptr) {
        const DWORD failure = ::GetLastError();
        char hex[16];
        std::snprintf(hex, sizeof hex, "%x", static_cast<unsigned>(failure));
        std::cerr << "TqGetLastErrorAsString : FormatMessage failed. - Error(0x" << hex << ")."
                  << std::endl;
        return "(0x" + TqFormatHex8(errorCode) + ") - NO MESSAGE FOR THIS ERROR CODE";
    }
    return "(0x" + TqFormatHex8(errorCode) + ") - " + std::string(text, length);
}

std::string TqGetSmartCardErrorText(std::uint32_t code) {
    if (const char* message = TqGetSmartCardMessage(code)) {
        return std::string(message) + " Error Code: (0x" + TqFormatHex8(code) + ")";
    }
    return "Unknown SCard Error. Windows Error: " + TqGetLastErrorAsString(code);
}
