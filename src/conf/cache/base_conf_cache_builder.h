#pragma once

#include "conf/cache/base_conf_cache.h"
#include "conf/store/application_manager.h"
#include "conf/tree/conf_path_based_pruner.h"

#include <array>

namespace velmox {

/// Fills the view of a cache from one walk over a tree of layers, of which nothing is pruned.
class BaseConfCacheBuilder : public ConfPathBasedPruner
{
public:
    /// With `override` a later value of at least the same level replaces an earlier one; without, the first
    /// stays. The cache and `view` outlive the builder.
    BaseConfCacheBuilder(const BaseConfCache &cache, Stanzas &view, bool override);

private:
    /// Precedence of the layers; the higher wins.
    enum Level : std::int32_t
    {
        Unknown = 0, ///< metadata that inherits from a parent without a level
        SystemApp = 1,
        Exported = 2,
        NotExported = 3, ///< of another app than the reader's, seen by an import
        OwnExported = 4,
        Own = 5,
        OwnUser = 6,
    };

    bool visitPath(const ConfPathCached &path, ConfPathTrie &node) override;
    void enterApp(const ConfPathCached &path);
    void enterStanza(const ConfPathCached &path, const ConfPathTrie &node);
    void takeExpansion(const ConfPathTrie &node);
    PropertyValue &enterKey(const ConfPathCached &path);
    Level levelOf(const ConfPathCached &path, ConfExport exported, Level parent) const;
    bool keepsOldValue(const PropertyValue &target, Level level) const;
    void set(PropertyValue &target, const ConfPathCached &path, const ConfPathTrie &node, Level level) const;

    const BaseConfCache &cache_;
    Stanzas &view_;
    const bool override_;
    ImportGenerations imports_;
    // Where the walk stands.
    std::array<Level, 4> levels_{}; ///< of the app's, the type's, the stanza's and the key's node
    std::uint64_t generation_ = 0;
    const Str *stanzaName_ = nullptr;
    PropertiesMap *stanza_ = nullptr;
    bool existed_ = false;
};

} // namespace velmox
