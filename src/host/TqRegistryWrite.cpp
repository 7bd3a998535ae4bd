#include "TqRegistryWrite.h"

#include <string>

LSTATUS TqSetRegistryText(HKEY key, const char* name, std::string_view text) {
    const std::string terminated(text);
    return ::RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(terminated.c_str()),
                            static_cast<DWORD>(terminated.size()));
}
