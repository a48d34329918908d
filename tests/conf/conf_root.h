#pragma once

#include "conf/mapper/i_conf_path_mapper.h"
#include "conf/pages/property_pages.h"
#include "conf/root/bundles_setup.h"
#include "conf/store/conf_path.h"
#include "tests/support/captured_log.h"
#include "tests/support/scoped_folder.h"
#include "util/files/file_system.h"
#include "util/process/loader_info.h"

#include <utility>

namespace velmox::testing {

inline Str replaced(Str text, const Str &find, const Str &with)
{
    text.replaceAll(find, with);
    return text;
}

/// A configuration root of a test's own, with the bootstrap file that ships unless the test writes another.
/// Names of files are paths below it, with slashes. Files are to stand there before `setup` is first called.
class ConfRoot
{
public:
    ConfRoot() : ConfRoot(shippedBootstrap()) {}
    explicit ConfRoot(std::string_view bootstrap) { write("system/default/conf.conf", bootstrap); }

    static Str shippedBootstrap();

    const Pathname &path() const { return folder_.path(); }
    Pathname operator/(const Str &name) const { return path().join(replaced(name, "/", "\\")); }
    BundlesSetup setup() const { return BundlesSetup(path()); }
    SharedConfServices &shared() const { return setup().shared(); }

    void makeFolder(const Str &name) const { EXPECT_TRUE(makeDirs(*this / name, true)); }
    /// Makes the folders that are missing.
    void write(const Str &name, std::string_view content) const;
    Str read(const Str &name) const { return readWhole(*this / name); }
    /// The same without the byte order mark and carriage returns.
    Str text(const Str &name) const { return replaced(replaced(read(name), "\xEF\xBB\xBF", ""), "\r", ""); }
    bool has(const Str &name) const { return pathKind(*this / name) != PathKind::Nothing; }

    /// "/user/app/type/stanza/key", or as much of it.
    ConfPath at(const Str &address, const ConfUserContext &identity = {}) const;
    /// The mapper that serves a file.
    IConfPathMapper &mapperOf(const Str &file) const;
    PropertyPages &pages(const char *type, const Str &app = Str(), const Str &user = Str()) const
    {
        return *PropertyPages::get(type, {setup(), user, app});
    }
    Stanzas stanzas(const char *type, const Str &app = Str(), const Str &user = Str(),
                    DisabledMode mode = DisabledMode::All) const;

private:
    ScopedFolder folder_;
};

/// What is logged during the object's life, in a form that is the same for every run: "ROOT" for the path of
/// a root, "PID" for the process, "<5>" for the system's text of error 5, slashes for backslashes, and no
/// times.
class ConfLog
{
public:
    explicit ConfLog(const ConfRoot &root) : ConfLog(root.path()) {}
    explicit ConfLog(const Pathname &root) : root_(root.toStr()) {}

    Str text() const;
    /// The same without the lines of renamings that succeeded at once.
    Str told() const;

private:
    const Str root_;
    CapturedLog log_;
};

/// Tells a mapper that a file changed.
FileChangeAnswer noticeChange(IConfPathMapper &mapper, const Pathname &file);

/// The message of the exception that `work` raises; "nothing" if it raises none.
template <class Exception, class Work>
Str raisedBy(Work work)
{
    try {
        work();
        return "nothing";
    } catch (const Exception &exception) {
        return exception.message();
    }
}

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

    static InitSettings inMemoryOnly() { return with(&InitSettings::inMemoryOnly, true); }
    template <class Value>
    static InitSettings with(Value InitSettings::*setting, Value value)
    {
        InitSettings settings;
        settings.*setting = std::move(value);
        return settings;
    }

private:
    const InitSettings before_;
};

/// Puts the installation elsewhere for as long as the object lives.
class ScopedHome
{
public:
    explicit ScopedHome(const Pathname &home);
    ScopedHome(const ScopedHome &) = delete;
    ScopedHome &operator=(const ScopedHome &) = delete;
    ~ScopedHome() { set(before_); }

private:
    static void set(const WideStr &home);

    const WideStr before_;
};

} // namespace velmox::testing
