#include "TqSpringCheckSeam.h"

#include "TqSpringCheck.h"

LSTATUS TqWriteZelCheck(HKEY key, const BYTE* data, DWORD size) noexcept {
    return ::RegSetValueExA(key, kTqZelCheckValue, 0, REG_BINARY, data, size);
}
