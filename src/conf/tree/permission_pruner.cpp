#include "conf/tree/permission_pruner.h"

#include "conf/tree/conf_path_trie.h"

namespace velmox {

bool PermissionPruner::isAllowed(const ConfPathCached &path, const ConfPathMetadata &) const
{
    return path.hasCapability(path.identity(), ConfAcl::kRead);
}

bool PermissionPruner::visitPath(const ConfPathCached &path, ConfPathTrie &node)
{
    if (isAllowed(path, parentMetadata())) {
        return false;
    }
    ConfPathCached below = path;
    return !isAllowedBelow(below, node);
}

bool PermissionPruner::isAllowedBelow(ConfPathCached &path, const ConfPathTrie &node) const
{
    const ConfPathMetadata parent = path.metadata();
    for (const auto &[part, child] : node.children()) {
        path.addPart(part);
        path.metadata().overlay(child->hasMetadata() ? child->metadata() : ConfPathMetadata());
        const bool allowed = isAllowed(path, parent) || isAllowedBelow(path, *child);
        path.removeLastPart();
        path.metadata() = parent;
        if (allowed) {
            return true;
        }
    }
    return false;
}

bool DeletablePruner::isAllowed(const ConfPathCached &path, const ConfPathMetadata &parent) const
{
    if (path.parts().empty() || !path.hasCapability(path.identity(), ConfAcl::kRead)) {
        return false;
    }
    ConfPathCached above = path;
    above.removeLastPart();
    above.metadata() = parent;
    return above.hasCapability(path.identity(), ConfAcl::kWrite);
}

} // namespace velmox
