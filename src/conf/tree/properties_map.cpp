#include "conf/tree/properties_map.h"

#include "conf/tree/conf_path_base.h"

namespace velmox {

Str PropertiesMap::get(const Str &key) const
{
    const auto found = properties.find(key);
    return found == properties.end() ? Str() : found->second.value;
}

bool PropertiesMap::tryGet(const Str &key, Str &out) const
{
    const auto found = properties.find(key);
    if (found == properties.end() || found->second.value.empty()) {
        return false;
    }
    out = found->second.value;
    return true;
}

bool PropertiesMap::getBool(const Str &key, bool dflt) const
{
    return get(key).toBool(dflt, dflt);
}

bool PropertiesMap::isDisabled() const
{
    return get("disabled").toBool(false, true);
}

void PropertiesMap::set(const Str &key, const Str &value)
{
    properties[key].value = value;
}

Str PropertiesMap::appName() const
{
    const bool isDefault = self.originStanza == kDefaultStanza;
    const PropertyValue *speaker = &self;
    for (const auto &[key, candidate] : properties) {
        const bool inherited = !isDefault && candidate.originStanza == kDefaultStanza;
        if (!inherited && candidate.level > speaker->level) {
            speaker = &candidate;
        }
    }
    return speaker->app;
}

} // namespace velmox
