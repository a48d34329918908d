#include "util/process/loader_info.h"

#include "util/files/file_system.h"
#include "util/system/environment.h"
#include "util/system/random_hex.h"
#include "util/system/windows_api.h"
#include "util/text/base_exception.h"

namespace velmox {

namespace {

/// A variable that is not set leaves the path as it was.
void readPath(const char16_t *variable, Pathname &path)
{
    const WideStr text = environmentVariable(variable);
    if (text.empty()) {
        return;
    }
    path = text;
    // One spelling, for all who compare paths with what lies below these.
    path.collapseSlashes();
    path.stripTrailingSlashes();
    if (path != text) {
        setEnvironmentVariable(variable, path);
    }
}

bool exists(const Pathname &path)
{
    return pathKind(path) != PathKind::Nothing;
}

/// One test of the installation's folders, made on all three before the next one, with what is wrong when
/// home, data or configuration fails it.
struct FolderTest
{
    bool (*passes)(const Pathname &path);
    const char *homeFails;
    const char *dbFails;
    const char *confFails;
};

constexpr FolderTest kFolderTests[] = {
    {[](const Pathname &path) { return !path.empty(); },
     "The environment variable VELMOX_HOME must not be empty.",
     "The environment variable VELMOX_DB must not be empty.",
     "The common config path must be defined in the config file."},
    {[](const Pathname &path) { return path.isAbsolute(); },
     "The environment variable VELMOX_HOME must not be a relative path.",
     "The environment variable VELMOX_DB must not be a relative path.",
     "The common config path must not be a relative path."},
    {exists, "The environment variable VELMOX_HOME must point to an existing path.",
     "The environment variable VELMOX_DB must point to an existing path.",
     "The common config path must point at an existing path."},
    {[](const Pathname &path) { return pathKind(path) == PathKind::Folder; },
     "The environment variable VELMOX_HOME must point to a directory.",
     "The environment variable VELMOX_DB must point to a directory.",
     "The common config path must point to a directory."},
};

} // namespace

ServerIdentity::ServerIdentity()
{
    constexpr unsigned kRandomDigits = 32;
    const WideStr computer = environmentVariable(u"COMPUTERNAME");
    hostIdentity_ = computer.empty() ? Str("no-hostname-set") : Str::fromUtf16(computer);
    hostIdentity_ << " [";
    if (!appendRandomHex(hostIdentity_, kRandomDigits)) {
        throw ComponentException(Str::fromLastErrorFormat("Cannot make the host identity: %m"));
    }
    hostIdentity_ << "]";
}

LoaderInfo::LoaderInfo()
    : pid_(GetCurrentProcessId()), serverName_(environmentVariable(u"VELMOX_SERVER_NAME"))
{
    defaultPortText_.format("%u", defaultPort_);
    if (serverName_.empty()) {
        serverName_ = u"Velmoxd";
    }
}

LoaderInfo *LoaderInfo::instance()
{
    static LoaderInfo *const loaderInfo = new LoaderInfo;
    return loaderInfo;
}

const ServerIdentity &LoaderInfo::serverIdentity() const
{
    static const ServerIdentity *const identity = new ServerIdentity;
    return *identity;
}

void LoaderInfo::readEnvironment()
{
    readPath(u"VELMOX_HOME", home_);
    readPath(u"VELMOX_DB", db_);
    noPython_ = !exists(home_.join("bin").join("python.exe"));
}

const char *LoaderInfo::validate() const
{
    const Pathname confDir = getConfDir();
    const Pathname commonConfDir = getCommonConfDir();
    for (const FolderTest &test : kFolderTests) {
        if (!test.passes(home_)) {
            return test.homeFails;
        }
        if (!test.passes(db_)) {
            return test.dbFails;
        }
        if (!test.passes(confDir) || !test.passes(commonConfDir)) {
            return test.confFails;
        }
    }
    if (componentName_.empty()) {
        return "The component name must not be empty.";
    }
    if (installName_.empty()) {
        return "The install name must not be empty.";
    }
    return nullptr;
}

} // namespace velmox
