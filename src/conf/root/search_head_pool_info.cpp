#include "conf/setup/search_head_pool_info.h"

#include "conf/setup/conf_settings.h"
#include "conf/setup/shared_conf_services.h"
#include "util/file_system.h"

namespace velmox {

SearchHeadPoolInfo::SearchHeadPoolInfo(const BundlesSetup &setup)
{
    if (!setup.shared().settings().isSharedStorageMode()) {
        return;
    }
    const Pathname file = setup.poolInfoFile();
    if (pathKind(file) != PathKind::Nothing) {
        image_.load(file);
    }
}

} // namespace velmox
