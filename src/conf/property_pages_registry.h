#pragma once

#include "conf/bundles_setup.h"

namespace velmox {

/// The `PropertyPages` objects of a root.
class PropertyPagesRegistry
{
public:
    explicit PropertyPagesRegistry(const BundlesSetup &setup);
};

} // namespace velmox
