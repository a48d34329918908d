#include "companion/stream/stream_reader.h"

#include <algorithm>

namespace velmox {

namespace {

constexpr std::string_view kStreamStart = "<stream>";
constexpr std::string_view kStreamEnd = "</stream>";
constexpr std::string_view kEventStart = "<event";
constexpr std::string_view kEventEnd = "</event>";
constexpr std::string_view kBlanks = " \t\r\n";

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kDeclaration = "<?xml";
constexpr std::string_view kDeclarationEnd = "?>";
/// A declaration has a version, an encoding and one more word. What has no end within this is none.
constexpr std::size_t kLongestDeclaration = 256;

/// What the bytes at a place are for the stream's frame. In this order, so that of several answers for the
/// same bytes the largest one is right: a tag that is there rules out one that might come.
enum class Tag
{
    None,
    /// The bytes end within what may become one.
    Undecided,
    StreamStart,
    StreamEnd,
    EventStart,
    EventEnd,
};

Tag match(std::string_view bytes, std::string_view tag, Tag result)
{
    if (bytes.starts_with(tag)) {
        return result;
    }
    return tag.starts_with(bytes) ? Tag::Undecided : Tag::None;
}

/// An element whose name only begins like `<event` is not ours: what follows the name decides.
Tag eventStart(std::string_view bytes)
{
    const Tag tag = match(bytes, kEventStart, Tag::EventStart);
    if (tag != Tag::EventStart) {
        return tag;
    }
    if (bytes.size() == kEventStart.size()) {
        return Tag::Undecided;
    }
    const char behind = bytes[kEventStart.size()];
    return behind == '>' || kBlanks.find(behind) != std::string_view::npos ? tag : Tag::None;
}

/// Which tag of the stream's own frame stands at the front.
Tag tagAt(std::string_view bytes)
{
    // Most tags are those within an event, and their first letter tells. This is asked at each `<` of the
    // stream.
    const std::size_t letter = bytes.starts_with("</") ? 2 : 1;
    if (bytes.size() > letter && bytes[letter] != kEventStart[1] && bytes[letter] != kStreamStart[1]) {
        return Tag::None;
    }
    Tag found = Tag::None;
    for (const Tag tag :
         {eventStart(bytes), match(bytes, kEventEnd, Tag::EventEnd),
          match(bytes, kStreamStart, Tag::StreamStart), match(bytes, kStreamEnd, Tag::StreamEnd)}) {
        found = tag > found ? tag : found;
    }
    return found;
}

/// Length of what tools put in front of a stream and the monitor does not: the byte-order mark of UTF-8, the
/// declaration of XML. 0 without one; nothing while the bytes end within what may become one.
std::optional<std::size_t> prologueLength(std::string_view bytes)
{
    for (const std::string_view start : {kByteOrderMark, kDeclaration}) {
        if (bytes.size() < start.size() && start.starts_with(bytes)) {
            return std::nullopt;
        }
    }
    if (bytes.starts_with(kByteOrderMark)) {
        return kByteOrderMark.size();
    }
    if (!bytes.starts_with(kDeclaration)) {
        return 0;
    }
    const std::string_view declaration = bytes.substr(0, kLongestDeclaration);
    const std::size_t end = declaration.find(kDeclarationEnd);
    if (declaration.find('<', 1) < end ||
        (end == std::string_view::npos && bytes.size() >= kLongestDeclaration)) {
        return 0;
    }
    return end == std::string_view::npos ? std::nullopt : std::optional(end + kDeclarationEnd.size());
}

/// What is wrong with bytes that are neither a tag nor blank, by the first two of them.
std::string_view strangeBytes(std::string_view bytes)
{
    const char first = bytes.front();
    // One letter and one NUL are a 16-bit unit of ASCII, in either order of bytes. Only a unit that a stream
    // can begin with or has between events counts: text that holds NULs may be anything.
    const char second = bytes.size() > 1 ? bytes[1] : 'x';
    const char unit = first == '\0' ? second : first;
    const bool hasMark = bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF");
    const bool isUnit =
        (first == '\0') != (second == '\0') && (unit == '<' || kBlanks.find(unit) != kBlanks.npos);
    return hasMark || isUnit
               ? "these bytes are UTF-16, as the > of PowerShell writes it; let cmd.exe redirect the stream"
               : "these bytes are no event";
}

} // namespace

void FrameScanner::feed(std::string_view bytes)
{
    // Once for each piece of input, and not once for each event: it moves all bytes that are left.
    buffer_.erase(0, at_);
    base_ += at_;
    searched_ -= std::min(searched_, at_);
    at_ = 0;
    buffer_.append(bytes);
}

void FrameScanner::skip(std::string_view tag)
{
    at_ += tag.size();
    inDamage_ = false;
}

FrameScanner::Piece FrameScanner::damage(std::size_t length, std::string_view what)
{
    const std::uint64_t offset = base_ + at_;
    at_ += length;
    return {Kind::Damage, offset, what};
}

std::optional<FrameScanner::Piece> FrameScanner::next()
{
    while (true) {
        at_ = std::min(buffer_.find_first_not_of(kBlanks, at_), buffer_.size());
        const Tag tag = tagAt(rest());
        const std::optional<std::size_t> prologue = prologueLength(rest());
        // Two bytes are needed to tell UTF-16, so a single one waits for its neighbour. At the end of the
        // input nothing more comes, and what is there is judged as it is.
        const bool isDecided = tag != Tag::Undecided && prologue && rest().size() > 1;
        if (rest().empty() || (!isDecided && !ended_)) {
            return std::nullopt;
        }
        // Between any two events, not at the beginning alone: files of streams get joined to one.
        if (prologue.value_or(0) > 0) {
            at_ += *prologue;
            continue;
        }
        if (tag == Tag::EventStart) {
            inDamage_ = false;
            return takeEvent();
        }
        if (tag == Tag::StreamStart) {
            skip(kStreamStart);
            return Piece{Kind::StreamStart, base_ + at_ - kStreamStart.size(), {}};
        }
        if (tag == Tag::StreamEnd) {
            skip(kStreamEnd);
            continue;
        }
        // Goes on at the next place where a tag may begin. Bytes that follow each other are told once.
        const std::size_t length = std::min(rest().find('<', 1), rest().size());
        if (!inDamage_) {
            inDamage_ = true;
            return damage(length, strangeBytes(rest()));
        }
        at_ += length;
    }
}

std::optional<FrameScanner::Piece> FrameScanner::takeEvent()
{
    // Behind what an earlier call searched: a large event comes in many pieces, and to begin anew for each
    // would take time by the square of its length.
    std::size_t at = std::max(searched_, at_ + kEventStart.size());
    for (at = buffer_.find('<', at); at != std::string::npos; at = buffer_.find('<', at + 1)) {
        const Tag tag = tagAt(std::string_view(buffer_).substr(at));
        // The search goes on at this very `<` when its tag is whole.
        if (tag == Tag::Undecided) {
            break;
        }
        // Any other tag of the frame cuts the event off, and is itself left for the next call.
        if (tag != Tag::None) {
            return endEvent(at, tag == Tag::EventEnd);
        }
    }
    searched_ = std::min(at, buffer_.size());
    const bool isTooLong = rest().size() > kMaxEventBytes;
    return isTooLong || ended_ ? std::optional(endEvent(buffer_.size(), false)) : std::nullopt;
}

FrameScanner::Piece FrameScanner::endEvent(std::size_t end, bool isWhole)
{
    // Whatever follows an event that is too long, up to the next tag of the frame, is the rest of it, and is
    // passed over without being told again.
    inDamage_ = end - at_ > kMaxEventBytes;
    if (inDamage_) {
        return damage(end - at_, "an event is too long");
    }
    if (!isWhole) {
        return damage(end - at_, "an event is cut off");
    }
    const std::size_t length = end + kEventEnd.size() - at_;
    const Piece piece{Kind::Event, base_ + at_, rest().substr(0, length)};
    at_ += length;
    return piece;
}

void StreamReader::feed(std::string_view bytes)
{
    scanner_.feed(bytes);
    drain();
}

void StreamReader::finish()
{
    scanner_.finish();
    drain();
}

void StreamReader::drain()
{
    while (const std::optional<FrameScanner::Piece> piece = scanner_.next()) {
        switch (piece->kind) {
        case FrameScanner::Kind::StreamStart:
            ++stream_;
            break;
        case FrameScanner::Kind::Event:
            readEvent(*piece);
            break;
        case FrameScanner::Kind::Damage:
            onDamage_(piece->offset, piece->text);
            break;
        }
    }
}

void StreamReader::readEvent(const FrameScanner::Piece &piece)
{
    if (!xml_.read(piece.text, elements_)) {
        onDamage_(piece.offset, "an event is not well-formed XML");
        return;
    }
    StreamEvent event;
    event.stream = stream_;
    event.stanza = elements_.stanza;
    event.index = elements_.index;
    event.host = elements_.host;
    event.time = elements_.time;
    if (!readEventData(elements_.data, event)) {
        onDamage_(piece.offset, "the data of an event is not as the monitor writes it");
        return;
    }
    onEvent_(event);
}

} // namespace velmox
