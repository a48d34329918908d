#pragma once

#include "conf/tree/conf_path_trie.h"

#include <array>
#include <functional>
#include <optional>
#include <set>
#include <vector>

namespace velmox {

// The pruners that look at an address or at a node by itself, and below those that look at a reader's
// context. Those that look at metadata and rights are in conf_path_based_pruner.h.

/// Keeps all: for pruners that wrap another one, when there is none to wrap.
class DoNothingPruner : public SimpleConfPathTriePruner
{
    bool shouldPrune(const StrVector &, ConfPathTrie &) override { return false; }
};

/// Removes what lies deeper than a level, counted from the root of the tree.
class MaxDepthPruner : public SimpleConfPathTriePruner
{
public:
    explicit MaxDepthPruner(unsigned maxLevel) : maxLevel_(maxLevel) {}

private:
    bool shouldPrune(const StrVector &segments, ConfPathTrie &) override
    {
        return segments.size() > maxLevel_;
    }

    const unsigned maxLevel_;
};

/// Keeps the node of a path, what leads to it, and up to `levels` below it.
class SubtriePruner : public SimpleConfPathTriePruner
{
public:
    explicit SubtriePruner(const ConfPathBase &path, unsigned levels = ConfPathTrie::kAllLevels);

private:
    bool shouldPrune(const StrVector &segments, ConfPathTrie &) override;

    const StrVector path_;
    const unsigned levels_;
};

/// Keeps only one type, or removes only that one.
class OneClassPruner : public SimpleConfPathTriePruner
{
public:
    enum class Mode
    {
        KeepOnly,
        RemoveOnly,
    };

    explicit OneClassPruner(const Str &type, Mode mode = Mode::KeepOnly) : type_(type), mode_(mode) {}

private:
    bool shouldPrune(const StrVector &segments, ConfPathTrie &) override;

    const Str type_;
    const Mode mode_;
};

/// What a reader wants of the mappers: at most one value each for user, app and type, one stanza or all, and
/// how deep. A mapper that serves another user or app is not read at all.
class ConfSearch
{
public:
    enum Field : unsigned
    {
        User = 0,
        App = 1,
        Type = 2,
    };

    /// A field that is constrained already keeps its value, with an error in the log; false then.
    bool constrain(Field field, const Str &value);
    const std::optional<Str> &constraint(Field field) const { return constraints_[field]; }

    /// With a name, of all stanzas this one and "default", from which it inherits.
    void setStanza(const Str &name) { stanza_ = name; }
    const std::optional<Str> &stanza() const { return stanza_; }

    /// Deepest level that is wanted, counted from the root of the tree.
    unsigned maxLevel() const { return maxLevel_; }
    void setMaxLevel(unsigned level) { maxLevel_ = level; }

    /// Whether a node with these parts from the root down, or something below it, can be wanted. The nodes
    /// above it are known to be.
    bool matchesLast(const StrVector &segments) const;

private:
    std::array<std::optional<Str>, 3> constraints_;
    std::optional<Str> stanza_;
    unsigned maxLevel_ = ConfPathTrie::kAllLevels;
};

/// Keeps what fits a search, as far as another pruner keeps it too.
class MatchSearchPruner : public ConfPathTriePruner
{
public:
    /// Both must outlive this object.
    MatchSearchPruner(const ConfSearch &search, ConfPathTriePruner &wrapped)
        : search_(search), wrapped_(wrapped)
    {
    }
    PruneAnswer visit(const StrVector &segments, ConfPathTrie &node) override;

private:
    const ConfSearch &search_;
    ConfPathTriePruner &wrapped_;
};

/// Removes the stanzas and keys of which only metadata is left: metadata files speak of settings that need
/// not be there, and a view shows none that has no value.
class DanglingMetadataPruner : public ConfPathTriePruner
{
public:
    PruneAnswer visit(const StrVector &segments, ConfPathTrie &node) override;
};

/// What is asked about an app, by its name.
using AppPredicate = std::function<bool(const Str &app)>;

/// Removes all types but "app" of apps that are not to be used: a disabled app can still be looked at.
class DisabledApplicationPruner : public SimpleConfPathTriePruner
{
public:
    /// `isUsable` says whether an app is known and enabled.
    explicit DisabledApplicationPruner(AppPredicate isUsable) : isUsable_(std::move(isUsable)) {}

private:
    bool shouldPrune(const StrVector &segments, ConfPathTrie &) override;

    const AppPredicate isUsable_;
};

/// Removes what users have for apps that are gone, the type "app" too.
///
/// Where hosts share their storage, an app taken off it leaves the directories behind in which users kept
/// settings for it. They must not count again on the host that still has a directory by that name
/// alone. Shared settings vanish with the app's own directory, so only private ones can be left over.
class DanglingDataPruner : public ConfPathTriePruner
{
public:
    /// Does nothing unless storage is shared. `isKnown` says whether an app is installed, `mayDangle` whether
    /// the settings allow data without an app.
    DanglingDataPruner(bool isSharedStorage, AppPredicate isKnown, AppPredicate mayDangle)
        : isSharedStorage_(isSharedStorage), isKnown_(std::move(isKnown)), mayDangle_(std::move(mayDangle))
    {
    }
    PruneAnswer visit(const StrVector &segments, ConfPathTrie &node) override;

private:
    const bool isSharedStorage_;
    const AppPredicate isKnown_;
    const AppPredicate mayDangle_;
};

/// Removes what users keep for themselves, but for some users: whoever lists the settings of a few users
/// sees theirs and the shared ones, and with no user named the shared ones alone.
class UsersPruner : public SimpleConfPathTriePruner
{
public:
    /// Names in lower case.
    explicit UsersPruner(std::set<Str> kept = {}) : kept_(std::move(kept)) {}

private:
    bool shouldPrune(const StrVector &segments, ConfPathTrie &) override;

    const std::set<Str> kept_;
};

/// Keeps what a reader in an app may see of other apps: all of "system", of the reader's own app and of those
/// it imports; of the rest what is exported to everyone.
class ApplicationContextPruner : public ConfPathTriePruner
{
public:
    ApplicationContextPruner(const Str &app, std::set<Str> imports);
    PruneAnswer visit(const StrVector &segments, ConfPathTrie &node) override;

protected:
    const Str &app() const { return app_; }

private:
    void enter(std::size_t level, const ConfPathTrie &node);

    const Str app_;
    const std::set<Str> imports_;
    /// What holds on the way to the node visited: one entry a level, from the user's on.
    std::vector<ConfExport> exports_;
};

/// The same for a reader who is a user: who sees besides what is shared the own directory for that app, and
/// nothing of other users.
class SingleUserAppContextPruner : public ApplicationContextPruner
{
public:
    SingleUserAppContextPruner(const Str &user, const Str &app, std::set<Str> imports);
    PruneAnswer visit(const StrVector &segments, ConfPathTrie &node) override;

private:
    const Str user_;
};

} // namespace velmox
