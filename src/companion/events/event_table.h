#pragma once

#include "companion/events/event_fields.h"

#include <array>
#include <string>

namespace velmox {

/// How the table is to look.
struct TableStyle
{
    /// Characters a line may have; 0 for lines that are not cut, with a tab between columns.
    unsigned width = 0;
    bool isColoured = false;
};

/// Writes events as lines of a table: local time, operation, program, key, value with its data, stanza; of a
/// process the image that was mapped and the user stand for key and value. A text of an event can neither end
/// a line nor send the terminal a command, such as one that renames its window or hides what follows.
class EventTable
{
public:
    explicit EventTable(TableStyle style);

    /// The names of the columns; nothing where lines are not cut, since those are for programs.
    void appendHeader(std::string &out) const;
    /// `fields` have been read from `event`.
    void append(const StreamEvent &event, const EventFields &fields, std::string &out);

private:
    static constexpr std::size_t kColumnCount = 6;
    using Row = std::array<std::string_view, kColumnCount>;

    void appendRow(const Row &row, std::string_view colour, std::string &out) const;
    std::string_view timeOf(const StreamEvent &event);
    std::string_view valueOf(const StreamEvent &event, const EventFields &fields);

    TableStyle style_;
    std::array<unsigned, kColumnCount> widths_{};
    std::array<char, 24> time_{};
    std::string value_;
};

/// Appends UTF-8 so that it stays within its line, and a terminal shows it in the order in which it stands:
/// what is a control or turns the direction of text is written as an escape, such as \n or \u202E.
void appendCell(std::string_view text, std::string &out);

/// The same in `width` columns of a terminal. A longer text is cut at its end, or `atStart`, with an
/// ellipsis; a shorter one gets blanks behind it, if it `isPadded`.
void appendCell(std::string_view text, unsigned width, bool atStart, bool isPadded, std::string &out);

} // namespace velmox
