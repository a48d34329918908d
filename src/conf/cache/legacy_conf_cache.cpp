#include "conf/cache/legacy_conf_cache.h"

#include "conf/cache/base_conf_cache_builder.h"
#include "conf/tree/conf_path_pruners.h"

namespace velmox {

void LegacyConfCache::rebuild()
{
    clear();
    ConfSearch search;
    search.constrain(ConfSearch::User, kSharedUser);
    search.constrain(ConfSearch::Type, typeName());
    for (IConfPathMapper *const mapper : mappers()) {
        ConfPathTrie layer;
        if (mapper->search(search, layer)) {
            addLayer(layer);
        }
    }
}

void LegacyConfCache::addLayer(ConfPathTrie &layer)
{
    layer.pruneDepth(ConfPathTrie::kKeyLevel);
    DisabledApplicationPruner disabled(context().setup);
    layer.walk(disabled);
    DanglingMetadataPruner dangling;
    layer.walk(dangling);
    BaseConfCacheBuilder builder(*this, false);
    layer.walk(builder);
}

} // namespace velmox
