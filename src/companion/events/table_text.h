#pragma once

#include <string>
#include <string_view>

namespace velmox {

/// How the table is to look.
struct TableStyle
{
    /// Characters a line may have; 0 for lines that are not cut, with a tab between columns.
    unsigned width = 0;
    bool isColoured = false;
};

/// Appends UTF-8 so that it stays within its line, and a terminal shows it in the order in which it stands:
/// what is a control or turns the direction of text is written as an escape, such as \n or \u202E.
void appendCell(std::string_view text, std::string &out);

/// The same in `width` columns of a terminal. A longer text is cut at its end, or `atStart`, with an
/// ellipsis; a shorter one gets blanks behind it, if it `isPadded`.
void appendCell(std::string_view text, unsigned width, bool atStart, bool isPadded, std::string &out);

} // namespace velmox
