#include "util/crash/crash_sink.h"

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
    constexpr int kPiece = 256;
    char utf8[3 * kPiece];
    std::size_t left = std::char_traits<char16_t>::length(text);
    while (left != 0) {
        int units = static_cast<int>(left < kPiece ? left : kPiece);
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
        print("Crash log write attempted over the limit of (50kB), skipping.\r\n");
        return;
    }
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
