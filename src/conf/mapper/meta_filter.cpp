#include "conf/mapper/meta_filter.h"

#include "conf/file/ini_file.h"
#include "conf/mapper/meta_file.h"
#include "conf/mapper/meta_header.h"
#include "conf/mapper/meta_log.h"
#include "searchthing/file_status.h"
#include "searchthing/osfile.h"
#include "util/files/file_system.h"
#include "util/system/owned_handle.h"
#include "util/system/random_hex.h"
#include "util/time/file_time.h"

#include <set>

namespace velmox {

namespace {

constexpr unsigned kRandomDigits = 16;

bool createTemporary(const Pathname &file, const Pathname &directory, Pathname &out)
{
    Str name = file.basename().toStr();
    name << '.';
    if (!appendRandomHex(name, kRandomDigits)) {
        return false;
    }
    out = directory.join(name << ".tmp");
    return createWithContent(out, "");
}

/// The types whose stanzas were removed.
std::set<Str> removeGone(IniFile &image, const Str &text, const ConfPathBase &app,
                         const std::function<bool(const ConfPathBase &)> &isThere)
{
    StrVector names;
    for (const auto &[name, stanza] : image) {
        names.push_back(name);
    }
    std::set<Str> types;
    for (const Str &name : names) {
        const std::optional<ConfPathBase> path = parseMetaHeader(name, app);
        const bool isGone = path && !isThere(*path);
        metaLog.debug("%s: %sing stanza: %s", text.c_str(), isGone ? "Filter" : "Keep", name.c_str());
        if (isGone) {
            types.insert(path->type());
            image.removeStanza(name);
        }
    }
    return types;
}

void findLatest(const ConfPathTrie &node, std::optional<Timeval> &latest)
{
    if (node.hasMetadata()) {
        latest = std::max(latest, node.metadata().modtime);
    }
    for (const auto &[part, child] : node.children()) {
        findLatest(*child, latest);
    }
}

bool stamp(const Pathname &path, const Timeval &modtime)
{
    const FileHandle file(CreateFileW(asWide(path), FILE_WRITE_ATTRIBUTES,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, 0, nullptr));
    const FILETIME time = fileTimeOf(modtime);
    return file.isValid() && SetFileTime(file.get(), nullptr, nullptr, &time);
}

/// The copy bears the time of the original, or that of what was kept when something was left out.
void stampCopy(const Pathname &copy, const ConfPathBase &app, bool filtered, const Timeval &original)
{
    ConfPathTrie kept;
    std::optional<Timeval> latest;
    if (filtered && readMetaFile(copy, app, kept)) {
        findLatest(kept, latest);
    }
    const Str name = copy.toStr();
    if (!stamp(copy, latest.value_or(original))) {
        metaLog.warn("Cannot set the time of: %s: %m", name.c_str());
    }
}

void report(const Str &text, const std::set<Str> &types, const FileStatus &original, const FileStatus &copy)
{
    const auto number = [](auto value) { return static_cast<unsigned long long>(value); };
    const char *const name = text.c_str();
    if (!types.empty()) {
        metaLog.debug("Filtered %s: real_modtime=%llu, filtered_modtime=%llu", name,
                      number(original.modtime.toUnixSeconds()), number(copy.modtime.toUnixSeconds()));
        metaLog.debug("Filtered %s: original_size=%llu, filtered_size=%llu", name, number(original.size),
                      number(copy.size));
        for (const Str &type : types) {
            metaLog.debug("Filtered %s: filtered_type=%s", name, type.c_str());
        }
    } else if (original.size == copy.size) {
        metaLog.debug("Filtered nothing out of %s", name);
    } else {
        const std::uint64_t cosmetic =
            std::max(original.size, copy.size) - std::min(original.size, copy.size);
        metaLog.debug("Filtered nothing out of %s, but size still changed: original_size=%llu, "
                      "filtered_size=%llu, cosmetic_bytes=%llu",
                      name, number(original.size), number(copy.size), number(cosmetic));
    }
}

} // namespace

bool filterMetaFile(const BundlesSetup &setup, const Pathname &file, const ConfPathBase &app,
                    const Pathname &directory, const std::function<bool(const ConfPathBase &)> &isThere,
                    Pathname &copy)
{
    const Str text = setup.text(file);
    const Str directoryText = setup.text(directory);
    const FileStatus original = FileStatus::of(file);
    if (!original.exists) {
        metaLog.error("Cannot stat() for filtering: %s: %m", text.c_str());
        return false;
    }
    Pathname temporary;
    if (!createTemporary(file, directory, temporary)) {
        metaLog.error("Cannot create temporary for filtering, in dir=%s: %m", directoryText.c_str());
        return false;
    }
    IniFile image(file);
    if (!image.loaded()) {
        metaLog.error("Cannot open() for filtering: %s: %m", text.c_str());
        removeFile(temporary);
        return false;
    }
    const std::set<Str> types = removeGone(image, text, app, isThere);
    if (!image.writeTo(temporary)) {
        return false;
    }
    stampCopy(temporary, app, !types.empty(), original.modtime);
    report(text, types, original, FileStatus::of(temporary));
    copy = temporary;
    return true;
}

} // namespace velmox
