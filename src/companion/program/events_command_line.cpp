#include "companion/program/events_command_line.h"

#include <algorithm>
#include <stdexcept>

namespace velmox {

namespace {

struct CommandRow
{
    std::string_view word;
    EventsCommand command;
};

constexpr CommandRow kCommands[] = {
    {"table", EventsCommand::Table},
    {"json", EventsCommand::Json},
    {"diff", EventsCommand::Diff},
    {"report", EventsCommand::Report},
};

constexpr std::string_view kWhere = "--where";

/// Reads `--where` at the front of `at`, with its condition behind it or, after a `=`, in the same word, and
/// moves past it; false if something else stands there.
bool takeWhere(std::vector<std::string>::const_iterator &at, std::vector<std::string>::const_iterator end,
               EventFilter &filter)
{
    if (at->starts_with(kWhere) && at->size() > kWhere.size() && (*at)[kWhere.size()] == '=') {
        filter.add(std::string_view(*at++).substr(kWhere.size() + 1));
        return true;
    }
    if (*at != kWhere) {
        return false;
    }
    if (++at == end) {
        throw std::invalid_argument("--where needs FIELD=PATTERN");
    }
    filter.add(*at++);
    return true;
}

void checkFiles(EventsCommandLine &line)
{
    if (line.isJson && line.command != EventsCommand::Diff) {
        throw std::invalid_argument("--json belongs to diff; the command for JSON is json");
    }
    if (line.command == EventsCommand::Diff) {
        if (line.files.size() != 2) {
            throw std::invalid_argument("diff compares two files");
        }
        return;
    }
    if (line.command == EventsCommand::Report) {
        if (line.files.empty()) {
            throw std::invalid_argument("report needs the file that it writes");
        }
        line.output = line.files.front();
        line.files.erase(line.files.begin());
    }
    if (line.files.empty()) {
        line.files.emplace_back("-");
    }
}

} // namespace

const char *const kEventsUsage =
    "usage: velmox-events [table|json] [--where FIELD=PATTERN]... [FILE...]\n"
    "       velmox-events diff [--json] [--where FIELD=PATTERN]... OLD NEW\n"
    "       velmox-events report [--where FIELD=PATTERN]... OUT.html [FILE...]\n"
    "\n"
    "Reads event streams of velmox-regmon, from standard input if no file is named.\n"
    "\n"
    "  table     a line an event; the default on a terminal\n"
    "  json      an object a line, by the Elastic Common Schema; the default elsewhere\n"
    "  diff      values that differ between two baselines\n"
    "  report    a page that shows the events, and needs no network; OUT.html may be - for standard output\n"
    "  --where   only events where PATTERN, a regular expression, is found in FIELD, a field of the JSON\n"
    "            such as registry.path; case does not count; each further one narrows down\n"
    "\n"
    "Examples:\n"
    "  velmox-events table --where process.name=^reg stream.xml\n"
    "  ... | velmox-regmon | velmox-events json >> events.json\n"
    "  velmox-events diff old.xml new.xml\n"
    "  velmox-events report page.html stream.xml\n";

EventsCommandLine readEventsCommandLine(const std::vector<std::string> &words, bool isTerminal)
{
    EventsCommandLine line;
    line.command = isTerminal ? EventsCommand::Table : EventsCommand::Json;
    bool areFiles = false;
    // The first word that is no option is the command, if it is the word of one. A file of such a name can be
    // given behind `--`, or behind the command.
    bool mayBeCommand = true;
    auto at = words.begin();
    while (at != words.end()) {
        if (areFiles || *at == "-" || !at->starts_with('-')) {
            const auto *const row = std::ranges::find(kCommands, *at, &CommandRow::word);
            if (mayBeCommand && row != std::end(kCommands)) {
                line.command = row->command;
            } else {
                line.files.push_back(*at);
            }
            mayBeCommand = false;
            ++at;
        } else if (*at == "--help" || *at == "-h") {
            // What stands behind it is not looked at.
            line.command = EventsCommand::Help;
            return line;
        } else if (*at == "--") {
            areFiles = true;
            mayBeCommand = false;
            ++at;
        } else if (*at == "--json") {
            line.isJson = true;
            ++at;
        } else if (!takeWhere(at, words.end(), line.filter)) {
            throw std::invalid_argument("no such option: " + *at);
        }
    }
    checkFiles(line);
    return line;
}

} // namespace velmox
