#include "conf/tree/conf_path_trie_pruner.h"

namespace velmox {

PruneAnswer SimpleConfPathTriePruner::visit(const StrVector &segments, ConfPathTrie &node)
{
    return shouldPrune(segments, node) ? PruneAnswer::Remove : PruneAnswer::Keep;
}

} // namespace velmox
