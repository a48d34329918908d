#include "conf/tree/conf_acl.h"

#include "conf/tree/permission_parser.h"

#include <algorithm>

namespace velmox {

bool ConfAcl::allows(const Str &capability, const std::set<Str> &roles) const
{
    const auto found = capabilities_.find(capability);
    if (found == capabilities_.end()) {
        return false;
    }
    const std::set<Str> &holders = found->second;
    return holders.contains("*") ||
           std::any_of(roles.begin(), roles.end(), [&](const Str &role) { return holders.contains(role); });
}

Str ConfAcl::toStr() const
{
    return permissionText(capabilities_);
}

} // namespace velmox
