// The allocation of text handed to the client, alone in TqClientAllocation.cpp: a test program
// links a definition of its own in its place to make the allocation fail on purpose. The shipped
// DLL holds only the library's definition, so there is no pointer to redirect at run time. Not
// part of the library's interface.
#pragma once

#include <cstddef>

// calloc(size, 1) in the library.
void* TqAllocateClientBuffer(std::size_t size) noexcept;
