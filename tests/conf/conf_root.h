#pragma once

#include "conf/setup/bundles_setup.h"
#include "tests/support/scoped_folder.h"
#include "util/environment.h"
#include "util/file_system.h"
#include "util/loader_info.h"

#include <string_view>
#include <utility>

namespace velmox::testing {

/// A configuration root of a test's own, with the bootstrap file that ships unless the test writes another.
/// Files are to stand there before `setup` is first called.
class ConfRoot
{
public:
    ConfRoot() { write("system\\default\\conf.conf", shippedBootstrap()); }
    explicit ConfRoot(std::string_view bootstrap) { write("system\\default\\conf.conf", bootstrap); }

    const Pathname &path() const { return folder_.path(); }
    Pathname operator/(const char *name) const { return path().join(name); }
    BundlesSetup setup() const { return BundlesSetup(path()); }

    void makeFolder(const char *name) const { makeDirs(*this / name, true); }
    void write(const char *name, std::string_view content) const
    {
        const Pathname file = *this / name;
        makeDirs(file.dirname(), true);
        writeWhole(file, content);
    }

    static Str shippedBootstrap()
    {
        return readWhole(Pathname::fromUtf8(VELMOX_SHIPPED_ETC).join("system\\default\\conf.conf"));
    }

private:
    ScopedFolder folder_;
};

/// Sets what a run leaves out of the store for as long as the object lives.
class ScopedInitSettings
{
public:
    explicit ScopedInitSettings(InitSettings settings)
        : before_(std::exchange(LoaderInfo::instance()->initSettings(), std::move(settings)))
    {
    }
    ScopedInitSettings(const ScopedInitSettings &) = delete;
    ScopedInitSettings &operator=(const ScopedInitSettings &) = delete;
    ~ScopedInitSettings() { LoaderInfo::instance()->initSettings() = before_; }

private:
    const InitSettings before_;
};

/// Puts the installation elsewhere for as long as the object lives.
class ScopedHome
{
public:
    explicit ScopedHome(const Pathname &home) : before_(environmentVariable(u"VELMOX_HOME")) { set(home); }
    ScopedHome(const ScopedHome &) = delete;
    ScopedHome &operator=(const ScopedHome &) = delete;
    ~ScopedHome() { set(before_); }

private:
    static void set(const WideStr &home)
    {
        setEnvironmentVariable(u"VELMOX_HOME", home);
        LoaderInfo::instance()->readEnvironment();
    }

    const WideStr before_;
};

} // namespace velmox::testing
