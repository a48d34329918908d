#include "util/files/writable_unicode_stream.h"

#include "util/text/code_point.h"

namespace velmox {

void WritableUnicodeStream::write(const char *utf8, std::size_t length)
{
    if (length != 0) {
        // What waits for the other half of a surrogate pair cannot be completed by UTF-8.
        finishUtf16();
    }
    for (std::size_t at = 0; at < length; ++at) {
        takeUtf8(static_cast<unsigned char>(utf8[at]));
    }
}

void WritableUnicodeStream::write(const char16_t *text, std::size_t length)
{
    if (length != 0) {
        finishUtf8();
    }
    for (std::size_t at = 0; at < length; ++at) {
        takeUtf16(text[at]);
    }
}

void WritableUnicodeStream::writeFormat(const char *fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    formatted_.vformat(fmt, args);
    va_end(args);
    write(formatted_.data(), formatted_.size());
}

void WritableUnicodeStream::finishCharacter()
{
    finishUtf8();
    finishUtf16();
}

void WritableUnicodeStream::takeUtf8(unsigned char byte)
{
    // One byte at a time, with the state in members: a call may end inside a character, and the next goes on.
    if (missing_ == 0) {
        beginUtf8(byte);
    } else if (!isUtf8Continuation(byte)) {
        finishUtf8();
        beginUtf8(byte);
    } else {
        partial_ = partial_ << 6 | (byte & 0x3Fu);
        if (--missing_ == 0) {
            // Judged when all its bits are there, by the reader's rule: what is written here reads back as it
            // was.
            const bool valid = isShortestUtf8(partial_, continuations_) && isScalarValue(partial_);
            valid ? putCharacter(partial_) : putInvalid();
        }
    }
}

void WritableUnicodeStream::beginUtf8(unsigned char lead)
{
    if (lead < 0x80) {
        putCharacter(lead);
        return;
    }
    continuations_ = missing_ = utf8ContinuationCount(lead);
    partial_ = lead & (0x3Fu >> continuations_);
    if (continuations_ == 0) {
        putInvalid();
    }
}

void WritableUnicodeStream::takeUtf16(char16_t unit)
{
    if (highSurrogate_ != 0 && isLowSurrogate(unit)) {
        putCharacter(combineSurrogates(highSurrogate_, unit));
        highSurrogate_ = 0;
        return;
    }
    finishUtf16();
    if (isHighSurrogate(unit)) {
        // Its other half may come with the next call.
        highSurrogate_ = unit;
    } else if (isLowSurrogate(unit)) {
        putInvalid();
    } else {
        putCharacter(unit);
    }
}

void WritableUnicodeStream::finishUtf8()
{
    if (missing_ != 0) {
        missing_ = 0;
        putInvalid();
    }
}

void WritableUnicodeStream::finishUtf16()
{
    if (highSurrogate_ != 0) {
        highSurrogate_ = 0;
        putInvalid();
    }
}

// At the first character and not before: until then the encoding may be set, and a stream to which nothing
// was written leaves an empty file, without a mark.
void WritableUnicodeStream::start()
{
    started_ = true;
    // The word may be that of a file in which nothing stood.
    if (encodingOf(encoding_) <= TextEncoding::Empty) {
        encoding_ = withEncoding(encoding_, TextEncoding::Utf8);
    }
    const TextEncoding encoding = encodingOf(encoding_);
    bigEndian_ = encoding == TextEncoding::Utf16Be || encoding == TextEncoding::Utf32Be;
    switch (encoding) {
    case TextEncoding::Utf16Le:
    case TextEncoding::Utf16Be:
        output_ = &WritableUnicodeStream::putAsUtf16;
        break;
    case TextEncoding::Utf32Le:
    case TextEncoding::Utf32Be:
        output_ = &WritableUnicodeStream::putAsUtf32;
        break;
    default:
        output_ = &WritableUnicodeStream::putAsUtf8;
        break;
    }
    if ((encoding_ & kByteOrderMarkFlag) != 0) {
        (this->*output_)(kByteOrderMark);
    }
}

void WritableUnicodeStream::putInvalid()
{
    if (replaceBadInput_) {
        putCharacter(kReplacementCharacter);
    }
}

void WritableUnicodeStream::putCharacter(char32_t c)
{
    if (!started_) {
        start();
    }
    // What ends its lines with CR LF already is not given a second CR.
    if (c == '\n' && !afterCr_ && (encoding_ & kCrLfFlag) != 0) {
        (this->*output_)('\r');
    }
    (this->*output_)(c);
    afterCr_ = c == '\r';
}

void WritableUnicodeStream::putAsUtf8(char32_t c)
{
    putUtf8(c, [this](unsigned char byte) { writeByte(byte); });
}

void WritableUnicodeStream::putAsUtf16(char32_t c)
{
    putUtf16(c, [this](char16_t unit) { putUnit(unit, 2); });
}

void WritableUnicodeStream::putAsUtf32(char32_t c)
{
    putUnit(c, 4);
}

void WritableUnicodeStream::putUnit(char32_t unit, unsigned bytes)
{
    for (unsigned i = 0; i < bytes; ++i) {
        writeByte(static_cast<unsigned char>(unit >> 8 * (bigEndian_ ? bytes - 1 - i : i)));
    }
}

WritableUnicodeFileStar::~WritableUnicodeFileStar()
{
    finishCharacter();
    writeBuffer();
}

bool WritableUnicodeFileStar::flush()
{
    writeBuffer();
    return std::fflush(file_) == 0 && !failed_;
}

void WritableUnicodeFileStar::writeByte(unsigned char byte)
{
    buffer_[length_++] = byte;
    if (length_ == sizeof buffer_) {
        writeBuffer();
    }
}

void WritableUnicodeFileStar::writeBuffer()
{
    if (length_ != 0 && std::fwrite(buffer_, 1, length_, file_) != length_) {
        failed_ = true;
    }
    // Of bytes that were lost too: what comes next needs the room.
    length_ = 0;
}

} // namespace velmox
