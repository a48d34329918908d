// How the manager finds the mapper for a write and for a file.

#include "conf/conf_path_base.h"
#include "conf/conf_path_exceptions.h"
#include "conf/conf_path_mapper_manager.h"
#include "conf/conf_settings.h"
#include "conf/path_pattern.h"
#include "conf/shared_conf_services.h"
#include "util/logger.h"

#include <mutex>

namespace velmox {

namespace {

Logger log("ConfPathMapperManager");

constexpr char kWritesStanza[] = "writes";
constexpr char kDepthStanza[] = "relative_depth_to_regular_files";

Str userOf(const ConfPathBase &path)
{
    return path.isShared() ? Str(kSharedUser) : path.user();
}

Str writeKeyOf(const ConfPathBase &path, unsigned flags)
{
    const char *const what = (flags & ConfPathMapperManager::Packed) != 0     ? "pack"
                             : (flags & ConfPathMapperManager::Metadata) != 0 ? "meta"
                                                                              : "data";
    return Str::fromFormat("%s:%s:%s:%s", what, userOf(path).c_str(), path.app().c_str(),
                           path.type().c_str());
}

/// How many levels below a path of this handler its files lie; false when that is not told.
bool depthOfFiles(const IniStanza &depths, const Str &handler, unsigned &depth)
{
    const IniEntry *const entry = depths.findKey(handler);
    return entry != nullptr && StrSegment(entry->value()).parseUnsigned(depth);
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

/// The user's directory is left out: asking for it may record a safe name.
PlaceholderVariables ConfPathMapperManager::variablesFor(const ConfPathBase &path) const
{
    PlaceholderVariables result = variables();
    result["user"] = placeholderLiteral(userOf(path));
    result["app"] = placeholderLiteral(path.app());
    result["type"] = placeholderLiteral(path.type());
    return result;
}

const IniEntry *ConfPathMapperManager::findWriteRule(const ConfPathBase &path, const Str &writeKey) const
{
    const IniStanza *const writes = setup_.shared().settings().requiredStanza(kWritesStanza);
    if (writes == nullptr) {
        return nullptr;
    }
    if (const IniEntry *const exact = writes->findKey(writeKey)) {
        return exact;
    }
    const PlaceholderVariables known = variablesFor(path);
    for (const IniStanza::Setting &rule : *writes) {
        if (expandPlaceholders(rule.key, known) == writeKey) {
            return &rule.entry;
        }
    }
    log.error("No write configuration for: %s", writeKey.c_str());
    return nullptr;
}

/// Empty when there is none.
Pathname ConfPathMapperManager::findWriteDirectory(const ConfPathBase &path, const Str &writeKey)
{
    const IniEntry *const rule = findWriteRule(path, writeKey);
    if (rule == nullptr) {
        return Pathname();
    }
    const Str userDirectory = path.isShared() ? Str(kSharedUser) : users_.directoryName(path.user());
    if (userDirectory.empty()) {
        return Pathname();
    }
    PlaceholderVariables known = variablesFor(path);
    known["user-case-handler"] = placeholderLiteral(userDirectory);
    return expandToPath(rule->value(), known);
}

IConfPathMapper *ConfPathMapperManager::findWriter(const ConfPathBase &path, unsigned flags)
{
    const std::lock_guard guard(lock_);
    const Str pathText = path.toStr();
    const Str writeKey = writeKeyOf(path, flags);
    log.debug("Searching for write configuration for: %s", writeKey.c_str());
    Str place = writeKey;
    Pathname directory;
    try {
        directory = findWriteDirectory(path, writeKey);
    } catch (const PlaceholderException &exception) {
        log.error(exception);
    }
    if (!directory.empty()) {
        place = setup_.text(directory);
        log.debug("Found write path for: %s [%x]: %s", pathText.c_str(), flags, place.c_str());
        if (mapperAt(directory) == nullptr) {
            scan(directory);
        }
        if (IConfPathMapper *const mapper = mapperAt(directory)) {
            log.debug("Found writer IConfPathMapper for %s [%x]: %s", pathText.c_str(), flags,
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
    log.debug("%s update IConfPathMapper for %s: %s", mapper != nullptr ? "Found" : "Missing",
              setup_.text(file).c_str(), mapper != nullptr ? mapper->describe().c_str() : "");
    return mapper;
}

/// Looks where each pattern would have its path, as many levels above the file as the handler keeps files
/// below.
IConfPathMapper *ConfPathMapperManager::findByFile(const Pathname &file) const
{
    const IniStanza *const depths = setup_.shared().settings().requiredStanza(kDepthStanza);
    if (depths == nullptr) {
        return nullptr;
    }
    std::vector<Pattern> patterns;
    expandBootstrap(patterns);
    for (const Pattern &pattern : patterns) {
        unsigned depth = 0;
        if (!depthOfFiles(*depths, pattern.handler, depth)) {
            continue;
        }
        const Pathname path = ancestorOf(file, depth);
        IConfPathMapper *const mapper = matchesPathPattern(path, pattern.path) ? mapperAt(path) : nullptr;
        if (mapper != nullptr) {
            return mapper;
        }
    }
    return nullptr;
}

} // namespace velmox
