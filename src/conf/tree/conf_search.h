#pragma once

#include "conf/tree/conf_path_trie.h"

#include <array>
#include <optional>

namespace velmox {

/// What a reader wants of the mappers: at most one value each for user, app and type, one stanza or all, and
/// how deep.
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

} // namespace velmox
