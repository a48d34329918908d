#include "conf/tree/conf_path_trie.h"
#include "util/log/log_message.h"

namespace velmox {

bool ConfPathTrie::sameNode(const ConfPathTrie &other) const
{
    static const ConfPathMetadata none;
    const ConfPathMetadata &own = metadata_ ? *metadata_ : none;
    return data_ == other.data_ && expansion_ == other.expansion_ &&
           own.equalsButTime(other.metadata_ ? *other.metadata_ : none);
}

bool ConfPathTrie::diff(ConfPathTrie &out, const ConfPathTrie &a, const ConfPathTrie &b)
{
    bool differ = !a.sameNode(b);
    if (differ) {
        out.merge(b, 0);
    }
    for (const auto &[part, ofA] : a.children_) {
        const ConfPathTrie *const ofB = b.findChild(part);
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
