#include "TqOutputText.h"

#include <cstdlib>
#include <cstring>
#include <new>

void TqHandOutText(std::string_view text, char** textOut, int* lengthOut) {
    if (text.empty() || textOut == nullptr || lengthOut == nullptr) {
        return;
    }
    char* buffer = static_cast<char*>(std::calloc(text.size() + 1, 1));
    if (buffer == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(buffer, text.data(), text.size());
    *textOut = buffer;
    *lengthOut = static_cast<int>(text.size());
}
