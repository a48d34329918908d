#include "util/files/readable_unicode_stream.h"

#include "util/text/code_point.h"

#include <cstring>

namespace velmox {

namespace {

// What the decoders give beside characters, beyond the last code point.
constexpr char32_t kEnd = 0xFFFFFFFF;
constexpr char32_t kInvalid = 0xFFFFFFFE;

// Bytes. The buffer grows with the longest line and is kept, so that the others cost no allocation.
constexpr std::size_t kFirstLineBuffer = 128;

char32_t characterOrInvalid(char32_t value)
{
    return isScalarValue(value) ? value : kInvalid;
}

} // namespace

bool ReadableUnicodeStream::readLine(Str &out)
{
    out.clear();
    if (!readIntoLineBuffer()) {
        return false;
    }
    out.assign(lineBuffer_);
    return true;
}

bool ReadableUnicodeStream::readLine(StrSegment &out)
{
    const bool found = readIntoLineBuffer();
    out = lineBuffer_;
    return found;
}

bool ReadableUnicodeStream::readLine(Pathname &out)
{
    return readWideLine(out);
}

bool ReadableUnicodeStream::readWideLine(WideStr &out)
{
    return readInto(out);
}

bool ReadableUnicodeStream::readIntoLineBuffer()
{
    lineBuffer_.reserve(kFirstLineBuffer);
    return readInto(lineBuffer_);
}

template <class Text>
bool ReadableUnicodeStream::readInto(Text &line)
{
    line.clear();
    for (;;) {
        char32_t c = nextCharacter();
        if (c == kEnd) {
            // An empty rest is no line: a file that ends with a line end has as many lines as line ends.
            return !line.empty();
        }
        if (c == '\n') {
            const bool crLf = !line.empty() && line.back() == '\r';
            if (crLf) {
                line.pop_back();
            }
            countLineEnd(crLf);
            return true;
        }
        if (c == kInvalid && replaceBadInput_) {
            c = kReplacementCharacter;
        }
        // Marks also stand in the middle, where files were appended to one another.
        if (c != kInvalid && c != kByteOrderMark) {
            appendCharacter(line, c);
        }
    }
}

void ReadableUnicodeStream::countLineEnd(bool crLf)
{
    ++(crLf ? crLfLines_ : lfLines_);
    // The majority of what was read so far; on a tie the flag stays as it is.
    if (lfLines_ < crLfLines_) {
        encoding_ |= kCrLfFlag;
    } else if (lfLines_ > crLfLines_) {
        encoding_ &= ~kCrLfFlag;
    }
}

void ReadableUnicodeStream::detectEncoding()
{
    for (int byte = 0; headLength_ < kHeadSize && (byte = readByte()) >= 0;) {
        head_[headLength_++] = static_cast<unsigned char>(byte);
    }
    phase_ = Phase::ServingHead;
    const TextEncoding marked = markedEncoding();
    if (marked != TextEncoding::NotKnown) {
        encoding_ = withEncoding(encoding_, marked) | kByteOrderMarkFlag;
    } else if (encodingOf(encoding_) <= TextEncoding::Empty) {
        // Zero bytes at odd offsets were meant to tell UTF-16 apart, but the bound set for them, two thirds
        // of all bytes, lies beyond their number. Files without a mark have been written and read as UTF-8
        // ever since.
        encoding_ = withEncoding(encoding_, headLength_ == 0 ? TextEncoding::Empty : TextEncoding::Utf8);
    }
}

TextEncoding ReadableUnicodeStream::markedEncoding() const
{
    using namespace std::string_view_literals;
    if (headStartsWith("\xEF\xBB\xBF"sv)) {
        return TextEncoding::Utf8;
    }
    if (headStartsWith("\0\0\xFE\xFF"sv)) {
        return TextEncoding::Utf32Be;
    }
    // Before UTF-16, whose mark is the beginning of this one.
    if (headStartsWith("\xFF\xFE\0\0"sv) && looksLikeUtf32Le()) {
        return TextEncoding::Utf32Le;
    }
    if (headStartsWith("\xFE\xFF"sv)) {
        return TextEncoding::Utf16Be;
    }
    return headStartsWith("\xFF\xFE"sv) ? TextEncoding::Utf16Le : TextEncoding::NotKnown;
}

/// The mark of UTF-32 might also be that of UTF-16 with a NUL behind it; what follows decides.
bool ReadableUnicodeStream::looksLikeUtf32Le() const
{
    const auto unitAt = [this](std::size_t at) {
        return char32_t{head_[at]} | char32_t{head_[at + 1]} << 8 | char32_t{head_[at + 2]} << 16 |
               char32_t{head_[at + 3]} << 24;
    };
    if (headLength_ < 8 || unitAt(4) == 0) {
        return false;
    }
    for (std::size_t at = 4; at + 4 <= headLength_; at += 4) {
        if (unitAt(at) > kLastCodePoint) {
            return false;
        }
    }
    return true;
}

bool ReadableUnicodeStream::headStartsWith(std::string_view mark) const
{
    return headLength_ >= mark.size() && std::memcmp(head_, mark.data(), mark.size()) == 0;
}

int ReadableUnicodeStream::nextByte()
{
    if (pushbackCount_ != 0) {
        return pushback_[--pushbackCount_];
    }
    if (phase_ == Phase::ReadingOn) {
        return readByte();
    }
    if (headPosition_ < headLength_) {
        return head_[headPosition_++];
    }
    phase_ = Phase::ReadingOn;
    // A head that did not fill up has met the end, and the input is not asked again behind it: a console
    // would wait for more.
    return headLength_ < kHeadSize ? -1 : readByte();
}

void ReadableUnicodeStream::pushBack(int byte)
{
    if (byte >= 0) {
        pushback_[pushbackCount_++] = static_cast<unsigned char>(byte);
    }
}

char32_t ReadableUnicodeStream::nextCharacter()
{
    // The first look at the input decides, so that an encoding can be set up to then.
    if (phase_ == Phase::NothingRead) {
        detectEncoding();
    }
    switch (encodingOf(encoding_)) {
    case TextEncoding::Utf16Le:
    case TextEncoding::Utf16Be:
        return decodeUtf16(encodingOf(encoding_) == TextEncoding::Utf16Be);
    case TextEncoding::Utf32Le:
    case TextEncoding::Utf32Be:
        return decodeUtf32(encodingOf(encoding_) == TextEncoding::Utf32Be);
    default:
        return decodeUtf8();
    }
}

char32_t ReadableUnicodeStream::decodeUtf8()
{
    const int lead = nextByte();
    if (lead < 0x80) {
        return lead < 0 ? kEnd : static_cast<char32_t>(lead);
    }
    const unsigned continuations = utf8ContinuationCount(static_cast<unsigned>(lead));
    if (continuations == 0) {
        return kInvalid;
    }
    char32_t value = static_cast<char32_t>(lead) & (0x3Fu >> continuations);
    for (unsigned i = 0; i < continuations; ++i) {
        const int byte = nextByte();
        if (byte < 0 || !isUtf8Continuation(static_cast<unsigned>(byte))) {
            // The byte that does not fit begins the next character; those before it are gone with the invalid
            // one.
            pushBack(byte);
            return kInvalid;
        }
        value = value << 6 | (static_cast<char32_t>(byte) & 0x3F);
    }
    return isShortestUtf8(value, continuations) ? characterOrInvalid(value) : kInvalid;
}

char32_t ReadableUnicodeStream::decodeUtf16(bool bigEndian)
{
    const char32_t unit = hasPendingUnit_ ? pendingUnit_ : nextUnit(2, bigEndian);
    hasPendingUnit_ = false;
    if (!isHighSurrogate(unit)) {
        return isLowSurrogate(unit) ? kInvalid : unit;
    }
    const char32_t second = nextUnit(2, bigEndian);
    if (isLowSurrogate(second)) {
        return combineSurrogates(unit, second);
    }
    // Whatever it is, the end too, it is the next call's.
    pendingUnit_ = second;
    hasPendingUnit_ = true;
    return kInvalid;
}

char32_t ReadableUnicodeStream::decodeUtf32(bool bigEndian)
{
    const char32_t unit = nextUnit(4, bigEndian);
    return unit == kEnd ? kEnd : characterOrInvalid(unit);
}

/// A unit of 2 or 4 bytes; a torn one at the end of the input is invalid.
char32_t ReadableUnicodeStream::nextUnit(unsigned bytes, bool bigEndian)
{
    char32_t unit = 0;
    for (unsigned i = 0; i < bytes; ++i) {
        const int byte = nextByte();
        if (byte < 0) {
            return i == 0 ? kEnd : kInvalid;
        }
        unit |= static_cast<char32_t>(byte) << 8 * (bigEndian ? bytes - 1 - i : i);
    }
    // Kept apart from the marks above, which are numbers that a damaged file may hold.
    return unit == kEnd ? kInvalid : unit;
}

int ReadableUnicodeFileStar::readByte()
{
    // A buffer here, as each call of the C stream takes its lock.
    if (position_ == length_) {
        position_ = 0;
        length_ = std::fread(buffer_, 1, sizeof buffer_, file_);
        if (length_ == 0) {
            return -1;
        }
    }
    return buffer_[position_++];
}

} // namespace velmox
