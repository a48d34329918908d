#pragma once

#include "bench/figures.h"

namespace velmox::bench {

/// What a record costs inside the process, as a multiple of one pass that reads each record's header and
/// folds its name by a table: the least that any filter on lower-case text must do.
///
/// Nothing here waits for a driver or a reader, so that the figures hold for Windows as well.
Figures measureCost(unsigned rounds);

} // namespace velmox::bench
