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

// The room conf/store is about all directories of a root together: which there are and who serves them, which
// apps there are, and how an address is read from all of them and written to the one where it belongs.

class ConfPathBase;
struct PathOwner;

/// Finds and makes the mappers of a root, as its bootstrap file says: the order of its patterns is the order
/// in which layers are read. A mapper lives as long as this object, so that what was handed out stays valid,
/// also when its directory is gone. Any thread; one lock, which is held while mappers are made, and with it
/// that of the names of users.
class ConfPathMapperManager
{
public:
    enum WriteFlags : unsigned
    {
        Data = 0,
        Metadata = 1, ///< the metadata file that goes with the place
        Packed = 2,   ///< the packed file of the place; no rule that ships names one
    };

    /// Makes the mappers of what stands there already. All that is given outlives this object.
    ConfPathMapperManager(const BundlesSetup &setup, const ConfSettings &settings,
                          ConfChangeObserver &observer);
    ~ConfPathMapperManager();

    const BundlesSetup &setup() const { return setup_; }
    const ConfSettings &settings() const { return settings_; }

    /// Adds what the patterns match and is not known yet; with `only`, that path alone, which need not exist.
    /// False when a path could not be added, or `only` is matched by no pattern.
    bool scan(const Pathname &only = Pathname());
    /// In reading order: those of the pattern that stands first in the bootstrap file come first. They live
    /// as long as this object, so they are asked without its lock.
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
    /// Null when no mapper serves the file.
    IConfPathMapper *findByFile(const Pathname &file) const;
    /// The mapper of just this path, however it is spelt.
    IConfPathMapper *mapperAt(const Pathname &path) const;

    mutable ConfLock lock_{ConfLockRank::MapperManager};
    const BundlesSetup setup_;
    const ConfSettings &settings_;
    ConfChangeObserver &observer_;
    const BootstrapRules rules_;
    UsernameMapper users_;
    /// By expanded pattern, in the order of the bootstrap file. A path belongs to the first pattern that
    /// matches it.
    InsertionOrderedMap<PathMappers> patterns_;
    /// By folded path, the form that all spellings of a path have in common: two mappers of one file would
    /// not know of each other's edits.
    std::map<Pathname, std::unique_ptr<IConfPathMapper>> all_;
};

} // namespace velmox
