#pragma once

#include "conf/root/bundles_setup.h"
#include "conf/root/placeholders.h"

#include <map>
#include <vector>

namespace velmox {

class ConfPathBase;
class IniEntry;

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
    explicit BootstrapRules(const BundlesSetup &setup) : setup_(setup) {}

    /// In the order of the file. False when there are none, or when one cannot be filled in, which is then
    /// left out.
    bool patterns(std::vector<BootstrapPattern> &out) const;
    /// The settings in the handler's own stanza.
    std::map<Str, Str> settingsOf(const Str &handler) const;
    /// How many levels below a path its files lie, for those handlers that have regular files.
    bool depthsOfFiles(std::map<Str, unsigned> &out) const;

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
};

} // namespace velmox
