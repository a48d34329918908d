#pragma once

#include "conf/root/bundles_setup.h"
#include "conf/tree/conf_path_trie.h"
#include "conf/tree/conf_rights.h"

namespace velmox {

class ConfPathMapperManager;

/// An address in a configuration root, and what can be done there on behalf of an identity.
///
/// A read asks all mappers: several may hold a part of what stands at an address. A write goes to one mapper
/// for data and to one for metadata, as the write rules of the bootstrap file say; each node below may have
/// writers of its own. Nothing is undone when a part fails: what was written before stays and is flushed.
class ConfPath : public ConfPathWithACL
{
public:
    /// The mappers of the root outlive this object.
    ConfPath(ConfPathMapperManager &mappers, ConfPathBase base, ConfUserContext identity = {});

    ConfPathMapperManager &mappers() const { return *mappers_; }
    const BundlesSetup &setup() const;

    /// Reads the nodes at this path and above it.
    ConfPathMetadata effectiveMetadata() const override;
    /// Throws ConfPathPermissionDeniedException when the identity lacks a capability here.
    void require(const Str &capability) const;

    /// Asks every mapper, in reading order, for what stands at this path and up to `levels` below it. Throws
    /// ConfPathDoesNotExistException when none has anything.
    void read(ConfPathTrie &trie, unsigned levels = ConfPathTrie::kAllLevels) const;
    /// Throw ConfPathDoesNotExistException, ConfPathHasNoDataException and ConfPathHasNoMetadataException.
    Str readData() const;
    ConfPathMetadata readMetadata() const;

    /// Writes a tree whose top is this path, and flushes what was touched, also after a failure. `flags` are
    /// those of `ConfPathMapperManager::findWriter` for data. Throws ConfPathPermissionDeniedException,
    /// ConfPathDirectoryTraversalException, ConfPathWriteException.
    void write(const ConfPathTrie &trie, unsigned flags = 0) const;
    /// The same while other hosts are kept off shared storage, so that no two of them replace each other's
    /// changes.
    void writeAndNotify(const ConfPathTrie &trie, unsigned flags = 0) const;
    /// Removes what stands at this path and below it. Throws as `write` does.
    void remove() const;

private:
    ConfPathMapperManager *mappers_;
};

} // namespace velmox
