#include "util/system/last_error_keeper.h"
#include "util/system/windows_api.h"
#include "util/text/platform.h"
#include "util/text/str.h"
#include "util/text/wide_str.h"

#include <array>
#include <limits>
#include <memory>
#include <stdexcept>

namespace velmox::platform {

namespace {

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

/// The text that FormatMessageW allocated.
class SystemMessage
{
public:
    explicit SystemMessage(unsigned error)
    {
        length_ = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, error,
                                 MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                                 reinterpret_cast<wchar_t *>(&text_), 0, nullptr);
    }
    ~SystemMessage() { LocalFree(text_); }
    SystemMessage(const SystemMessage &) = delete;
    SystemMessage &operator=(const SystemMessage &) = delete;

    std::u16string_view view() const { return {asUtf16(text_), length_}; }

private:
    wchar_t *text_ = nullptr;
    DWORD length_ = 0;
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
    const LastErrorKeeper keeper;
    const SystemMessage message(error);
    out.append(message.view());
    return !message.view().empty();
}

std::uint64_t systemTime()
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return std::uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime;
}

void writeStandardError(const char *bytes, std::size_t length)
{
    const HANDLE handle = GetStdHandle(STD_ERROR_HANDLE);
    while (length != 0) {
        constexpr std::size_t kMostAtOnce = 1u << 30;
        const auto part = static_cast<DWORD>(length < kMostAtOnce ? length : kMostAtOnce);
        DWORD written = 0;
        if (!WriteFile(handle, bytes, part, &written, nullptr) || written == 0) {
            return;
        }
        bytes += written;
        length -= written;
    }
}

} // namespace velmox::platform
