#include "conf/root/search_head_pool_info.h"

#include "conf/root/conf_settings.h"
#include "util/files/file_system.h"

namespace velmox {

SearchHeadPoolInfo::SearchHeadPoolInfo(const BundlesSetup &setup, const ConfSettings &settings)
{
    if (!settings.isSharedStorageMode()) {
        return;
    }
    const Pathname file = setup.poolInfoFile();
    if (pathKind(file) != PathKind::Nothing) {
        image_.load(file);
    }
}

} // namespace velmox
