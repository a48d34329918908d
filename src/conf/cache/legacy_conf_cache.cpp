#include "conf/cache/legacy_conf_cache.h"

#include "conf/cache/base_conf_cache_builder.h"
#include "conf/tree/conf_path_pruners.h"

namespace velmox {

void LegacyConfCache::rebuild()
{
    stanzas().clear();
    build(searchOfType(), stanzas());
}

void LegacyConfCache::buildStanza(const Str &name, Stanzas &out)
{
    ConfSearch search = searchOfType();
    search.setStanza(name);
    build(search, out);
}

ConfSearch LegacyConfCache::searchOfType() const
{
    ConfSearch search;
    search.constrain(ConfSearch::User, kSharedUser);
    search.constrain(ConfSearch::Type, typeName());
    return search;
}

void LegacyConfCache::build(const ConfSearch &search, Stanzas &out)
{
    for (IConfPathMapper *const mapper : mappers()) {
        ConfPathTrie layer;
        if (mapper->search(search, layer)) {
            addLayer(layer, out);
        }
    }
}

void LegacyConfCache::addLayer(ConfPathTrie &layer, Stanzas &out)
{
    layer.pruneDepth(ConfPathTrie::kKeyLevel);
    DisabledApplicationPruner disabled(
        [this](const Str &app) { return sources().applications.isUsable(app); });
    layer.walk(disabled);
    DanglingMetadataPruner dangling;
    layer.walk(dangling);
    BaseConfCacheBuilder builder(*this, out, false);
    layer.walk(builder);
}

} // namespace velmox
