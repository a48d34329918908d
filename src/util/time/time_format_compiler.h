#pragma once

#include "util/text/str.h"
#include "util/time/time_format_atom.h"

#include <string_view>
#include <vector>

namespace velmox {

/// Compiles a time format into atoms and the literals that they point into. False, with both in no particular
/// state, when the format is not understood.
bool compileTimeFormat(std::string_view format, std::vector<TimeFormatAtom> &atoms, Str &literals);

} // namespace velmox
