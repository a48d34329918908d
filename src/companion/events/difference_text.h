#pragma once

#include "companion/events/baseline.h"
#include "companion/events/event_table.h"

#include <string>

namespace velmox {

/// Appends a difference as a JSON object in a line: `change`, `path`, and `old` and `new` where there is one,
/// with `type` and `strings`.
void appendDifferenceJson(const BaselineDifference &difference, std::string &out);

/// Appends a difference as a line of a table: what happened, path, old text, new text.
void appendDifferenceRow(const BaselineDifference &difference, TableStyle style, std::string &out);

} // namespace velmox
