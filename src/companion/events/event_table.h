#pragma once

#include "companion/events/event_fields.h"
#include "companion/events/table_text.h"

#include <array>
#include <string>

namespace velmox {

/// Writes events as lines of a table: local time, operation, program, key, value with its data, stanza; of
/// a process the image that was mapped and the user stand for key and value. A text can neither end a line
/// nor speak to the terminal.
class EventTable
{
public:
    explicit EventTable(TableStyle style);

    /// The names of the columns; nothing where lines are not cut, since those are for programs.
    void appendHeader(std::string &out) const;
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

} // namespace velmox
