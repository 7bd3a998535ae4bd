// A seam in front of the allocation of text handed to the client. The tests set it to make the
// allocation fail on purpose; the library never does. Not part of the library's interface.
#pragma once

#include <cstddef>

// Called instead of calloc(count, 1) for the client's buffer while it is non-null.
using TqClientAllocator = void* (*)(std::size_t count);
extern TqClientAllocator gTqClientAllocateHook;
