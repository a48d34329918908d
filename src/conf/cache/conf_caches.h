#pragma once

#include "conf/cache/base_conf_cache.h"
#include "conf/store/application_manager.h"
#include "conf/tree/conf_path_based_pruner.h"
#include "conf/tree/conf_rights.h"

#include <array>
#include <atomic>
#include <memory>

namespace velmox {

class SharedConfState;

/// Fills the view of a cache from one walk over a tree of layers, of which nothing is pruned. Of several
/// values for a key the one of the highest precedence stays. A node without a say of its own about export has
/// the precedence of the node above it, so that an app exports a whole type with one line.
class BaseConfCacheBuilder : public ConfPathBasedPruner
{
public:
    /// With `override` a later value of at least the same precedence replaces an earlier one; without, the
    /// first stays. The cache and `view` outlive the builder.
    BaseConfCacheBuilder(const BaseConfCache &cache, Stanzas &view, bool override);

private:
    /// Precedence of the layers; the higher wins. It is kept as `PropertyValue::level`, so the numbers are
    /// seen outside.
    enum Precedence : std::int32_t
    {
        Unknown = 0, ///< metadata that inherits from a parent without any
        SystemApp = 1,
        Exported = 2,
        NotExported = 3, ///< of another app than the reader's, seen by an import
        OwnExported = 4,
        Own = 5,
        OwnUser = 6,
    };

    /// Takes a node into the view. Always false: nothing is pruned.
    bool visitPath(const ConfPathCached &path, ConfPathTrie &node) override;
    /// Notes how far the app is from the reader's by imports.
    void enterApp(const ConfPathCached &path);
    void enterStanza(const ConfPathCached &path, const ConfPathTrie &node);
    void takeExpansion(const ConfPathTrie &node);
    PropertyValue &enterKey(const ConfPathCached &path);
    Precedence precedenceOf(const ConfPathCached &path, ConfExport exported, Precedence parent) const;
    /// Of a value that is there already.
    bool keepsOldValue(const PropertyValue &target, Precedence precedence) const;
    void set(PropertyValue &target, const ConfPathCached &path, const ConfPathTrie &node,
             Precedence precedence) const;

    const BaseConfCache &cache_;
    Stanzas &view_;
    const bool override_;
    ImportGenerations imports_;
    // Where the walk stands.
    std::array<Precedence, kKeyLevel + 1> precedences_{}; ///< by level; a user's node has none
    std::uint64_t generation_ = 0;
    const Str *stanzaName_ = nullptr;
    PropertiesMap *stanza_ = nullptr;
    /// Whether the stanza or key at which the walk stands was in the view before.
    bool existed_ = false;
};

/// The view of a reader with neither user nor app: of the layers in their order, the first to set a key
/// wins, whatever app it belongs to. Rights don't count, and no user's own settings are seen: such a reader
/// is the program itself.
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

/// The view of a reader with an app, and perhaps a user: the value of the highest precedence wins. A user
/// sees what other apps export, as far as the acting user may read it; a reader without a user sees the one
/// app.
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
    /// Copies those parts of the layers that can hold anything for this reader. To be called with the lock
    /// of the layers held, if they are the shared ones.
    void copyVisible(const ConfPathTrie &layers, ConfPathTrie &out) const;
    /// Takes out of a copy what the acting user may not see.
    void pruneForUser(ConfPathTrie &tree) const;
    /// `visible` is what `copyVisible` copied.
    void build(ConfPathTrie &visible, Stanzas &out) const;

    const Str actingUser_;
    SharedConfState &shared_;
    /// The acting user as he was when the rights were last asked for. Atomic, since that is asked at each
    /// request for pages, by threads that do not hold the lock.
    std::atomic<std::shared_ptr<const ConfUserContext>> rights_;
};

} // namespace velmox
