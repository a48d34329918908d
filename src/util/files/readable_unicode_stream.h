#pragma once

#include "util/text/pathname.h"
#include "util/text/str_segment.h"
#include "util/text/text_encoding.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace velmox {

/// Decodes text of any Unicode encoding into lines.
///
/// The encoding follows from a byte-order mark; text without one is UTF-8 unless the caller said otherwise.
/// U+FEFF is dropped wherever it stands. A line ends at LF or at the end of the input, and a CR before the LF
/// belongs to the line's end.
///
/// For one thread at a time. Nothing raises: input that cannot be read ends the text, and whoever opened it
/// can ask it for the reason.
class ReadableUnicodeStream
{
public:
    virtual ~ReadableUnicodeStream() = default;

    /// Reads the next line; false at the end of the input. The view is valid up to the next call.
    bool readLine(Str &out);
    bool readLine(StrSegment &out);
    bool readLine(Pathname &out);
    /// As UTF-16, in which a `Str` of the same line would be converted back and forth.
    bool readWideLine(WideStr &out);

    /// The encoding as far as it is known, with the mark's flag, and the line ends that prevail in what was
    /// read: a writer that takes the word over keeps the form of the text.
    TextEncodingWord encoding() const { return encoding_; }
    /// To be called before the first read. Only a byte-order mark still changes the encoding.
    void setEncoding(TextEncodingWord encoding) { encoding_ = encoding; }
    /// Whether U+FFFD takes the place of each invalid sequence, which otherwise vanishes.
    void setReplaceBadInput(bool replace) { replaceBadInput_ = replace; }

protected:
    ReadableUnicodeStream() = default;
    ReadableUnicodeStream(const ReadableUnicodeStream &) = delete;
    ReadableUnicodeStream &operator=(const ReadableUnicodeStream &) = delete;

private:
    /// The next raw byte, or -1 at the end of the input.
    virtual int readByte() = 0;

    enum class Phase : std::uint8_t
    {
        NothingRead,
        ServingHead,
        ReadingOn,
    };

    // Lines out of characters.
    template <class Text>
    bool readInto(Text &line);
    bool readIntoLineBuffer();
    void countLineEnd(bool crLf);

    // The first bytes are held back until they have told the encoding.
    void detectEncoding();
    TextEncoding markedEncoding() const;
    bool looksLikeUtf32Le() const;
    bool headStartsWith(std::string_view mark) const;

    // Characters out of bytes. What turns out to belong to the next character is pushed back.
    /// From what was pushed back, the bytes held back at first, then the input. -1 at its end.
    int nextByte();
    /// One byte until it is read again; the end is none.
    void pushBack(int byte);
    /// A character, or one of the marks for the end and for what is invalid.
    char32_t nextCharacter();
    char32_t decodeUtf8();
    char32_t decodeUtf16(bool bigEndian);
    char32_t decodeUtf32(bool bigEndian);
    char32_t nextUnit(unsigned bytes, bool bigEndian);

    /// Bytes. Enough for the mark and some units behind it, by which UTF-32 is told from UTF-16.
    static constexpr std::size_t kHeadSize = 64;

    TextEncodingWord encoding_ = kDefaultEncodingWord;
    bool replaceBadInput_ = false;
    Phase phase_ = Phase::NothingRead;
    unsigned char head_[kHeadSize];
    std::size_t headLength_ = 0;
    std::size_t headPosition_ = 0;
    unsigned char pushback_[4];
    std::size_t pushbackCount_ = 0;
    char32_t pendingUnit_ = 0; ///< read behind a high surrogate that it does not belong to
    bool hasPendingUnit_ = false;
    Str lineBuffer_;
    std::uint64_t lfLines_ = 0;
    std::uint64_t crLfLines_ = 0;
};

/// Reads text from a C stream, which must be in binary mode for line ends to be seen, and stays the caller's.
class ReadableUnicodeFileStar : public ReadableUnicodeStream
{
public:
    explicit ReadableUnicodeFileStar(std::FILE *file) : file_(file) {}

private:
    int readByte() override;

    std::FILE *file_;
    unsigned char buffer_[512];
    std::size_t position_ = 0;
    std::size_t length_ = 0;
};

} // namespace velmox
