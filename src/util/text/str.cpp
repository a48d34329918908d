#include "util/text/str.h"

#include "util/text/code_point.h"
#include "util/text/platform.h"
#include "util/text/str_segment.h"

#include <algorithm>
#include <charconv>

namespace velmox {

namespace {

template <class Integer>
void appendInteger(Str &out, Integer value)
{
    char digits[24];
    const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, value);
    out.append(std::string_view(digits, result.ptr));
}

} // namespace

void Str::appendUtf16(const char16_t *text, std::size_t length)
{
    if (length == 0) {
        return;
    }
    if (!isAsciiUtf16({text, length})) {
        reserve(size() + length);
        platform::appendUtf16AsUtf8(text, length, *this);
        return;
    }
    const std::size_t before = size();
    resize(before + length);
    std::transform(text, text + length, data() + before,
                   [](char16_t unit) { return static_cast<char>(unit); });
}

void Str::appendUtf16(const char16_t *cstr)
{
    appendUtf16(cstr, std::char_traits<char16_t>::length(cstr));
}

Str Str::fromUtf16(std::u16string_view text)
{
    Str result;
    result.appendUtf16(text.data(), text.size());
    return result;
}

Str &Str::operator<<(const Str &text)
{
    return append(text);
}

Str &Str::operator<<(std::string_view text)
{
    return append(text);
}

Str &Str::operator<<(const char *text)
{
    return append(text);
}

Str &Str::operator<<(char byte)
{
    return *this += byte;
}

Str &Str::operator<<(const char16_t *text)
{
    appendUtf16(text);
    return *this;
}

Str &Str::operator<<(const StrSegment &text)
{
    return append(text.view());
}

Str &Str::operator<<(const std::exception &exception)
{
    return append(exception.what());
}

Str &Str::operator<<(bool value)
{
    return *this += value ? '1' : '0';
}

Str &Str::operator<<(short value)
{
    appendInteger(*this, value);
    return *this;
}

Str &Str::operator<<(unsigned short value)
{
    appendInteger(*this, value);
    return *this;
}

Str &Str::operator<<(int value)
{
    appendInteger(*this, value);
    return *this;
}

Str &Str::operator<<(unsigned value)
{
    appendInteger(*this, value);
    return *this;
}

Str &Str::operator<<(long value)
{
    appendInteger(*this, value);
    return *this;
}

Str &Str::operator<<(unsigned long value)
{
    appendInteger(*this, value);
    return *this;
}

Str &Str::operator<<(long long value)
{
    appendInteger(*this, value);
    return *this;
}

Str &Str::operator<<(unsigned long long value)
{
    appendInteger(*this, value);
    return *this;
}

Str &Str::operator<<(double value)
{
    appendFormat("%lf", value);
    return *this;
}

std::ptrdiff_t Str::findFirst(const CharSet &set, std::size_t from, bool in) const
{
    for (std::size_t at = from; at < size(); ++at) {
        if (set.contains((*this)[at]) == in) {
            return static_cast<std::ptrdiff_t>(at);
        }
    }
    return -1;
}

bool Str::startsWith(const char *text, std::size_t length) const
{
    return view().starts_with(std::string_view(text, length));
}

bool Str::equals(const char *text) const
{
    return view() == text;
}

std::size_t Str::replaceAll(const Str &find, const Str &with)
{
    std::size_t at = find.empty() ? npos : this->find(find);
    if (at == npos) {
        return 0;
    }
    Str result;
    result.reserve(size());
    std::size_t count = 0;
    std::size_t from = 0;
    for (; at != npos; at = this->find(find, from)) {
        result.append(view().substr(from, at - from)).append(with);
        from = at + find.size();
        ++count;
    }
    result.append(view().substr(from));
    swap(result);
    return count;
}

std::size_t Str::replaceChars(const CharSet &set, char with)
{
    std::size_t count = 0;
    for (char &byte : *this) {
        if (set.contains(byte)) {
            byte = with;
            ++count;
        }
    }
    return count;
}

void Str::trim(const CharSet &set, bool left, bool right)
{
    const StrSegment kept = StrSegment(*this).trimmed(set, left, right);
    const auto before = static_cast<std::size_t>(kept.data() - data());
    erase(before + kept.size());
    erase(0, before);
}

Str Str::trimmed(const CharSet &set, bool left, bool right) const
{
    return StrSegment(*this).trimmed(set, left, right).toStr();
}

void Str::unquote(char quote)
{
    if (size() >= 2 && front() == quote && back() == quote) {
        pop_back();
        erase(0, 1);
    }
}

Str Str::concat(const Str &a, const Str &b)
{
    Str result;
    result.reserve(a.size() + b.size());
    result.append(a).append(b);
    return result;
}

} // namespace velmox
