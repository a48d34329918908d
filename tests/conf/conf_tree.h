#pragma once

#include "conf/ini_file.h"
#include "conf/property_pages.h"
#include "tests/support/scoped_folder.h"
#include "util/file_system.h"

#include <optional>

namespace velmox::testing {

/// A configuration root of its own on disk, with a bootstrap file of the usual order.
class ConfTree
{
public:
    ConfTree()
    {
        put("system/default/conf.conf", "[bootstrap]\n"
                                        "system/local = conf\n"
                                        "system/metadata/local.meta = confdb\n"
                                        "$users-base$/*/*/local = conf\n"
                                        "$users-base$/*/*/metadata/local.meta = confdb\n"
                                        "$apps-base$/*/local = conf\n"
                                        "$apps-base$/*/metadata/local.meta = confdb\n"
                                        "$apps-base$/*/default = conf\n"
                                        "$apps-base$/*/metadata/default.meta = confdb\n"
                                        "system/default = conf\n"
                                        "[relative_depth_to_regular_files]\n"
                                        "conf = 1\n"
                                        "confdb = 0\n"
                                        "[writes]\n"
                                        "data:nobody:system:$type$ = system/local\n"
                                        "data:nobody:$app$:$type$ = $apps-base$/$app$/local\n"
                                        "data:$user$:$app$:$type$ = $users-base$/$user$/$app$/local\n"
                                        "meta:nobody:system:$type$ = system/metadata/local.meta\n"
                                        "meta:nobody:$app$:$type$ = $apps-base$/$app$/metadata/local.meta\n"
                                        "meta:$user$:$app$:$type$ = "
                                        "$users-base$/$user$/$app$/metadata/local.meta\n");
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
