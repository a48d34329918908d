#pragma once

#include "util/process/loader_info.h"

namespace velmox {

/// Whether this run writes no change of the configuration to disk.
inline bool isInMemoryOnly()
{
    return LoaderInfo::instance()->initSettings().inMemoryOnly;
}

} // namespace velmox
