#include "conf/pages/user_property_pages.h"

#include "conf/cache/user_conf_cache.h"

namespace velmox {

UserPropertyPages::UserPropertyPages(const Str &typeName, const ConfContext &context, const Str &actingUser)
    : PropertyPages(typeName, context, actingUser)
{
}

std::unique_ptr<IConfCache> UserPropertyPages::createCache() const
{
    return std::make_unique<UserConfCache>(typeName(), context(), actingUser());
}

bool UserPropertyPages::haveRightsChanged()
{
    return static_cast<UserConfCache &>(cache()).haveRightsChanged();
}

} // namespace velmox
