#include "conf/mapper/conf_object_manager.h"

#include "conf/file/ini_file.h"
#include "conf/mapper/meta_file.h"
#include "searchthing/osfile.h"
#include "util/files/file_system.h"
#include "util/system/owned_handle.h"
#include "util/system/random_hex.h"
#include "util/time/timeval.h"

#include <set>

namespace velmox {

namespace {

constexpr unsigned kRandomDigits = 16;

/// Makes an empty file under a name that no other host can come upon: `directory` may be shared, and several
/// may filter at once.
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
    // The names first: stanzas are removed on the way.
    StrVector names;
    for (const auto &[name, stanza] : image) {
        names.push_back(name);
    }
    std::set<Str> types;
    for (const Str &name : names) {
        const std::optional<ConfPathBase> path = parseMetaHeader(name, app);
        // A stanza whose name is no path is kept: the filter is for what is gone, not for what it cannot
        // read.
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
        // An optional without a value counts as less than any with one.
        latest = std::max(latest, node.metadata().modtime);
    }
    for (const auto &[part, child] : node.children()) {
        findLatest(*child, latest);
    }
}

/// Asks for no more than the right to set the time, and shuts nobody out: the copy may be read meanwhile.
bool stamp(const Pathname &path, const Timeval &modtime)
{
    const FileHandle file(CreateFileW(asWide(path), FILE_WRITE_ATTRIBUTES,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, 0, nullptr));
    const FILETIME time = fileTimeOf<FILETIME>(modtime);
    return file.isValid() && SetFileTime(file.get(), nullptr, nullptr, &time);
}

void stampCopy(const Pathname &copy, const Timeval &modtime)
{
    const Str name = copy.toStr();
    if (!stamp(copy, modtime)) {
        metaLog.warn("Cannot set the time of: %s: %m", name.c_str());
    }
}

/// The image spells line ends and the mark in front its own way, so that a copy of the same stanzas may have
/// another size: "cosmetic bytes".
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

bool ConfObjectManager::flush()
{
    const bool done = ConfObjectManagerDB::flush();
    notifyObserver();
    return done;
}

bool ConfObjectManager::reload(const Str &type)
{
    const bool done = ConfObjectManagerDB::reload(type);
    notifyObserver();
    return done;
}

FileChangeAnswer ConfObjectManager::onFileChange(WatchedFileState &state)
{
    const FileChangeAnswer answer = ConfObjectManagerDB::onFileChange(state);
    notifyObserver();
    return answer;
}

void ConfObjectManager::notifyObserver()
{
    // Taken and cleared in one step: of several threads that come here after a change one alone tells it.
    const PendingNotice notice = takePendingNotice();
    if (notice.appChanged || notice.exportsChanged) {
        observer_.onAppsChanged();
    }
}

/// The latest of the times that the stanzas of a file tell of themselves; nothing when none does.
std::optional<Timeval> ConfObjectManager::latestIn(const Pathname &file) const
{
    ConfPathTrie content;
    std::optional<Timeval> latest;
    if (readFile(file, owner(), content)) {
        findLatest(content, latest);
    }
    return latest;
}

bool ConfObjectManager::filter(const Pathname &directory,
                               const std::function<bool(const ConfPathBase &)> &isThere, Pathname &copy) const
{
    // Made ahead of the calls that can fail, so that nothing stands between a failure and its message.
    const Str text = setup().text(file());
    const Str directoryText = setup().text(directory);
    const FileStatus original = FileStatus::of(file());
    if (!original.exists) {
        metaLog.error("Cannot stat() for filtering: %s: %m", text.c_str());
        return false;
    }
    Pathname temporary;
    if (!createTemporary(file(), directory, temporary)) {
        metaLog.error("Cannot create temporary for filtering, in dir=%s: %m", directoryText.c_str());
        return false;
    }
    IniFile image(file());
    if (!image.loaded()) {
        metaLog.error("Cannot open() for filtering: %s: %m", text.c_str());
        removeFile(temporary);
        return false;
    }
    const std::set<Str> types = removeGone(image, text, owner(), isThere);
    if (!image.writeTo(temporary)) {
        return false;
    }
    // The whole file bears its own time; one that lost stanzas, that of the newest among the rest.
    stampCopy(temporary, types.empty() ? original.modtime : latestIn(temporary).value_or(original.modtime));
    report(text, types, original, FileStatus::of(temporary));
    copy = temporary;
    return true;
}

} // namespace velmox
