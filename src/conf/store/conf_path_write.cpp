#include "conf/ground/conf_path_exceptions.h"
#include "conf/mapper/touched_mappers.h"
#include "conf/store/conf_path.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "conf/store/conf_path_traversal.h"
#include "conf/store/sentinel_scope.h"
#include "conf/store/shared_conf_services.h"

namespace velmox {

namespace {

/// Whether metadata changes who may do what, in a place where that takes a right of its own.
bool needsMetadataRight(const ConfPath &path, const ConfPathMetadata &metadata)
{
    if (!metadata.access) {
        return false;
    }
    const ConfAclPtr current = path.effectiveMetadata().access;
    return current && current != metadata.access && current->capabilities().contains(ConfAcl::kWriteMetadata);
}

void checkRights(ConfPath &path, const ConfPathTrie &node)
{
    if (node.hasData() || node.hasMetadata()) {
        path.require(ConfAcl::kWrite);
    }
    if (node.hasMetadata() && needsMetadataRight(path, node.metadata())) {
        path.require(ConfAcl::kWriteMetadata);
    }
    for (const auto &[part, child] : node.children()) {
        path.addPart(part, child->expansion());
        checkRights(path, *child);
        path.removeLastPart();
    }
}

/// One write of a tree: which mappers it went through.
class TreeWrite
{
public:
    explicit TreeWrite(unsigned flags) : flags_(flags) {}

    void writeTop(ConfPath &path, const ConfPathTrie &node)
    {
        static const ConfPathMetadata none;
        writeTree(path, node, node.hasMetadata() ? nullptr : &none);
    }
    const IConfPathMapper *flush() const { return touched_.flush(); }

private:
    /// `missing`, if not null, is written as the metadata of the node.
    void writeTree(ConfPath &path, const ConfPathTrie &node, const ConfPathMetadata *missing)
    {
        refuseTraversal(path);
        if (node.hasData()) {
            writeData(path, node.data());
        }
        if (missing) {
            writeMetadata(path, *missing);
        } else if (node.hasMetadata() && !node.metadata().empty()) {
            writeMetadata(path, node.metadata());
        }
        for (const auto &[part, child] : node.children()) {
            path.addPart(part, child->expansion());
            writeTree(path, *child, nullptr);
            path.removeLastPart();
        }
    }

    IConfPathMapper &writerOf(const ConfPath &path, unsigned flags)
    {
        IConfPathMapper &writer = *path.setup().shared().mappers().findWriter(path, flags);
        touched_.add(writer);
        return writer;
    }

    void writeData(const ConfPath &path, const Str &value)
    {
        IConfPathMapper &writer = writerOf(path, flags_);
        if (!writer.writeData(path, value)) {
            throw ConfPathWriteDataException(Str::fromFormat(
                "Could not write data: %s: %s", path.toStr().c_str(), writer.describe().c_str()));
        }
    }

    void writeMetadata(const ConfPath &path, const ConfPathMetadata &metadata)
    {
        IConfPathMapper &writer = writerOf(path, flags_ | ConfPathMapperManager::Metadata);
        if (!writer.writeMetadata(path, metadata)) {
            throw ConfPathWriteMetadataException(Str::fromFormat(
                "Could not write metadata: %s: %s", path.toStr().c_str(), writer.describe().c_str()));
        }
    }

    const unsigned flags_;
    TouchedMappers touched_;
};

} // namespace

void ConfPath::write(const ConfPathTrie &trie, unsigned flags) const
{
    ConfPath path = *this;
    if (!identity().isUnrestricted()) {
        checkRights(path, trie);
    }
    TreeWrite write(flags);
    std::exception_ptr failure;
    try {
        write.writeTop(path, trie);
    } catch (...) {
        failure = std::current_exception();
    }
    const IConfPathMapper *const unflushed = write.flush();
    if (failure) {
        std::rethrow_exception(failure);
    }
    if (unflushed) {
        throw ConfPathFlushException(Str::fromFormat("Could not flush changes to disk: %s: %s",
                                                     toStr().c_str(), unflushed->describe().c_str()));
    }
}

void ConfPath::writeAndNotify(const ConfPathTrie &trie, unsigned flags) const
{
    const SentinelScope sentinel(setup_, Str("writing: ") << toStr());
    write(trie, flags);
}

} // namespace velmox
