#include "conf/cache/conf_caches.h"

#include "conf/cache/base_conf_cache_builder.h"
#include "conf/cache/shared_conf_state.h"
#include "conf/store/application_manager.h"
#include "conf/tree/conf_path_based_pruner.h"
#include "conf/tree/conf_path_pruners.h"

namespace velmox {

namespace {

/// Copies the part of a tree that lies at a path.
void copyAt(const ConfPathBase &path, const ConfPathTrie &from, ConfPathTrie &out)
{
    if (const ConfPathTrie *const found = from.find(path)) {
        out.node(path).merge(*found);
    }
}

void copyUser(const Str &user, const ConfPathTrie &from, ConfPathTrie &out)
{
    const Str name = user.lowered();
    if (const ConfPathTrie *const found = from.findChild(name)) {
        out.child(name).merge(*found);
    }
}

std::shared_ptr<const ConfUserContext> currentRights(const Str &user)
{
    return std::make_shared<const ConfUserContext>(ConfUserContextFactory::rightsOf(user));
}

} // namespace

void LegacyConfCache::rebuild()
{
    stanzas().clear();
    build(searchOfType(), stanzas());
}

void LegacyConfCache::buildStanza(const Str &name, Stanzas &out)
{
    ConfSearch search = searchOfType();
    search.setStanza(name);
    build(search, out);
}

ConfSearch LegacyConfCache::searchOfType() const
{
    ConfSearch search;
    search.constrain(ConfSearch::User, kSharedUser);
    search.constrain(ConfSearch::Type, typeName());
    return search;
}

void LegacyConfCache::build(const ConfSearch &search, Stanzas &out)
{
    for (IConfPathMapper *const mapper : mappers()) {
        ConfPathTrie layer;
        if (mapper->search(search, layer)) {
            addLayer(layer, out);
        }
    }
}

void LegacyConfCache::addLayer(ConfPathTrie &layer, Stanzas &out)
{
    layer.pruneDepth(kKeyLevel);
    DisabledApplicationPruner disabled(
        [this](const Str &app) { return sources().applications.isUsable(app); });
    layer.walk(disabled);
    DanglingMetadataPruner dangling;
    layer.walk(dangling);
    BaseConfCacheBuilder builder(*this, out, false);
    layer.walk(builder);
}

UserConfCache::UserConfCache(const Str &typeName, const ConfContext &context, const ConfSources &sources,
                             const Str &actingUser)
    : BaseConfCache(typeName, context, sources), actingUser_(actingUser),
      shared_(sources.states.of(typeName)), rights_(currentRights(actingUser))
{
}

void UserConfCache::invalidate()
{
    // The layers first: a view that is built in between is stale by its own mark.
    shared_.invalidate();
    BaseConfCache::invalidate();
}

bool UserConfCache::haveRightsChanged()
{
    const auto now = currentRights(actingUser_);
    const auto last = rights_.exchange(now);
    return !(*last == *now);
}

void UserConfCache::rebuild()
{
    stanzas().clear();
    // The lock of the layers is held for the copy alone: nobody waits while this reader's copy is pruned.
    ConfPathTrie visible;
    shared_.withTree([&](const ConfPathTrie &layers) { copyVisible(layers, visible); });
    build(visible, stanzas());
}

void UserConfCache::buildStanza(const Str &name, Stanzas &out)
{
    ConfPathTrie layers;
    shared_.readStanza(name, layers);
    ConfPathTrie visible;
    copyVisible(layers, visible);
    build(visible, out);
}

void UserConfCache::build(ConfPathTrie &visible, Stanzas &out) const
{
    pruneForUser(visible);
    BaseConfCacheBuilder builder(*this, out, true);
    visible.walk(builder);
}

void UserConfCache::copyVisible(const ConfPathTrie &layers, ConfPathTrie &out) const
{
    const Str &user = context().user;
    if (user.empty()) {
        copyAt(ConfPathBase(kSharedUser, context().app), layers, out);
        return;
    }
    copyUser(kSharedUser, layers, out);
    if (user.compareCaseless(kSharedUser) != 0) {
        copyUser(user, layers, out);
    }
}

/// A reader without a user was given the own app alone, and may read all of it.
void UserConfCache::pruneForUser(ConfPathTrie &tree) const
{
    if (context().user.empty()) {
        return;
    }
    std::set<Str> apps = {context().app};
    sources().applications.expandImports(apps);
    SingleUserAppContextPruner foreign(context().user, context().app, std::move(apps));
    tree.walk(foreign);
    PermissionPruner unreadable(ConfUserContextFactory::rightsOf(actingUser_));
    tree.walk(unreadable);
}

void UserConfCache::collectDeletable(unsigned levels, ConfPathTrie &out)
{
    ConfPathTrie tree;
    shared_.withTree([&](const ConfPathTrie &layers) { copyVisible(layers, tree); });
    pruneForUser(tree);
    DeletablePruner undeletable(ConfUserContextFactory::rightsOf(actingUser_));
    tree.walk(undeletable);
    out.merge(tree, levels);
}

} // namespace velmox
