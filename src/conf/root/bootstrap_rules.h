#pragma once

#include "conf/root/bundles_setup.h"
#include "conf/root/placeholders.h"
#include "util/log/logger.h"

#include <map>
#include <vector>

namespace velmox {

class ConfPathBase;
class ConfSettings;
class IniEntry;

/// `ConfPathMapperManager`, the logger of the manager of mappers and of all that helps it.
extern Logger mapperManagerLog;

/// A key of the bootstrap file: the paths that it names, and what serves them.
struct BootstrapPattern
{
    Pathname path;
    Str handler;
};

/// What the bootstrap file of a root says of paths, with the placeholders filled in. Read-only; any thread.
class BootstrapRules
{
public:
    /// The settings outlive this object.
    BootstrapRules(const BundlesSetup &setup, const ConfSettings &settings)
        : setup_(setup), settings_(settings)
    {
    }

    /// In the order of the file. False when there are none, or when one cannot be filled in, which is then
    /// left out.
    bool patterns(std::vector<BootstrapPattern> &out) const;
    /// The settings in the handler's own stanza.
    std::map<Str, Str> settingsOf(const Str &handler) const;
    /// How many levels below a path its files lie, for those handlers that have regular files.
    std::map<Str, unsigned> depthsOfFiles() const;

    /// The write rule for a key such as "data:nobody:search:inputs"; null when there is none. Throws
    /// PlaceholderException, as does `directoryOf`.
    const IniEntry *findWriteRule(const ConfPathBase &path, const Str &writeKey) const;
    /// `userDirectory` is the name of the user's directory below that of the users.
    Pathname directoryOf(const IniEntry &writeRule, const ConfPathBase &path, const Str &userDirectory) const;

private:
    PlaceholderVariables variables() const;
    PlaceholderVariables variablesFor(const ConfPathBase &path) const;
    Pathname expandToPath(const Str &text, const PlaceholderVariables &variables) const;

    const BundlesSetup setup_;
    const ConfSettings &settings_;
};

} // namespace velmox
