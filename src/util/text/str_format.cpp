#include "util/text/platform.h"
#include "util/text/str.h"

#include <cstdio>
#include <cstring>
#include <memory>

namespace velmox {

namespace {

/// Enough for the common log line, so that it is formatted without touching the heap.
constexpr std::size_t kStackBuffer = 256;

#ifdef _WIN32
/// The C run-time library's own formatter; a negative result says that the text was cut. Without _TRUNCATE a
/// text that is too long would be for the library's handler of bad arguments.
int formatBounded(char *buffer, std::size_t size, const char *fmt, std::va_list args)
{
    return _vsnprintf_s(buffer, size, _TRUNCATE, fmt, args);
}

int formattedLength(const char *fmt, std::va_list args)
{
    return _vscprintf(fmt, args);
}
#else
int formatBounded(char *buffer, std::size_t size, const char *fmt, std::va_list args)
{
    // Standard C tells the length that was needed; told apart here, so that both halves answer alike.
    const int length = std::vsnprintf(buffer, size, fmt, args);
    return static_cast<std::size_t>(length) < size ? length : -1;
}

int formattedLength(const char *fmt, std::va_list args)
{
    return std::vsnprintf(nullptr, 0, fmt, args);
}
#endif

/// A copy of an argument list, for a formatter to use up.
class ArgsCopy
{
public:
    explicit ArgsCopy(std::va_list args) { va_copy(args_, args); }
    ~ArgsCopy() { va_end(args_); }
    ArgsCopy(const ArgsCopy &) = delete;
    ArgsCopy &operator=(const ArgsCopy &) = delete;

    std::va_list &get() { return args_; }

private:
    std::va_list args_;
};

/// A copy of the format with each `%m` replaced by `errorText`. A `%%` pair is copied whole, so that `%%m`
/// stays. The text is taken as part of the format: a percent sign in it reads as a conversion.
Str expandErrorText(const char *fmt, const Str &errorText)
{
    Str expanded;
    for (const char *at = fmt; *at != '\0'; ++at) {
        if (at[0] == '%' && at[1] == 'm') {
            expanded.append(errorText);
            ++at;
        } else if (at[0] == '%' && at[1] == '%') {
            expanded.append("%%");
            ++at;
        } else {
            expanded += *at;
        }
    }
    return expanded;
}

bool hasErrorConversion(const char *fmt)
{
    return std::strstr(fmt, "%m") != nullptr;
}

} // namespace

void Str::vappendFormat(const char *fmt, std::va_list args)
{
    char stack[kStackBuffer];
    int length = formatBounded(stack, sizeof stack, fmt, ArgsCopy(args).get());
    if (length < 0) {
        length = formattedLength(fmt, ArgsCopy(args).get());
    }
    if (length < 0) {
        return;
    }
    // The first attempt gives the length or says that the text was cut, and the second may use up the
    // arguments.
    const auto count = static_cast<std::size_t>(length);
    if (count < sizeof stack) {
        append(stack, count);
        return;
    }
    const auto heap = std::make_unique_for_overwrite<char[]>(count + 1);
    // A text that did not come out whole is not appended at all.
    if (formatBounded(heap.get(), count + 1, fmt, args) == length) {
        append(heap.get(), count);
    }
}

void Str::vformat(const char *fmt, std::va_list args)
{
    clear();
    vappendFormat(fmt, args);
}

void Str::format(const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    vformat(fmt, args);
    va_end(args);
}

void Str::appendFormat(const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    vappendFormat(fmt, args);
    va_end(args);
}

Str Str::fromFormat(const char *fmt, ...)
{
    Str result;
    std::va_list args;
    va_start(args, fmt);
    result.vformat(fmt, args);
    va_end(args);
    return result;
}

void Str::vformatWithError(unsigned error, const char *fmt, std::va_list args)
{
    // Most formats have no %m, and looking up the system's text is far dearer than the search for it.
    if (!hasErrorConversion(fmt)) {
        vformat(fmt, args);
        return;
    }
    Str errorText;
    errorText.appendErrorText(error);
    vformat(expandErrorText(fmt, errorText).c_str(), args);
}

void Str::formatWithError(unsigned error, const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    vformatWithError(error, fmt, args);
    va_end(args);
}

void Str::formatWithLastError(const char *fmt, ...)
{
    // Before any other work, as whatever runs next may set it.
    const unsigned error = platform::lastError();
    std::va_list args;
    va_start(args, fmt);
    vformatWithError(error, fmt, args);
    va_end(args);
}

Str Str::fromErrorFormat(unsigned error, const char *fmt, ...)
{
    Str result;
    std::va_list args;
    va_start(args, fmt);
    result.vformatWithError(error, fmt, args);
    va_end(args);
    return result;
}

Str Str::fromLastErrorFormat(const char *fmt, ...)
{
    const unsigned error = platform::lastError();
    Str result;
    std::va_list args;
    va_start(args, fmt);
    result.vformatWithError(error, fmt, args);
    va_end(args);
    return result;
}

} // namespace velmox
