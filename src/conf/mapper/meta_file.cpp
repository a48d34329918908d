#include "conf/mapper/meta_file.h"

#include "conf/file/conf_line_reader.h"
#include "util/text/str.h"
#include "util/text/str_segment.h"

#include <algorithm>

namespace velmox {

namespace {

constexpr char kExportSystem[] = "system";
constexpr char kExportNone[] = "none";
/// A moment counts tenths of a microsecond, and so do times in metadata files that have a fraction.
constexpr unsigned kTimeDigits = 7;

/// A value that does not parse sets nothing, so that what is said of the node elsewhere, or of those above
/// it, goes on to count.
bool setAccess(const Str &value, ConfPathMetadata &metadata)
{
    const ConfAclPtr access = ConfAcl::parse(value);
    if (!access) {
        metaLog.warn("Error parsing permissions: %s", value.c_str());
        return false;
    }
    metadata.access = access;
    return true;
}

/// Tells what is wrong itself, and is well-formed for its caller: one warning for one fault.
bool setExport(const Str &value, ConfPathMetadata &metadata)
{
    if (value == kExportSystem) {
        metadata.exported = ConfExport::System;
    } else if (value == kExportNone) {
        metadata.exported = ConfExport::None;
    } else {
        metaLog.warn("Ignoring invalid export: %s", value.c_str());
    }
    return true;
}

bool setImports(const Str &value, ConfPathMetadata &metadata)
{
    StrVector apps;
    StrSegment(value.view()).splitInto(apps, ",");
    for (Str &app : apps) {
        app.trim();
    }
    std::erase(apps, "");
    // An empty list is set as well: it takes back what a `default.meta` imports.
    metadata.setImports(std::move(apps));
    return true;
}

bool setOwner(const Str &value, ConfPathMetadata &metadata)
{
    metadata.setOwner(value);
    return true;
}

/// The ticks of a fraction of a second; what is shorter than a tick is cut off.
bool parseFraction(std::string_view digits, std::uint32_t &ticks)
{
    std::uint64_t value = 0;
    // "5" is five tenths of a second: the digits are filled up on the right to a number of ticks.
    Str padded(digits.substr(0, kTimeDigits));
    padded.append(kTimeDigits - padded.size(), '0');
    if (digits.find_first_not_of("0123456789") != std::string_view::npos ||
        !StrSegment(padded.view()).parseUnsigned(value)) {
        return false;
    }
    ticks = static_cast<std::uint32_t>(value);
    return true;
}

bool setModtime(const Str &value, ConfPathMetadata &metadata)
{
    // Seconds since 1970, with a fraction of any length or none.
    const std::size_t point = value.find('.');
    const std::string_view whole = value.view().substr(0, point);
    const std::string_view fraction =
        point == Str::npos ? std::string_view() : value.view().substr(point + 1);
    std::uint32_t ticks = 0;
    std::int64_t seconds = 0;
    Timeval modtime;
    if (!StrSegment(whole).parseSigned(seconds) || !parseFraction(fraction, ticks) ||
        !modtime.setUnixSeconds(seconds, ticks)) {
        return false;
    }
    metadata.modtime = modtime;
    return true;
}

/// For a key that is no fault and means nothing.
bool passOver(const Str &, ConfPathMetadata &)
{
    return true;
}

struct Setting
{
    const char *key;
    /// False when the value is malformed.
    bool (*set)(const Str &value, ConfPathMetadata &metadata);
};

/// `version` is written by other programs and means nothing here, but it is no fault.
constexpr Setting kSettings[] = {
    {"access", setAccess}, {"export", setExport},   {"import", setImports},
    {"owner", setOwner},   {"modtime", setModtime}, {"version", passOver},
};

/// Reads metadata line by line.
class MetaReader
{
public:
    MetaReader(ConfLineReader &reader, const ConfPathBase &app, ConfPathTrie &out)
        : reader_(reader), app_(app), out_(out)
    {
    }

    void run()
    {
        const auto takeHeader = [this](const Str &name) {
            // Nothing for a bad header, and then for all settings below it: they must not count for the
            // stanza before.
            path_ = parseMetaHeader(name, app_);
            if (!path_) {
                metaLog.warn() << location(reader_) << ": Error parsing stanza header: " << line_;
            }
        };
        readSettings(reader_, line_, takeHeader,
                     [this](std::string_view key, std::string_view value) { takeSetting(key, value); });
    }

private:
    void takeSetting(const Str &key, const Str &value)
    {
        if (!path_) {
            metaLog.warn() << location(reader_) << ": Setting does not belong to a stanza: " << line_;
        } else if (key == kMetaDataKey) {
            setData(value);
        } else if (!setMetadata(key, value)) {
            metaLog.warn() << location(reader_) << ": Error parsing setting: " << line_;
        }
    }

    /// An empty value is none, as it is when one is written.
    void setData(const Str &value)
    {
        if (!value.empty()) {
            out_.node(*path_).setData(value);
        }
    }

    bool setMetadata(const Str &key, const Str &value)
    {
        for (const Setting &setting : kSettings) {
            if (key == setting.key) {
                // Settings of one stanza come one by one, and a path may have several stanzas: each adds to
                // what is known.
                ConfPathTrie &node = out_.node(*path_);
                ConfPathMetadata metadata = node.hasMetadata() ? node.metadata() : ConfPathMetadata();
                const bool isWellFormed = setting.set(value, metadata);
                node.setMetadata(metadata);
                return isWellFormed;
            }
        }
        metaLog.warn("Ignoring invalid meta setting: %s", key.c_str());
        return true;
    }

    ConfLineReader &reader_;
    const ConfPathBase &app_;
    ConfPathTrie &out_;
    std::optional<ConfPathBase> path_; ///< of the stanza; nothing outside one
    Str line_;
};

Str timeText(const Timeval &time)
{
    Str text;
    time.toUnixStr(text, time.ticksOfSecond() == 0 ? 0 : kTimeDigits);
    return text;
}

constexpr char kSeparator[] = "/";
/// Parts of an absolute name, with the empty one before the first slash: user, app and type must be there.
constexpr std::size_t kFewestAbsoluteParts = 4;
/// Far more than there are levels. Trees are walked by recursion, which a name must not drive without end.
constexpr std::size_t kMostParts = 64;

/// A slash at the end counts for nothing. A part that does not decode is taken as it stands, and told.
StrVector splitHeader(const Str &name)
{
    StrVector parts;
    StrSegment(name.view()).splitInto(parts, kSeparator);
    if (!parts.empty() && parts.back().empty()) {
        parts.pop_back();
    }
    for (Str &part : parts) {
        if (!part.urlDecode()) {
            metaLog.error("Path component '%s' contains invalid UTF-8 encoding", part.c_str());
        }
    }
    return parts;
}

/// All bytes are encoded but the letters, digits and marks that URL encoding leaves alone. So the text is
/// ASCII, and nothing in it means anything to a reader of lines and headers.
void appendEncoded(Str &out, const Str &part)
{
    for (const char byte : part) {
        if (CharSet::urlUnreserved().contains(byte)) {
            out += byte;
        } else {
            out.appendFormat("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        }
    }
}

/// Users without regard to case, apps by it, as everywhere in the store.
bool isSameApp(const ConfPathBase &a, const ConfPathBase &b)
{
    return a.user().compareCaseless(b.user()) == 0 && a.app() == b.app();
}

Str relativeHeader(const StrVector &parts)
{
    Str name;
    for (const Str &part : parts) {
        name << (name.empty() ? "" : kSeparator);
        appendEncoded(name, part);
    }
    return name;
}

Str absoluteHeader(const ConfPathBase &path)
{
    return Str(kSeparator) << relativeHeader(path.segments());
}

bool isAtOrBelow(const StrVector &segments, const StrVector &top)
{
    return segments.size() >= top.size() && std::equal(top.begin(), top.end(), segments.begin());
}

/// From all stanzas that spell the path: what is left in one of them would still be read.
MetaEdit removeKey(IniFile &image, const StrVector &stanzas, const Str &key)
{
    bool removed = false;
    for (const Str &name : stanzas) {
        removed = image.findStanza(name)->removeKey(key) || removed;
    }
    return removed ? MetaEdit::Changed : MetaEdit::Unchanged;
}

MetaEdit setKey(IniStanza &stanza, const Str &key, const Str &value)
{
    IniEntry *const entry = stanza.findKey(key);
    if (!entry) {
        stanza.insertKey(key, value);
        return MetaEdit::Changed;
    }
    // An edit that changes nothing leaves the whole file alone, and with it the views that were made of it.
    if (entry->value() == value.view()) {
        return MetaEdit::Unchanged;
    }
    entry->setValue(value);
    return MetaEdit::Changed;
}

} // namespace

void readMetaText(ConfLineReader &reader, const ConfPathBase &app, ConfPathTrie &out)
{
    MetaReader(reader, app, out).run();
}

std::vector<std::pair<const char *, Str>> metaSettings(const ConfPathMetadata &metadata)
{
    std::vector<std::pair<const char *, Str>> settings;
    if (metadata.access) {
        settings.emplace_back("access", metadata.access->toStr());
    }
    if (metadata.exported != ConfExport::NotSet) {
        settings.emplace_back("export",
                              metadata.exported == ConfExport::System ? kExportSystem : kExportNone);
    }
    if (metadata.imports) {
        settings.emplace_back("import", joined(*metadata.imports, ", "));
    }
    if (metadata.owner) {
        settings.emplace_back("owner", *metadata.owner);
    }
    if (metadata.modtime) {
        settings.emplace_back("modtime", timeText(*metadata.modtime));
    }
    return settings;
}

std::optional<ConfPathBase> parseMetaHeader(const Str &name, const ConfPathBase &app)
{
    StrVector parts = splitHeader(name);
    if (parts.size() > kMostParts) {
        metaLog.error("Path has too many path parts: %s", name.c_str());
        return std::nullopt;
    }
    if (!name.startsWith(kSeparator)) {
        return ConfPathBase(app.user(), app.app(), std::move(parts));
    }
    if (parts.size() < kFewestAbsoluteParts) {
        metaLog.error("Absolute path has too few path parts: %s", name.c_str());
        return std::nullopt;
    }
    return ConfPathBase(parts[1].lowered(), parts[2], StrVector(parts.begin() + 3, parts.end()));
}

std::optional<Str> metaHeader(const ConfPathBase &path, const ConfPathBase &app)
{
    const bool isOwn = isSameApp(path, app);
    if (!isOwn && path.parts().empty()) {
        return std::nullopt;
    }
    Str name = isOwn ? relativeHeader(path.parts()) : absoluteHeader(path);
    // A last part that is empty is lost, and an empty first one makes the name an absolute one.
    const bool startsRight = name.startsWith(kSeparator) != isOwn;
    const std::optional<ConfPathBase> back = startsRight ? parseMetaHeader(name, app) : std::nullopt;
    // Tried out by the reader itself: no rule here can disagree with it about what a name means.
    return back && back->segments() == path.segments() ? std::optional<Str>(std::move(name)) : std::nullopt;
}

MetaImage::MetaImage(IniFile image, const ConfPathBase &app) : image_(std::move(image)), app_(app)
{
    for (const auto &[name, stanza] : image_) {
        if (const std::optional<ConfPathBase> path = parseMetaHeader(name, app_)) {
            names_[path->segments()].push_back(name);
        }
    }
}

MetaEdit MetaImage::set(const ConfPathBase &path, const Str &key, const Str &value)
{
    const StrVector segments = path.segments();
    auto found = names_.find(segments);
    if (key == kMetaDataKey && value.empty()) {
        return found == names_.end() ? MetaEdit::Unchanged : removeKey(image_, found->second, key);
    }
    if (found == names_.end()) {
        const std::optional<Str> name = metaHeader(path, app_);
        if (!name) {
            metaLog.error("No stanza can be named for: %s", path.toStr().c_str());
            return MetaEdit::Refused;
        }
        found = names_.emplace(segments, StrVector{*name}).first;
    }
    // Of several stanzas that spell the path the last has the say when the file is read.
    return setKey(image_.stanza(found->second.back()), key, value);
}

MetaEdit MetaImage::remove(const ConfPathBase &path)
{
    const StrVector top = path.segments();
    // The map sorts a path right before all that lies below it, so that a removal takes one run out of it.
    const auto first = names_.lower_bound(top);
    auto last = first;
    for (; last != names_.end() && isAtOrBelow(last->first, top); ++last) {
        for (const Str &name : last->second) {
            image_.removeStanza(name);
        }
    }
    const bool removed = first != last;
    names_.erase(first, last);
    return removed ? MetaEdit::Changed : MetaEdit::Unchanged;
}

Logger metaLog("ConfObjectManagerDB");

} // namespace velmox
