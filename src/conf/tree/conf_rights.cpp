#include "conf/tree/conf_rights.h"

#include "util/text/str.h"

namespace velmox {

namespace {

/// Set while nobody uses the store, so that it needs no lock.
std::unique_ptr<IConfUserContextFactory> installed;

constexpr char kAdminRole[] = "admin";

/// Who is named by the metadata, or else the one in whose directory the path lies.
const Str &ownerOf(const ConfPathBase &path, const ConfPathMetadata &metadata)
{
    return metadata.owner ? *metadata.owner : path.user();
}

/// Who administers the system is refused nothing, even where no permissions stand at all.
bool rolesAllow(const std::set<Str> &roles, const Str &capability, const ConfPathMetadata &metadata)
{
    return roles.contains(kAdminRole) || (metadata.access && metadata.access->allows(capability, roles));
}

} // namespace

bool ConfUserContext::isUnrestricted() const
{
    return privileged || name.empty() || name.compareCaseless(kSharedUser) == 0;
}

void ConfUserContextFactory::install(std::unique_ptr<IConfUserContextFactory> factory)
{
    installed = std::move(factory);
}

IConfUserContextFactory *ConfUserContextFactory::instance()
{
    return installed.get();
}

ConfUserContext ConfUserContextFactory::rightsOf(const Str &user)
{
    if (user.empty()) {
        return {};
    }
    return installed ? installed->named(user) : ConfUserContext{user, {}, true};
}

bool ConfPathWithACL::hasCapability(const ConfUserContext &identity, const Str &capability, Str *reason) const
{
    // First, as all that follows needs the metadata, which has to be gathered from above the path.
    if (identity.isUnrestricted()) {
        return true;
    }
    const ConfPathMetadata metadata = effectiveMetadata();
    if (identity.name.compareCaseless(ownerOf(*this, metadata)) == 0) {
        return true;
    }
    const bool allowed = rolesAllow(identity.roles, capability, metadata);
    // What is granted leaves two blanks behind the roles. The sentence is required so.
    if (reason) {
        reason->format("User '%s' with roles { %s } %s %s: %s %s", identity.name.c_str(),
                       joined(identity.roles, ", ").c_str(), allowed ? "" : "cannot", capability.c_str(),
                       toStr().c_str(), metadata.toStr().c_str());
    }
    return allowed;
}

} // namespace velmox
