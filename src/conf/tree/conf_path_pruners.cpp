#include "conf/tree/conf_path_pruners.h"

#include "util/log/logger.h"

#include <algorithm>

namespace velmox {

namespace {

Logger log("DisabledApplicationPruner");

} // namespace

SubtriePruner::SubtriePruner(const ConfPathBase &path, unsigned levels)
    : path_(path.segments()), levels_(levels)
{
}

bool SubtriePruner::shouldPrune(const StrVector &segments, ConfPathTrie &)
{
    const std::size_t shared = std::min(segments.size(), path_.size());
    return segments.size() - shared > levels_ ||
           !std::equal(path_.begin(), path_.begin() + static_cast<std::ptrdiff_t>(shared), segments.begin());
}

bool OneClassPruner::shouldPrune(const StrVector &segments, ConfPathTrie &)
{
    const bool isType = segments.size() == ConfPathTrie::kTypeLevel;
    return isType && (segments.back() == type_) == (mode_ == Mode::RemoveOnly);
}

PruneAnswer MatchSearchPruner::visit(const StrVector &segments, ConfPathTrie &node)
{
    return search_.matchesLast(segments) ? wrapped_.visit(segments, node) : PruneAnswer::Remove;
}

PruneAnswer DanglingMetadataPruner::visit(const StrVector &segments, ConfPathTrie &node)
{
    const bool holdsData =
        segments.size() == ConfPathTrie::kStanzaLevel || segments.size() == ConfPathTrie::kKeyLevel;
    return holdsData && !node.hasData() ? PruneAnswer::KeepIfNotEmptied : PruneAnswer::Keep;
}

bool DisabledApplicationPruner::shouldPrune(const StrVector &segments, ConfPathTrie &)
{
    if (segments.size() != ConfPathTrie::kTypeLevel || segments[2] == kAppType || isUsable_(segments[1])) {
        return false;
    }
    if (log.debugEnabled()) {
        log.debug("Skipping path into disabled_app=%s: %s", segments[1].c_str(),
                  ConfPathBase(segments[0], segments[1], {segments[2]}).toStr().c_str());
    }
    return true;
}

PruneAnswer DanglingDataPruner::visit(const StrVector &segments, ConfPathTrie &)
{
    const bool isPrivateApp = segments.size() == ConfPathTrie::kAppLevel && segments[0] != kSharedUser;
    const bool dangles =
        isSharedStorage_ && isPrivateApp && !isKnown_(segments[1]) && !mayDangle_(segments[1]);
    return dangles ? PruneAnswer::Remove : PruneAnswer::Keep;
}

bool UsersPruner::shouldPrune(const StrVector &segments, ConfPathTrie &)
{
    return segments.size() == ConfPathTrie::kUserLevel && segments.front() != kSharedUser &&
           !kept_.contains(segments.front());
}

} // namespace velmox
