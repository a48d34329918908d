#include "conf/cache/shared_conf_state.h"

#include "conf/root/conf_settings.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "util/log/logger.h"

namespace velmox {

namespace {

Logger log("SharedConfState");

ConfSearch searchOf(const Str &typeName)
{
    ConfSearch search;
    search.constrain(ConfSearch::Type, typeName);
    return search;
}

/// Takes out what no reader is to see. The depth comes first, which leaves the others less to walk.
void prune(ConfPathTrie &tree, const LayerSources &sources)
{
    const ConfSettings &settings = sources.mappers.settings();
    tree.pruneDepth(kKeyLevel);
    DanglingMetadataPruner danglingMetadata;
    tree.walk(danglingMetadata);
    DanglingDataPruner danglingData(settings.isSharedStorageMode(), sources.isKnownApp,
                                    [&settings](const Str &app) { return settings.allowsDangling(app); });
    tree.walk(danglingData);
    DisabledApplicationPruner disabled(sources.isUsableApp);
    tree.walk(disabled);
}

} // namespace

SharedConfState::SharedConfState(const LayerSources &sources, const Str &typeName)
    : typeName_(typeName), sources_(sources)
{
}

void SharedConfState::invalidate()
{
    const std::lock_guard guard(lock_);
    dirty_ = true;
}

void SharedConfState::populate()
{
    if (!dirty_) {
        return;
    }
    // Cleared of the mark only when all is read: a failure on the way leaves the tree stale for the next
    // reader.
    trie_.clear();
    readLayers(searchOf(typeName_), trie_);
    dirty_ = false;
}

void SharedConfState::readStanza(const Str &name, ConfPathTrie &out) const
{
    ConfSearch search = searchOf(typeName_);
    search.setStanza(name);
    readLayers(search, out);
}

void SharedConfState::readLayers(const ConfSearch &search, ConfPathTrie &out) const
{
    for (IConfPathMapper *const mapper : sources_.mappers.mappers()) {
        try {
            // A tree of its own, so that a layer that fails half way leaves no half in `out`. Merged in
            // reading order, where what came first stays.
            ConfPathTrie layer;
            if (mapper->search(search, layer)) {
                // Nodes that are not in `out` yet are moved over, not copied.
                out.merge(std::move(layer));
            }
        } catch (const BaseException &exception) {
            // One layer that cannot be read must not take the others from all readers.
            log.warn("Error populating shared UserConfCache state: %s %s", typeName_.c_str(),
                     exception.what());
        }
    }
    prune(out, sources_);
}

SharedConfStates::SharedConfStates(LayerSources sources) : sources_(std::move(sources)) {}

SharedConfState &SharedConfStates::of(const Str &typeName)
{
    const std::lock_guard guard(lock_);
    // Entered empty and never removed, so that references to it stay good.
    std::unique_ptr<SharedConfState> &state = states_[typeName];
    if (!state) {
        state = std::make_unique<SharedConfState>(sources_, typeName);
    }
    return *state;
}

} // namespace velmox
