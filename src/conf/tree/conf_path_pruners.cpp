#include "conf/tree/conf_path_pruners.h"

#include "util/log/logger.h"

#include <algorithm>

namespace velmox {

namespace {

Logger log("DisabledApplicationPruner");
Logger searchLog("ConfSearch");

/// A stanza that is exported to everyone must be reached, though the app that it stands in is not open.
bool holdsExport(const ConfPathTrie &node)
{
    return std::any_of(node.children().begin(), node.children().end(), [](const auto &child) {
        return child.second->metadata().exported == ConfExport::System || holdsExport(*child.second);
    });
}

} // namespace

SubtriePruner::SubtriePruner(const ConfPathBase &path, unsigned levels)
    : path_(path.segments()), levels_(levels)
{
}

bool SubtriePruner::shouldPrune(const StrVector &segments, ConfPathTrie &)
{
    // Above the node of the path its parts are compared as far as they go, below it the levels are counted.
    const std::size_t shared = std::min(segments.size(), path_.size());
    return segments.size() - shared > levels_ ||
           !std::equal(path_.begin(), path_.begin() + static_cast<std::ptrdiff_t>(shared), segments.begin());
}

bool OneClassPruner::shouldPrune(const StrVector &segments, ConfPathTrie &)
{
    const bool isType = segments.size() == kTypeLevel;
    return isType && (segments.back() == type_) == (mode_ == Mode::RemoveOnly);
}

PruneAnswer MatchSearchPruner::visit(const StrVector &segments, ConfPathTrie &node)
{
    return search_.matchesLast(segments) ? wrapped_.visit(segments, node) : PruneAnswer::Remove;
}

PruneAnswer DanglingMetadataPruner::visit(const StrVector &segments, ConfPathTrie &node)
{
    const bool holdsData = segments.size() == kStanzaLevel || segments.size() == kKeyLevel;
    return holdsData && !node.hasData() ? PruneAnswer::KeepIfNotEmptied : PruneAnswer::Keep;
}

bool DisabledApplicationPruner::shouldPrune(const StrVector &segments, ConfPathTrie &)
{
    if (segments.size() != kTypeLevel || segments[2] == kAppType || isUsable_(segments[1])) {
        return false;
    }
    // The text is made for the log alone, and this is asked of each type of each app.
    if (log.debugEnabled()) {
        log.debug("Skipping path into disabled_app=%s: %s", segments[1].c_str(),
                  ConfPathBase(segments[0], segments[1], {segments[2]}).toStr().c_str());
    }
    return true;
}

PruneAnswer DanglingDataPruner::visit(const StrVector &segments, ConfPathTrie &)
{
    // The app's node is the highest that is gone as a whole.
    const bool isPrivateApp = segments.size() == kAppLevel && segments[0] != kSharedUser;
    const bool dangles =
        isSharedStorage_ && isPrivateApp && !isKnown_(segments[1]) && !mayDangle_(segments[1]);
    return dangles ? PruneAnswer::Remove : PruneAnswer::Keep;
}

bool UsersPruner::shouldPrune(const StrVector &segments, ConfPathTrie &)
{
    return segments.size() == kUserLevel && segments.front() != kSharedUser &&
           !kept_.contains(segments.front());
}

ApplicationContextPruner::ApplicationContextPruner(const Str &app, std::set<Str> imports)
    : app_(app), imports_(std::move(imports))
{
}

PruneAnswer ApplicationContextPruner::visit(const StrVector &segments, ConfPathTrie &node)
{
    enter(segments.size(), node);
    if (segments.size() < kAppLevel || exports_.back() == ConfExport::System) {
        return PruneAnswer::Keep;
    }
    const Str &app = segments[1];
    const bool isOpen = app == kSystemApp || app == app_ || imports_.contains(app);
    return isOpen || holdsExport(node) ? PruneAnswer::Keep : PruneAnswer::Remove;
}

void ApplicationContextPruner::enter(std::size_t level, const ConfPathTrie &node)
{
    exports_.resize(level - 1);
    const ConfExport inherited = exports_.empty() ? ConfExport::NotSet : exports_.back();
    const ConfExport own = node.metadata().exported;
    exports_.push_back(own == ConfExport::NotSet ? inherited : own);
}

SingleUserAppContextPruner::SingleUserAppContextPruner(const Str &user, const Str &app, std::set<Str> imports)
    : ApplicationContextPruner(app, std::move(imports)), user_(user.lowered())
{
}

PruneAnswer SingleUserAppContextPruner::visit(const StrVector &segments, ConfPathTrie &node)
{
    // Trees have users in lower case.
    if (segments[0] == kSharedUser) {
        return ApplicationContextPruner::visit(segments, node);
    }
    const bool isOwn = segments[0] == user_ && (segments.size() < kAppLevel || segments[1] == app());
    return isOwn ? PruneAnswer::Keep : PruneAnswer::Remove;
}

bool ConfSearch::constrain(Field field, const Str &value)
{
    std::optional<Str> &constraint = constraints_[field];
    if (constraint) {
        searchLog.error("Cannot constrain search with field[%d] = %s; field is already constrained to %s",
                        static_cast<int>(field), value.c_str(), constraint->c_str());
        return false;
    }
    constraint = value;
    return true;
}

bool ConfSearch::matchesLast(const StrVector &segments) const
{
    const Str &part = segments.back();
    if (segments.size() > maxLevel_) {
        return false;
    }
    // Names of users count in any case; those of apps, types and stanzas are compared as they are.
    switch (segments.size()) {
    case kUserLevel:
        return !constraints_[User] || part.compareCaseless(*constraints_[User]) == 0;
    case kAppLevel:
        return !constraints_[App] || part == *constraints_[App];
    case kTypeLevel:
        return !constraints_[Type] || part == *constraints_[Type];
    case kStanzaLevel:
        return !stanza_ || part == *stanza_ || part == kDefaultStanza;
    default:
        return true;
    }
}

} // namespace velmox
