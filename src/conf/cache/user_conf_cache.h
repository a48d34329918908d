#pragma once

#include "conf/cache/base_conf_cache.h"
#include "conf/tree/conf_user_context.h"

#include <atomic>
#include <memory>

namespace velmox {

class SharedConfState;

/// The rights of a user as they were when they were last asked for. Any thread.
class UserContextStore
{
public:
    explicit UserContextStore(const Str &user);

    /// Asks anew; true when the answer differs from the last.
    bool update();

private:
    const Str user_;
    std::atomic<std::shared_ptr<const ConfUserContext>> context_;
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
    bool haveRightsChanged() { return rights_.update(); }

private:
    void buildStanza(const Str &name, Stanzas &out) override;
    void copyVisible(const ConfPathTrie &layers, ConfPathTrie &out) const;
    void pruneForUser(ConfPathTrie &tree) const;
    /// `visible` is what `copyVisible` copied.
    void build(ConfPathTrie &visible, Stanzas &out) const;

    const Str actingUser_;
    SharedConfState &shared_;
    UserContextStore rights_;
};

} // namespace velmox
