#include "fuzz/fuzz_target.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace velmox::fuzz {

const Target *Target::first = nullptr;

void require(bool holds, const char *what)
{
    if (!holds) {
        throw std::logic_error(what);
    }
}

unsigned Input::choice(unsigned count)
{
    if (rest_.empty()) {
        return 0;
    }
    const auto byte = static_cast<unsigned char>(rest_.front());
    rest_.remove_prefix(1);
    return byte % count;
}

std::string_view Input::line()
{
    const std::size_t end = std::min(rest_.find('\n'), rest_.size());
    const std::string_view text = rest_.substr(0, end);
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    return text;
}

std::vector<Str> Input::lines()
{
    std::vector<Str> all;
    while (!empty()) {
        all.emplace_back(line());
    }
    return all;
}

std::uint64_t Input::number()
{
    std::uint64_t value = 0;
    for (int byte = 0; byte < 8; ++byte) {
        value = value << 8 | choice(256);
    }
    return value;
}

std::u16string wideText(std::string_view bytes)
{
    constexpr std::array<char16_t, 16> kUnits = {0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xFEFF, 0xFFFE,
                                                 0xFFFF, 0xFFFD, 0x0000, 0x0080, 0x07FF, 0x0800,
                                                 0xD7FF, 0xE000, 0x0130, 0x2028};
    std::u16string wide;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        wide += value < 0x80 ? char16_t{value} : kUnits[value % kUnits.size()];
    }
    return wide;
}

} // namespace velmox::fuzz
