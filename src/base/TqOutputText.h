// Text handed to the caller: a malloc'd, NUL-terminated copy released with FreeStringData.
#pragma once

#include <string_view>

// Copies text into a fresh buffer of length + 1 bytes and stores it and its length (without the
// NUL) through the caller's pointers. Hands out nothing when the text is empty or a pointer is
// null. Throws std::bad_alloc when the buffer cannot be had.
void TqHandOutText(std::string_view text, char** textOut, int* lengthOut);
