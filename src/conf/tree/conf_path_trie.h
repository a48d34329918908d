#pragma once

// conf/tree: settings as trees in memory, and nothing of files. Addresses (conf_path_base.h) name a node;
// ConfPathTrie holds values and metadata at the nodes, and is the form in which layers travel from the
// mappers to the caches; pruners walk a tree and remove what a reader is not to see; ACLs and rights say who
// may what.

#include "conf/tree/conf_path_base.h"
#include "conf/tree/conf_path_metadata.h"

#include <map>
#include <memory>
#include <optional>

namespace velmox {

class ConfPathTrie;

/// What becomes of a node that was visited.
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

/// A tree of configuration items, by user, app, type, stanza and key: the form in which layers travel. A
/// plain value of one thread; a node owns what is below it.
class ConfPathTrie
{
public:
    using Children = std::map<Str, std::unique_ptr<ConfPathTrie>>;

    /// As deep as there is anything.
    static constexpr unsigned kAllLevels = ~0u;

    ConfPathTrie() = default;
    ConfPathTrie(ConfPathTrie &&) = default;
    ConfPathTrie &operator=(ConfPathTrie &&) = default;
    virtual ~ConfPathTrie() = default;

    /// The node of a path, made with those above it when it is not there. The user counts in lower case.
    virtual ConfPathTrie &node(const ConfPathBase &path);
    /// What a new node below is; a derived tree makes its own kind.
    virtual std::unique_ptr<ConfPathTrie> makeEmpty() const;

    /// Null when it is not there.
    const ConfPathTrie *find(const ConfPathBase &path) const;
    ConfPathTrie *find(const ConfPathBase &path);
    const ConfPathTrie *findChild(const Str &part) const;
    ConfPathTrie *findChild(const Str &part);
    /// The child, made when it is not there. The second form sets its expansion if it has none.
    ConfPathTrie &child(const Str &part);
    ConfPathTrie &child(const Str &part, const Str &expansion);
    /// With all below it; false when it is not there.
    bool removeChild(const Str &part);
    /// Removes the node of a path and all below it; the nodes above it stay. False when it is not there.
    bool remove(const ConfPathBase &path);
    const Children &children() const { return children_; }
    /// Whether there is nothing at this node or below it.
    bool empty() const { return children_.empty() && !hasData() && !hasMetadata(); }
    void clear();

    void setData(const Str &data) { data_ = data; }
    void setMetadata(const ConfPathMetadata &metadata) { setMetadata(shared(metadata)); }
    /// For many nodes of the same metadata: what they share is never changed.
    void setMetadata(ConfPathMetadataPtr metadata) { metadata_ = std::move(metadata); }
    /// An empty text is a value too.
    bool hasData() const { return data_.has_value(); }
    bool hasMetadata() const { return metadata_ != nullptr; }
    /// Only of a node that has it.
    const Str &data() const { return *data_; }
    /// Nothing set where there is none.
    const ConfPathMetadata &metadata() const { return metadata_ ? *metadata_ : kNoMetadata; }
    /// What stands for the part where it is used (see stanza_expansion.h), empty when it stands for itself.
    const Str &expansion() const { return expansion_; }
    void setExpansion(const Str &expansion) { expansion_ = expansion; }

    /// Visits all nodes below this one, depth first, in byte order, and does what the answers say.
    void walk(ConfPathTriePruner &pruner);
    /// Removes what lies more than `levels` below this node.
    void pruneDepth(unsigned levels);

    /// Copies another tree into this one, as deep as `levels` below the top. What stands here stays: data
    /// goes only to nodes without any, metadata is completed.
    void merge(const ConfPathTrie &other, unsigned levels = kAllLevels);
    /// The same for a tree that is not needed any more, with nodes that are not here moved over.
    void merge(ConfPathTrie &&other);
    /// Copies another tree over this one: its data and metadata replace what stands here.
    void overwrite(const ConfPathTrie &other);
    /// Puts the nodes in which `a` and `b` differ into `out`, those of `b` where both have one; false, with
    /// nothing put in, when the trees are equal. Modification times don't count: a file that was rewritten
    /// with what it held already has not changed.
    static bool diff(ConfPathTrie &out, const ConfPathTrie &a, const ConfPathTrie &b);

    /// Appends the tree as indented text, for logs.
    void dump(Str *out) const;
    /// The same as a text of its own.
    Str toStr() const;

private:
    bool sameNode(const ConfPathTrie &other) const;
    void fillNodeFrom(const ConfPathTrie &other);
    /// The child, which is the one before `next` when it was not there and the parts come in order.
    Children::iterator childBefore(Children::iterator next, const Str &part);
    void dumpLevel(Str &out, unsigned level) const;
    void walkBelow(ConfPathTriePruner &pruner, StrVector &segments);

    static const ConfPathMetadata kNoMetadata;

    Children children_;
    std::optional<Str> data_;
    ConfPathMetadataPtr metadata_;
    Str expansion_;
};

} // namespace velmox
