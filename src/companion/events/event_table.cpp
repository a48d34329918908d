#include "companion/events/event_table.h"

#include "util/text/code_point.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace velmox {

namespace {

/// A terminal with fewer columns gets the time without its date, and less of program and stanza.
constexpr unsigned kNarrow = 120;
/// Columns that key and value have together at least.
constexpr unsigned kLeastShared = 20;
constexpr std::size_t kKeyColumn = 3;
constexpr std::size_t kLastColumn = 5;
/// "yyyy-mm-dd ": a narrow table shows what is behind it.
constexpr std::size_t kDateLength = 11;

/// Escape sequences that choose how text is shown (ECMA-48, Select Graphic Rendition).
constexpr std::string_view kPlain = "\x1B[0m";
constexpr std::string_view kBold = "\x1B[1m";

std::string_view colourOf(const EventFields &fields)
{
    struct Colour
    {
        std::string_view type;
        std::string_view code;
    };
    static constexpr Colour kColours[] = {
        {"change", "\x1B[33m"}, {"creation", "\x1B[32m"}, {"deletion", "\x1B[31m"},
        {"start", "\x1B[32m"},  {"end", "\x1B[31m"},      {"access", "\x1B[36m"},
    };
    const auto *const row = std::ranges::find(kColours, fields.text(Field::Type), &Colour::type);
    return row == std::end(kColours) ? std::string_view() : row->code;
}

constexpr std::string_view kEllipsis = "\xE2\x80\xA6";

struct Range
{
    char32_t first;
    char32_t last;
};

/// Characters that are not shown but do something: controls (C0, DEL, C1), marks without width, ends of lines
/// and paragraphs, marks that turn the direction of text (UAX #9), the byte-order mark, tags.
constexpr Range kHidden[] = {
    {0x00, 0x1F},     {0x7F, 0x9F},     {0x061C, 0x061C}, {0x200B, 0x200F},
    {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xE0000, 0xE007F},
};

/// Characters that take two columns: the blocks in which most are wide or full-width by UAX #11. It has
/// single characters besides; where one is missed, a line is a column too long or short.
constexpr Range kWide[] = {
    {0x1100, 0x115F},   {0x2E80, 0x303E},   {0x3041, 0xA4CF},   {0xA960, 0xA97F},   {0xAC00, 0xD7A3},
    {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},   {0x16FE0, 0x18AFF},
    {0x1B000, 0x1B2FF}, {0x1F300, 0x1F64F}, {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF}, {0x20000, 0x3FFFD},
};

/// Characters that stand on the one before them and take no column: the blocks of combining marks and of
/// variation selectors.
constexpr Range kCombining[] = {{0x0300, 0x036F}, {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF},
                                {0x20D0, 0x20FF}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}};

template <std::size_t Count>
bool isIn(const Range (&ranges)[Count], char32_t value)
{
    return std::ranges::any_of(
        ranges, [value](const Range &range) { return value >= range.first && value <= range.last; });
}

/// Takes a character off the front of valid UTF-8, and returns its code point.
char32_t takeCharacter(std::string_view &text, std::string_view &bytes)
{
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t following = lead < 0x80 ? 0 : utf8ContinuationCount(lead);
    bytes = text.substr(0, following + 1);
    text.remove_prefix(bytes.size());
    char32_t value = following == 0 ? lead : lead & (0x3FU >> following);
    for (const char byte : bytes.substr(1)) {
        value = value << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
    }
    return value;
}

std::string escapeOf(char32_t value)
{
    switch (value) {
    case U'\t':
        return "\\t";
    case U'\n':
        return "\\n";
    case U'\r':
        return "\\r";
    default:
        break;
    }
    // As the escapes of C: two digits up to U+00FF, at least four beyond.
    std::array<char, 16> room{};
    std::snprintf(room.data(), room.size(), value < 0x100 ? "\\x%02X" : "\\u%04X",
                  static_cast<unsigned>(value));
    return room.data();
}

/// What is shown of a character, and how many columns that takes.
struct Glyph
{
    std::string text;
    std::size_t columns;
};

Glyph takeGlyph(std::string_view &text)
{
    std::string_view bytes;
    const char32_t value = takeCharacter(text, bytes);
    if (isIn(kHidden, value)) {
        const std::string escape = escapeOf(value);
        return {escape, escape.size()};
    }
    const std::size_t columns = isIn(kCombining, value) ? 0 : isIn(kWide, value) ? 2 : 1;
    return {std::string(bytes), columns};
}

bool isPrintable(std::string_view text)
{
    return std::ranges::all_of(text, [](char byte) { return byte >= ' ' && byte < 0x7F; });
}

} // namespace

EventTable::EventTable(TableStyle style) : style_(style)
{
    const bool isNarrow = style.width < kNarrow;
    widths_ = {isNarrow ? 12U : 23U, 9, isNarrow ? 14U : 20U, 0, 0, isNarrow ? 10U : 14U};
    unsigned used = kColumnCount - 1;
    for (const unsigned width : widths_) {
        used += width;
    }
    // Key and value share what is left; a line longer than a very narrow terminal is better than none.
    const unsigned shared = std::max(style.width, used + kLeastShared) - used;
    widths_[kKeyColumn] = shared - shared * 2 / 5;
    widths_[kKeyColumn + 1] = shared * 2 / 5;
}

void EventTable::appendHeader(std::string &out) const
{
    if (style_.width != 0) {
        appendRow({"TIME", "OPERATION", "PROGRAM", "KEY", "VALUE", "STANZA"}, kBold, out);
    }
}

void EventTable::append(const StreamEvent &event, const EventFields &fields, std::string &out)
{
    const std::string place = fields.place();
    appendRow({timeOf(event), event.operation, fields.text(Field::ProcessName), place, valueOf(event, fields),
               event.stanza},
              colourOf(fields), out);
}

std::string_view EventTable::timeOf(const StreamEvent &event)
{
    const std::string_view time = writeSortableTime(event.localTime, time_);
    const bool isCut = style_.width != 0 && time.size() > widths_[0];
    return isCut ? time.substr(std::min(kDateLength, time.size())) : time;
}

std::string_view EventTable::valueOf(const StreamEvent &event, const EventFields &fields)
{
    value_.assign(fields.text(event.isOnRegistry() ? Field::Value : Field::User));
    if (!event.data.empty()) {
        value_ += value_.empty() ? "= " : " = ";
        value_ += event.data;
    }
    return value_;
}

void EventTable::appendRow(const Row &row, std::string_view colour, std::string &out) const
{
    for (std::size_t at = 0; at < kColumnCount; ++at) {
        // The operation alone has a colour; a header is bold throughout.
        const bool isColoured = style_.isColoured && !colour.empty() && (at == 1 || colour == kBold);
        out += isColoured ? colour : std::string_view();
        if (style_.width == 0) {
            appendCell(row[at], out);
        } else {
            // The end of a key tells more than its beginning.
            appendCell(row[at], widths_[at], at == kKeyColumn, at != kLastColumn, out);
        }
        out += isColoured ? kPlain : std::string_view();
        if (at != kLastColumn) {
            out += style_.width == 0 ? '\t' : ' ';
        }
    }
    out += '\n';
}

void appendCell(std::string_view text, std::string &out)
{
    // Nearly all texts are plain ASCII, and need not be taken apart.
    if (isPrintable(text)) {
        out += text;
        return;
    }
    while (!text.empty()) {
        out += takeGlyph(text).text;
    }
}

void appendCell(std::string_view text, unsigned width, bool atStart, bool isPadded, std::string &out)
{
    std::vector<Glyph> glyphs;
    std::size_t columns = 0;
    // Of a long text no more is looked at than can be shown, unless its end is.
    while (!text.empty() && (atStart || columns <= width)) {
        glyphs.push_back(takeGlyph(text));
        columns += glyphs.back().columns;
    }
    const bool isCut = columns > width;
    if (isCut && atStart) {
        std::ranges::reverse(glyphs);
    }
    std::size_t used = 0;
    std::size_t kept = 0;
    const std::size_t room = isCut ? std::max(width, 1U) - 1 : width;
    while (kept < glyphs.size() && used + glyphs[kept].columns <= room) {
        used += glyphs[kept++].columns;
    }
    glyphs.resize(kept);
    if (isCut && atStart) {
        std::ranges::reverse(glyphs);
        out += kEllipsis;
    }
    for (const Glyph &glyph : glyphs) {
        out += glyph.text;
    }
    if (isCut && !atStart) {
        out += kEllipsis;
    }
    used += isCut ? 1 : 0;
    out.append(isPadded && used < width ? width - used : 0, ' ');
}

} // namespace velmox
