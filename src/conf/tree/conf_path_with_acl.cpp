#include "conf/tree/conf_path_with_acl.h"

#include "util/text/joined.h"

namespace velmox {

namespace {

constexpr char kAdminRole[] = "admin";

/// Who is named by the metadata, or else the one in whose directory the path lies.
const Str &ownerOf(const ConfPathBase &path, const ConfPathMetadata &metadata)
{
    return metadata.owner ? *metadata.owner : path.user();
}

bool rolesAllow(const std::set<Str> &roles, const Str &capability, const ConfPathMetadata &metadata)
{
    return roles.contains(kAdminRole) || (metadata.access && metadata.access->allows(capability, roles));
}

} // namespace

bool ConfPathWithACL::hasCapability(const ConfUserContext &identity, const Str &capability, Str *reason) const
{
    if (identity.isUnrestricted()) {
        return true;
    }
    const ConfPathMetadata metadata = effectiveMetadata();
    if (identity.name.compareCaseless(ownerOf(*this, metadata)) == 0) {
        return true;
    }
    const bool allowed = rolesAllow(identity.roles, capability, metadata);
    if (reason) {
        reason->format("User '%s' with roles { %s } %s %s: %s %s", identity.name.c_str(),
                       joined(identity.roles, ", ").c_str(), allowed ? "" : "cannot", capability.c_str(),
                       toStr().c_str(), metadata.toStr().c_str());
    }
    return allowed;
}

} // namespace velmox
