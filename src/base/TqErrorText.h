// Texts of Windows and smart-card error codes.
#pragma once

#include <cstdint>
#include <string>

// "(0x00000005) - Access denied.\r\n": the system's own text of a Windows error code.
std::string TqGetLastErrorAsString(std::uint32_t errorCode);

// The smart-card message of a code and the code, or the Windows text of a code without a row.
std::string TqGetSmartCardErrorText(std::uint32_t code);
