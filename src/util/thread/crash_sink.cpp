#include "util/thread/crash_sink.h"

#include "util/system/windows_api.h"
#include "util/text/code_point.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace velmox {

CrashSink::~CrashSink() = default;

void CrashSink::print(const char *text)
{
    write(text, std::strlen(text));
}

void CrashSink::print(const char16_t *text)
{
    // Piece by piece over the stack: no unit of UTF-16 becomes more than three bytes of UTF-8.
    constexpr int kPiece = 256;
    char utf8[3 * kPiece];
    std::size_t left = std::char_traits<char16_t>::length(text);
    while (left != 0) {
        int units = static_cast<int>(left < kPiece ? left : kPiece);
        // A half that stands alone at the end is a piece of one unit, which goes as it is.
        if (units > 1 && isHighSurrogate(text[units - 1])) {
            --units; // the pair goes with the next piece
        }
        const int length =
            WideCharToMultiByte(CP_UTF8, 0, asWide(text), units, utf8, sizeof(utf8), nullptr, nullptr);
        write(utf8, static_cast<std::size_t>(length));
        text += units;
        left -= static_cast<std::size_t>(units);
    }
}

// The C run-time library's own formatting on the stack: it takes no lock of this program and nothing from the
// heap. A text that is too long has no end of its own, and -1 for its length.
void CrashSink::format(const char *fmt, ...)
{
    char text[1024];
    std::va_list args;
    va_start(args, fmt);
    const int length = _vsnprintf(text, sizeof(text) - 1, fmt, args);
    va_end(args);
    text[sizeof(text) - 1] = '\0';
    write(text, length >= 0 ? static_cast<std::size_t>(length) : std::strlen(text));
}

void LimitedCrashSink::write(const char *bytes, std::size_t length)
{
    if (full_) {
        return;
    }
    if (length > kWriteLimit) {
        // Through this function again, and counted; the word is short enough to come through.
        print("Crash log write attempted over the limit of (50kB), skipping.\r\n");
        return;
    }
    // The last word is not counted: without it nobody would know that there was more.
    if (length > kTotalLimit - total_) {
        full_ = true;
        putText("Crash log has overflowed the allowed limit (512kB), truncated.\r\n");
        return;
    }
    total_ += length;
    put(bytes, length);
}

void LimitedCrashSink::putText(const char *text)
{
    put(text, std::strlen(text));
}

} // namespace velmox
