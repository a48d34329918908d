#include "util/crash/hex_dump.h"

#include "util/thread/crash_sink.h"

#include <algorithm>
#include <cstdint>
#include <stdio.h>

namespace velmox {

namespace {

constexpr std::size_t kPageSize = 4096;
constexpr std::size_t kBytesPerLine = 16;
constexpr char kDigits[] = "0123456789abcdef";

/// A page is readable as a whole or not at all; the lowest one never is.
std::size_t readableLength(const void *start, std::size_t length)
{
    const auto address = reinterpret_cast<std::uintptr_t>(start);
    return address < kPageSize ? 0 : std::min(length, kPageSize - address % kPageSize);
}

bool isPrintable(unsigned char byte)
{
    return byte >= 0x20 && byte < 0x7F;
}

/// "0010: 48 65 6c 6c 6f                                   Hello"
class HexLine
{
public:
    HexLine(std::size_t offset, const unsigned char *bytes, std::size_t count)
    {
        std::fill(text_, text_ + sizeof(text_), ' ');
        // Four digits do: no offset reaches beyond a page.
        for (int digit = 0; digit < 4; ++digit) {
            text_[digit] = kDigits[offset >> (12 - 4 * digit) & 15];
        }
        text_[4] = ':';
        for (std::size_t i = 0; i < count; ++i) {
            char *hex = text_ + 6 + 3 * i;
            hex[0] = kDigits[bytes[i] >> 4];
            hex[1] = kDigits[bytes[i] & 15];
            text_[kTextColumn + i] = isPrintable(bytes[i]) ? static_cast<char>(bytes[i]) : '.';
        }
        text_[kTextColumn + count] = '\0';
    }
    const char *text() const { return text_; }

private:
    static constexpr std::size_t kTextColumn = 6 + 3 * kBytesPerLine + 1;
    char text_[kTextColumn + kBytesPerLine + 1];
};

} // namespace

void HexDumper::dump(const void *start, std::size_t length, const char *label)
{
    const std::size_t readable = readableLength(start, length);
    // A long label is cut, so that the address behind it stands. At its limit the routine writes no NUL,
    // which is there already.
    char intro[256] = {};
    _snprintf(intro, sizeof(intro) - 1, "First %u bytes of %.200s @%p:", static_cast<unsigned>(readable),
              label, start);
    writeLine(intro);
    const auto *bytes = static_cast<const unsigned char *>(start);
    for (std::size_t offset = 0; offset < readable; offset += kBytesPerLine) {
        writeLine(HexLine(offset, bytes + offset, std::min(kBytesPerLine, readable - offset)).text());
    }
}

void HexDumper_to_CrashLog::writeLine(const char *text)
{
    sink_.print(text);
    sink_.print("\r\n");
}

} // namespace velmox
