#include "conf/mapper/meta_file.h"

#include "conf/file/conf_line_reader.h"
#include "conf/file/ini_stanza.h"
#include "conf/mapper/meta_header.h"
#include "conf/mapper/meta_log.h"
#include "util/text/joined.h"
#include "util/text/str_segment.h"

namespace velmox {

namespace {

constexpr char kExportSystem[] = "system";
constexpr char kExportNone[] = "none";
/// A moment counts tenths of a microsecond.
constexpr unsigned kTimeDigits = 7;

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
        for (;;) {
            switch (parseLine(reader_, line_, name_, value_)) {
            case ConfLine::End:
                return;
            case ConfLine::Blank:
            case ConfLine::Comment:
                break;
            case ConfLine::StanzaHeader:
                path_ = parseMetaHeader(name_, app_);
                if (!path_) {
                    metaLog.warn() << location(reader_) << ": Error parsing stanza header: " << line_;
                }
                break;
            case ConfLine::KeyValue:
                takeSetting(trimmedView(name_), trimmedView(value_));
                break;
            }
        }
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
    Str name_;
    Str value_;
};

Str timeText(const Timeval &time)
{
    Str text;
    time.toUnixStr(text, time.ticksOfSecond() == 0 ? 0 : kTimeDigits);
    return text;
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

} // namespace velmox
