#include "conf/cache/user_conf_cache.h"

#include "conf/cache/base_conf_cache_builder.h"
#include "conf/cache/shared_conf_state.h"
#include "conf/store/shared_conf_services.h"
#include "conf/tree/context_pruners.h"
#include "conf/tree/permission_pruner.h"

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

} // namespace

UserContextStore::UserContextStore(const Str &user)
    : user_(user), context_(std::make_shared<const ConfUserContext>(ConfUserContextFactory::rightsOf(user)))
{
}

bool UserContextStore::update()
{
    auto fresh = std::make_shared<const ConfUserContext>(ConfUserContextFactory::rightsOf(user_));
    const auto last = context_.exchange(fresh);
    return !(*last == *fresh);
}

UserConfCache::UserConfCache(const Str &typeName, const ConfContext &context, const Str &actingUser)
    : BaseConfCache(typeName, context), actingUser_(actingUser),
      shared_(context.setup.shared().states().of(typeName)), rights_(actingUser)
{
}

void UserConfCache::invalidate()
{
    // The layers first: a view that is built in between is stale by its own mark.
    shared_.invalidate();
    BaseConfCache::invalidate();
}

void UserConfCache::rebuild()
{
    stanzas().clear();
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
    SingleUserAppContextPruner foreign(context());
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
