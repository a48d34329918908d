#include "conf/root/search_head_pool_info.h"

#include "conf/store/conf_settings.h"
#include "conf/store/shared_conf_services.h"
#include "util/files/file_system.h"

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
