#include "conf/file/conf_line_reader.h"
#include "conf/file/ini_file.h"
#include "conf/mapper/meta_file.h"
#include "conf/tree/conf_path_trie.h"
#include "fuzz/fuzz_target.h"
#include "tests/support/memory_stream.h"

#include <algorithm>

namespace velmox::fuzz {
namespace {

using testing::MemoryReader;
using testing::MemoryWriter;

ConfPathTrie treeOf(std::string_view bytes, const ConfPathBase &app)
{
    MemoryReader bytesReader{std::string(bytes)};
    ConfLineReader reader(bytesReader, Pathname(u"C:\\local.meta"));
    ConfPathTrie tree;
    readMetaText(reader, app, tree);
    return tree;
}

/// Puts what a tree says into the image of a metadata file, and the same into a tree again, but for what no
/// file can say: nodes that have no name there, and those of which nothing is set.
class Writer : public ConfPathTriePruner
{
public:
    explicit Writer(const ConfPathBase &app) : app_(app) {}

    IniFile image;
    ConfPathTrie expected;

    PruneAnswer visit(const StrVector &segments, ConfPathTrie &node) override
    {
        if (std::find(segments.begin(), segments.end(), Str()) != segments.end()) {
            return PruneAnswer::Remove;
        }
        if (segments.size() >= kAppLevel) {
            write(ConfPathBase(segments[0], segments[1], StrVector(segments.begin() + 2, segments.end())),
                  node);
        }
        return PruneAnswer::Keep;
    }

private:
    void write(const ConfPathBase &path, const ConfPathTrie &node)
    {
        const std::optional<Str> name = metaHeader(path, app_);
        if (name && node.hasData()) {
            image.stanza(*name).insertKey("data", node.data());
            expected.node(path).setData(node.data());
        }
        if (name && node.hasMetadata() && !node.metadata().empty()) {
            for (const auto &[key, value] : metaSettings(node.metadata())) {
                image.stanza(*name).insertKey(key, value);
            }
            ConfPathMetadata settled = node.metadata();
            // A list in which no role could be decoded has no text.
            settled.access = settled.access ? ConfAcl::parse(settled.access->toStr()) : nullptr;
            expected.node(path).setMetadata(settled);
        }
    }

    const ConfPathBase &app_;
};

/// The form has no way to say these inside a value or a name.
bool isLeftOpen(std::string_view bytes)
{
    return bytes.find('\r') != bytes.npos || bytes.find('\0') != bytes.npos;
}

} // namespace

/// What was read from metadata is there again after it was written and read.
VELMOX_FUZZ_TARGET(meta)
{
    const ConfPathBase app("nobody", "search");
    ConfPathTrie tree = treeOf(bytes, app);
    Writer writer(app);
    tree.walk(writer);
    MemoryWriter out;
    writer.image.write(out);
    ConfPathTrie difference;
    require(isLeftOpen(out.bytes) || !ConfPathTrie::diff(difference, writer.expected, treeOf(out.bytes, app)),
            "metadata reads back");
}

} // namespace velmox::fuzz
