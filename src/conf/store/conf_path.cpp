#include "conf/store/conf_path.h"

#include "conf/ground/conf_exceptions.h"
#include "conf/root/conf_settings.h"
#include "conf/root/sentinel_scope.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "conf/tree/conf_path_base.h"
#include "util/log/logger.h"

#include <algorithm>
#include <vector>

namespace velmox {

namespace {

/// The mappers that a change went through, each once, in the order in which it came to them. They are few,
/// so a list is searched.
class TouchedMappers
{
public:
    void add(IConfPathMapper &mapper)
    {
        if (std::find(mappers_.begin(), mappers_.end(), &mapper) == mappers_.end()) {
            mappers_.push_back(&mapper);
        }
    }

    /// Flushes all of them, also after one that could not, and gives the first that could not; null when all
    /// could.
    const IConfPathMapper *flush() const
    {
        const IConfPathMapper *failed = nullptr;
        for (IConfPathMapper *const mapper : mappers_) {
            if (!mapper->flush() && failed == nullptr) {
                failed = mapper;
            }
        }
        return failed;
    }

private:
    std::vector<IConfPathMapper *> mappers_;
};

/// "Could not remove: /nobody/search/inputs: ConfPathMapper: ...".
Str failureOf(const char *what, const ConfPath &path, const IConfPathMapper &mapper)
{
    return Str(what) << ": " << path.toStr() << ": " << mapper.describe();
}

/// False when no mapper has anything at the path.
bool readMappers(const ConfPath &path, ConfPathTrie &out, unsigned levels)
{
    bool delivered = false;
    for (IConfPathMapper *const mapper : path.mappers().mappers()) {
        delivered = mapper->read(path, out, levels) || delivered;
    }
    return delivered;
}

/// Whether metadata changes who may do what, in a place where that takes a right of its own. Elsewhere the
/// right to write is enough. Equal permissions are one object, so they are compared by their addresses.
bool needsMetadataRight(const ConfPath &path, const ConfPathMetadata &metadata)
{
    if (!metadata.access) {
        return false;
    }
    const ConfAclPtr current = path.effectiveMetadata().access;
    return current && current != metadata.access && current->capabilities().contains(ConfAcl::kWriteMetadata);
}

/// Throws for the first node that the identity may not write as the tree has it.
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

/// One write of a tree, node by node from the top, each to the writers that its own address has.
class TreeWrite
{
public:
    explicit TreeWrite(unsigned flags) : flags_(flags) {}

    /// The top gets metadata written even if it brings none, which changes nothing in the file but needs a
    /// place for it: an address that has none is refused as a whole.
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
        // At each node: a part below may lead out just as well as the top.
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
        // Of each address anew: a key may have a writer other than its stanza's. What was found is flushed
        // even if the write fails.
        IConfPathMapper &writer = *path.mappers().findWriter(path, flags);
        touched_.add(writer);
        return writer;
    }

    void writeData(const ConfPath &path, const Str &value)
    {
        IConfPathMapper &writer = writerOf(path, flags_);
        if (!writer.writeData(path, value)) {
            throw ConfPathWriteDataException(failureOf("Could not write data", path, writer));
        }
    }

    void writeMetadata(const ConfPath &path, const ConfPathMetadata &metadata)
    {
        IConfPathMapper &writer = writerOf(path, flags_ | ConfPathMapperManager::Metadata);
        if (!writer.writeMetadata(path, metadata)) {
            throw ConfPathWriteMetadataException(failureOf("Could not write metadata", path, writer));
        }
    }

    const unsigned flags_;
    TouchedMappers touched_;
};

Logger log("ConfPath");

/// A node to be removed, and the mapper that holds it.
struct Removal
{
    IConfPathMapper *mapper;
    ConfPath path;
};

/// Whoever may write to what holds a node may remove it, as with files and folders.
void requireRemovable(ConfPath path)
{
    if (!path.parts().empty()) {
        path.removeLastPart();
    }
    path.require(ConfAcl::kWrite);
}

/// Children come before their parents, which take them along otherwise.
void collectBelow(ConfPath &path, const ConfPathTrie &node, IConfPathMapper &mapper,
                  std::vector<Removal> &out)
{
    for (const auto &[part, child] : node.children()) {
        path.addPart(part);
        collectBelow(path, *child, mapper, out);
        if (child->hasData() || child->hasMetadata()) {
            out.push_back({&mapper, path});
        }
        path.removeLastPart();
    }
}

/// What stands in the one place to which `path` is written. A value in another layer stays, and comes to
/// light.
void collect(const ConfPath &path, unsigned flags, std::vector<Removal> &out)
{
    IConfPathMapper &mapper = *path.mappers().findWriter(path, flags);
    ConfPathTrie held;
    const bool isThere = mapper.read(path, held, ConfPathTrie::kAllLevels);
    if (const ConfPathTrie *const node = isThere ? held.find(path) : nullptr) {
        ConfPath below = path;
        collectBelow(below, *node, mapper, out);
        // A type is a file, which is there without holding anything itself.
        if (flags == ConfPathMapperManager::Data || node->hasData() || node->hasMetadata()) {
            out.push_back({&mapper, path});
        }
    }
}

/// The first that could not be removed, which ends it; null when all could.
const Removal *removeAll(const std::vector<Removal> &removals, TouchedMappers &touched)
{
    for (const Removal &one : removals) {
        log.debug("removing %s", one.path.toStr().c_str());
        touched.add(*one.mapper);
        if (!one.mapper->remove(one.path)) {
            return &one;
        }
    }
    return nullptr;
}

} // namespace

ConfPath::ConfPath(ConfPathMapperManager &mappers, ConfPathBase base, ConfUserContext identity)
    : ConfPathWithACL(std::move(base), std::move(identity)), mappers_(&mappers)
{
}

const BundlesSetup &ConfPath::setup() const
{
    return mappers_->setup();
}

/// From the app down, since what is said of a node counts for all below it that says nothing of its own.
ConfPathMetadata ConfPath::effectiveMetadata() const
{
    ConfPathMetadata effective;
    ConfPath level(*mappers_, ConfPathBase(user(), app()));
    for (auto part = parts().begin();; ++part) {
        ConfPathTrie found;
        const ConfPathTrie *const node = readMappers(level, found, 0) ? found.find(level) : nullptr;
        effective.overlay(node && node->hasMetadata() ? node->metadata() : ConfPathMetadata());
        if (part == parts().end()) {
            return effective;
        }
        level.addPart(*part);
    }
}

void ConfPath::require(const Str &capability) const
{
    Str reason;
    if (!hasCapability(identity(), capability, &reason)) {
        throw ConfPathPermissionDeniedException(reason);
    }
}

void ConfPath::read(ConfPathTrie &trie, unsigned levels) const
{
    refuseTraversal(*this);
    if (!readMappers(*this, trie, levels)) {
        throw ConfPathDoesNotExistException(Str("Does not exist: ") << toStr());
    }
}

Str ConfPath::readData() const
{
    ConfPathTrie trie;
    read(trie, 0);
    const ConfPathTrie *const node = trie.find(*this);
    if (node == nullptr || !node->hasData()) {
        throw ConfPathHasNoDataException(Str("Has no data: ") << toStr());
    }
    return node->data();
}

ConfPathMetadata ConfPath::readMetadata() const
{
    ConfPathTrie trie;
    read(trie, 0);
    const ConfPathTrie *const node = trie.find(*this);
    if (node == nullptr || !node->hasMetadata()) {
        throw ConfPathHasNoMetadataException(Str("Has no metadata: ") << toStr());
    }
    return node->metadata();
}

void ConfPath::write(const ConfPathTrie &trie, unsigned flags) const
{
    ConfPath path = *this;
    // The rights for all of it, before the first value is written: a write that is refused half way would
    // leave a half behind.
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
    // After a failure too: what was written before it waits in the mappers, and would go to disk with
    // somebody else's write.
    const IConfPathMapper *const unflushed = write.flush();
    if (failure) {
        std::rethrow_exception(failure);
    }
    if (unflushed) {
        throw ConfPathFlushException(failureOf("Could not flush changes to disk", *this, *unflushed));
    }
}

void ConfPath::writeAndNotify(const ConfPathTrie &trie, unsigned flags) const
{
    const SentinelScope sentinel(setup(), mappers_->settings(), Str("writing: ") << toStr());
    write(trie, flags);
}

void ConfPath::remove() const
{
    refuseTraversal(*this);
    requireRemovable(*this);
    std::vector<Removal> removals;
    collect(*this, ConfPathMapperManager::Data, removals);
    collect(*this, ConfPathMapperManager::Metadata, removals);
    if (removals.empty()) {
        throw ConfPathDoesNotExistException(Str("Does not exist: ") << toStr());
    }
    TouchedMappers touched;
    // Flushed after a failure as well: what was removed before it waits in the mappers.
    const Removal *const failed = removeAll(removals, touched);
    const IConfPathMapper *const unflushed = touched.flush();
    if (failed) {
        throw ConfPathWriteException(failureOf("Could not remove", failed->path, *failed->mapper));
    }
    if (unflushed) {
        throw ConfPathFlushException(failureOf("Could not commit removal to disk", *this, *unflushed));
    }
}

} // namespace velmox
