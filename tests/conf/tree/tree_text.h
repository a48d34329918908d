#pragma once

#include "conf/tree/conf_path_trie.h"
#include "util/text/str_segment.h"

namespace velmox::testing {

inline StrVector split(const Str &text, const char *separator)
{
    StrVector parts;
    StrSegment(text.view()).splitInto(parts, separator);
    return parts;
}

inline ConfPathTrie &nodeAt(ConfPathTrie &tree, const Str &path)
{
    ConfPathTrie *node = &tree;
    for (const Str &part : split(path, "/")) {
        node = &node->child(part);
    }
    return *node;
}

/// A tree of paths between blanks: "a/b=x" holds the value x, "a/b" the empty one, "[a/b]" none.
inline ConfPathTrie treeOf(const Str &paths)
{
    ConfPathTrie tree;
    for (const Str &path : split(paths, " ")) {
        if (path.front() == '[') {
            nodeAt(tree, path.substr(1, path.size() - 2));
        } else {
            const StrVector sides = split(path, "=");
            nodeAt(tree, sides[0]).setData(sides.size() > 1 ? sides[1] : Str());
        }
    }
    return tree;
}

/// The way back: nodes that have a value, or no children.
inline Str textOf(const ConfPathTrie &tree, const Str &above = Str())
{
    Str text;
    for (const auto &[part, node] : tree.children()) {
        const Str path = above.empty() ? part : Str() << above << "/" << part;
        if (node->hasData()) {
            text << (text.empty() ? "" : " ") << path << (node->data().empty() ? "" : "=") << node->data();
        } else if (node->children().empty()) {
            text << (text.empty() ? "" : " ") << "[" << path << "]";
        }
        const Str below = textOf(*node, path);
        text << (text.empty() || below.empty() ? "" : " ") << below;
    }
    return text;
}

} // namespace velmox::testing
