#pragma once

#include "conf/file/insertion_ordered_map.h"
#include "conf/ground/conf_lock.h"
#include "conf/mapper/i_conf_path_mapper.h"
#include "conf/root/bootstrap_rules.h"
#include "conf/root/bundles_setup.h"
#include "conf/root/username_mapper.h"

#include <map>
#include <memory>
#include <vector>

namespace velmox {

class ConfPathBase;
struct PathOwner;

/// Finds and makes the mappers of a root, as its bootstrap file says: the order of its patterns is the order
/// in which layers are read. Any thread.
class ConfPathMapperManager
{
public:
    enum WriteFlags : unsigned
    {
        Data = 0,
        Metadata = 1,
        Packed = 2,
    };

    explicit ConfPathMapperManager(const BundlesSetup &setup);
    ~ConfPathMapperManager();

    /// Adds what the patterns match and is not known yet; with `only`, that path alone, which need not exist.
    /// False when a path could not be added, or `only` is matched by no pattern.
    bool scan(const Pathname &only = Pathname());
    /// In reading order. They live as long as this object.
    std::vector<IConfPathMapper *> mappers() const;
    /// Where the write rules put what stands at a path. Makes the mapper, when it is the first write to that
    /// place. Throws ConfPathHasNoWriter.
    IConfPathMapper *findWriter(const ConfPathBase &path, unsigned flags);
    /// The mapper that serves a file; null when none does.
    IConfPathMapper *mapperFor(const Pathname &file);

private:
    /// Null for a path that is known by its place alone.
    using PathMappers = std::map<Pathname, IConfPathMapper *>;

    bool addPath(const Pathname &path, const Str &handler, PathMappers &mappers);
    bool addMapper(const Pathname &path, const Str &handler, const PathOwner &owner, PathMappers &mappers);
    Pathname findWriteDirectory(const ConfPathBase &path, const Str &writeKey);
    IConfPathMapper *findByFile(const Pathname &file) const;
    IConfPathMapper *mapperAt(const Pathname &path) const;

    mutable ConfLock lock_{ConfLockRank::MapperManager};
    const BundlesSetup setup_;
    const BootstrapRules rules_;
    UsernameMapper users_;
    /// By expanded pattern.
    InsertionOrderedMap<PathMappers> patterns_;
    /// By folded path.
    std::map<Pathname, std::unique_ptr<IConfPathMapper>> all_;
};

} // namespace velmox
