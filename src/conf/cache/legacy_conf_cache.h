#pragma once

#include "conf/cache/base_conf_cache.h"

namespace velmox {

/// The view of a reader with neither user nor app: of the layers in their order, the first to set a key wins.
class LegacyConfCache : public BaseConfCache
{
public:
    LegacyConfCache(const Str &typeName, const ConfContext &context, const ConfSources &sources)
        : BaseConfCache(typeName, context, sources)
    {
    }

    void collectDeletable(unsigned, ConfPathTrie &) override {}
    void rebuild() override;

private:
    void buildStanza(const Str &name, Stanzas &out) override;
    ConfSearch searchOfType() const;
    void build(const ConfSearch &search, Stanzas &out);
    void addLayer(ConfPathTrie &layer, Stanzas &out);
};

} // namespace velmox
