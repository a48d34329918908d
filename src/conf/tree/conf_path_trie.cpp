#include "conf/tree/conf_path_trie.h"

#include "util/log/log_message.h"

namespace velmox {

PruneAnswer SimpleConfPathTriePruner::visit(const StrVector &segments, ConfPathTrie &node)
{
    return shouldPrune(segments, node) ? PruneAnswer::Remove : PruneAnswer::Keep;
}

const ConfPathMetadata ConfPathTrie::kNoMetadata;

std::unique_ptr<ConfPathTrie> ConfPathTrie::makeEmpty() const
{
    return std::make_unique<ConfPathTrie>();
}

ConfPathTrie &ConfPathTrie::node(const ConfPathBase &path)
{
    // Users count in any case, and trees compare bytes.
    ConfPathTrie *node = &child(path.user().lowered()).child(path.app());
    for (std::size_t at = 0; at < path.parts().size(); ++at) {
        node = &node->child(path.parts()[at], path.expansions()[at]);
    }
    return *node;
}

const ConfPathTrie *ConfPathTrie::find(const ConfPathBase &path) const
{
    const ConfPathTrie *node = findChild(path.user().lowered());
    node = node ? node->findChild(path.app()) : nullptr;
    for (auto part = path.parts().begin(); node && part != path.parts().end(); ++part) {
        node = node->findChild(*part);
    }
    return node;
}

ConfPathTrie *ConfPathTrie::find(const ConfPathBase &path)
{
    return const_cast<ConfPathTrie *>(std::as_const(*this).find(path));
}

const ConfPathTrie *ConfPathTrie::findChild(const Str &part) const
{
    const auto found = children_.find(part);
    return found == children_.end() ? nullptr : found->second.get();
}

ConfPathTrie *ConfPathTrie::findChild(const Str &part)
{
    return const_cast<ConfPathTrie *>(std::as_const(*this).findChild(part));
}

ConfPathTrie &ConfPathTrie::child(const Str &part)
{
    return *childBefore(children_.end(), part)->second;
}

ConfPathTrie &ConfPathTrie::child(const Str &part, const Str &expansion)
{
    ConfPathTrie &found = child(part);
    if (found.expansion_.empty()) {
        found.expansion_ = expansion;
    }
    return found;
}

bool ConfPathTrie::removeChild(const Str &part)
{
    return children_.erase(part) != 0;
}

bool ConfPathTrie::remove(const ConfPathBase &path)
{
    const StrVector segments = path.segments();
    ConfPathTrie *parent = this;
    for (std::size_t at = 0; parent && at + 1 < segments.size(); ++at) {
        parent = parent->findChild(segments[at]);
    }
    return parent && parent->removeChild(segments.back());
}

void ConfPathTrie::clear()
{
    children_.clear();
    data_.reset();
    metadata_.reset();
    expansion_.clear();
}

void ConfPathTrie::walk(ConfPathTriePruner &pruner)
{
    StrVector segments;
    walkBelow(pruner, segments);
}

/// `segments` is one vector for the whole walk, whose last part is exchanged from child to child.
void ConfPathTrie::walkBelow(ConfPathTriePruner &pruner, StrVector &segments)
{
    segments.emplace_back();
    for (auto at = children_.begin(); at != children_.end();) {
        ConfPathTrie &node = *at->second;
        segments.back() = at->first;
        // Asked on the way down, so that nothing below a node that goes is looked at.
        const PruneAnswer answer = pruner.visit(segments, node);
        if (answer != PruneAnswer::Remove) {
            node.walkBelow(pruner, segments);
        }
        // Asked on the way back, when all below it has been seen.
        const bool emptied =
            answer == PruneAnswer::KeepIfNotEmptied && node.children_.empty() && !node.hasData();
        at = answer == PruneAnswer::Remove || emptied ? children_.erase(at) : std::next(at);
    }
    segments.pop_back();
}

void ConfPathTrie::pruneDepth(unsigned levels)
{
    if (levels == 0) {
        children_.clear();
        return;
    }
    for (const auto &[part, node] : children_) {
        node->pruneDepth(levels - 1);
    }
}

void ConfPathTrie::merge(const ConfPathTrie &other, unsigned levels)
{
    fillNodeFrom(other);
    if (levels == 0) {
        return;
    }
    auto next = children_.begin();
    for (const auto &[part, node] : other.children_) {
        const auto at = childBefore(next, part);
        at->second->merge(*node, levels - 1);
        // The parts come in order: the place of the next one is behind this one.
        next = std::next(at);
    }
}

void ConfPathTrie::merge(ConfPathTrie &&other)
{
    fillNodeFrom(other);
    for (auto &[part, node] : other.children_) {
        std::unique_ptr<ConfPathTrie> &slot = children_[part];
        if (slot) {
            slot->merge(std::move(*node));
        } else {
            // The whole subtree in one step, which is what this form is for.
            slot = std::move(node);
        }
    }
}

// The children of both trees come in the same order, so that each look-up can start from the last: to merge
// thousands of stanzas costs a step each, not a search.
ConfPathTrie::Children::iterator ConfPathTrie::childBefore(Children::iterator next, const Str &part)
{
    const auto at = children_.try_emplace(next, part);
    if (!at->second) {
        at->second = makeEmpty();
    }
    return at;
}

void ConfPathTrie::fillNodeFrom(const ConfPathTrie &other)
{
    if (!data_) {
        data_ = other.data_;
    }
    if (!metadata_) {
        metadata_ = other.metadata_;
    } else if (other.metadata_ && metadata_ != other.metadata_) {
        // What nodes share is never changed, so that this one gets metadata of its own.
        ConfPathMetadata filled = *metadata_;
        filled.fillFrom(*other.metadata_);
        setMetadata(filled);
    }
    if (expansion_.empty()) {
        expansion_ = other.expansion_;
    }
}

void ConfPathTrie::overwrite(const ConfPathTrie &other)
{
    if (other.data_) {
        data_ = other.data_;
    }
    if (other.metadata_) {
        metadata_ = other.metadata_;
    }
    if (!other.expansion_.empty()) {
        expansion_ = other.expansion_;
    }
    for (const auto &[part, node] : other.children_) {
        child(part).overwrite(*node);
    }
}

bool ConfPathTrie::sameNode(const ConfPathTrie &other) const
{
    return data_ == other.data_ && expansion_ == other.expansion_ &&
           metadata().equalsButTime(other.metadata());
}

// Children of `a` come first, of which those in `b` are compared; what is left is what `b` alone has.
bool ConfPathTrie::diff(ConfPathTrie &out, const ConfPathTrie &a, const ConfPathTrie &b)
{
    bool differ = !a.sameNode(b);
    if (differ) {
        // The node alone: what lies below it is compared by itself.
        out.merge(b, 0);
    }
    for (const auto &[part, ofA] : a.children_) {
        const ConfPathTrie *const ofB = b.findChild(part);
        // Built aside, so that nothing gets into `out` of what turns out to be equal.
        ConfPathTrie below;
        if (ofB == nullptr) {
            below.merge(*ofA);
        } else if (!diff(below, *ofA, *ofB)) {
            continue;
        }
        differ = true;
        out.child(part).merge(below);
    }
    for (const auto &[part, ofB] : b.children_) {
        if (a.findChild(part) == nullptr) {
            differ = true;
            out.child(part).merge(*ofB);
        }
    }
    return differ;
}

void ConfPathTrie::dump(Str *out) const
{
    for (const auto &[part, node] : children_) {
        *out << part;
        node->dumpLevel(*out, 1);
    }
}

Str ConfPathTrie::toStr() const
{
    Str text;
    dump(&text);
    return text;
}

void ConfPathTrie::dumpLevel(Str &out, unsigned level) const
{
    if (!expansion_.empty()) {
        out << " (" << expansion_ << ")";
    }
    if (data_) {
        // A value may have several lines; in a log it has one.
        out << " = " << withVisibleLineEnds(*data_);
    }
    if (metadata_) {
        out << " " << metadata_->toStr();
    }
    out << "\n";
    for (const auto &[part, node] : children_) {
        out.append(2 * level, ' ');
        out << part;
        node->dumpLevel(out, level + 1);
    }
}

} // namespace velmox
