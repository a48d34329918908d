#pragma once

#include "util/text/pathname.h"

#include <compare>

namespace velmox {

// The room conf/root is about one configuration root: which directories belong to it, what its bootstrap file
// says of them, whose settings lie where, and under which names users have directories. It reads the
// bootstrap file and `server.conf`, and never a file of settings: those are for the mappers above.
//
// A root is used by many hosts at once when its apps and users lie on shared storage. What such hosts must
// not do at the same time is done within a `SentinelScope`.

/// What all values of one configuration root have in common for the life of the process. The services of the
/// root are made in one object with it, by the composition root: nothing below that one knows them.
class ConfRootState
{
public:
    ConfRootState(const ConfRootState &) = delete;
    ConfRootState &operator=(const ConfRootState &) = delete;

protected:
    /// `root` is empty for the default root.
    explicit ConfRootState(const Pathname &root) : root_(root) {}
    ~ConfRootState() = default;

    /// Told once the settings of the root are read, before others get to see the root. Empty without shared
    /// storage.
    void setStorage(const Pathname &storage) { storage_ = storage; }

private:
    friend class BundlesSetup;

    const Pathname root_;
    Pathname storage_;
};

/// The state of a root, made with all of its services when this is the first call for it. `root` may be empty
/// and may name the default root. Any thread; others wait while services are being made. Defined by the
/// composition root (conf/pages/shared_conf_services.cpp).
ConfRootState &confRootState(const Pathname &root, const Pathname &slaveApps);

/// Names a configuration root, and tells where in it what lies: a small value. All values of the same root
/// are equal. Any thread.
class BundlesSetup
{
public:
    /// The default root: the `etc` directory of this installation.
    BundlesSetup() : BundlesSetup(Pathname()) {}
    /// An empty path stands for the default. The first value for a root makes its services.
    explicit BundlesSetup(const Pathname &root, const Pathname &slaveApps = Pathname());

    bool isDefaultRoot() const { return state_->root_.empty(); }
    /// Clean; the default root's is asked of `LoaderInfo` each time.
    Pathname root() const;

    // Directories and files, all derived from the root, with backslashes alone, so that they can be compared.
    // What several hosts have in common lies below the shared storage root in shared storage mode.
    Pathname systemDir() const { return root().join("system"); }
    Pathname systemDefaultDir() const { return systemDir().join("default"); }
    Pathname systemLocalDir() const { return systemDir().join("local"); }
    Pathname bootstrapFile() const { return systemDefaultDir().join("conf.conf"); }
    Pathname appsDir() const;
    Pathname usersDir() const;
    /// Apps that another host hands out to this one.
    Pathname slaveAppsDir() const;
    Pathname masterAppsDir() const { return root().join("master-apps"); }
    /// What older installations have for apps.
    Pathname bundlesDir() const { return root().join("bundles"); }
    Pathname defaultBundleDir() const { return bundlesDir().join("default"); }
    Pathname usernameMapFile() const { return usersDir().join("users.ini"); }
    /// Throws `ConfPathException` outside shared storage mode.
    Pathname poolInfoFile() const;
    Pathname runDir() const;
    /// What a `SentinelScope` locks.
    Pathname sentinelFile() const { return appsDir().join("sentinel.txt"); }

    /// A path as logs tell it: the home directory reads `$VELMOX_HOME`.
    Str text(const Pathname &path) const;

    bool operator==(const BundlesSetup &other) const { return state_ == other.state_; }
    std::strong_ordering operator<=>(const BundlesSetup &other) const
    {
        return state_->root_ <=> other.state_->root_;
    }

private:
    friend class SharedConfServices;
    BundlesSetup(ConfRootState &state, const Pathname &slaveApps);

    Pathname slaveApps_;
    ConfRootState *state_;
};

/// Who reads: in which root, as which user, in which app. Empty texts stand for none.
struct ConfContext
{
    BundlesSetup setup;
    Str user;
    Str app;

    /// Whether this is a reader for `LegacyPropertyPages`.
    bool isPlain() const { return user.empty() && app.empty(); }
    /// "(user: alice, app: search, root: $VELMOX_HOME\etc)".
    Str toStr() const;
    auto operator<=>(const ConfContext &) const = default;
};

} // namespace velmox
