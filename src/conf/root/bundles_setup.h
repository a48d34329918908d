#pragma once

#include "util/text/pathname.h"

#include <compare>

namespace velmox {

class SharedConfServices;

/// Names a configuration root: a small value, and the door to the services of that root, which all values of
/// the same root share for the life of the process. Any thread.
class BundlesSetup
{
public:
    /// The default root: the `etc` directory of this installation.
    BundlesSetup();
    /// An empty path stands for the default. The first value for a root makes its services.
    explicit BundlesSetup(const Pathname &root, const Pathname &slaveApps = Pathname());

    bool isDefaultRoot() const { return root_.empty(); }
    Pathname root() const;
    SharedConfServices &shared() const { return *shared_; }

    // Directories and files, all derived from the root, with backslashes alone, so that they can be compared.
    // What several hosts have in common lies below the shared storage root in shared storage mode.
    Pathname systemDir() const { return root().join("system"); }
    Pathname systemDefaultDir() const { return systemDir().join("default"); }
    Pathname systemLocalDir() const { return systemDir().join("local"); }
    Pathname bootstrapFile() const { return systemDefaultDir().join("conf.conf"); }
    Pathname appsDir() const;
    Pathname usersDir() const;
    Pathname slaveAppsDir() const;
    Pathname masterAppsDir() const { return root().join("master-apps"); }
    Pathname bundlesDir() const { return root().join("bundles"); }
    Pathname defaultBundleDir() const { return bundlesDir().join("default"); }
    Pathname usernameMapFile() const { return usersDir().join("users.ini"); }
    /// Throws `ConfPathException` outside shared storage mode.
    Pathname poolInfoFile() const;
    Pathname runDir() const;
    Pathname sentinelFile() const { return appsDir().join("sentinel.txt"); }

    /// A path as logs tell it: the home directory reads `$VELMOX_HOME`.
    Str text(const Pathname &path) const;

    friend bool operator==(const BundlesSetup &a, const BundlesSetup &b) { return a.shared_ == b.shared_; }
    friend std::strong_ordering operator<=>(const BundlesSetup &a, const BundlesSetup &b);

private:
    friend class SharedConfServices;
    BundlesSetup(const Pathname &root, const Pathname &slaveApps, SharedConfServices &shared);

    Pathname root_;
    Pathname slaveApps_;
    SharedConfServices *shared_;
};

} // namespace velmox
