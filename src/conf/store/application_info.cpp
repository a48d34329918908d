#include "conf/store/application_info.h"

#include "conf/tree/conf_path_trie.h"

#include <tuple>

namespace velmox {

namespace {

/// The settings of one app's `app.conf`.
class AppSettings
{
public:
    explicit AppSettings(const ConfPathTrie *appNode)
        : type_(appNode ? appNode->findChild(kAppType) : nullptr)
    {
    }

    /// The value of a key, of the stanza "default" when the stanza itself has none; null when neither has.
    /// Read from the tree of layers, not from a view: views ask whether the app is enabled.
    const Str *find(const char *stanza, const char *key) const
    {
        const Str *const own = findIn(stanza, key);
        return own ? own : findIn(kDefaultStanza, key);
    }

    bool getBool(const char *stanza, const char *key, bool dflt) const
    {
        const Str *const value = find(stanza, key);
        bool parsed = dflt;
        return value && value->toBool(parsed) ? parsed : dflt;
    }

private:
    const Str *findIn(const char *stanza, const char *key) const
    {
        const ConfPathTrie *const stanzaNode = type_ ? type_->findChild(stanza) : nullptr;
        const ConfPathTrie *const keyNode = stanzaNode ? stanzaNode->findChild(key) : nullptr;
        return keyNode && keyNode->hasData() ? &keyNode->data() : nullptr;
    }

    const ConfPathTrie *type_;
};

} // namespace

ApplicationInfo ApplicationInfo::from(const Str &name, const ConfPathTrie *appNode)
{
    const AppSettings settings(appNode);
    ApplicationInfo info;
    const Str *const state = settings.find("install", "state");
    // A folder of this name among the apps must not turn off what all apps rest on.
    info.enabled = name.equals(kSystemApp) || state == nullptr || state->empty() || state->equals("enabled");
    // What does not parse is as if it were not there.
    info.configured = settings.getBool("install", "is_configured", info.configured);
    info.restartNeeded = settings.getBool("install", "state_change_requires_restart", info.restartNeeded);
    info.allowsDisable = settings.getBool("install", "allows_disable", info.allowsDisable);
    if (appNode && appNode->hasMetadata()) {
        info.metadata = appNode->metadata();
    }
    const Str *const id = settings.find("package", "id");
    // "Given" by this program, that is.
    info.idGiven = id == nullptr || id->empty();
    info.id = info.idGiven ? name : *id;
    info.checkForUpdates = settings.getBool("package", "check_for_updates", info.checkForUpdates);
    if (const Str *const version = settings.find("launcher", "version")) {
        info.version = *version;
    }
    return info;
}

bool ApplicationInfo::operator==(const ApplicationInfo &other) const
{
    const auto told = [](const ApplicationInfo &info) {
        return std::tie(info.enabled, info.configured, info.restartNeeded, info.allowsDisable, info.metadata,
                        info.id, info.checkForUpdates, info.version);
    };
    return told(*this) == told(other);
}

} // namespace velmox
