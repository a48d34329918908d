#pragma once

#include "conf/bundles_setup.h"

namespace velmox {

/// All layers of each type, for all users and apps of a root.
class SharedConfStates
{
public:
    explicit SharedConfStates(const BundlesSetup &setup);
};

} // namespace velmox
