#pragma once

#include "bench/flood.h"

namespace velmox::bench {

/// What the settings of one type cost over 200 apps with defaults and local changes: their first read by each
/// kind of reader and the repeated one, in time, in files opened and in bytes parsed.
Figures measureStore(const Options &options);

} // namespace velmox::bench
