#include "pipeline/input/check/configured_stanza.h"

#include "conf/file/conf_line_reader.h"
#include "conf/mapper/conf_file_io.h"
#include "conf/pages/property_pages.h"
#include "conf/pages/shared_conf_services.h"
#include "conf/tree/conf_path_pruners.h"

#include <utility>

namespace velmox {

namespace {

/// Lines by stanza and key; of a header that under the empty key, which no line has.
using Lines = std::map<std::pair<Str, Str>, std::uint64_t>;
using Places = std::map<std::pair<Str, Str>, ConfPlace>;

/// Of a key that stands twice in a file the last line counts, of a header the first.
void readLines(ConfLineReader &reader, Lines &lines)
{
    Str line;
    Str name;
    Str value;
    Str stanza = kDefaultStanza;
    for (;;) {
        // A line that goes on is found where it begins.
        const std::uint64_t number = reader.lineNumber() + 1;
        switch (parseLine(reader, line, name, value)) {
        case ConfLine::End:
            return;
        case ConfLine::Blank:
        case ConfLine::Comment:
            break;
        case ConfLine::StanzaHeader:
            stanza = name;
            lines.try_emplace({stanza, Str()}, number);
            break;
        case ConfLine::KeyValue:
            lines.try_emplace({stanza, Str()}, number);
            lines[{stanza, Str(trimmedView(name))}] = number;
            break;
        }
    }
}

/// Whether a mapper has a say in the type for the reader: its files are for all users, and its app is usable.
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
            readConfLines(file, [&](ConfLineReader &reader) { readLines(reader, lines); });
        }
        ++layer;
        for (const auto &[setting, line] : lines) {
            places.try_emplace(setting, ConfPlace{file.toStr(), line, layer});
        }
    }
    return places;
}

ConfPlace placeOf(const Places &places, const Str &stanza, const Str &key)
{
    const auto found = places.find({stanza, key});
    return found == places.end() ? ConfPlace() : found->second;
}

} // namespace

ConfiguredStanzas readConfiguredStanzas(const Str &type)
{
    Stanzas stanzas;
    PropertyPages::get(type)->enumerateStanzasWithPrefix("", stanzas, DisabledMode::All);
    const Places places = readPlaces(type);
    ConfiguredStanzas all;
    for (auto &[name, properties] : stanzas) {
        ConfiguredStanza stanza{name, std::move(properties), placeOf(places, name, ""), {}};
        for (const auto &[key, value] : stanza.properties.properties) {
            stanza.places.emplace(key, placeOf(places, value.originStanza, key));
        }
        all.push_back(std::move(stanza));
    }
    return all;
}

} // namespace velmox
