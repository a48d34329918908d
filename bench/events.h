#pragma once

#include "bench/flood.h"

namespace velmox::bench {

/// How fast events go out into a pipe that is read, when every record is accepted.
Figures measureEvents(const Options &options);

} // namespace velmox::bench
