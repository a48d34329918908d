#pragma once

#include "util/text/char_set.h"
#include "util/text/str.h"

#include <cstdint>
#include <string_view>

// The room `xml`: documents that come in pieces, read without keeping them, and what stands for a byte in
// one.
namespace velmox {

/// A small incremental, non-validating XML parser: it keeps no tree and calls its virtual operations as it
/// meets things. Malformed markup is not diagnosed.
///
/// Any split of a document into feeds gives the same calls, but for the pieces in which `characters` comes.
/// Arguments of the calls are valid until the call returns. What an operation throws passes through `feed`,
/// after which the parser is of no more use.
class XmlStreamingParser
{
public:
    XmlStreamingParser() = default;
    virtual ~XmlStreamingParser() = default;
    XmlStreamingParser(const XmlStreamingParser &) = delete;
    XmlStreamingParser &operator=(const XmlStreamingParser &) = delete;

    /// Takes the next piece of the document, of any length. The bytes stay the caller's.
    void feed(const char *bytes, std::size_t length);

    /// Also called for declarations, with the name "?xml" or "!DOCTYPE"; they have no `endElement`.
    virtual void startElement(const Str &) {}
    virtual void endElement() {}
    virtual void attributeName(const Str &) {}
    virtual void attributeValue(const Str &) {}
    virtual void attributeWithoutValue() {}
    /// May come in several pieces for one run of text.
    virtual void characters(const Str &) {}
    virtual void charactersBegin() {}
    virtual void charactersEnd() {}
    virtual void cdataBegin() {}
    virtual void cdataEnd() {}
    virtual void commentBegin() {}
    virtual void commentEnd() {}
    /// A NUL byte or a reference to one was met; `soFar` is what has been decoded of the token and may be
    /// added to. Nothing else takes the NUL's place.
    virtual void nulCharacter(Str &) {}
    /// A token longer than this vanishes, so that no input can make the parser grow.
    virtual std::size_t maxPendingBytes() const { return 49152; }

protected:
    static constexpr CharSet kWhiteSpace{"\t\n\r "};

    std::uint64_t position() const { return position_; }
    /// Where the piece of text, or the tag up to the end of its name, stands in the document; `tokenEnd` is
    /// the position behind it.
    std::uint64_t tokenStart() const { return tokenStart_; }
    std::uint64_t tokenEnd() const { return tokenEnd_; }

private:
    enum class Mode : std::uint32_t
    {
        Content,
        Comment,
        Cdata,
        Tag,
        AttributeValue
    };

    // A step takes the bytes at hand, never none, and returns how many it consumed, or kNeedMore. It calls
    // operations only when it consumes, so that a step that is taken again calls nothing twice.
    static constexpr std::size_t kNeedMore = std::string_view::npos;
    std::size_t consume(std::string_view bytes);
    std::size_t step(std::string_view bytes);
    std::size_t contentStep(std::string_view bytes);
    std::size_t textStep(std::string_view bytes);
    std::size_t elementStep(std::string_view bytes);
    std::size_t commentStep(std::string_view bytes);
    std::size_t cdataStep(std::string_view bytes);
    std::size_t tagStep(std::string_view bytes);
    std::size_t attributeNameStep(std::string_view bytes);
    std::size_t attributeValueStep(std::string_view bytes);

    std::size_t findEnd(std::string_view bytes, const CharSet &ends, std::size_t from);
    std::size_t decode(std::string_view bytes, bool complete);
    void copyWithoutNuls(std::string_view bytes);
    void deliverText();

    /// The text that the calls get; it keeps its memory from token to token.
    Str token_;
    /// The beginning of a token whose end has not come yet.
    Str pending_;
    Mode mode_ = Mode::Content;
    /// Whether `charactersBegin` was called without its end: a run of text goes on through comments.
    bool inText_ = false;
    std::uint64_t position_ = 0;
    std::uint64_t tokenStart_ = 0;
    std::uint64_t tokenEnd_ = 0;
    /// Bytes of the unfinished token that are known not to end it, so that small feeds don't scan it anew.
    std::size_t scanned_ = 0;
};

} // namespace velmox
