#include "fuzz/fuzz_target.h"
#include "util/text/split_acceptor.h"

#include <cerrno>
#include <cstdlib>

namespace velmox::fuzz {
namespace {

int sign(int value)
{
    return value < 0 ? -1 : value > 0 ? 1 : 0;
}

/// The order of a total preorder over three texts.
void checkOrder(const Str &a, const Str &b, const Str &c)
{
    const int ab = a.compareCaseless(b);
    const int bc = b.compareCaseless(c);
    const int ac = a.compareCaseless(c);
    require(ab == sign(ab), "the order is -1, 0 or 1");
    require(a.compareCaseless(a) == 0, "a text equals itself");
    require(b.compareCaseless(a) == -ab, "the order has two sides");
    if (ab <= 0 && bc <= 0) {
        require(ac == (ab == 0 && bc == 0 ? 0 : -1), "the order is transitive");
    }
}

void checkFolding(const Str &text)
{
    const Str lower = text.lowered();
    const Str upper = text.uppered();
    require(lower.lowered() == lower, "lower case stays");
    require(upper.uppered() == upper, "upper case stays");
    require(text.compareCaseless(lower) == 0, "folded text equals the text");
    if (Str::isValidUtf8(text.data(), text.size())) {
        require(Str::isValidUtf8(lower.data(), lower.size()), "lower case is well-formed");
        require(Str::isValidUtf8(upper.data(), upper.size()), "upper case is well-formed");
    }
}

Str urlEncoded(const Str &text)
{
    Str encoded;
    for (const char byte : text) {
        encoded.appendFormat("%%%02x", static_cast<unsigned char>(byte));
    }
    return encoded;
}

void checkUrlDecoding(const Str &text)
{
    const bool valid = Str::isValidUtf8(text.data(), text.size());
    Str encoded = urlEncoded(text);
    require(encoded.urlDecode() == valid, "what decodes to well-formed text is decoded");
    require(encoded == (valid ? text : urlEncoded(text)), "encoded text comes back");
    Str decoded = text;
    if (decoded.urlDecode()) {
        require(Str::isValidUtf8(decoded.data(), decoded.size()), "decoded text is well-formed");
    } else {
        require(decoded == text, "text that cannot be decoded stays");
    }
}

Str escapedFor(const Str &piece, char separator)
{
    Str escaped;
    for (const char byte : piece) {
        if (byte == '\n') {
            escaped << "\\n";
        } else if (byte == '\\' || byte == separator) {
            escaped << '\\' << byte;
        } else {
            escaped << byte;
        }
    }
    return escaped << separator;
}

void checkSplitting(const StrVector &pieces, char separator)
{
    if (separator == 'n' || separator == 'r' || separator == '\\') {
        return; // they mean something else behind a backslash
    }
    Str joined;
    std::map<Str, Str> pairs;
    for (std::size_t at = 0; at < pieces.size(); ++at) {
        joined << escapedFor(pieces[at], separator);
        if (at % 2 == 1) {
            pairs[pieces[at - 1]] = pieces[at];
        }
    }
    StrVector split;
    require(splitEscaped(joined, split, separator) == pieces.size() && split == pieces, "pieces come back");
    std::map<Str, Str> splitPairs;
    const bool whole = pieces.size() % 2 == 0;
    require(splitEscapedPairs(joined, splitPairs, separator) == whole, "a value needs its end");
    require(splitPairs == (whole ? pairs : std::map<Str, Str>()), "pairs come back");
}

void checkNumbers(const Str &text)
{
    const long long value = text.toInt64(7);
    require(Str::fromFormat("%lld", value).toInt64(7) == value, "a number comes back");
    std::int64_t strict = 0;
    if (StrSegment(text).parseSigned(strict)) {
        Str decimal = text.trimmed();
        if (decimal.startsWith("-")) { // blanks behind the sign are allowed here alone
            decimal = Str("-") << decimal.substr(1).trimmed();
        }
        errno = 0;
        char *end = nullptr;
        const long long expected = std::strtoll(decimal.c_str(), &end, 10);
        require(errno == 0 && *end == '\0' && expected == strict, "the number that the library reads");
        require(decimal.toInt64(~strict) == strict, "both parsers agree");
    }
}

void checkEditing(const Str &text, const Str &find, const Str &with)
{
    Str replaced = text;
    const std::size_t count = replaced.replaceAll(find, with);
    require(replaced.size() == text.size() + count * with.size() - count * find.size(), "replaced length");
    Str trimmed = text;
    trimmed.trim();
    require(trimmed == text.trimmed() && trimmed.trimmed() == trimmed, "trimming settles at once");
    StrVector pieces;
    StrSegment(text).splitInto(pieces, "\t");
    Str joined;
    for (const Str &piece : pieces) {
        joined << (&piece == &pieces.front() ? "" : "\t") << piece;
    }
    require(joined == text, "joined pieces are the text");
}

} // namespace

/// The text type's algebra, over the lines of the input.
VELMOX_FUZZ_TARGET(text)
{
    Input input(bytes);
    const char separator = input.empty() ? ',' : input.rest().front();
    input.choice(256);
    const Str all(input.rest());
    const StrVector lines = input.lines();
    const auto line = [&](std::size_t at) { return at < lines.size() ? lines[at] : Str(); };
    checkOrder(line(0), line(1), line(2));
    checkEditing(line(0), line(1), line(2));
    checkFolding(all);
    checkUrlDecoding(all);
    checkSplitting(lines, separator);
    checkNumbers(line(0));
}

} // namespace velmox::fuzz
