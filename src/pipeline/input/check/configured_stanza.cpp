#include "pipeline/input/check/configured_stanza.h"

#include "conf/file/conf_line_reader.h"
#include "conf/mapper/conf_file_io.h"
#include "conf/pages/property_pages.h"
#include "conf/pages/shared_conf_services.h"
#include "conf/tree/conf_path_pruners.h"
#include "util/text/ascii.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

namespace velmox {

namespace {

/// Stands for the header where a key is looked up. No key of a file is this: keys are trimmed of blanks.
constexpr char kHeader[] = "\n";

/// What is known of the lines of a file.
struct Lines
{
    /// By stanza and key.
    std::map<std::pair<Str, Str>, std::uint64_t> numbers;
    std::vector<SwallowedLine> swallowed;
};

/// The same of all files.
struct Places
{
    std::map<std::pair<Str, Str>, ConfPlace> settings;
    std::vector<SwallowedLine> swallowed;
};

/// Whether a line that continues another one looks like a header or a setting. A name in front of `=` holds
/// nothing but letters, digits and a few signs, so that a pattern which goes on in a second line, with `(?=`
/// in it, is none.
bool isLineOfItsOwn(std::string_view line)
{
    if (line.starts_with('[')) {
        return line.ends_with(']') || line.find("://") != line.npos;
    }
    static constexpr CharSet kNameSigns("_-.");
    const std::size_t end = line.find('=');
    const std::string_view name = trimmedView(line.substr(0, end));
    return end != line.npos && !name.empty() && isAsciiAlphanumeric(name.front()) &&
           std::ranges::all_of(
               name, [](char byte) { return isAsciiAlphanumeric(byte) || kNameSigns.contains(byte); });
}

/// The first line taken in by a line that was not meant to go on: one that looks like a header or a setting,
/// or any behind a separator of a pattern (two backslashes, of which the store takes the last one for a line
/// that goes on), as nobody breaks a pattern there.
std::optional<Str> swallowedIn(const Str &line)
{
    std::string_view rest = line.view();
    for (std::size_t end; (end = rest.find('\n')) != rest.npos;) {
        // The store took the last backslash and put a line feed in its place; one that still stands there was
        // the first of two.
        const bool isAtSeparator = rest.substr(0, end).ends_with('\\');
        rest.remove_prefix(end + 1);
        const std::string_view next = trimmedView(rest.substr(0, rest.find('\n')));
        if (isAtSeparator || isLineOfItsOwn(next)) {
            return Str(next);
        }
    }
    return std::nullopt;
}

/// Keeps quiet what the reader of lines has to say: the store has read the file already, and said it.
class QuietReading
{
public:
    QuietReading() { Logger::setThreshold(iniLog.name(), LogLevel::Emerg); }
    ~QuietReading() { Logger::setThreshold(iniLog.name(), before_); }
    QuietReading(const QuietReading &) = delete;
    QuietReading &operator=(const QuietReading &) = delete;

private:
    static LogLevel threshold()
    {
        int level = static_cast<int>(LogLevel::Debug);
        while (level < static_cast<int>(LogLevel::Emerg) && !iniLog.isEnabled(static_cast<LogLevel>(level))) {
            ++level;
        }
        return static_cast<LogLevel>(level);
    }

    const LogLevel before_ = threshold();
};

/// Of a key that stands twice in a file the last line counts, as for the store. Of a header the first: it is
/// what people find. Settings above all headers make a section as well, though no line says so.
void readLines(ConfLineReader &reader, Lines &lines)
{
    Str line;
    Str name;
    Str value;
    Str stanza = kDefaultStanza;
    for (;;) {
        // A line that goes on is found where it begins.
        const std::uint64_t number = reader.lineNumber() + 1;
        const ConfLine kind = parseLine(reader, line, name, value);
        Str key;
        switch (kind) {
        case ConfLine::End:
            return;
        case ConfLine::Blank:
        case ConfLine::Comment:
            break;
        case ConfLine::StanzaHeader:
            stanza = name;
            lines.numbers.try_emplace({stanza, kHeader}, number);
            break;
        case ConfLine::KeyValue:
            key = trimmedView(name);
            lines.numbers.try_emplace({stanza, kHeader}, number);
            lines.numbers[{stanza, key}] = number;
            break;
        }
        if (const std::optional<Str> taken = swallowedIn(line)) {
            lines.swallowed.push_back({ConfPlace{Str(), number}, stanza, key, *taken});
        }
    }
}

/// Whether what a mapper has of the type counts for the reader: it is for all users, and its app is usable. A
/// file of an app that is turned off is there and is not read, so the mapper is asked, and the store's own
/// rule.
bool isRead(IConfPathMapper &mapper, const Str &type, const ApplicationManager &applications)
{
    ConfSearch search;
    search.constrain(ConfSearch::User, kSharedUser);
    search.constrain(ConfSearch::Type, type);
    ConfPathTrie layer;
    if (!mapper.search(search, layer)) {
        return false;
    }
    DisabledApplicationPruner disabled([&](const Str &app) { return applications.isUsable(app); });
    layer.walk(disabled);
    const ConfPathTrie *const user = layer.findChild(kSharedUser);
    return user != nullptr && std::ranges::any_of(user->children(), [&](const auto &app) {
               return app.second->findChild(type) != nullptr;
           });
}

Places readPlaces(const Str &type)
{
    const SharedConfServices &services = SharedConfServices::of(BundlesSetup());
    Places places;
    std::size_t layer = 0;
    for (IConfPathMapper *const mapper : services.mappers().mappers()) {
        const Pathname file = mapper->confFile(type);
        Lines lines;
        if (!file.empty() && isRead(*mapper, type, services.applications())) {
            const QuietReading quiet;
            readConfLines(file, [&](ConfLineReader &reader) { readLines(reader, lines); });
        }
        ++layer;
        for (const auto &[setting, line] : lines.numbers) {
            // The mappers come in the order in which they are read: the first that has a setting decides.
            places.settings.try_emplace(setting, ConfPlace{file.toStr(), line, layer});
        }
        for (SwallowedLine &swallowed : lines.swallowed) {
            swallowed.place.file = file.toStr();
            swallowed.place.layer = layer;
            places.swallowed.push_back(std::move(swallowed));
        }
    }
    return places;
}

ConfPlace placeOf(const Places &places, const Str &stanza, const Str &key)
{
    const auto found = places.settings.find({stanza, key});
    return found == places.settings.end() ? ConfPlace() : found->second;
}

} // namespace

ConfiguredStanzas readConfiguredStanzas(const Str &type)
{
    Stanzas stanzas;
    PropertyPages::get(type)->enumerateStanzasWithPrefix("", stanzas, DisabledMode::All);
    const Places places = readPlaces(type);
    ConfiguredStanzas all;
    for (auto &[name, properties] : stanzas) {
        ConfiguredStanza stanza{name, std::move(properties), placeOf(places, name, kHeader), {}, {}};
        for (const auto &[key, value] : stanza.properties.properties) {
            stanza.places.emplace(key, placeOf(places, value.originStanza, key));
        }
        std::ranges::copy_if(places.swallowed, std::back_inserter(stanza.swallowed),
                             [&](const SwallowedLine &one) {
                                 return one.stanza == stanza.name || one.stanza == kDefaultStanza;
                             });
        all.push_back(std::move(stanza));
    }
    return all;
}

} // namespace velmox
