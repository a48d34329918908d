#pragma once

#include "util/text/pathname.h"

#include <cstdint>
#include <optional>
#include <set>

namespace velmox {

// The room of processes: where this one is installed and what it is called, others that it starts
// (job_process.h), and the one that it must not outlive (parent_watch.h).

/// Who this process says it is to other hosts. A fresh instance names the host with a random part behind, so
/// that no two runs share an identity.
class ServerIdentity
{
public:
    /// Throws `ComponentException` when no random digits can be had.
    ServerIdentity();

    const Str &hostIdentity() const { return hostIdentity_; }

    // What other programs of the framework set and read; this program leaves the defaults.
    bool flags[3] = {};
    std::set<Str> entries;
    Str pattern = "*";
    WideStr wideName;

private:
    Str hostIdentity_;
};

/// What a run leaves out of the configuration store, or keeps elsewhere. A program sets this before its first
/// use of the store; the defaults leave nothing out.
struct InitSettings
{
    /// The only user, besides "nobody", whose configuration is read.
    std::optional<Str> user;
    /// The only apps whose configuration is read.
    std::optional<std::set<Str>> apps;
    /// Only what is needed before the program is set up: no user's own data, and of the apps but "system"
    /// only the conf files.
    bool minimal = false;
    /// Changes are not written to disk.
    bool inMemoryOnly = false;
    /// Stands in for the configured root of shared storage; empty for none.
    Pathname storage;
};

/// Where this process is installed and under which names it runs: the one source for both.
///
/// Made on the main thread before any other exists and not changed after `readEnvironment`; later calls only
/// read.
class LoaderInfo
{
public:
    /// The singleton, made by the first call and never destroyed.
    static LoaderInfo *instance();

    /// Takes `VELMOX_HOME` and `VELMOX_DB` into the paths, cleaned, and writes a changed spelling back into
    /// the environment for children and later readers. A variable that is not set leaves its path as it was.
    void readEnvironment();
    /// Null if the installation can be worked with, else what is wrong with it.
    const char *validate() const;

    Pathname getHome() const { return home_; }
    Pathname getDb() const { return db_; }
    Pathname getConfDir() const { return home_.join(commonConfDir_); }
    Pathname getCommonConfDir() const { return getConfDir().join(installName_); }
    Str getComponentName() const { return componentName_; }
    Str getInstallName() const { return installName_; }
    Str getLabelText() const { return labelText_; }
    unsigned getPid() const { return pid_; }
    const WideStr &getServerName() const { return serverName_; }
    unsigned getDefaultPort() const { return defaultPort_; }
    const Str &getDefaultPortText() const { return defaultPortText_; }
    /// Whether the installation comes without a Python interpreter.
    bool isNoPython() const { return noPython_; }
    /// Made on first use, as its random digits make the system load a cryptographic provider. Any thread.
    const ServerIdentity &serverIdentity() const;
    InitSettings &initSettings() { return initSettings_; }
    const InitSettings &initSettings() const { return initSettings_; }

    /// What other programs of the framework set and read, each for its own ends. This program leaves the
    /// defaults and gives them no meaning.
    struct OtherPrograms
    {
        bool flagA = false;
        bool flagB = true;
        int numberA = 5;
        bool flagC = false;
        int numberB = -1;
        bool flagD = true;
        bool flagE = false;
        std::optional<WideStr> pathA;
        std::optional<WideStr> pathB;
        std::uintptr_t value = 0;
        std::uintptr_t value2 = 0;
    };
    OtherPrograms otherPrograms;

private:
    LoaderInfo();

    Pathname home_;
    Pathname db_;
    Str componentName_ = "velmoxd";
    Pathname commonConfDir_ = Pathname(u"etc");
    Str installName_ = "myinstall";
    unsigned defaultPort_ = 8089;
    Str defaultPortText_;
    unsigned pid_;
    Str labelText_;
    bool noPython_ = false;
    WideStr serverName_;
    InitSettings initSettings_;
};

} // namespace velmox
