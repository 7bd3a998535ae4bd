#include "TqOutputTextSeam.h"

#include <cstdlib>

void* TqAllocateClientBuffer(std::size_t size) noexcept {
    return std::calloc(size, 1);
}
