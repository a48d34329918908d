#include "conf/tree/conf_user_context.h"

#include "conf/tree/conf_path_base.h"

namespace velmox {

namespace {

std::unique_ptr<IConfUserContextFactory> installed;

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

} // namespace velmox
