#pragma once

#include "util/process/server_identity.h"
#include "util/system/init_settings.h"
#include "util/text/pathname.h"

#include <cstdint>

namespace velmox {

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
    /// the environment for children and later readers. A variable that is not set leaves its path empty.
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
    /// Made on first use, for its random digits make the system load a cryptographic provider. Any thread.
    const ServerIdentity &serverIdentity() const;
    InitSettings &initSettings() { return initSettings_; }
    const InitSettings &initSettings() const { return initSettings_; }

    // What other programs of the framework set and read; this program leaves the defaults.
    bool flagA() const { return flagA_; }
    bool flagB() const { return flagB_; }
    bool flagC() const { return flagC_; }
    bool flagD() const { return flagD_; }
    bool flagE() const { return flagE_; }
    int numberA() const { return numberA_; }
    int numberB() const { return numberB_; }
    /// Null when not set.
    const WideStr *pathA() const { return pathA_.empty() ? nullptr : &pathA_; }
    const WideStr *pathB() const { return pathB_.empty() ? nullptr : &pathB_; }
    std::uintptr_t value() const { return value_; }
    std::uintptr_t value2() const { return value2_; }

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
    bool flagA_ = false;
    bool flagB_ = true;
    int numberA_ = 5;
    Str labelText_;
    bool flagC_ = false;
    int numberB_ = -1;
    bool noPython_ = false;
    bool flagD_ = true;
    bool flagE_ = false;
    WideStr pathA_;
    WideStr pathB_;
    std::uintptr_t value_ = 0;
    WideStr serverName_;
    std::uintptr_t value2_ = 0;
    InitSettings initSettings_;
};

} // namespace velmox
