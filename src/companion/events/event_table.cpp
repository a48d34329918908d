#include "companion/events/event_table.h"

#include "companion/events/timestamp.h"

#include <algorithm>

namespace velmox {

namespace {

constexpr unsigned kNarrow = 120;
constexpr unsigned kLeastShared = 20;
constexpr std::size_t kKeyColumn = 3;
constexpr std::size_t kLastColumn = 5;
/// Where the clock begins in a time with its date.
constexpr std::size_t kDateLength = 11;

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

} // namespace velmox
