#pragma once

#include "util/text/str.h"

namespace velmox {

class ConfPathTrie;

enum class PruneAnswer
{
    Remove = 0,           ///< this node and all below it
    Keep = 1,             ///< and go on below it
    KeepIfNotEmptied = 2, ///< go on below it; remove it if that leaves it without children and it has no data
};

/// Walks a tree of configuration items and says what stays.
class ConfPathTriePruner
{
public:
    virtual ~ConfPathTriePruner() = default;
    /// `segments` are the parts from below the root down to this node's.
    virtual PruneAnswer visit(const StrVector &segments, ConfPathTrie &node) = 0;
};

/// A walker that only removes or keeps.
class SimpleConfPathTriePruner : public ConfPathTriePruner
{
public:
    PruneAnswer visit(const StrVector &segments, ConfPathTrie &node) final;

private:
    virtual bool shouldPrune(const StrVector &segments, ConfPathTrie &node) = 0;
};

} // namespace velmox
