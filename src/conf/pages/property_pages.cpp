#include "conf/pages/property_pages.h"

#include "conf/cache/conf_caches.h"
#include "conf/ground/conf_exceptions.h"
#include "conf/root/conf_settings.h"
#include "conf/root/sentinel_scope.h"
#include "conf/store/application_manager.h"
#include "conf/store/conf_path.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "conf/tree/conf_path_base.h"
#include "conf/tree/conf_rights.h"
#include "util/log/logger.h"

#include <mutex>

namespace velmox {

namespace {

Logger log("PropertyPages");

/// On whose behalf a context is used. Throws PropertyPagesImpersonationException for a context of another
/// user; only who is privileged may act for others, and anybody may look at what is shared, as himself.
Str actingUserOf(const ConfContext &context)
{
    IConfUserContextFactory *const factory = ConfUserContextFactory::instance();
    if (context.user.empty() || factory == nullptr) {
        return context.user;
    }
    const ConfUserContext identity = factory->current();
    if (identity.privileged || context.user.compareCaseless(identity.name) == 0) {
        return context.user;
    }
    if (context.user.compareCaseless(kSharedUser) != 0) {
        throw PropertyPagesImpersonationException(identity.name, context.user);
    }
    return identity.name;
}

/// An app that does not exist has no settings, but is not disabled.
bool isDisabled(const ApplicationManager &applications, const Str &app)
{
    return applications.isKnown(app) && !applications.isUsable(app);
}

bool isWanted(const PropertiesMap &stanza, DisabledMode mode)
{
    return mode == DisabledMode::All || stanza.isDisabled() == (mode == DisabledMode::OnlyDisabled);
}

/// One write at a time in the process, whatever it writes to: a write compares with what stands there, and
/// that must hold until it is done.
ConfLock &writeLock()
{
    static ConfLock lock(ConfLockRank::Write);
    return lock;
}

/// Calls a function at the end of a scope, however it ends.
template <class Function>
class AtEnd
{
public:
    explicit AtEnd(Function function) : function_(std::move(function)) {}
    AtEnd(const AtEnd &) = delete;
    AtEnd &operator=(const AtEnd &) = delete;
    ~AtEnd() { function_(); }

private:
    Function function_;
};

Str textOf(const PropertiesMap &stanza)
{
    Str text;
    for (const auto &[key, property] : stanza.properties) {
        text << key << " = " << property.value << "\n";
    }
    return text;
}

/// Whether a stanza there is the first of its name, of an app that has owners. Told by the exception of a
/// read: the view has no answer, as it leaves out what the acting user may not read.
bool needsOwner(const ConfPath &target)
{
    if (!target.isShared() || target.isSystemApp()) {
        return false;
    }
    try {
        ConfPathTrie found;
        target.read(found, 0);
        return false;
    } catch (const ConfPathDoesNotExistException &) {
        return true;
    }
}

/// Removes without a flush: the write that follows goes to the same mapper, whose file then changes in one
/// step. `kind` names the file in the log: "conf" or "meta".
void removeFromFile(const ConfPath &target, unsigned flags, const char *kind)
{
    const Str path = target.toStr();
    try {
        IConfPathMapper *const writer = target.mappers().findWriter(target, flags);
        const Str name = writer->describe();
        if (writer->remove(target)) {
            log.debug("Removed preexisting: %s [%s]", path.c_str(), name.c_str());
        } else {
            log.warn("Error removing preexisting values: %s [%s]", path.c_str(), name.c_str());
        }
    } catch (const ConfPathHasNoWriter &) {
        log.warn("Unexpected lack of %s remover for: %s", kind, path.c_str());
    }
}

/// Checks first what the write that follows checks: what is removed stays so, even if that is refused.
void removePreexisting(const ConfPath &target, const PropertiesMap &desired)
{
    refuseTraversal(target);
    for (const auto &[key, property] : desired.properties) {
        ConfPath path = target;
        path.addPart(key);
        refuseTraversal(path);
    }
    target.require(ConfAcl::kWrite);
    removeFromFile(target, ConfPathMapperManager::Data, "conf");
    removeFromFile(target, ConfPathMapperManager::Metadata, "meta");
}

/// Whether this is a stanza that was read, or one that its caller made up.
bool isRead(const PropertiesMap &stanza)
{
    return !stanza.self.originStanza.empty();
}

bool holds(const PropertiesMap &stanza, const Str &key, const PropertyValue &wanted)
{
    const auto found = stanza.properties.find(key);
    return found != stanza.properties.end() && found->second.value == wanted.value;
}

/// Only additions and changes: a key that `desired` leaves out stays, as there is no value for "gone".
PropertiesMap differenceOf(const PropertiesMap &desired, const PropertiesMap &existing)
{
    PropertiesMap difference;
    for (const auto &[key, wanted] : desired.properties) {
        if (!holds(existing, key, wanted)) {
            difference.set(key, wanted.value);
        }
    }
    return difference;
}

/// Takes over those of the desired values that are the ones of `source`, with their provenance: the caller
/// read them there and hands them on. A value that only looks the same has another provenance, and is
/// written.
void takeHandedOn(const PropertiesMap &source, const PropertiesMap &desired, PropertiesMap &existing)
{
    for (const auto &[key, wanted] : desired.properties) {
        const auto found = source.properties.find(key);
        if (found != source.properties.end() && found->second.value == wanted.value &&
            found->second.app == wanted.app && found->second.originStanza == wanted.originStanza) {
            existing.properties[key] = found->second;
        }
    }
    if (!isRead(existing) && source.self.originStanza == desired.self.originStanza) {
        existing.self = source.self;
        existing.metadata = source.metadata;
    }
}

} // namespace

PropertyPages::PropertyPages(const Request &request)
    : registry_(request.registry), typeName_(request.typeName), context_(request.context),
      actingUser_(request.actingUser)
{
    // The type "app" alone can be opened, or nobody could enable the app again.
    if (typeName_ != kAppType && !context_.app.empty() && isDisabled(sources().applications, context_.app)) {
        throw PropertyPagesDisabledAppException(context_.app);
    }
    if (!context_.user.empty() && context_.app.empty()) {
        throw PropertyPagesContextException(toStr(), PropertyPagesContextException::kUserWithoutApp);
    }
}

PropertyPages *PropertyPages::get(const Str &typeName)
{
    return get(typeName, ConfContext());
}

PropertyPages *PropertyPages::get(const Str &typeName, const ConfContext &context)
{
    const Str actingUser = actingUserOf(context);
    PropertyPagesRegistry &registry = propertyPagesRegistry(context.setup);
    PropertyPages *const pages = registry.get(typeName, context, actingUser);
    // Whoever was given or denied a role since then must not go on with the view of before.
    if (pages->haveRightsChanged()) {
        registry.invalidateActingUser(actingUser);
    }
    return pages;
}

Str PropertyPages::toStr() const
{
    return Str::fromFormat("Type = %s, Context = %s, Acting as = %s", typeName_.c_str(),
                           context_.toStr().c_str(), actingUser_.c_str());
}

const ConfSources &PropertyPages::sources() const
{
    return registry_.sources();
}

void PropertyPages::enumerateStanzas(StringFilter &filter, Stanzas &out, DisabledMode mode)
{
    const std::lock_guard guard(cache_->lock());
    cache_->refresh();
    const IConfCacheIteratorImpl inherited = cache_->find(kDefaultStanza);
    for (IConfCacheIteratorImpl at = cache_->begin(); !at.atEnd(); at.step()) {
        ++filter.checks;
        if (!filter.matches(at.name())) {
            continue;
        }
        ++filter.hits;
        const auto stanza = out.try_emplace(at.name()).first;
        copyStanza(at, inherited, stanza->second);
        // Known only now: `disabled` may be inherited.
        if (!isWanted(stanza->second, mode)) {
            out.erase(stanza);
        }
    }
}

void PropertyPages::enumerateStanzasWithPrefix(const Str &prefix, Stanzas &out, DisabledMode mode)
{
    StringPrefixFilter filter(prefix, prefix);
    enumerateStanzas(filter, out, mode);
}

void PropertyPages::readStanza(const Str &name, PropertiesMap &out)
{
    const std::lock_guard guard(cache_->lock());
    cache_->readStanza(name, out);
}

void PropertyPages::write(const Str &app, const Str &stanza, const PropertiesMap &properties,
                          bool overwriteAll)
{
    const ConfPath target = writeTarget(app, stanza);
    const std::lock_guard guard(writeLock());
    // The process's own lock first: other hosts are kept off no longer than the write itself takes.
    const SentinelScope sentinel(context_.setup, sources().settings,
                                 Str::fromFormat("writing with overwriteAll == %s: %s",
                                                 overwriteAll ? "true" : "false", target.toStr().c_str()));
    // In whatever way this ends something may have been written, and nobody else writes before readers know:
    // this goes first when the scope ends, while both locks are still held.
    const AtEnd invalidation([this] { invalidateReaders(); });
    // Asked before anything is removed: what was there had its owner.
    const bool isOwnerless = !properties.metadata && needsOwner(target);
    if (overwriteAll) {
        removePreexisting(target, properties);
        // The difference is taken against what is left, and that must not be an old view.
        invalidateReaders();
    }
    ConfPathTrie tree;
    if (!putDifference(target, properties, overwriteAll, tree)) {
        return;
    }
    if (isOwnerless) {
        ConfPathMetadata metadata;
        // The owner may always change what is his, whatever the permissions say.
        metadata.setOwner(actingUser_.empty() ? Str(kSharedUser) : actingUser_);
        tree.setMetadata(metadata);
    }
    target.write(tree);
    log.debug("Saved settings: %s %s", target.toStr().c_str(), context_.toStr().c_str());
}

ConfPath PropertyPages::writeTarget(const Str &app, const Str &stanza) const
{
    const Str &targetApp = app.empty() ? context_.app : app;
    if (targetApp.empty()) {
        throw PropertyPagesContextException(toStr(), PropertyPagesContextException::kNoApp);
    }
    return ConfPath(sources().mappers, ConfPathBase(context_.user, targetApp, {typeName_, stanza}),
                    ConfUserContextFactory::rightsOf(actingUser_));
}

bool PropertyPages::putDifference(const ConfPath &target, const PropertiesMap &desired, bool overwriteAll,
                                  ConfPathTrie &tree)
{
    const PropertiesMap existing = readExisting(target.parts().back(), desired);
    const PropertiesMap difference = differenceOf(desired, existing);
    if (log.debugEnabled()) {
        log.debug("Saving settings: %s\nExisting:\n%sDesired:\n%sDiff:\n%s", target.toStr().c_str(),
                  textOf(existing).c_str(), textOf(desired).c_str(), textOf(difference).c_str());
    }
    for (const auto &[key, property] : difference.properties) {
        tree.child(key).setData(property.value);
    }
    // Permissions that are equal are one object, so the pointers tell.
    if (desired.metadata && desired.metadata != existing.metadata) {
        ConfPathMetadata metadata;
        metadata.access = desired.metadata;
        tree.setMetadata(metadata);
    }
    // A stanza without keys is written as itself; one that gets a key comes into being with it.
    const bool isOnlyKeys = desired.self.value.empty() && !overwriteAll;
    if (isOnlyKeys && isRead(existing) && tree.empty()) {
        return false;
    }
    if (!isOnlyKeys || difference.properties.empty()) {
        tree.setData(desired.self.value);
    }
    return true;
}

PropertiesMap PropertyPages::readExisting(const Str &stanza, const PropertiesMap &desired)
{
    PropertiesMap existing;
    readStanza(stanza, existing);
    // A reader in an app without a user does not see what other apps and "system" set. A caller who read it
    // without a context and hands it on would have it copied into the app.
    if (context_.user.empty() && !context_.app.empty()) {
        const ConfContext plainContext{context_.setup, Str(), Str()};
        PropertiesMap plain;
        registry_.get(typeName_, plainContext, Str())->readStanza(stanza, plain);
        takeHandedOn(plain, desired, existing);
    }
    return existing;
}

/// What a user keeps is seen by that user alone, in this app; what is shared may be seen by all.
void PropertyPages::invalidateReaders()
{
    if (!context_.user.empty() && context_.user.compareCaseless(kSharedUser) != 0) {
        registry_.invalidate(*this);
    } else {
        registry_.invalidateType(typeName_);
    }
}

std::unique_ptr<IConfCache> LegacyPropertyPages::createCache() const
{
    return std::make_unique<LegacyConfCache>(typeName(), context(), sources());
}

std::unique_ptr<IConfCache> UserPropertyPages::createCache() const
{
    return std::make_unique<UserConfCache>(typeName(), context(), sources(), actingUser());
}

bool UserPropertyPages::haveRightsChanged()
{
    return static_cast<UserConfCache &>(cache()).haveRightsChanged();
}

PropertyPages *PropertyPagesRegistry::get(const Str &typeName, const ConfContext &context,
                                          const Str &actingUser)
{
    Reader reader(context, actingUser);
    const std::lock_guard guard(lock_);
    Readers &readers = pages_[typeName];
    const auto found = readers.find(reader);
    if (found != readers.end()) {
        return found->second.get();
    }
    // Under the lock, which comes before those of the services that are asked on the way. Nothing is entered
    // if it throws.
    std::unique_ptr<PropertyPages> made = make(typeName, reader);
    return readers.emplace(std::move(reader), std::move(made)).first->second.get();
}

std::unique_ptr<PropertyPages> PropertyPagesRegistry::make(const Str &typeName, const Reader &reader)
{
    const auto &[context, actingUser] = reader;
    // In two steps, since the cache is made by an operation of the derived class.
    const PropertyPages::Request request{*this, typeName, context, actingUser};
    std::unique_ptr<PropertyPages> pages;
    if (context.isPlain()) {
        pages = std::make_unique<LegacyPropertyPages>(request);
    } else {
        pages = std::make_unique<UserPropertyPages>(request);
    }
    pages->cache_ = pages->createCache();
    return pages;
}

// To mark a view stale takes no cache's lock, which would come before the one held here.
void PropertyPagesRegistry::invalidateAll()
{
    const std::lock_guard guard(lock_);
    for (const auto &[typeName, readers] : pages_) {
        for (const auto &[reader, pages] : readers) {
            pages->cache_->invalidate();
        }
    }
}

void PropertyPagesRegistry::invalidateType(const Str &typeName)
{
    const std::lock_guard guard(lock_);
    for (const auto &[reader, pages] : pages_[typeName]) {
        pages->cache_->invalidate();
    }
}

void PropertyPagesRegistry::invalidateActingUser(const Str &actingUser)
{
    const std::lock_guard guard(lock_);
    for (const auto &[typeName, readers] : pages_) {
        for (const auto &[reader, pages] : readers) {
            if (pages->actingUser() == actingUser) {
                pages->cache_->invalidate();
            }
        }
    }
}

void PropertyPagesRegistry::invalidate(PropertyPages &pages)
{
    const std::lock_guard guard(lock_);
    pages.cache_->invalidate();
}

} // namespace velmox
