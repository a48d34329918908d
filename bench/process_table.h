#pragma once

#include "bench/flood.h"

namespace velmox::bench {

/// How the look-up of a process's image grows with the processes: the table is a list that is walked.
Figures measureProcessTable(const Options &options);

} // namespace velmox::bench
