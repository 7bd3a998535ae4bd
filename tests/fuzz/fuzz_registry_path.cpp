// The key-name rule of the registry search on any path and name: never a crash, and a found
// path is always a beginning of the searched one.
#include "host/TqRegistryPath.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) {
        return 0;
    }
    const std::uint32_t flags = data[0];
    const std::string rest(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::size_t separator = rest.find('\0');
    const std::string path = rest.substr(0, separator);
    const std::string keyName = separator == std::string::npos ? "" : rest.substr(separator + 1);
    std::string found = "unset";
    const int result = TqReverseSearchInRegistryPath(path, keyName, flags, found);
    if (result == 1 && path.compare(0, found.size(), found) != 0) {
        __builtin_trap();
    }
    return 0;
}
