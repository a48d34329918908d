#include "conf/store/application_manager.h"

#include "conf/store/conf_path_mapper_manager.h"
#include "conf/tree/conf_path_pruners.h"
#include "util/files/file_system.h"
#include "util/log/logger.h"
#include "util/text/str.h"

#include <mutex>

namespace velmox {

namespace {

Logger log("ApplicationManager");

/// In reading order, so that of two layers that set the same the one that comes first stays.
void readFrom(const std::vector<IConfPathMapper *> &mappers, const ConfSearch &search, ConfPathTrie &out)
{
    for (IConfPathMapper *const mapper : mappers) {
        ConfPathTrie found;
        if (mapper->search(search, found)) {
            out.merge(found);
        }
    }
}

/// The type "app" of all apps, and what metadata says of each app as a whole. Two searches, since the second
/// asks for nothing below the app: `.conf` files have no answer to that and are not read for it.
void readApps(const std::vector<IConfPathMapper *> &mappers, ConfPathTrie &out)
{
    ConfSearch settings;
    settings.constrain(ConfSearch::User, kSharedUser);
    settings.constrain(ConfSearch::Type, kAppType);
    readFrom(mappers, settings, out);
    ConfSearch appLevel;
    appLevel.constrain(ConfSearch::User, kSharedUser);
    appLevel.setMaxLevel(kAppLevel);
    readFrom(mappers, appLevel, out);
}

} // namespace

ApplicationManager::ApplicationManager(const ConfPathMapperManager &mappers)
    : mappers_(mappers), setup_(mappers.setup())
{
    rescan(false);
}

void ApplicationManager::getInfo(const Str &name, ApplicationInfo &info) const
{
    const std::lock_guard guard(lock_);
    const auto found = apps_.find(name);
    if (found == apps_.end()) {
        throw ApplicationDoesNotExistException(name);
    }
    // Copied out, so that nobody holds on to a record that the next scan replaces.
    info = found->second.info;
}

bool ApplicationManager::isKnown(const Str &name) const
{
    const std::lock_guard guard(lock_);
    return apps_.contains(name);
}

bool ApplicationManager::isUsable(const Str &name) const
{
    const std::lock_guard guard(lock_);
    const auto found = apps_.find(name);
    return found != apps_.end() && found->second.info.enabled;
}

bool ApplicationManager::expandImports(std::set<Str> &apps) const
{
    ImportGenerations generations;
    for (const Str &app : apps) {
        generations.emplace(app, 0);
    }
    const std::lock_guard guard(lock_);
    expand(generations);
    bool anyExports = false;
    for (const auto &[app, generation] : generations) {
        apps.insert(app);
        anyExports = anyExports || globalExporters_.contains(app);
    }
    return anyExports;
}

ImportGenerations ApplicationManager::importGenerations(const Str &app) const
{
    ImportGenerations generations{{app, 0}};
    const std::lock_guard guard(lock_);
    expand(generations);
    return generations;
}

/// Step by step, breadth first: the generation of an app is the least number of imports that lead to it, and
/// a circle of imports ends where it began.
void ApplicationManager::expand(ImportGenerations &generations) const
{
    StrVector last;
    for (const auto &[app, generation] : generations) {
        last.push_back(app);
    }
    for (std::uint64_t generation = 1; !last.empty(); ++generation) {
        StrVector next;
        for (const Str &app : last) {
            for (const Str &import : importsOf(app)) {
                if (generations.emplace(import, generation).second) {
                    next.push_back(import);
                }
            }
        }
        last = std::move(next);
    }
}

/// Names of apps are URL-encoded in metadata files, as parts of names of stanzas are there.
StrVector ApplicationManager::importsOf(const Str &app) const
{
    StrVector known;
    const auto record = apps_.find(app);
    if (record == apps_.end() || !record->second.info.metadata.imports) {
        return known;
    }
    for (Str import : *record->second.info.metadata.imports) {
        if (!import.urlDecode()) {
            log.warn("Error decoding import: %s", import.c_str());
            continue;
        }
        if (apps_.contains(import)) {
            known.push_back(import);
        } else {
            // One import of an app that is not installed must not take the others away.
            log.debug("%s", ApplicationDoesNotExistException(import).what());
        }
    }
    return known;
}

/// Mappers are asked under the lock, which comes before theirs. In the detection of changes nothing is ever
/// forgotten: an app whose folder vanished stays known to the end of the process.
void ApplicationManager::rescan(bool detectChanges)
{
    const std::lock_guard guard(lock_);
    // All of it under the lock: who asks meanwhile is to wait, not to find half of the apps.
    const std::vector<IConfPathMapper *> mappers = mappers_.mappers();
    ConfPathTrie settings;
    readApps(mappers, settings);
    if (!detectChanges) {
        apps_.clear();
    }
    scanDirectory(setup_.appsDir(), settings, detectChanges);
    // Few hosts are handed apps by another; where they are not there, nothing is said of them.
    if (pathKind(setup_.slaveAppsDir()) == PathKind::Folder) {
        scanDirectory(setup_.slaveAppsDir(), settings, detectChanges);
    }
    // It has no folder among the apps; where one bears its name all the same, that was read above.
    apps_.try_emplace(kSystemApp, Record{ApplicationInfo::from(kSystemApp, nullptr)});
    collectIds();
    globalExporters_.clear();
    for (IConfPathMapper *const mapper : mappers) {
        mapper->collectGlobalExporters(globalExporters_);
    }
    log.debug() << "Found " << globalExporters_.size() << " application(s) that might have global exports";
}

void ApplicationManager::scanDirectory(const Pathname &directory, const ConfPathTrie &settings,
                                       bool detectChanges)
{
    const Str text = setup_.text(directory);
    log.debug("Initializing applications: %s", text.c_str());
    std::vector<DirectoryEntry> entries;
    listDirectory(directory, entries);
    std::size_t count = 0;
    for (const DirectoryEntry &entry : entries) {
        const Str path = setup_.text(directory.join(Pathname(entry.name)));
        // What version control and file managers leave behind is no app.
        if (entry.name.startsWith(u".")) {
            log.debug("Skipping dotfile: %s", path.c_str());
        } else if (!entry.isFolder) {
            log.debug("Skipping non-directory: %s", path.c_str());
        } else {
            log.debug("Found application directory: %s", path.c_str());
            const Str name = Str::fromUtf16(entry.name);
            ApplicationInfo info =
                ApplicationInfo::from(name, settings.find(ConfPathBase(kSharedUser, name)));
            if (detectChanges) {
                detectChange(name, std::move(info));
            } else {
                enter(name, std::move(info));
            }
            ++count;
        }
    }
    log.debug() << "Initialized " << count << " application(s): " << text;
}

/// The slave apps are read last, so of two folders of one name that of the slave apps counts, as it does
/// where settings are read.
void ApplicationManager::enter(const Str &name, ApplicationInfo info)
{
    if (apps_.contains(name)) {
        log.error("Unexpected duplicate app: %s", name.c_str());
    }
    apps_[name] = Record{std::move(info)};
}

void ApplicationManager::detectChange(const Str &name, ApplicationInfo info)
{
    const auto found = apps_.find(name);
    if (found == apps_.end()) {
        log.info("Detected app creation: %s", name.c_str());
        apps_[name] = Record{std::move(info), ApplicationChange::Created};
    } else if (found->second.info != info) {
        log.info("Detected app modification: %s", name.c_str());
        found->second = Record{std::move(info), ApplicationChange::Modified};
    }
}

/// An id that two apps bear says nothing about which of them an update is for.
void ApplicationManager::collectIds()
{
    appsById_.clear();
    for (const auto &[name, record] : apps_) {
        appsById_[record.info.id].insert(name);
    }
    for (const auto &[id, names] : appsById_) {
        if (names.size() > 1) {
            log.info("Skipping update check for app id '%s' used by more than one app: %s", id.c_str(),
                     joined(names, ", ").c_str());
        }
    }
}

} // namespace velmox
