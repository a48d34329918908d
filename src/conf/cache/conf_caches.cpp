#include "conf/cache/conf_caches.h"

#include "conf/cache/shared_conf_state.h"
#include "conf/tree/conf_path_pruners.h"
#include "util/log/logger.h"

namespace velmox {

namespace {

Logger log("BaseConfCacheBuilder");

/// Copies the part of a tree that lies at a path.
void copyAt(const ConfPathBase &path, const ConfPathTrie &from, ConfPathTrie &out)
{
    if (const ConfPathTrie *const found = from.find(path)) {
        out.node(path).merge(*found);
    }
}

/// Users' nodes are named in lower case.
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

BaseConfCacheBuilder::BaseConfCacheBuilder(const BaseConfCache &cache, Stanzas &view, bool override)
    : cache_(cache), view_(view), override_(override)
{
    const ConfContext &reader = cache.context();
    if (!reader.app.empty()) {
        imports_ = cache.sources().applications.importGenerations(reader.app);
    }
}

/// The walk comes to a node before those below it, and in the order of names, so at any time the arrays and
/// pointers tell of the node at hand and of those above it.
bool BaseConfCacheBuilder::visitPath(const ConfPathCached &path, ConfPathTrie &node)
{
    const std::size_t level = path.level();
    const Precedence own = precedenceOf(path, node.metadata().exported, precedences_[level - 1]);
    // Kept for each level, since the nodes below inherit it.
    precedences_[level] = own;
    PropertyValue *target = nullptr;
    if (level == kAppLevel) {
        enterApp(path);
    } else if (level == kStanzaLevel) {
        enterStanza(path, node);
        target = &stanza_->self;
    } else if (level == kKeyLevel) {
        target = &enterKey(path);
    }
    if (target != nullptr && !(existed_ && keepsOldValue(*target, own))) {
        set(*target, path, node, own);
    }
    // Nothing is pruned: the walk is for what it meets.
    return false;
}

void BaseConfCacheBuilder::enterApp(const ConfPathCached &path)
{
    const ConfContext &reader = cache_.context();
    const auto found = imports_.find(path.app());
    // An app that is seen without an import, such as one that exports to everyone, counts as nearest.
    generation_ = found == imports_.end() ? 0 : found->second;
    if (found != imports_.end() && path.app() != reader.app) {
        log.debug("%s.conf %s: %s imports %s with generation %llu", cache_.typeName().c_str(),
                  reader.toStr().c_str(), reader.app.c_str(), path.app().c_str(),
                  static_cast<unsigned long long>(generation_));
    }
}

void BaseConfCacheBuilder::enterStanza(const ConfPathCached &path, const ConfPathTrie &node)
{
    // Several apps, and layer after layer where there is one walk for each, have the stanza.
    const auto [at, added] = view_.try_emplace(path.parts().back());
    existed_ = !added;
    stanzaName_ = &at->first;
    stanza_ = &at->second;
    stanza_->metadata = path.metadata().access;
    takeExpansion(node);
}

void BaseConfCacheBuilder::takeExpansion(const ConfPathTrie &node)
{
    if (stanza_->expansion.empty()) {
        stanza_->expansion = node.expansion();
    } else if (!node.expansion().empty() && node.expansion() != stanza_->expansion) {
        // Relative to its file, one name means another place in each app.
        log.warn("Stanza has an expansion [%s], ignoring alternate expansion [%s] in %s.conf",
                 stanza_->expansion.c_str(), node.expansion().c_str(), cache_.typeName().c_str());
    }
}

PropertyValue &BaseConfCacheBuilder::enterKey(const ConfPathCached &path)
{
    const auto [at, added] = stanza_->properties.try_emplace(path.parts().back());
    existed_ = !added;
    return at->second;
}

/// The order of the questions matters: "system" stays lowest even where a user keeps settings for it, and
/// what a node does not say of export itself is inherited before the reader's app is looked at.
BaseConfCacheBuilder::Precedence
BaseConfCacheBuilder::precedenceOf(const ConfPathCached &path, ConfExport exported, Precedence parent) const
{
    if (path.isSystemApp()) {
        return SystemApp;
    }
    if (!path.isShared()) {
        return OwnUser;
    }
    if (exported == ConfExport::NotSet && parent != Unknown) {
        return parent;
    }
    const Str &readerApp = cache_.context().app;
    switch (exported) {
    case ConfExport::NotSet:
    case ConfExport::None:
        return !readerApp.empty() && path.app() != readerApp ? NotExported : Own;
    case ConfExport::System:
        return !readerApp.empty() && path.app() == readerApp ? OwnExported : Exported;
    }
    return Unknown;
}

bool BaseConfCacheBuilder::keepsOldValue(const PropertyValue &target, Precedence precedence) const
{
    // Of two apps that are seen by imports, the one reached in fewer steps counts.
    const bool bothNotExported = precedence == NotExported && target.level == NotExported;
    const bool isFurtherImport = bothNotExported && generation_ > target.generation;
    // Of equal precedence the later counts, which is the later name of user and app in the order of bytes.
    return isFurtherImport || !override_ || precedence < target.level;
}

void BaseConfCacheBuilder::set(PropertyValue &target, const ConfPathCached &path, const ConfPathTrie &node,
                               Precedence precedence) const
{
    // Version, removable and time are the node's own: metadata hands them down to nothing.
    const ConfPathMetadata &metadata = path.metadata();
    target.value = node.hasData() ? node.data() : Str();
    target.level = precedence;
    target.generation = generation_;
    target.app = path.app();
    target.version = metadata.version ? *metadata.version : Str();
    // Who has no owner on record belongs to whose place it stands in.
    target.user = metadata.owner ? *metadata.owner : path.user();
    target.metadata = metadata.access;
    target.removable = metadata.removable.value_or(false);
    target.modtime = metadata.modtime.value_or(Timeval());
    target.originStanza = *stanzaName_;
}

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

/// Layer by layer, each walked for itself: here the order of the layers is all that counts, and one tree of
/// all would lose it.
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
    // The pruners of the shared state, without that for dangling data, which only users leave behind.
    layer.pruneDepth(kKeyLevel);
    DisabledApplicationPruner disabled(
        [this](const Str &app) { return sources().applications.isUsable(app); });
    layer.walk(disabled);
    DanglingMetadataPruner dangling;
    layer.walk(dangling);
    // Of all layers into one view: what an earlier layer has set stays.
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
    // Exchanged at once, so that of several threads that ask one alone is told of a change.
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

/// Reads the one stanza from the layers, past the shared tree: that may be stale, and to read a whole type
/// for one stanza is what this is to spare.
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
    // Copying a part is cheaper than copying all and pruning the rest.
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
    // What other apps keep to themselves goes first, which leaves fewer nodes whose rights have to be asked
    // for.
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
