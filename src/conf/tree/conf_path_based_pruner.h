#pragma once

#include "conf/tree/conf_path_trie.h"
#include "conf/tree/conf_rights.h"

#include <vector>

namespace velmox {

/// A walker that is told of each node as a path, with all the metadata that applies there. Good for one walk
/// at a time, from the root of a tree.
class ConfPathBasedPruner : public SimpleConfPathTriePruner
{
public:
    explicit ConfPathBasedPruner(ConfUserContext identity = {});

protected:
    /// What applies at the node above the one visited.
    const ConfPathMetadata &parentMetadata() const { return gathered_[gathered_.size() - 2]; }

private:
    /// Called from the app's level on; `path` has no parts there. The metadata of `path` is that of the node
    /// and of those above it. True removes the node.
    virtual bool visitPath(const ConfPathCached &path, ConfPathTrie &node) = 0;

    bool shouldPrune(const StrVector &segments, ConfPathTrie &node) final;
    void enter(const StrVector &segments, const ConfPathTrie &node);
    void gather(std::size_t depth, const ConfPathTrie &node);

    ConfPathCached path_;
    /// One entry a level, from the user's on, each the merger of all down to it.
    std::vector<ConfPathMetadata> gathered_;
};

/// Removes what the identity may not read. A refused node stays when something below it is granted: there its
/// own metadata overrules what is above.
class PermissionPruner : public ConfPathBasedPruner
{
public:
    using ConfPathBasedPruner::ConfPathBasedPruner;

private:
    /// Whether the path's identity is granted what this walker asks for. `parent` is what applies one level
    /// up.
    virtual bool isAllowed(const ConfPathCached &path, const ConfPathMetadata &parent) const;

    bool visitPath(const ConfPathCached &path, ConfPathTrie &node) final;
    bool isAllowedBelow(ConfPathCached &path, const ConfPathTrie &node) const;
};

/// Removes what the identity may not delete: that takes the right to write to the node above, and to read the
/// node itself. An app is nothing that can be deleted.
class DeletablePruner : public PermissionPruner
{
public:
    using PermissionPruner::PermissionPruner;

private:
    bool isAllowed(const ConfPathCached &path, const ConfPathMetadata &parent) const override;
};

} // namespace velmox
