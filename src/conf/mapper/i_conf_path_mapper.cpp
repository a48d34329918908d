#include "conf/mapper/i_conf_path_mapper.h"

namespace velmox {

Str ConfTypeState::toStr() const
{
    return status.toStr() << " [generation: " << static_cast<unsigned long long>(generation) << "]";
}

} // namespace velmox
