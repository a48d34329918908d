#pragma once

#include "util/text/str.h"
#include "util/text/text_encoding.h"

#include <cstddef>
#include <cstdio>

namespace velmox {

/// Encodes text into any Unicode encoding.
///
/// Text may be split over calls at any place, inside a character too. With CR LF line ends, an LF that does
/// not follow a CR is written as both. A byte-order mark, if the encoding word asks for one, goes before the
/// first character. The encoding is UTF-8 unless set.
///
/// For one thread at a time. Nothing raises; whether the bytes arrived, the derived classes tell.
class WritableUnicodeStream
{
public:
    virtual ~WritableUnicodeStream() = default;

    /// Lengths are in bytes, and in 16-bit units.
    void write(const char *utf8, std::size_t length);
    void write(const char16_t *text, std::size_t length);
    void write(std::string_view utf8) { write(utf8.data(), utf8.size()); }
    void writeFormat(const char *fmt, ...) VELMOX_PRINTF(2, 3);
    void writeNumber(long long value) { writeFormat("%lld", value); }
    void writeNumber(unsigned long long value) { writeFormat("%llu", value); }
    void writeNumber(double value) { writeFormat("%lf", value); }

    TextEncodingWord encoding() const { return encoding_; }
    /// To be called before the first write.
    void setEncoding(TextEncodingWord encoding) { encoding_ = encoding; }
    /// Whether U+FFFD takes the place of each invalid sequence, which otherwise vanishes.
    void setReplaceBadInput(bool replace) { replaceBadInput_ = replace; }

protected:
    WritableUnicodeStream() = default;
    WritableUnicodeStream(const WritableUnicodeStream &) = delete;
    WritableUnicodeStream &operator=(const WritableUnicodeStream &) = delete;

    /// Counts a character that the last call left unfinished as invalid. For destructors of derived classes:
    /// here there is no `writeByte` left to call.
    void finishCharacter();

private:
    virtual void writeByte(unsigned char byte) = 0;

    using Output = void (WritableUnicodeStream::*)(char32_t);

    void takeUtf8(unsigned char byte);
    void beginUtf8(unsigned char lead);
    void takeUtf16(char16_t unit);
    void finishUtf8();
    void finishUtf16();

    void start();
    void putInvalid();
    void putCharacter(char32_t c);
    void putAsUtf8(char32_t c);
    void putAsUtf16(char32_t c);
    void putAsUtf32(char32_t c);
    void putUnit(char32_t unit, unsigned bytes);

    TextEncodingWord encoding_ = kDefaultEncodingWord;
    bool replaceBadInput_ = false;
    bool started_ = false;
    bool bigEndian_ = false;
    bool afterCr_ = false;
    /// By the encoding, chosen once at the start rather than for each character.
    Output output_ = nullptr;
    unsigned continuations_ = 0; ///< of the last UTF-8 sequence
    unsigned missing_ = 0;       ///< of these, not taken yet; 0 when the sequence is finished
    char32_t partial_ = 0;
    char16_t highSurrogate_ = 0; ///< 0 is none
    Str formatted_;
};

/// Writes text to a C stream, which must be in binary mode and stays the caller's. The destructor writes what
/// is still buffered; only `flush` tells whether that worked.
class WritableUnicodeFileStar : public WritableUnicodeStream
{
public:
    explicit WritableUnicodeFileStar(std::FILE *file) : file_(file) {}
    ~WritableUnicodeFileStar() override;

    /// False when anything written so far did not reach the C stream, or the C stream could not be flushed.
    bool flush();

private:
    void writeByte(unsigned char byte) override;
    void writeBuffer();

    std::FILE *file_;
    bool failed_ = false;
    /// Gathers bytes for one call of the C stream, which takes its lock each time.
    unsigned char buffer_[512];
    std::size_t length_ = 0;
};

} // namespace velmox
