#include "conf/tree/context_pruners.h"

#include "conf/tree/conf_path_trie.h"

#include <algorithm>

namespace velmox {

namespace {

ConfExport ownExport(const ConfPathTrie &node)
{
    return node.hasMetadata() ? node.metadata().exported : ConfExport::NotSet;
}

bool holdsExport(const ConfPathTrie &node)
{
    return std::any_of(node.children().begin(), node.children().end(), [](const auto &child) {
        return ownExport(*child.second) == ConfExport::System || holdsExport(*child.second);
    });
}

} // namespace

ApplicationContextPruner::ApplicationContextPruner(const Str &app, std::set<Str> imports)
    : app_(app), imports_(std::move(imports))
{
}

PruneAnswer ApplicationContextPruner::visit(const StrVector &segments, ConfPathTrie &node)
{
    enter(segments.size(), node);
    if (segments.size() < ConfPathTrie::kAppLevel || exports_.back() == ConfExport::System) {
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
    const ConfExport own = ownExport(node);
    exports_.push_back(own == ConfExport::NotSet ? inherited : own);
}

SingleUserAppContextPruner::SingleUserAppContextPruner(const Str &user, const Str &app, std::set<Str> imports)
    : ApplicationContextPruner(app, std::move(imports)), user_(user.lowered())
{
}

PruneAnswer SingleUserAppContextPruner::visit(const StrVector &segments, ConfPathTrie &node)
{
    if (segments[0] == kSharedUser) {
        return ApplicationContextPruner::visit(segments, node);
    }
    const bool isOwn =
        segments[0] == user_ && (segments.size() < ConfPathTrie::kAppLevel || segments[1] == app());
    return isOwn ? PruneAnswer::Keep : PruneAnswer::Remove;
}

} // namespace velmox
