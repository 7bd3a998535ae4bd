#include "TqCacheFreshness.h"

namespace {

void bumpWord(TqCacheFileBytes& bytes, std::size_t offset) noexcept {
    const auto word = static_cast<std::uint16_t>(bytes[offset] | (bytes[offset + 1] << 8));
    const auto bumped = static_cast<std::uint16_t>(word + 1);
    bytes[offset] = static_cast<std::uint8_t>(bumped & 0xFF);
    bytes[offset + 1] = static_cast<std::uint8_t>(bumped >> 8);
}

} // namespace

TqCacheFileBytes TqBumpCacheFreshness(const std::uint8_t* current, std::size_t size) noexcept {
    TqCacheFileBytes bytes{};
    for (std::size_t at = 0; current != nullptr && at < size && at < bytes.size(); ++at) {
        bytes[at] = current[at];
    }
    bytes[0] = static_cast<std::uint8_t>(bytes[0] + 1);
    bytes[1] = static_cast<std::uint8_t>(bytes[1] + 1);
    bumpWord(bytes, 2);
    bumpWord(bytes, 4);
    bumpWord(bytes, 6);
    return bytes;
}
