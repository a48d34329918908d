#include "conf/cache/shared_conf_state.h"

#include "conf/store/conf_path_mapper_manager.h"
#include "conf/store/shared_conf_services.h"
#include "conf/tree/conf_path_pruners.h"
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

void prune(ConfPathTrie &tree, const BundlesSetup &setup)
{
    tree.pruneDepth(ConfPathTrie::kKeyLevel);
    DanglingMetadataPruner danglingMetadata;
    tree.walk(danglingMetadata);
    DanglingDataPruner danglingData(setup);
    tree.walk(danglingData);
    DisabledApplicationPruner disabled(setup);
    tree.walk(disabled);
}

} // namespace

SharedConfState::SharedConfState(const BundlesSetup &setup, const Str &typeName)
    : typeName_(typeName), setup_(setup)
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
    for (IConfPathMapper *const mapper : setup_.shared().mappers().mappers()) {
        try {
            ConfPathTrie layer;
            if (mapper->search(search, layer)) {
                out.merge(std::move(layer));
            }
        } catch (const BaseException &exception) {
            log.warn("Error populating shared UserConfCache state: %s %s", typeName_.c_str(),
                     exception.what());
        }
    }
    prune(out, setup_);
}

SharedConfStates::SharedConfStates(const BundlesSetup &setup) : setup_(setup) {}

SharedConfState &SharedConfStates::of(const Str &typeName)
{
    const std::lock_guard guard(lock_);
    std::unique_ptr<SharedConfState> &state = states_[typeName];
    if (!state) {
        state = std::make_unique<SharedConfState>(setup_, typeName);
    }
    return *state;
}

} // namespace velmox
