// The freshness counters of a card's "cardcf" file. Free of <windows.h>: builds natively as well.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The write that marks a card's cached data stale is always this long, whatever was read.
inline constexpr std::size_t kTqCacheFileWriteSize = 8;

using TqCacheFileBytes = std::array<std::uint8_t, kTqCacheFileWriteSize>;

// The bytes to write back after reading `size` bytes of "cardcf": bytes 0 and 1 plus one, the
// little-endian words at 2, 4 and 6 plus one, all wrapping. Only the first eight bytes read
// count; a shorter file counts as if padded with zeros, so a short read never reads past its
// buffer. A null `current` counts as empty.
TqCacheFileBytes TqBumpCacheFreshness(const std::uint8_t* current, std::size_t size) noexcept;
