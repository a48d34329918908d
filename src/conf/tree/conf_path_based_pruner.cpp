#include "conf/tree/conf_path_based_pruner.h"

namespace velmox {

ConfPathBasedPruner::ConfPathBasedPruner(ConfUserContext identity)
    : path_(ConfPathBase(Str(), Str()), std::move(identity))
{
}

bool ConfPathBasedPruner::shouldPrune(const StrVector &segments, ConfPathTrie &node)
{
    gather(segments.size(), node);
    // A user by itself is no address; what its metadata says still counts below.
    if (segments.size() < kAppLevel) {
        return false;
    }
    enter(segments, node);
    path_.metadata() = gathered_.back();
    return visitPath(path_, node);
}

void ConfPathBasedPruner::gather(std::size_t depth, const ConfPathTrie &node)
{
    // What was gathered on the way to the last node is kept as far as the two ways are one.
    gathered_.resize(depth - 1);
    gathered_.push_back(gathered_.empty() ? ConfPathMetadata() : gathered_.back());
    gathered_.back().overlay(node.metadata());
}

/// The walk goes depth first: a path is made from the last by leaving what was deeper, and going one step
/// down.
void ConfPathBasedPruner::enter(const StrVector &segments, const ConfPathTrie &node)
{
    const std::size_t level = segments.size();
    if (level == kAppLevel) {
        path_.setUser(segments[0].lowered());
        path_.setApp(segments[1]);
    }
    while (path_.level() > kAppLevel && path_.level() >= level) {
        path_.removeLastPart();
    }
    if (level > kAppLevel) {
        path_.addPart(segments.back(), node.expansion());
    }
}

bool PermissionPruner::isAllowed(const ConfPathCached &path, const ConfPathMetadata &) const
{
    return path.hasCapability(path.identity(), ConfAcl::kRead);
}

bool PermissionPruner::visitPath(const ConfPathCached &path, ConfPathTrie &node)
{
    if (isAllowed(path, parentMetadata())) {
        return false;
    }
    // A copy to go down with: the walker's own path must stay at this node.
    ConfPathCached below = path;
    return !isAllowedBelow(below, node);
}

bool PermissionPruner::isAllowedBelow(ConfPathCached &path, const ConfPathTrie &node) const
{
    // The walker has not been there yet: metadata is gathered here a second time, with the same rules.
    const ConfPathMetadata parent = path.metadata();
    for (const auto &[part, child] : node.children()) {
        path.addPart(part);
        path.metadata().overlay(child->metadata());
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
