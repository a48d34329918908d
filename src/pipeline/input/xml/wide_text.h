#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace velmox {

/// UTF-16 text that stands at any address: in place, or as a copy in `room` where the address is odd, at
/// which 16-bit text must not be read. `length` counts units.
inline std::u16string_view wideTextAt(const unsigned char *bytes, std::size_t length, std::u16string &room)
{
    if (reinterpret_cast<std::uintptr_t>(bytes) % alignof(char16_t) == 0) {
        return {reinterpret_cast<const char16_t *>(bytes), length};
    }
    room.resize(length);
    std::memcpy(room.data(), bytes, length * sizeof(char16_t));
    return room;
}

} // namespace velmox
