#pragma once

#include "conf/file/ini_file.h"
#include "conf/property_pages.h"
#include "tests/support/scoped_folder.h"
#include "util/file_system.h"

#include <optional>

namespace velmox::testing {

/// A configuration root of its own on disk, with the bootstrap file that ships.
class ConfTree
{
public:
    ConfTree()
    {
        const Pathname shipped = Pathname::fromUtf8(VELMOX_SHIPPED_ETC "/system/default/conf.conf");
        put("system/default/conf.conf", readWhole(shipped));
    }

    /// Replaces a file; the folders are made. `path` has slashes.
    void put(const char *path, std::string_view content)
    {
        const Pathname file = pathOf(path);
        EXPECT_TRUE(makeDirs(file.dirname(), true));
        writeWhole(file, content);
    }
    /// Without the byte order mark and carriage returns; "<unreadable>" when there is no file.
    Str content(const char *path) const
    {
        Str text = readWhole(pathOf(path));
        text.replaceAll("\xEF\xBB\xBF", "");
        text.replaceAll("\r", "");
        return text;
    }
    IniFile image(const char *path) const { return IniFile(pathOf(path)); }
    bool has(const char *path) const { return pathKind(pathOf(path)) != PathKind::Nothing; }

    /// The first call makes the services of the root.
    const BundlesSetup &setup()
    {
        if (!setup_) {
            setup_.emplace(folder_.path());
        }
        return *setup_;
    }
    PropertyPages &pages(const char *type, const Str &app = Str(), const Str &user = Str())
    {
        return *PropertyPages::get(type, {setup(), user, app});
    }
    Stanzas read(const char *type, const Str &app = Str(), const Str &user = Str(),
                 DisabledMode mode = DisabledMode::All)
    {
        Stanzas stanzas;
        pages(type, app, user).enumerateStanzasWithPrefix("", stanzas, mode);
        return stanzas;
    }

private:
    Pathname pathOf(const char *path) const
    {
        Str name(path);
        name.replaceAll("/", "\\");
        return folder_.path().join(name);
    }

    ScopedFolder folder_;
    std::optional<BundlesSetup> setup_;
};

} // namespace velmox::testing
