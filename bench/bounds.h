#pragma once

#include "bench/flood.h"

namespace velmox::bench {

/// What the system lets the other figures come to: each figure's reference beside the same with the one thing
/// that the monitor has to do as well.
Figures measureBounds(const Options &options);

} // namespace velmox::bench
