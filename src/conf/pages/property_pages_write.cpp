#include "conf/ground/conf_path_exceptions.h"
#include "conf/ground/property_pages_exceptions.h"
#include "conf/pages/property_pages.h"
#include "conf/pages/property_pages_registry.h"
#include "conf/store/conf_path.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "conf/store/conf_path_traversal.h"
#include "conf/store/sentinel_scope.h"
#include "conf/store/shared_conf_services.h"
#include "util/log/logger.h"

#include <mutex>

namespace velmox {

namespace {

Logger log("PropertyPages");

/// One write at a time in the process.
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

/// Whether a stanza there is the first of its name, of an app that has owners.
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

/// `kind` names the file in the log: "conf" or "meta".
void removeFromFile(const ConfPath &target, unsigned flags, const char *kind)
{
    const Str path = target.toStr();
    try {
        IConfPathMapper *const writer = target.setup().shared().mappers().findWriter(target, flags);
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
/// read them there and hands them on.
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

void PropertyPages::write(const Str &app, const Str &stanza, const PropertiesMap &properties,
                          bool overwriteAll)
{
    const ConfPath target = writeTarget(app, stanza);
    const std::lock_guard guard(writeLock());
    const SentinelScope sentinel(context_.setup,
                                 Str::fromFormat("writing with overwriteAll == %s: %s",
                                                 overwriteAll ? "true" : "false", target.toStr().c_str()));
    const AtEnd invalidation([this] { invalidateReaders(); });
    const bool isOwnerless = !properties.metadata && needsOwner(target);
    if (overwriteAll) {
        removePreexisting(target, properties);
        invalidateReaders();
    }
    ConfPathTrie tree;
    if (!putDifference(target, properties, overwriteAll, tree)) {
        return;
    }
    if (isOwnerless) {
        ConfPathMetadata metadata;
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
    return ConfPath(context_.setup, ConfPathBase(context_.user, targetApp, {typeName_, stanza}),
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
    if (desired.metadata && desired.metadata != existing.metadata) {
        ConfPathMetadata metadata;
        metadata.access = desired.metadata;
        tree.setMetadata(metadata);
    }
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
    if (context_.user.empty() && !context_.app.empty()) {
        const ConfContext plainContext{context_.setup, Str(), Str()};
        PropertiesMap plain;
        registry().get(typeName_, plainContext, Str())->readStanza(stanza, plain);
        takeHandedOn(plain, desired, existing);
    }
    return existing;
}

void PropertyPages::invalidateReaders()
{
    if (!context_.user.empty() && context_.user.compareCaseless(kSharedUser) != 0) {
        registry().invalidate(*this);
    } else {
        registry().invalidateType(typeName_);
    }
}

} // namespace velmox
