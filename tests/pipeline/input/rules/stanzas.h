#pragma once

#include "pipeline/input/rules/stanza_configuration.h"

namespace velmox::testing {

/// Stanzas as a server writes them, and what the configuration makes of them for one current user.
struct StanzaSet
{
    StanzaSet() { hives.fill(u"\\REGISTRY\\USER\\S-1-5-21-7"); }

    StanzaSet &add(const Str &name, const std::vector<std::pair<Str, Str>> &params = {})
    {
        PropertiesMap &stanza = stanzas[name];
        for (const auto &[key, value] : params) {
            stanza.set(key, value);
        }
        return *this;
    }

    std::unique_ptr<MonitorFilterGroup> group(bool inclusive = true)
    {
        return makeFilterGroup(stanzas, {"main", inclusive}, hives);
    }

    std::map<Str, PropertiesMap> stanzas;
    HiveNames hives;
};

} // namespace velmox::testing
