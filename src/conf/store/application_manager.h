#pragma once

#include "conf/ground/conf_lock.h"
#include "conf/root/bundles_setup.h"
#include "conf/store/application_info.h"
#include "util/text/base_exception.h"

#include <map>
#include <set>

namespace velmox {

class ConfPathMapperManager;
class ConfPathTrie;

/// What is wrong with an app that a caller asked about or wants changed.
class ApplicationManagerException : public BaseException
{
public:
    using BaseException::BaseException;
};

class ApplicationDoesNotExistException : public ApplicationManagerException
{
public:
    explicit ApplicationDoesNotExistException(const Str &name)
        : ApplicationManagerException(Str::concat("Cannot import non-existent application: ", name))
    {
    }
};

class ApplicationInfoUpdateException : public ApplicationManagerException
{
public:
    explicit ApplicationInfoUpdateException(const Str &name)
        : ApplicationManagerException(Str::concat("Cannot update application info: ", name))
    {
    }
};

class ApplicationRemovalException : public ApplicationManagerException
{
public:
    /// `error` is the system's code.
    ApplicationRemovalException(unsigned error, const Str &directory)
        : ApplicationManagerException(
              Str::fromErrorFormat(error, "Cannot remove application directory: %s: %m", directory.c_str()))
    {
    }
};

class ApplicationHasNoUpdateException : public ApplicationManagerException
{
public:
    explicit ApplicationHasNoUpdateException(const Str &id)
        : ApplicationManagerException(Str::concat("No update available for appid: ", id))
    {
    }
};

class ApplicationDoesNotAllowDisableException : public ApplicationManagerException
{
public:
    explicit ApplicationDoesNotAllowDisableException(const Str &name)
        : ApplicationManagerException(Str::concat("Application cannot be disabled: ", name))
    {
    }
};

/// An app and those that it imports, directly or through others, each with the number of steps to it. Of two
/// imported apps that set the same key the nearer one counts.
using ImportGenerations = std::map<Str, std::uint64_t>;

/// What the last scan that found a difference made of an app.
enum class ApplicationChange
{
    None = 0,
    Created = 1,
    Modified = 2,
};

/// The register of apps of a root: a folder among the apps, or among the slave apps, is an app. What is known
/// of one comes from its `app.conf` and its metadata, read through the mappers and therefore with what other
/// programs changed only once the mappers know of it.
///
/// Any thread; nothing that is handed out points into it. A scan asks all mappers under the lock, so nobody
/// may scan who holds the lock of one.
class ApplicationManager
{
public:
    /// The mappers, of which it reads what there is, outlive it.
    explicit ApplicationManager(const ConfPathMapperManager &mappers);

    /// Copies out what is known of an app. Throws ApplicationDoesNotExistException; "system" always exists.
    void getInfo(const Str &name, ApplicationInfo &info) const;
    /// Whether there is a folder of this name, in this case, among the apps or the slave apps.
    bool isKnown(const Str &name) const;
    /// Whether the app is known and enabled.
    bool isUsable(const Str &name) const;

    /// Adds the apps that those in `apps` import, directly or through others. An import of an unknown app is
    /// left out. True when one of them exports to everyone.
    bool expandImports(std::set<Str> &apps) const;
    /// The same for one app, with the steps to each: 0 for the app itself.
    ImportGenerations importGenerations(const Str &app) const;

    /// Looks for apps on disk; with `detectChanges`, for what became different since the last time. Reads
    /// the type "app" of all mappers, so not to be called with the lock of one.
    void rescan(bool detectChanges);

private:
    struct Record
    {
        ApplicationInfo info;
        ApplicationChange change = ApplicationChange::None;
    };

    // To be called with the lock held.
    /// Adds to the apps given, whose number of steps is 0, all that they import.
    void expand(ImportGenerations &generations) const;
    /// The known ones among what an app imports itself.
    StrVector importsOf(const Str &app) const;
    void scanDirectory(const Pathname &directory, const ConfPathTrie &settings, bool detectChanges);
    void enter(const Str &name, ApplicationInfo info);
    void detectChange(const Str &name, ApplicationInfo info);
    void collectIds();

    mutable ConfLock lock_{ConfLockRank::Applications};
    const ConfPathMapperManager &mappers_;
    const BundlesSetup setup_;
    std::map<Str, Record> apps_;
    std::map<Str, std::set<Str>> appsById_; ///< names by the id that their packages bear
    std::set<Str> globalExporters_;         ///< apps of which something is exported to everyone
};

} // namespace velmox
