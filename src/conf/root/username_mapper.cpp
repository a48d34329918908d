#include "conf/root/username_mapper.h"

#include "conf/root/conf_settings.h"
#include "conf/root/path_forms.h"
#include "conf/root/sentinel_scope.h"
#include "util/files/file_star.h"
#include "util/files/file_system.h"
#include "util/log/logger.h"
#include "util/text/base_exception.h"

#include <mutex>
#include <openssl/evp.h>

namespace velmox {

namespace {

Logger log("UsernameMapper");

/// Named for the first kind of name that could not be a directory's everywhere.
constexpr char kStanza[] = "contains-uppercase";

void appendMd5(std::string_view text, Str &out)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (EVP_Digest(text.data(), text.size(), digest, &length, EVP_md5(), nullptr) != 1) {
        throw BaseException("Cannot compute the digest of a user's name");
    }
    for (unsigned i = 0; i < length; ++i) {
        out.appendFormat("%02x", static_cast<unsigned>(digest[i]));
    }
}

/// Whether a name reads back from the map as it was written: a key has no blanks around it, and does not
/// begin as a comment does.
bool canBeKey(const Str &name)
{
    return trimmedView(name) == name.view() && name[0] != '#' && name[0] != ';';
}

bool ensureExists(const Pathname &file)
{
    if (pathKind(file) != PathKind::Nothing) {
        return true;
    }
    const Pathname directory = file.dirname();
    const Str directoryName = directory.toStr();
    const Str name = file.toStr();
    if (!makeDirs(directory, true)) {
        log.error("Cannot create directory: %s: %m", directoryName.c_str());
        return false;
    }
    // Without emptying it: another process may have made it, and written to it, since it was looked for.
    if (!openFile(file, "a").isOpen()) {
        log.error("Cannot create username mapping file: %s: %m", name.c_str());
        return false;
    }
    return true;
}

} // namespace

UsernameMapper::UsernameMapper(const BundlesSetup &setup, const ConfSettings &settings)
    : setup_(setup), settings_(settings)
{
}

bool UsernameMapper::needsMapping(const Str &name)
{
    return name.findFirst(kUnsafeInNames, 0, true) >= 0 || isReservedName(name);
}

Str UsernameMapper::makeSafeName(const Str &name)
{
    Str safe = name;
    safe.replaceChars(kUnsafeInNames, '_');
    // Still, or only now: "nul" holds no unsafe character.
    if (isReservedName(safe)) {
        safe = Str::concat("_", safe);
    }
    // Names that differ only in what was replaced get directories of their own by their digests. MD5 will do,
    // as no secret hangs on it.
    safe << '.';
    appendMd5(name, safe);
    return safe.lowered();
}

Str UsernameMapper::directoryName(const Str &user)
{
    if (!needsMapping(user)) {
        return user;
    }
    Str safeName;
    {
        const std::lock_guard guard(lock_);
        if (ensureLoaded() && !findSafeName(user, safeName) && settings_.isSharedStorageMode()) {
            load();
            findSafeName(user, safeName);
        }
    }
    // Without the lock: `record` waits for other hosts first, and threads that only look must not wait too.
    if (safeName.empty() && !record(user, safeName)) {
        return Str();
    }
    return Str(kMappingDirectory) << '/' << safeName;
}

bool UsernameMapper::trueName(const Str &safeName, Str &out)
{
    const std::lock_guard guard(lock_);
    ensureLoaded();
    if (!settings_.isSharedStorageMode()) {
        return lookUpTrueName(safeName, out, LogLevel::Warn);
    }
    if (lookUpTrueName(safeName, out, LogLevel::Debug)) {
        return true;
    }
    // Another host may have recorded it.
    load();
    return lookUpTrueName(safeName, out, LogLevel::Warn);
}

/// Another thread, or another host, may have been quicker.
bool UsernameMapper::record(const Str &user, Str &safeName)
{
    // Ahead of the lock: it waits for other hosts, which is not to stop the threads of this one.
    const SentinelScope scope(setup_, settings_, Str("mapping username: ") << user);
    const std::lock_guard guard(lock_);
    if (settings_.isSharedStorageMode()) {
        load();
    }
    if (!ensureLoaded()) {
        log.error("Error accessing username mapping file: %s", fileText().c_str());
        return false;
    }
    if (findSafeName(user, safeName)) {
        return true;
    }
    if (!canBeKey(user)) {
        log.error("Username cannot be mapped: %s: %s", fileText().c_str(), user.c_str());
        return false;
    }
    safeName = makeSafeName(user);
    return insert(user, safeName);
}

bool UsernameMapper::insert(const Str &user, const Str &safeName)
{
    IniStanza &stanza = file_.stanza(kStanza);
    stanza.insertKey(user, safeName);
    // A name that is on no disk would lead nobody back to the user, so it is taken back.
    if (!isInMemoryOnly() && !file_.flush()) {
        log.error("Error flushing username mapping to file: %s: %s = %s", fileText().c_str(), user.c_str(),
                  safeName.c_str());
        stanza.removeKey(user);
        return false;
    }
    log.debug("Created username mapping: %s: %s = %s", fileText().c_str(), user.c_str(), safeName.c_str());
    return true;
}

/// A user's name counts in any case.
bool UsernameMapper::findSafeName(const Str &user, Str &out)
{
    const IniStanza *const stanza = file_.findStanza(kStanza);
    if (stanza == nullptr) {
        return false;
    }
    for (const auto &[key, value, entry] : *stanza) {
        if (user.compareCaseless(Str(key)) == 0) {
            out = Str(value);
            return true;
        }
    }
    return false;
}

bool UsernameMapper::lookUpTrueName(const Str &safeName, Str &out, LogLevel level)
{
    const IniStanza *const stanza = mappings(level);
    if (stanza == nullptr) {
        return false;
    }
    for (const auto &[key, value, entry] : *stanza) {
        // One after the other, as few users have names that need this.
        if (safeName.compareCaseless(Str(value)) == 0) {
            out = Str(key);
            return true;
        }
    }
    log.log(level, "No mapping for safe name: %s: %s", fileText().c_str(), safeName.c_str());
    return false;
}

const IniStanza *UsernameMapper::mappings(LogLevel level)
{
    if (!loaded_) {
        log.log(level, "Error accessing username mapping file: %s", fileText().c_str());
        return nullptr;
    }
    const IniStanza *const stanza = file_.findStanza(kStanza);
    if (stanza == nullptr) {
        log.log(level, "No username mappings present: %s: Missing stanza: %s", fileText().c_str(), kStanza);
    }
    return stanza;
}

bool UsernameMapper::ensureLoaded()
{
    if (!loaded_) {
        load();
    }
    return loaded_;
}

/// Where nothing may be written, names live in the image alone: it is read once, and not made anew.
void UsernameMapper::load()
{
    const Pathname path = setup_.usernameMapFile();
    if (isInMemoryOnly() && (loaded_ || pathKind(path) == PathKind::Nothing)) {
        loaded_ = true;
        return;
    }
    loaded_ = ensureExists(path);
    if (!loaded_) {
        return;
    }
    file_.load(path);
    loaded_ = file_.loaded();
    if (!loaded_) {
        log.error("Error opening username mapping file: %s", fileText().c_str());
    }
}

Str UsernameMapper::fileText() const
{
    return setup_.text(setup_.usernameMapFile());
}

} // namespace velmox
