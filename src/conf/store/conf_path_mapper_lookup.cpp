// How the manager finds the mapper for a write and for a file.

#include "conf/ground/conf_path_exceptions.h"
#include "conf/root/path_forms.h"
#include "conf/root/path_pattern.h"
#include "conf/store/conf_path_mapper_manager.h"
#include "conf/store/mapper_manager_log.h"
#include "conf/tree/conf_path_base.h"

#include <mutex>

namespace velmox {

namespace {

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

/// Empty when there is none. The user's directory is asked for last, since that may record a safe name.
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
        if (mapperAt(directory) == nullptr) {
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
    std::map<Str, unsigned> depths;
    std::vector<BootstrapPattern> patterns;
    rules_.depthsOfFiles(depths);
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
