#include "conf/store/conf_path.h"

#include "conf/ground/conf_path_exceptions.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "conf/store/conf_path_traversal.h"
#include "conf/store/shared_conf_services.h"

namespace velmox {

namespace {

/// False when no mapper has anything at the path.
bool readMappers(const ConfPath &path, ConfPathTrie &out, unsigned levels)
{
    bool delivered = false;
    for (IConfPathMapper *const mapper : path.setup().shared().mappers().mappers()) {
        delivered = mapper->read(path, out, levels) || delivered;
    }
    return delivered;
}

} // namespace

ConfPath::ConfPath(const BundlesSetup &setup, ConfPathBase base, ConfUserContext identity)
    : ConfPathWithACL(std::move(base), std::move(identity)), setup_(setup)
{
}

ConfPathMetadata ConfPath::effectiveMetadata() const
{
    ConfPathMetadata effective;
    ConfPath level(setup_, ConfPathBase(user(), app()));
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

} // namespace velmox
