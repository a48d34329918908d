#pragma once

#include "conf/file/ini_file.h"
#include "conf/root/bundles_setup.h"

namespace velmox {

/// What the shared storage says of itself. Read-only once made; any thread.
class SearchHeadPoolInfo
{
public:
    explicit SearchHeadPoolInfo(const BundlesSetup &setup);

    /// `pooling.ini`; not loaded without shared storage, or when there is no such file.
    const IniFile &image() const { return image_; }

private:
    IniFile image_;
};

} // namespace velmox
