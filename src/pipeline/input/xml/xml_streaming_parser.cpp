#include "pipeline/input/xml/xml_streaming_parser.h"

#include "pipeline/input/xml/xml_entity.h"
#include "util/text/code_point.h"

#include <algorithm>

namespace velmox {

namespace {

using namespace std::string_view_literals;

constexpr std::string_view kCommentStart = "<!--";
constexpr std::string_view kCommentEnd = "-->";
constexpr std::string_view kCdataStart = "<![CDATA[";
constexpr std::string_view kCdataEnd = "]]>";

constexpr CharSet kBlanksAndNul("\t\n\r \0"sv);
constexpr CharSet kElementNameEnds("\t\n\r >/\0"sv);
constexpr CharSet kAttributeNameEnds("\t\n\r >=\0"sv);
constexpr CharSet kBareValueEnds("\t\n\r />\0"sv);
constexpr CharSet kDecodedBytes("&\0"sv);

/// Position of the first byte whose membership equals `in`, or the end.
std::size_t findFirst(std::string_view bytes, const CharSet &set, std::size_t from, bool in)
{
    while (from < bytes.size() && set.contains(bytes[from]) != in) {
        ++from;
    }
    return from;
}

/// How many bytes can be given out although `end`, two equal bytes and a `>`, has not come yet: all but the
/// one or two at the back that may be its beginning.
std::size_t lengthBeforeEnd(std::string_view bytes, std::string_view end)
{
    std::size_t length = bytes.size();
    while (bytes.size() - length < 2 && bytes[length - 1] == end[0]) {
        --length;
    }
    return length;
}

} // namespace

void XmlStreamingParser::feed(const char *bytes, std::size_t length)
{
    // Whole tokens are taken from the caller's bytes where they stand; only a token's beginning is copied.
    if (pending_.empty()) {
        const std::string_view fed(bytes, length);
        const std::size_t consumed = consume(fed);
        pending_.assign(fed.substr(consumed));
        return;
    }
    pending_.append(bytes, length);
    const std::size_t consumed = consume(pending_);
    pending_.erase(0, consumed);
}

/// Takes steps as far as the bytes reach, and returns how many of them are done with.
std::size_t XmlStreamingParser::consume(std::string_view bytes)
{
    std::size_t consumed = 0;
    while (consumed < bytes.size()) {
        const std::size_t taken = step(bytes.substr(consumed));
        if (taken == kNeedMore) {
            break;
        }
        consumed += taken;
        position_ += taken;
        scanned_ = 0;
    }
    // A token that has not ended within the limit is dropped as a whole, and reading goes on behind it in the
    // state that it began in. What follows may then look like anything; the memory stays bounded.
    if (consumed == 0 && bytes.size() > maxPendingBytes()) {
        scanned_ = 0;
        return bytes.size();
    }
    return consumed;
}

std::size_t XmlStreamingParser::step(std::string_view bytes)
{
    switch (mode_) {
    case Mode::Content:
        return contentStep(bytes);
    case Mode::Comment:
        return commentStep(bytes);
    case Mode::Cdata:
        return cdataStep(bytes);
    case Mode::Tag:
        return tagStep(bytes);
    case Mode::AttributeValue:
        return attributeValueStep(bytes);
    }
    return kNeedMore;
}

std::size_t XmlStreamingParser::contentStep(std::string_view bytes)
{
    tokenStart_ = position_;
    if (bytes.front() != '<') {
        return textStep(bytes);
    }
    // A beginning that is cut, such as "<!-", is neither yet: as a tag it has no end of its name, and waits
    // for the rest.
    if (bytes.starts_with(kCommentStart)) {
        commentBegin();
        mode_ = Mode::Comment;
        return kCommentStart.size();
    }
    if (bytes.starts_with(kCdataStart)) {
        cdataBegin();
        mode_ = Mode::Cdata;
        return kCdataStart.size();
    }
    return elementStep(bytes);
}

/// Text is delivered as it comes; only an entity that is cut at the end waits for its rest.
std::size_t XmlStreamingParser::textStep(std::string_view bytes)
{
    const std::size_t end = bytes.find('<');
    const std::size_t taken = decode(bytes.substr(0, end), end != bytes.npos);
    if (taken == 0) {
        return kNeedMore;
    }
    tokenEnd_ = position_ + taken;
    deliverText();
    return taken;
}

std::size_t XmlStreamingParser::elementStep(std::string_view bytes)
{
    const bool closing = bytes.size() > 1 && bytes[1] == '/';
    const std::size_t end = findEnd(bytes, kElementNameEnds, closing ? 2 : 1);
    if (end == kNeedMore) {
        return kNeedMore;
    }
    if (inText_) {
        inText_ = false;
        charactersEnd();
    }
    // `</name >` is no end: with anything between its name and `>` it opens an element of the name "/name",
    // which readers that know their elements refuse under that name.
    if (closing && bytes[end] == '>') {
        tokenEnd_ = position_ + end + 1;
        endElement();
        return end + 1;
    }
    tokenEnd_ = position_ + end;
    token_.assign(bytes.substr(1, end - 1));
    startElement(token_);
    mode_ = Mode::Tag;
    return end;
}

std::size_t XmlStreamingParser::commentStep(std::string_view bytes)
{
    if (bytes.size() < kCommentEnd.size()) {
        return kNeedMore;
    }
    const std::size_t end = bytes.find(kCommentEnd);
    if (end == bytes.npos) {
        // What cannot belong to the end is dropped at once, so that a long comment is no token to be kept.
        return lengthBeforeEnd(bytes, kCommentEnd);
    }
    commentEnd();
    mode_ = Mode::Content;
    return end + kCommentEnd.size();
}

std::size_t XmlStreamingParser::cdataStep(std::string_view bytes)
{
    if (bytes.size() < kCdataEnd.size()) {
        return kNeedMore;
    }
    const std::size_t end = bytes.find(kCdataEnd);
    const std::size_t length = end == bytes.npos ? lengthBeforeEnd(bytes, kCdataEnd) : end;
    if (length > 0) {
        // Not decoded: an `&` means itself in here.
        copyWithoutNuls(bytes.substr(0, length));
        deliverText();
    }
    if (end == bytes.npos) {
        return length;
    }
    cdataEnd();
    mode_ = Mode::Content;
    return end + kCdataEnd.size();
}

std::size_t XmlStreamingParser::tagStep(std::string_view bytes)
{
    // A NUL ends a name and can't begin one: like a blank it is passed over, or the parser would stand still.
    if (kBlanksAndNul.contains(bytes.front())) {
        return 1;
    }
    if (bytes.front() == '>') {
        mode_ = Mode::Content;
        return 1;
    }
    if (bytes.front() != '/') {
        return attributeNameStep(bytes);
    }
    if (bytes.size() < 2) {
        return kNeedMore;
    }
    // A lone slash inside a tag begins an attribute's name, as in `<a /b>`.
    if (bytes[1] != '>') {
        return attributeNameStep(bytes);
    }
    endElement();
    mode_ = Mode::Content;
    return 2;
}

std::size_t XmlStreamingParser::attributeNameStep(std::string_view bytes)
{
    const std::size_t nameEnd = findEnd(bytes, kAttributeNameEnds, 0);
    if (nameEnd == kNeedMore) {
        return kNeedMore;
    }
    // Whether a value follows is known only behind the blanks, so the name waits for the first other byte.
    const std::size_t next = findFirst(bytes, kWhiteSpace, nameEnd, false);
    if (next == bytes.size()) {
        scanned_ = nameEnd;
        return kNeedMore;
    }
    decode(bytes.substr(0, nameEnd), true);
    attributeName(token_);
    if (bytes[next] == '=') {
        mode_ = Mode::AttributeValue;
        return next + 1;
    }
    attributeWithoutValue();
    return next;
}

std::size_t XmlStreamingParser::attributeValueStep(std::string_view bytes)
{
    const char first = bytes.front();
    if (kBlanksAndNul.contains(first)) {
        return 1;
    }
    // Values without quotes are no XML, but people write them.
    const bool quoted = first == '"' || first == '\'';
    const std::size_t start = quoted ? 1 : 0;
    const CharSet ends = quoted ? CharSet(std::string_view(&first, 1)) : kBareValueEnds;
    const std::size_t end = findEnd(bytes, ends, start);
    if (end == kNeedMore) {
        return kNeedMore;
    }
    decode(bytes.substr(start, end - start), true);
    attributeValue(token_);
    mode_ = Mode::Tag;
    // A bare value leaves the byte that ended it for the tag; a quoted one takes its closing quote along.
    return end + start;
}

/// Position of the first of `ends` at or after `from`, or kNeedMore, with a mark how far was looked.
std::size_t XmlStreamingParser::findEnd(std::string_view bytes, const CharSet &ends, std::size_t from)
{
    const std::size_t end = findFirst(bytes, ends, std::max(from, scanned_), true);
    if (end < bytes.size()) {
        return end;
    }
    scanned_ = bytes.size();
    return kNeedMore;
}

/// Decodes into `token_` and returns how many bytes were taken: all of them, unless more may follow them and
/// they end inside an entity.
std::size_t XmlStreamingParser::decode(std::string_view bytes, bool complete)
{
    token_.clear();
    std::size_t at = 0;
    while (at < bytes.size()) {
        const std::size_t end = findFirst(bytes, kDecodedBytes, at, true);
        token_.append(bytes.substr(at, end - at));
        at = end;
        if (at == bytes.size()) {
            break;
        }
        const XmlEntity entity =
            bytes[at] == '&' ? readXmlEntity(bytes.substr(at), complete) : XmlEntity{U'\0', 1};
        if (entity.length == 0) {
            break;
        }
        if (entity.codePoint == U'\0') {
            nulCharacter(token_);
        } else {
            appendCharacter(token_, entity.codePoint);
        }
        at += entity.length;
    }
    return at;
}

void XmlStreamingParser::copyWithoutNuls(std::string_view bytes)
{
    token_.clear();
    for (;;) {
        const std::size_t nul = bytes.find('\0');
        token_.append(bytes.substr(0, nul));
        if (nul == bytes.npos) {
            return;
        }
        nulCharacter(token_);
        bytes.remove_prefix(nul + 1);
    }
}

void XmlStreamingParser::deliverText()
{
    if (!inText_) {
        inText_ = true;
        charactersBegin();
    }
    characters(token_);
}

} // namespace velmox
