#pragma once

#include "conf/tree/conf_path_metadata.h"
#include "conf/tree/conf_path_trie_pruner.h"

#include <set>
#include <vector>

namespace velmox {

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

/// The same for a reader who is a user: who sees besides what is shared the own directory for that app.
class SingleUserAppContextPruner : public ApplicationContextPruner
{
public:
    SingleUserAppContextPruner(const Str &user, const Str &app, std::set<Str> imports);
    PruneAnswer visit(const StrVector &segments, ConfPathTrie &node) override;

private:
    const Str user_;
};

} // namespace velmox
