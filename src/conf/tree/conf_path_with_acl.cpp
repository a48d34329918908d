#include "conf/tree/conf_path_with_acl.h"

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

Str joined(const std::set<Str> &roles)
{
    Str text;
    for (const Str &role : roles) {
        text << (text.empty() ? "" : ", ") << role;
    }
    return text;
}

} // namespace

bool ConfUserContext::isUnrestricted() const
{
    return privileged || name.empty() || name.compareCaseless(kSharedUser) == 0;
}

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
                       joined(identity.roles).c_str(), allowed ? "" : "cannot", capability.c_str(),
                       toStr().c_str(), metadata.toStr().c_str());
    }
    return allowed;
}

} // namespace velmox
