#pragma once

#include "conf/tree/conf_path_based_pruner.h"

namespace velmox {

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
