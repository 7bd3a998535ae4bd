#include "TqOutputText.h"

#include "TqOutputTextSeam.h"

#include <cstdlib>
#include <cstring>
#include <new>

void TqHandOutText(std::string_view text, char** textOut, int* lengthOut) {
    if (text.empty() || textOut == nullptr || lengthOut == nullptr) {
        return;
    }
    const std::size_t size = text.size() + 1;
    char* buffer = static_cast<char*>(TqAllocateClientBuffer(size));
    if (buffer == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(buffer, text.data(), text.size());
    *textOut = buffer;
    *lengthOut = static_cast<int>(text.size());
}
