#include "conf/ground/conf_path_exceptions.h"
#include "conf/mapper/touched_mappers.h"
#include "conf/store/conf_path.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "conf/store/conf_path_traversal.h"
#include "conf/store/shared_conf_services.h"
#include "util/log/logger.h"

namespace velmox {

namespace {

Logger log("ConfPath");

struct Doomed
{
    IConfPathMapper *mapper;
    ConfPath path;
};

/// Whoever may write to what holds a node may remove it.
void requireRemovable(ConfPath path)
{
    if (!path.parts().empty()) {
        path.removeLastPart();
    }
    path.require(ConfAcl::kWrite);
}

/// Children come before their parents, which take them along otherwise.
void collectBelow(ConfPath &path, const ConfPathTrie &node, IConfPathMapper &mapper, std::vector<Doomed> &out)
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

/// What stands in the one place to which `path` is written.
void collect(const ConfPath &path, unsigned flags, std::vector<Doomed> &out)
{
    IConfPathMapper &mapper = *path.setup().shared().mappers().findWriter(path, flags);
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
const Doomed *removeAll(const std::vector<Doomed> &doomed, TouchedMappers &touched)
{
    for (const Doomed &one : doomed) {
        log.debug("removing %s", one.path.toStr().c_str());
        touched.add(*one.mapper);
        if (!one.mapper->remove(one.path)) {
            return &one;
        }
    }
    return nullptr;
}

} // namespace

void ConfPath::remove() const
{
    refuseTraversal(*this);
    requireRemovable(*this);
    std::vector<Doomed> doomed;
    collect(*this, ConfPathMapperManager::Data, doomed);
    collect(*this, ConfPathMapperManager::Metadata, doomed);
    if (doomed.empty()) {
        throw ConfPathDoesNotExistException(Str("Does not exist: ") << toStr());
    }
    TouchedMappers touched;
    const Doomed *const failed = removeAll(doomed, touched);
    const IConfPathMapper *const unflushed = touched.flush();
    if (failed) {
        throw ConfPathWriteException(Str::fromFormat("Could not remove: %s: %s", failed->path.toStr().c_str(),
                                                     failed->mapper->describe().c_str()));
    }
    if (unflushed) {
        throw ConfPathFlushException(Str::fromFormat("Could not commit removal to disk: %s: %s",
                                                     toStr().c_str(), unflushed->describe().c_str()));
    }
}

} // namespace velmox
