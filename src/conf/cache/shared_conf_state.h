#pragma once

#include "conf/ground/conf_lock.h"
#include "conf/tree/conf_path_pruners.h"

#include <map>
#include <memory>
#include <mutex>

namespace velmox {

class ConfPathMapperManager;

/// Where the layers come from, and which of their apps count. The register of apps is made after the states
/// are, so they ask it through functions; they may be called while the lock of a state is held.
struct LayerSources
{
    const ConfPathMapperManager &mappers;
    AppPredicate isUsableApp;
    AppPredicate isKnownApp;
};

/// All layers of one type, for all users and apps: read once, whoever asks, and filtered by each reader, so
/// that a thousand users don't read all files each. What is the same for all readers is pruned here already.
/// Any thread; the lock comes behind that of a cache, as caches are built under their own.
class SharedConfState
{
public:
    /// The sources outlive this object.
    SharedConfState(const LayerSources &sources, const Str &typeName);

    /// The tree is read anew before it is looked at again.
    void invalidate();

    /// Calls `use` with the tree, under the lock; reads the layers first when the tree is stale.
    template <class Use>
    auto withTree(Use &&use)
    {
        const std::lock_guard guard(lock_);
        populate();
        return use(static_cast<const ConfPathTrie &>(trie_));
    }

    /// Reads no more than one stanza and "default" of all layers into `out`. Leaves the tree as it is, and
    /// does not take its lock.
    void readStanza(const Str &name, ConfPathTrie &out) const;

private:
    void populate();
    void readLayers(const ConfSearch &search, ConfPathTrie &out) const;

    ConfLock lock_{ConfLockRank::SharedState};
    bool dirty_ = true;
    const Str typeName_;
    const LayerSources &sources_;
    ConfPathTrie trie_;
};

/// The states of a root by type. Any thread.
class SharedConfStates
{
public:
    explicit SharedConfStates(LayerSources sources);

    /// Made when it is first asked for; reads nothing before somebody wants its tree. Lives as long as this
    /// object.
    SharedConfState &of(const Str &typeName);

private:
    const LayerSources sources_;
    ConfLock lock_{ConfLockRank::SharedState};
    std::map<Str, std::unique_ptr<SharedConfState>> states_;
};

} // namespace velmox
