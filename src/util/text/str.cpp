#include "util/text/str.h"

#include "util/text/code_point.h"
#include "util/text/platform.h"

#include <algorithm>
#include <charconv>

namespace velmox {

namespace {

template <class Integer>
Str &appendInteger(Str &out, Integer value)
{
    // The longest are the 20 characters of -9223372036854775808 and of 2^64 - 1.
    char digits[24];
    const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, value);
    return out.append(std::string_view(digits, result.ptr));
}

/// The length of the well-formed character at the front, which is not ASCII; 0 when there is none.
std::size_t wellFormedLength(const unsigned char *text, std::size_t length)
{
    // Only the first continuation has a range that depends on the lead; the rest need only be continuations.
    const std::size_t following = utf8ContinuationCount(text[0]);
    if (following == 0 || following >= length || !isUtf8Second(text[0], text[1])) {
        return 0;
    }
    for (std::size_t at = 2; at <= following; ++at) {
        if (!isUtf8Continuation(text[at])) {
            return 0;
        }
    }
    return following + 1;
}

/// Of a hexadecimal digit; the bit 0x20 folds the letters to lower case.
int hexValue(char digit)
{
    return digit <= '9' ? digit - '0' : (digit | 0x20) - 'a' + 10;
}

bool isEscape(std::string_view text)
{
    const CharSet &digits = CharSet::hexDigits();
    return text.size() >= 3 && text[0] == '%' && digits.contains(text[1]) && digits.contains(text[2]);
}

Str urlDecoded(std::string_view text)
{
    Str decoded;
    decoded.reserve(text.size());
    while (!text.empty()) {
        if (isEscape(text)) {
            decoded += static_cast<char>(hexValue(text[1]) << 4 | hexValue(text[2]));
            text.remove_prefix(3);
        } else {
            // A percent sign that two digits do not follow stands for itself, as browsers take it.
            decoded += text.front() == '+' ? ' ' : text.front();
            text.remove_prefix(1);
        }
    }
    return decoded;
}

} // namespace

void Str::appendUtf16(const char16_t *text, std::size_t length)
{
    if (length == 0) {
        return;
    }
    // Nearly all that passes here is ASCII, which needs neither the system's conversion nor its buffer.
    if (!isAsciiUtf16({text, length})) {
        // No UTF-8 form is shorter in bytes than its UTF-16 form in units.
        reserve(size() + length);
        platform::appendUtf16AsUtf8(text, length, *this);
        return;
    }
    const std::size_t before = size();
    resize(before + length);
    std::transform(text, text + length, data() + before,
                   [](char16_t unit) { return static_cast<char>(unit); });
}

Str Str::fromUtf16(std::u16string_view text)
{
    Str result;
    result.appendUtf16(text.data(), text.size());
    return result;
}

Str &Str::operator<<(const char16_t *text)
{
    appendUtf16(text);
    return *this;
}

Str &Str::operator<<(long long value)
{
    return appendInteger(*this, value);
}

Str &Str::operator<<(unsigned long long value)
{
    return appendInteger(*this, value);
}

Str &Str::operator<<(double value)
{
    // Six decimals, whatever the value: stream and log have always written numbers so.
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

std::size_t Str::replaceAll(const Str &find, const Str &with)
{
    // Most texts hold nothing to replace: nothing is copied for them.
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
    const std::string_view kept = trimmedView(view(), set, left, right);
    const auto before = static_cast<std::size_t>(kept.data() - data());
    // The end first: once the front is gone, the positions are others.
    erase(before + kept.size());
    erase(0, before);
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

bool Str::isValidUtf8(const char *text, std::size_t length)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(text);
    for (std::size_t at = 0; at < length;) {
        const std::size_t taken = bytes[at] < 0x80 ? 1 : wellFormedLength(bytes + at, length - at);
        if (taken == 0) {
            return false;
        }
        at += taken;
    }
    return true;
}

bool Str::urlDecode()
{
    // What has nothing to decode is only asked whether it is UTF-8, as the decoded text would be.
    if (findFirst(CharSet::urlTriggers(), 0, true) < 0) {
        return isValidUtf8(data(), size());
    }
    Str decoded = urlDecoded(view());
    if (!isValidUtf8(decoded.data(), decoded.size())) {
        return false;
    }
    swap(decoded);
    return true;
}

} // namespace velmox
