#include "conf/store/conf_path_mapper_manager.h"

#include "conf/ground/conf_exceptions.h"
#include "conf/mapper/conf_path_mapper_factory.h"
#include "conf/root/conf_settings.h"
#include "conf/root/path_forms.h"
#include "conf/root/path_owner.h"
#include "conf/tree/conf_path_base.h"
#include "util/files/file_system.h"

#include <algorithm>
#include <mutex>
#include <set>

namespace velmox {

namespace {

/// The level of a path that holds the unit at a position.
struct Level
{
    Level(const Pathname &path, std::size_t position)
        : begin(path.rfind(Pathname::kSeparator, position) + 1),
          end(std::min(path.find(Pathname::kSeparator, position), path.size()))
    {
    }
    std::size_t begin;
    std::size_t end;
};

/// Fills in the first level that holds a `*` with each name that fits, and goes on with what that makes,
/// until no `*` is left: depth first, so that the order of the names of an upper level counts before that of
/// a lower one. `from` is where the part of the pattern begins that is not a found name: names on disk may
/// hold no `*`, but what is found is never taken for a pattern.
void expandFrom(const Pathname &pattern, std::size_t from, std::vector<Pathname> &out)
{
    const std::size_t star = pattern.find(u'*', from);
    if (star == Pathname::npos) {
        if (pathKind(pattern) != PathKind::Nothing) {
            out.push_back(pattern);
        }
        return;
    }
    const Level level(pattern, star);
    const WideStr name = pattern.substr(level.begin, level.end - level.begin);
    std::vector<DirectoryEntry> entries;
    listDirectory(Pathname(pattern.substr(0, level.begin)), entries);
    for (const DirectoryEntry &entry : entries) {
        // Within a path only folders lead on; its end may be a file, such as one of metadata.
        const bool leadsOn = entry.isFolder || level.end == pattern.size();
        if (leadsOn && matchesNamePattern(entry.name, name)) {
            Pathname found(pattern);
            found.replace(level.begin, level.end - level.begin, entry.name);
            expandFrom(found, level.begin + entry.name.size(), out);
        }
    }
}

/// What exists and matches, in the order of the names by 16-bit units, which is the same on every host.
std::vector<Pathname> expandPathPattern(const Pathname &pattern)
{
    std::vector<Pathname> out;
    expandFrom(pattern, 0, out);
    return out;
}

/// What exists and matches the pattern; with `only`, that path if it matches, whether it exists or not.
std::vector<Pathname> pathsOf(const Pathname &pattern, const Pathname &only)
{
    if (only.empty()) {
        return expandPathPattern(pattern);
    }
    return matchesPathPattern(only, pattern) ? std::vector{only} : std::vector<Pathname>();
}

/// What the write rules are searched for, such as "data:nobody:search:inputs".
Str writeKeyOf(const ConfPathBase &path, unsigned flags)
{
    const char *const what = (flags & ConfPathMapperManager::Packed) != 0     ? "pack"
                             : (flags & ConfPathMapperManager::Metadata) != 0 ? "meta"
                                                                              : "data";
    return Str::fromFormat("%s:%s:%s:%s", what, path.isShared() ? kSharedUser : path.user().c_str(),
                           path.app().c_str(), path.type().c_str());
}

Pathname ancestorOf(const Pathname &file, unsigned levels)
{
    Pathname path(file);
    for (unsigned level = 0; level < levels; ++level) {
        path.dirnameInPlace();
    }
    return path;
}

} // namespace

ConfPathMapperManager::ConfPathMapperManager(const BundlesSetup &setup, const ConfSettings &settings,
                                             ConfChangeObserver &observer)
    : setup_(setup), settings_(settings), observer_(observer), rules_(setup, settings),
      users_(setup, settings)
{
    // Without a bootstrap file there is nothing to serve: all reads are empty, and no write has a place.
    const IniFile &image = settings_.image();
    if (!image.loaded()) {
        return;
    }
    mapperManagerLog.debug("Running setup for %s using %s", setup_.text(setup_.root()).c_str(),
                           setup_.text(image.destination()).c_str());
    scan();
}

ConfPathMapperManager::~ConfPathMapperManager() = default;

bool ConfPathMapperManager::scan(const Pathname &only)
{
    const std::lock_guard guard(lock_);
    std::vector<BootstrapPattern> patterns;
    bool allAdded = rules_.patterns(patterns);
    bool found = only.empty();
    std::set<Pathname> claimed;
    for (const BootstrapPattern &pattern : patterns) {
        // A pattern takes its place in the order even while nothing matches it: a path that appears later
        // must come where it would have come.
        PathMappers &mappers = patterns_.insert(pattern.path.toStr()).first->value;
        for (const Pathname &path : pathsOf(pattern.path, only)) {
            found = true;
            // A later pattern must not take a path that an earlier one has, even if that one chose to ignore
            // it.
            if (claimed.insert(foldedPath(path)).second) {
                allAdded = addPath(path, pattern.handler, mappers) && allAdded;
            }
        }
    }
    return found && allAdded;
}

/// Whether the path is known, is to be passed over, or was added. What is asked first is what costs least.
bool ConfPathMapperManager::addPath(const Pathname &path, const Str &handler, PathMappers &mappers)
{
    if (!path.isAbsolute()) {
        mapperManagerLog.error("BundleHandlerData given a relative path: %s", path.toStr().c_str());
        return false;
    }
    if (mapperAt(path) != nullptr) {
        mapperManagerLog.debug("Already known: %s", setup_.text(path).c_str());
        return true;
    }
    const Pathname name = path.basename();
    if (name.startsWith(u".") && name != u".") {
        mapperManagerLog.debug("Ignoring dot file: %s", setup_.text(path).c_str());
        return true;
    }
    // Before the owner is looked for: what nobody looks at need not be in a place that has one.
    if (confHandler(handler) == ConfHandler::Ignore) {
        return true;
    }
    // Last, since it may ask the map of users' names, which is a file.
    PathOwner owner;
    if (!findPathOwner(setup_, users_, path, owner)) {
        return false;
    }
    return isPathLeftOut(setup_, path, handler, owner) || addMapper(path, handler, owner, mappers);
}

bool ConfPathMapperManager::addMapper(const Pathname &path, const Str &handler, const PathOwner &owner,
                                      PathMappers &mappers)
{
    // Without its true name a user's directory would pass for what all users share.
    if (owner.user.empty()) {
        return false;
    }
    const ConfHandler kind = confHandler(handler);
    if (kind == ConfHandler::Unrecognized) {
        mapperManagerLog.error("Unrecognized handler name '%s' for path: %s", handler.c_str(),
                               setup_.text(path).c_str());
        return false;
    }
    if (kind == ConfHandler::IterateOnly) {
        mappers.emplace(path, nullptr);
        return true;
    }
    const BundleHandlerData data = {
        setup_, path, owner.rootDirectory, owner.user, owner.app, rules_.settingsOf(handler), observer_};
    std::unique_ptr<IConfPathMapper> mapper = makeConfPathMapper(handler, data);
    if (mapper) {
        mapperManagerLog.debug("Added IConfPathMapper: %s", mapper->describe().c_str());
        mappers.emplace(path, mapper.get());
        all_.emplace(foldedPath(path), std::move(mapper));
    }
    return true;
}

std::vector<IConfPathMapper *> ConfPathMapperManager::mappers() const
{
    const std::lock_guard guard(lock_);
    std::vector<IConfPathMapper *> snapshot;
    for (const auto &[pattern, mappers] : patterns_) {
        for (const auto &[path, mapper] : mappers) {
            if (mapper != nullptr) {
                snapshot.push_back(mapper);
            }
        }
    }
    return snapshot;
}

IConfPathMapper *ConfPathMapperManager::mapperAt(const Pathname &path) const
{
    const auto found = all_.find(foldedPath(path));
    return found == all_.end() ? nullptr : found->second.get();
}

/// Empty when there is none. The user's directory is asked for only once there is a rule: that question may
/// record a safe name on disk.
Pathname ConfPathMapperManager::findWriteDirectory(const ConfPathBase &path, const Str &writeKey)
{
    try {
        if (const IniEntry *const rule = rules_.findWriteRule(path, writeKey)) {
            const Str user = path.isShared() ? Str(kSharedUser) : users_.directoryName(path.user());
            return user.empty() ? Pathname() : rules_.directoryOf(*rule, path, user);
        }
    } catch (const PlaceholderException &exception) {
        mapperManagerLog.error(exception);
    }
    return Pathname();
}

IConfPathMapper *ConfPathMapperManager::findWriter(const ConfPathBase &path, unsigned flags)
{
    const std::lock_guard guard(lock_);
    const Str pathText = path.toStr();
    const Str writeKey = writeKeyOf(path, flags);
    mapperManagerLog.debug("Searching for write configuration for: %s", writeKey.c_str());
    Str place = writeKey;
    const Pathname directory = findWriteDirectory(path, writeKey);
    if (!directory.empty()) {
        place = setup_.text(directory);
        mapperManagerLog.debug("Found write path for: %s [%x]: %s", pathText.c_str(), flags, place.c_str());
        // The first write to an app or a user: the directory need not be there, its mapper makes it.
        if (mapperAt(directory) == nullptr) {
            // All patterns are gone through for the one path, so that it gets the handler and the place in
            // the order that a full scan would have given it.
            scan(directory);
        }
        if (IConfPathMapper *const mapper = mapperAt(directory)) {
            mapperManagerLog.debug("Found writer IConfPathMapper for %s [%x]: %s", pathText.c_str(), flags,
                                   mapper->describe().c_str());
            return mapper;
        }
    }
    throw ConfPathHasNoWriter(
        Str::fromFormat("Could not find writer for: %s [%x] [%s]", pathText.c_str(), flags, place.c_str()));
}

IConfPathMapper *ConfPathMapperManager::mapperFor(const Pathname &file)
{
    const std::lock_guard guard(lock_);
    IConfPathMapper *const mapper = findByFile(cleanedPath(file));
    mapperManagerLog.debug("%s update IConfPathMapper for %s: %s", mapper != nullptr ? "Found" : "No",
                           setup_.text(file).c_str(), mapper != nullptr ? mapper->describe().c_str() : "");
    return mapper;
}

/// Looks where each pattern would have its path, as many levels above the file as the handler keeps files
/// below.
IConfPathMapper *ConfPathMapperManager::findByFile(const Pathname &file) const
{
    const std::map<Str, unsigned> depths = rules_.depthsOfFiles();
    std::vector<BootstrapPattern> patterns;
    rules_.patterns(patterns);
    for (const BootstrapPattern &pattern : patterns) {
        const auto depth = depths.find(pattern.handler);
        if (depth == depths.end()) {
            continue;
        }
        const Pathname path = ancestorOf(file, depth->second);
        IConfPathMapper *const mapper = matchesPathPattern(path, pattern.path) ? mapperAt(path) : nullptr;
        if (mapper != nullptr) {
            return mapper;
        }
    }
    return nullptr;
}

} // namespace velmox
