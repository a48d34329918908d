#include "conf/root/conf_settings.h"

#include "conf/root/path_forms.h"
#include "conf/root/setting_values.h"
#include "util/files/file_system.h"
#include "util/log/logger.h"
#include "util/process/loader_info.h"

#include <algorithm>

namespace velmox {

namespace {

Logger log("ConfSettings");

constexpr char kPooling[] = "pooling";
constexpr char kBlacklistPrefix[] = "poll.blacklist.";

/// A root need not have one of its own.
Pathname findBootstrapFile(const BundlesSetup &setup)
{
    const Pathname own = setup.bootstrapFile();
    if (setup.isDefaultRoot() || pathKind(own) != PathKind::Nothing) {
        return own;
    }
    return LoaderInfo::instance()->getConfDir().join("system\\default\\conf.conf");
}

void mergePooling(IniFile &image, const Pathname &serverConf)
{
    if (pathKind(serverConf) == PathKind::Nothing) {
        return;
    }
    const IniFile server(serverConf);
    if (const IniStanza *const pooling = server.findStanza(kPooling)) {
        // Only what the image lacks is taken, which is what makes the file merged first win.
        image.stanza(kPooling).merge(*pooling);
    }
}

/// Null when the pattern does not compile.
std::unique_ptr<Regex> compileBlacklistPattern(const Str &wildcard)
{
    const Str pattern = blacklistPattern(wildcard);
    if (pattern != wildcard) {
        log.debug("Modified blacklist pattern: %s -> %s", wildcard.c_str(), pattern.c_str());
    }
    try {
        return std::make_unique<Regex>(pattern, true, 0);
        // Left out, so that what the others keep from being watched stays so.
    } catch (const RegexException &) {
        return nullptr;
    }
}

} // namespace

bool isInMemoryOnly()
{
    return LoaderInfo::instance()->initSettings().inMemoryOnly;
}

ConfSettings::ConfSettings(const BundlesSetup &setup) : setup_(setup)
{
    loadImage();
    readBlacklist();
    readStorage();
    readTimes();
    lockLogging_ = setting(kPooling, "lock.logging").toBool(false, false);
}

void ConfSettings::loadImage()
{
    const Pathname bootstrap = findBootstrapFile(setup_);
    if (pathKind(bootstrap) == PathKind::Nothing) {
        log.warn("No bootstrap configuration available for: %s", setup_.text(setup_.root()).c_str());
    } else {
        image_.load(bootstrap);
    }
    // Pooling is a matter of this host: the bootstrap file, which all share, has no say in it. What a file
    // merged before has said stays.
    image_.removeStanza(kPooling);
    mergePooling(image_, setup_.systemLocalDir().join("server.conf"));
    mergePooling(image_, setup_.systemDefaultDir().join("server.conf"));
}

void ConfSettings::readBlacklist()
{
    const IniStanza *const pooling = image_.findStanza(kPooling);
    if (pooling == nullptr) {
        return;
    }
    for (const IniStanza::Setting &setting : *pooling) {
        if (setting.key.starts_with(kBlacklistPrefix)) {
            if (auto regex = compileBlacklistPattern(setting.value)) {
                blacklist_.push_back(std::move(regex));
            }
        }
    }
}

void ConfSettings::readStorage()
{
    Pathname storage = LoaderInfo::instance()->initSettings().storage;
    if (storage.empty()) {
        storage = Pathname::fromUtf8(setting(kPooling, "storage"));
    }
    // Both are needed: a storage may be named before the mode is turned on, and after it is turned off.
    sharedStorage_ = !storage.empty() && setting(kPooling, "state").compareCaseless("enabled") == 0;
    if (!sharedStorage_) {
        return;
    }
    // Below the root, and not in whatever folder the program was started from.
    if (!storage.isAbsolute()) {
        log.warn("Storage location is a relative path: %s", storage.toStr().c_str());
        storage = setup_.root().join(storage);
        log.warn("Defaulting storage to: %s", storage.toStr().c_str());
    }
    storage_ = cleanedPath(storage);
}

void ConfSettings::readTimes()
{
    const auto milliseconds = [this](const char *key, std::uint64_t dflt) {
        return millisecondsOfTime(setting(kPooling, key)).value_or(dflt);
    };
    lockTimeoutMs_ = milliseconds("lock.timeout", lockTimeoutMs_);
    checkPollMs_ = milliseconds("poll.interval.check", checkPollMs_);
    // Without shared storage only this host writes, and caches are told of that.
    rebuildPollMs_ = sharedStorage_ ? milliseconds("poll.interval.rebuild", 1000) : 0;
}

Str ConfSettings::setting(const char *stanzaName, const Str &key) const
{
    const IniStanza *const stanza = image_.findStanza(stanzaName);
    const IniEntry *const entry = stanza == nullptr ? nullptr : stanza->findKey(key);
    return entry == nullptr ? Str() : Str(entry->value());
}

const IniStanza *ConfSettings::requiredStanza(const char *name) const
{
    if (!image_.loaded()) {
        log.error("Could not read bootstrap configuration: %s", setup_.text(setup_.bootstrapFile()).c_str());
        return nullptr;
    }
    const IniStanza *const stanza = image_.findStanza(name);
    if (stanza == nullptr) {
        log.error("Could not find '%s' stanza in bootstrapping conf: %s", name,
                  setup_.text(image_.destination()).c_str());
    }
    return stanza;
}

bool ConfSettings::isBlacklisted(const Pathname &path) const
{
    const Str text = path.toStr();
    return std::any_of(blacklist_.begin(), blacklist_.end(),
                       [&text](const std::unique_ptr<Regex> &regex) { return regex->matchesAll(text); });
}

Str ConfSettings::appUpdateTriggers() const
{
    return setting(kPooling, "app_update_triggers");
}

bool ConfSettings::allowsDangling(const Str &app) const
{
    return setting("data", Str::concat("dangling.allowed.", app)).toInt64(0) > 0;
}

bool ConfSettings::searchUsesAllApps() const
{
    return setting("init", "search.use_all_apps").toBool(true, true);
}

SearchHeadPoolInfo::SearchHeadPoolInfo(const BundlesSetup &setup, const ConfSettings &settings)
{
    if (!settings.isSharedStorageMode()) {
        return;
    }
    const Pathname file = setup.poolInfoFile();
    if (pathKind(file) != PathKind::Nothing) {
        image_.load(file);
    }
}

} // namespace velmox
