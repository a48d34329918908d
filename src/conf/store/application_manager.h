#pragma once

#include "conf/ground/conf_lock.h"
#include "conf/root/application_info.h"
#include "conf/root/bundles_setup.h"

#include <map>
#include <set>

namespace velmox {

class ConfPathTrie;

/// An app and those that it imports, directly or through others, each with the number of steps to it.
using ImportGenerations = std::map<Str, std::uint64_t>;

enum class ApplicationChange
{
    None = 0,
    Created = 1,
    Modified = 2,
};

/// Knows the applications of a root. Any thread; nothing that is handed out points into it.
class ApplicationManager
{
public:
    explicit ApplicationManager(const BundlesSetup &setup);

    /// Throws ApplicationDoesNotExistException; "system" always exists.
    void getInfo(const Str &name, ApplicationInfo &info) const;
    bool isKnown(const Str &name) const;
    /// Whether the app is known and enabled.
    bool isUsable(const Str &name) const;

    /// Adds the apps that those in `apps` import, directly or through others. An import of an unknown app is
    /// left out. True when one of them exports to everyone.
    bool expandImports(std::set<Str> &apps) const;
    /// The same for one app, with the steps to each: 0 for the app itself.
    ImportGenerations importGenerations(const Str &app) const;
    bool hasGlobalExports(const Str &app) const;

    /// Looks for apps on disk; with `detectChanges`, for what became different.
    void rescan(bool detectChanges);

private:
    struct Record
    {
        ApplicationInfo info;
        ApplicationChange change = ApplicationChange::None;
    };

    // To be called with the lock held.
    const Record &recordOf(const Str &name) const;
    void expand(ImportGenerations &generations) const;
    StrVector importsOf(const Str &app) const;
    void scanDirectory(const Pathname &directory, const ConfPathTrie &settings, bool detectChanges);
    void enter(const Str &name, ApplicationInfo info);
    void detectChange(const Str &name, ApplicationInfo info);
    void collectIds();

    mutable ConfLock lock_{ConfLockRank::Applications};
    const BundlesSetup setup_;
    std::map<Str, Record> apps_;
    std::map<Str, std::set<Str>> appsById_;
    std::set<Str> globalExporters_;
};

} // namespace velmox
