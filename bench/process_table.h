#pragma once

#include "bench/flood.h"

namespace velmox::bench {

/// How the look-up of a process's image grows with the processes.
Figures measureProcessTable(const Options &options);

} // namespace velmox::bench
