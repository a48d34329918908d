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

bool PropertiesMap::isDisabled() const
{
    // A key without a value is in force, like a missing one; whatever else is no boolean was meant to
    // disable.
    return get("disabled").toBool(false, true);
}

Str PropertiesMap::appName() const
{
    // "default" inherits from nowhere, so that its own values are marked by the very name that elsewhere
    // marks inherited ones.
    const bool isDefault = self.originStanza == kDefaultStanza;
    const PropertyValue *highest = &self;
    for (const auto &[key, candidate] : properties) {
        const bool inherited = !isDefault && candidate.originStanza == kDefaultStanza;
        if (!inherited && candidate.level > highest->level) {
            highest = &candidate;
        }
    }
    return highest->app;
}

} // namespace velmox
