#include "conf/mapper/meta_log.h"

namespace velmox {

Logger metaLog("ConfObjectManagerDB");

} // namespace velmox
