#pragma once

#include "conf/ground/conf_lock.h"
#include "conf/root/bundles_setup.h"
#include "conf/tree/conf_search.h"

#include <map>
#include <memory>
#include <mutex>

namespace velmox {

/// All layers of one type, for all users and apps: read once, whoever asks, and filtered by each reader. Any
/// thread.
class SharedConfState
{
public:
    SharedConfState(const BundlesSetup &setup, const Str &typeName);

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

    /// Reads no more than one stanza and "default" of all layers into `out`, and leaves the tree as it is.
    void readStanza(const Str &name, ConfPathTrie &out) const;

private:
    void populate();
    void readLayers(const ConfSearch &search, ConfPathTrie &out) const;

    ConfLock lock_{ConfLockRank::SharedState};
    bool dirty_ = true;
    const Str typeName_;
    const BundlesSetup setup_;
    ConfPathTrie trie_;
};

/// The states of a root by type. Any thread.
class SharedConfStates
{
public:
    explicit SharedConfStates(const BundlesSetup &setup);

    /// Lives as long as this object.
    SharedConfState &of(const Str &typeName);

private:
    const BundlesSetup setup_;
    ConfLock lock_{ConfLockRank::SharedState};
    std::map<Str, std::unique_ptr<SharedConfState>> states_;
};

} // namespace velmox
