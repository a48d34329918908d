#include "conf/tree/conf_path_based_pruner.h"

#include "conf/tree/conf_path_trie.h"

namespace velmox {

ConfPathBasedPruner::ConfPathBasedPruner(ConfUserContext identity)
    : path_(ConfPathBase(Str(), Str()), std::move(identity))
{
}

bool ConfPathBasedPruner::shouldPrune(const StrVector &segments, ConfPathTrie &node)
{
    gather(segments.size(), node);
    if (segments.size() < ConfPathTrie::kAppLevel) {
        return false;
    }
    enter(segments, node);
    path_.metadata() = gathered_.back();
    return visitPath(path_, node);
}

void ConfPathBasedPruner::gather(std::size_t depth, const ConfPathTrie &node)
{
    static const ConfPathMetadata none;
    gathered_.resize(depth - 1);
    gathered_.push_back(gathered_.empty() ? none : gathered_.back());
    gathered_.back().overlay(node.hasMetadata() ? node.metadata() : none);
}

void ConfPathBasedPruner::enter(const StrVector &segments, const ConfPathTrie &node)
{
    const std::size_t partCount = segments.size() - ConfPathTrie::kAppLevel;
    if (partCount == kAppParts) {
        path_.setUser(segments[0].lowered());
        path_.setApp(segments[1]);
    }
    while (!path_.parts().empty() && path_.parts().size() >= partCount) {
        path_.removeLastPart();
    }
    if (partCount > kAppParts) {
        path_.addPart(segments.back(), node.expansion());
    }
}

} // namespace velmox
