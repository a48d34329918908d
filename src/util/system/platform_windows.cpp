#include "util/system/last_error_keeper.h"
#include "util/system/owned_handle.h"
#include "util/text/platform.h"
#include "util/text/str.h"
#include "util/text/wide_str.h"

#include <array>
#include <limits>
#include <memory>
#include <stdexcept>

namespace velmox::platform {

namespace {

/// The system's conversions count in int; what is longer than that is refused like any text too long.
int checkedLength(std::size_t length)
{
    if (length > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        throw std::length_error("string too long");
    }
    return static_cast<int>(length);
}

/// Room for exactly `count` units; short conversions, which are nearly all, stay off the heap.
template <class Unit>
class ConversionBuffer
{
public:
    explicit ConversionBuffer(int count)
    {
        const auto needed = static_cast<std::size_t>(count);
        if (needed > inline_.size()) {
            heap_ = std::make_unique_for_overwrite<Unit[]>(needed);
        }
    }
    Unit *data() { return heap_ ? heap_.get() : inline_.data(); }

private:
    std::array<Unit, 512> inline_;
    std::unique_ptr<Unit[]> heap_;
};

} // namespace

unsigned lastError()
{
    return GetLastError();
}

void setLastError(unsigned error)
{
    SetLastError(error);
}

void appendUtf16AsUtf8(const char16_t *text, std::size_t length, Str &out)
{
    // Without flags, what is ill-formed is substituted; asking for the size first costs a pass and saves a
    // copy of the largest size that there could be.
    const int sourceLength = checkedLength(length);
    const int size =
        WideCharToMultiByte(CP_UTF8, 0, asWide(text), sourceLength, nullptr, 0, nullptr, nullptr);
    if (size <= 0) {
        return;
    }
    ConversionBuffer<char> buffer(size);
    WideCharToMultiByte(CP_UTF8, 0, asWide(text), sourceLength, buffer.data(), size, nullptr, nullptr);
    out.append(buffer.data(), static_cast<std::size_t>(size));
}

void appendUtf8AsUtf16(const char *text, std::size_t length, WideStr &out)
{
    const int sourceLength = checkedLength(length);
    const int size = MultiByteToWideChar(CP_UTF8, 0, text, sourceLength, nullptr, 0);
    if (size <= 0) {
        return;
    }
    ConversionBuffer<wchar_t> buffer(size);
    MultiByteToWideChar(CP_UTF8, 0, text, sourceLength, buffer.data(), size);
    out.append(asUtf16(buffer.data()), static_cast<std::size_t>(size));
}

bool systemMessage(unsigned error, WideStr &out)
{
    // FormatMessageW sets an error of its own for each code that it does not know.
    const LastErrorKeeper keeper;
    wchar_t *text = nullptr;
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr,
                                        error, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                                        reinterpret_cast<wchar_t *>(&text), 0, nullptr);
    const LocalMemory owner(text);
    if (length != 0) {
        out.append(asUtf16(text), length);
    }
    return length != 0;
}

std::uint64_t systemTime()
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return std::uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime;
}

std::uint64_t uptimeMilliseconds()
{
    return GetTickCount64();
}

bool localTime(std::int64_t unixSeconds, std::tm &out)
{
    const __time64_t seconds = unixSeconds;
    return _localtime64_s(&out, &seconds) == 0;
}

bool localToUnix(std::tm tm, std::int64_t &unixSeconds)
{
    const __time64_t seconds = _mktime64(&tm);
    // No moment is lost by it: the library's range begins in 1970, and -1 is the second before.
    if (seconds == -1) {
        return false;
    }
    unixSeconds = seconds;
    return true;
}

void localZoneName(bool daylight, Str &out)
{
    // Until it is told to look, the run-time library has the names of a built-in zone.
    static const bool looked = (_tzset(), true);
    static_cast<void>(looked);
    // It keeps them in the system's code page.
    const char *name = _tzname[daylight ? 1 : 0];
    wchar_t wide[128];
    const int units = MultiByteToWideChar(CP_ACP, 0, name, -1, wide, static_cast<int>(std::size(wide)));
    if (units > 1) {
        out.appendUtf16(asUtf16(wide), static_cast<std::size_t>(units) - 1);
    }
}

void writeStandardError(const char *bytes, std::size_t length)
{
    const HANDLE handle = GetStdHandle(STD_ERROR_HANDLE);
    while (length != 0) {
        // WriteFile counts in 32 bits.
        constexpr std::size_t kMostAtOnce = 1u << 30;
        const auto part = static_cast<DWORD>(length < kMostAtOnce ? length : kMostAtOnce);
        DWORD written = 0;
        // There is nobody left to tell, and a handle that takes nothing must not hold the program up.
        if (!WriteFile(handle, bytes, part, &written, nullptr) || written == 0) {
            return;
        }
        bytes += written;
        length -= written;
    }
}

} // namespace velmox::platform
