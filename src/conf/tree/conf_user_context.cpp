#include "conf/tree/conf_user_context.h"

namespace velmox {

namespace {

std::unique_ptr<IConfUserContextFactory> installed;

} // namespace

void ConfUserContextFactory::install(std::unique_ptr<IConfUserContextFactory> factory)
{
    installed = std::move(factory);
}

IConfUserContextFactory *ConfUserContextFactory::instance()
{
    return installed.get();
}

} // namespace velmox
