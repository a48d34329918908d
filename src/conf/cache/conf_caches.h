#pragma once

#include "conf/cache/base_conf_cache.h"
#include "conf/tree/conf_rights.h"

#include <atomic>
#include <memory>

namespace velmox {

class SharedConfState;

/// The view of a reader with neither user nor app: of the layers in their order, the first to set a key wins.
class LegacyConfCache : public BaseConfCache
{
public:
    LegacyConfCache(const Str &typeName, const ConfContext &context, const ConfSources &sources)
        : BaseConfCache(typeName, context, sources)
    {
    }

    void collectDeletable(unsigned, ConfPathTrie &) override {}
    void rebuild() override;

private:
    void buildStanza(const Str &name, Stanzas &out) override;
    ConfSearch searchOfType() const;
    void build(const ConfSearch &search, Stanzas &out);
    void addLayer(ConfPathTrie &layer, Stanzas &out);
};

/// The view of a reader with an app, and perhaps a user: the value of the highest precedence wins.
class UserConfCache : public BaseConfCache
{
public:
    UserConfCache(const Str &typeName, const ConfContext &context, const ConfSources &sources,
                  const Str &actingUser);

    /// Takes the lock of the type's shared state, which gets stale too.
    void invalidate() override;
    void collectDeletable(unsigned levels, ConfPathTrie &out) override;
    void rebuild() override;

    /// Whether the acting user's rights are not those of the last call.
    bool haveRightsChanged();

private:
    void buildStanza(const Str &name, Stanzas &out) override;
    void copyVisible(const ConfPathTrie &layers, ConfPathTrie &out) const;
    void pruneForUser(ConfPathTrie &tree) const;
    /// `visible` is what `copyVisible` copied.
    void build(ConfPathTrie &visible, Stanzas &out) const;

    const Str actingUser_;
    SharedConfState &shared_;
    /// The acting user as he was when the rights were last asked for.
    std::atomic<std::shared_ptr<const ConfUserContext>> rights_;
};

} // namespace velmox
