#include "conf/pages/legacy_property_pages.h"

#include "conf/cache/legacy_conf_cache.h"

namespace velmox {

LegacyPropertyPages::LegacyPropertyPages(const Str &typeName, const ConfContext &context)
    : PropertyPages(typeName, context, Str())
{
}

std::unique_ptr<IConfCache> LegacyPropertyPages::createCache() const
{
    return std::make_unique<LegacyConfCache>(typeName(), context());
}

} // namespace velmox
