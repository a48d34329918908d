#pragma once

#include "conf/mapper/conf_path_mapper_factory.h"
#include "tests/conf/conf_root.h"

namespace velmox::testing {

/// An app "search" with a directory that a mapper serves. Addresses are those below the app:
/// "/type/stanza/key".
class MapperTest : public ::testing::Test
{
protected:
    /// `folder` is below the app.
    void make(const char *handler, const char *folder = "local")
    {
        mapper = makeConfPathMapper(handler, dataOf(folder));
    }
    BundleHandlerData dataOf(const char *folder) const
    {
        return {root.setup(),
                root / (Str("apps/search/") << folder),
                root / "apps/search",
                "nobody",
                "search",
                {},
                root.shared()};
    }

    ConfPath at(const Str &address) const { return root.at(Str("/Nobody/search") << address); }
    bool write(const Str &address, const Str &value = Str()) const
    {
        return mapper->writeData(at(address), value);
    }
    bool remove(const Str &address) const { return mapper->remove(at(address)); }
    FileChangeAnswer notice(const Str &file) const { return noticeChange(*mapper, root / file); }
    bool changedSince(const Str &type) { return mapper->hasChangedSince(type, state); }

    /// What a reader gets of a type: "stanza:value key=value ..." of each stanza, each behind a semicolon.
    Str read(const Str &type) const
    {
        ConfPathTrie out;
        const ConfPathBase path("Nobody", "search", {type});
        return mapper->read(path, out, ConfPathTrie::kAllLevels) ? describe(out, type) : "nothing";
    }
    static Str describe(const ConfPathTrie &tree, const Str &type)
    {
        Str text;
        const ConfPathTrie *const node = tree.find(ConfPathBase("nobody", "search", {type}));
        if (node == nullptr) {
            return "-";
        }
        for (const auto &[name, stanza] : node->children()) {
            text << ";" << name << (stanza->hasData() && !stanza->data().empty() ? ":" : "")
                 << (stanza->hasData() ? stanza->data() : Str());
            for (const auto &[key, value] : stanza->children()) {
                text << " " << key << "=" << value->data();
            }
        }
        return text;
    }

    const ConfRoot root;
    std::unique_ptr<IConfPathMapper> mapper;
    ConfTypeState state;
};

} // namespace velmox::testing
