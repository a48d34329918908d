#include "capture/summary/summary.h"

#include "companion/events/event_table.h"
#include "util/log/log_system.h"
#include "util/log/logger.h"
#include "util/time/timeval.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace velmox {

namespace {

using Json = nlohmann::ordered_json;

/// Columns of the texts, and how much of each list is shown: a summary is to be read on a screen or two.
constexpr std::size_t kNumberWidth = 13;
constexpr std::size_t kMostProcesses = 15;
constexpr std::size_t kMostSlices = 20;
constexpr std::size_t kBarWidth = 50;
constexpr std::uint64_t kSecondsOfDay = 86'400;

/// A number with commas between groups of three digits.
std::string grouped(std::uint64_t number)
{
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3; at -= 3) {
        digits.insert(at - 3, 1, ',');
    }
    return digits;
}

std::string padded(const std::string &text, std::size_t width)
{
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

std::string cell(std::string_view text)
{
    std::string out;
    appendCell(text, out);
    return out;
}

void appendCount(std::uint64_t count, std::string_view name, std::string &out)
{
    out += padded(grouped(count), kNumberWidth);
    out += "  ";
    out += name;
    out += '\n';
}

/// Of the day, as hour:minute:second in UTC.
std::string clockOf(std::uint64_t second)
{
    const auto ofDay = static_cast<unsigned>(second % kSecondsOfDay);
    return std::string(Str::fromFormat("%02u:%02u:%02u", ofDay / 3600, ofDay / 60 % 60, ofDay % 60).view());
}

/// The day of a second since 1 January 1601.
std::string dayOf(std::uint64_t second)
{
    using namespace std::chrono;
    const year_month_day day(sys_days(1601y / January / 1) +
                             days(static_cast<days::rep>(second / kSecondsOfDay)));
    return std::string(
        Str::fromFormat("%04d-%02u-%02u", int{day.year()}, unsigned{day.month()}, unsigned{day.day()})
            .view());
}

template <class Map>
void appendRanking(const Map &tallies, std::size_t most, std::string &out)
{
    std::vector<std::pair<std::uint64_t, std::string_view>> ranking;
    ranking.reserve(tallies.size());
    for (const auto &[name, tally] : tallies) {
        ranking.emplace_back(tally.records, name);
    }
    std::ranges::stable_sort(ranking, std::greater(), [](const auto &row) { return row.first; });
    std::uint64_t rest = 0;
    for (std::size_t at = 0; at < ranking.size(); ++at) {
        if (at < most) {
            appendCount(ranking[at].first, cell(ranking[at].second), out);
        } else {
            rest += ranking[at].first;
        }
    }
    if (ranking.size() > most) {
        appendCount(rest, "in " + grouped(ranking.size() - most) + " others", out);
    }
}

/// The keys as a tree. What has less than a hundredth of the records is summed up, and a key that only leads
/// to another shares its line.
class TreeText
{
public:
    TreeText(const PathTree &tree, std::string &out) : least_(tree.root().all.records / kShare + 1), out_(out)
    {
        appendChildren(tree.root(), 0);
    }

private:
    static constexpr std::uint64_t kShare = 100;
    static constexpr std::size_t kMostLines = 60;

    void appendChildren(const PathNode &node, std::size_t depth);
    void append(const PathNode &node, std::size_t depth);

    std::uint64_t least_;
    std::size_t lines_ = 0;
    std::string &out_;
};

void TreeText::appendChildren(const PathNode &node, std::size_t depth)
{
    std::vector<const PathNode *> children;
    for (const auto &[name, child] : node.children) {
        children.push_back(&child);
    }
    std::ranges::stable_sort(children, std::greater(),
                             [](const PathNode *child) { return child->all.records; });
    std::uint64_t rest = 0;
    std::size_t others = 0;
    for (const PathNode *child : children) {
        if (child->all.records >= least_ && lines_ < kMostLines) {
            append(*child, depth);
        } else {
            rest += child->all.records;
            ++others;
        }
    }
    // Where all are small, the line above says it already.
    if (others > 0 && others < children.size()) {
        appendCount(rest, std::string(2 * depth, ' ') + "in " + grouped(others) + " others", out_);
    }
}

void TreeText::append(const PathNode &node, std::size_t depth)
{
    std::string name = cell(node.name);
    const PathNode *last = &node;
    // A key in which nothing happened and that leads to one other is no line of its own.
    while (last->children.size() == 1 && last->own.records == 0) {
        last = &last->children.begin()->second;
        name += '\\' + cell(last->name);
    }
    ++lines_;
    appendCount(node.all.records, std::string(2 * depth, ' ') + name, out_);
    appendChildren(*last, depth + 1);
}

void appendHead(const CaptureCounts &counts, std::string &out)
{
    out += grouped(counts.all.records) + " records";
    if (!counts.seconds.empty()) {
        const std::uint64_t first = counts.seconds.begin()->first;
        const std::uint64_t last = counts.seconds.rbegin()->first;
        std::uint64_t most = 0;
        for (const auto &[second, records] : counts.seconds) {
            most = std::max(most, records);
        }
        out += " from " + dayOf(first) + ' ' + clockOf(first) + " to " + dayOf(last) + ' ' + clockOf(last) +
               " UTC, " + grouped(counts.all.records / (last - first + 1)) + " a second, at most " +
               grouped(most);
    }
    out += counts.lostReads == 0
               ? "; nothing lost\n"
               : "; " + grouped(counts.lostReads) + " reads lost, each of up to a buffer of records\n";
    out += counts.isIncomplete ? "less was recorded than the document asks for\n" : "";
}

/// Records by time, in slices of whole seconds.
void appendSlices(const CaptureCounts &counts, std::string &out)
{
    if (counts.seconds.empty()) {
        return;
    }
    const std::uint64_t first = counts.seconds.begin()->first;
    // Slices of one length, as short as fits into so many lines.
    const std::uint64_t length = (counts.seconds.rbegin()->first - first) / kMostSlices + 1;
    std::map<std::uint64_t, std::uint64_t> slices;
    std::uint64_t most = 1;
    for (const auto &[second, records] : counts.seconds) {
        std::uint64_t &slice = slices[(second - first) / length];
        slice += records;
        most = std::max(most, slice);
    }
    out += "\nrecords a second\n";
    for (const auto &[slice, records] : slices) {
        const std::size_t bar = records * kBarWidth / most;
        appendCount(records / length, clockOf(first + slice * length) + ' ' + std::string(bar, '#'), out);
    }
}

void appendStanzas(const CaptureCounts &counts, std::string &out)
{
    out +=
        "\nstream: " + grouped(counts.all.events) + " events, " + grouped(counts.streamBytes) + " bytes\n\n";
    for (const char *const title : {"tried", "matched", "accepted", "bytes"}) {
        out += padded(title, kNumberWidth);
    }
    out += "  us/record  stanza\n";
    for (const StanzaCounts &stanza : counts.stanzas) {
        for (const std::uint64_t count : {stanza.tried, stanza.matched, stanza.accepted, stanza.bytes}) {
            out += padded(grouped(count), kNumberWidth);
        }
        out += Str::fromFormat("  %9.2f  ", static_cast<double>(stanza.time.count()) / 1000).view();
        out += cell(stanza.name.view()) + '\n';
    }
    for (const StanzaCounts &stanza : counts.stanzas) {
        if (stanza.matched == 0) {
            out += "never matched: " + cell(stanza.name.view());
            out += stanza.isHidden    ? "; what it would match is let pass by a stanza asked before it\n"
                   : stanza.isUnasked ? "; the driver is not asked for what it would match\n"
                                      : "\n";
        }
    }
}

void appendSources(const std::vector<NoiseSource> &sources, const CaptureCounts &counts, std::string &out)
{
    for (const NoiseSource &source : sources) {
        out += '\n' + padded(grouped(source.tally.events), kNumberWidth) + " events" +
               padded(grouped(source.tally.bytes), kNumberWidth) + " bytes  " + cell(source.name) + '\n';
        for (const Str &header : source.unchanged) {
            out += "    [" + cell(header.view()) +
                   "] keeps it: its root must stay in front, and no plain separator follows it\n";
        }
        if (source.settings.empty()) {
            continue;
        }
        const Tally &left = source.streamWithout;
        const auto percent = static_cast<double>(left.bytes) * 100 / static_cast<double>(counts.streamBytes);
        out += "    without it " + grouped(left.events) + " events, " + grouped(left.bytes) + " bytes, " +
               std::string(Str::fromFormat("%.0f %%", percent).view()) + " of the stream:\n";
        for (const StanzaSetting &setting : source.settings) {
            out += "    [" + cell(setting.header.view()) + "]\n    " + setting.key + " = " +
                   std::string(setting.value.view()) + '\n';
        }
    }
}

std::string textOf(const CaptureCounts &counts, const Noise &noise)
{
    std::string out;
    appendHead(counts, out);
    out += "\nby operation\n";
    appendRanking(counts.operations, counts.operations.size(), out);
    out += "\nby process\n";
    appendRanking(counts.processes, kMostProcesses, out);
    out += "\nby key\n";
    TreeText(counts.keys, out);
    appendSlices(counts, out);
    if (!counts.stanzas.empty()) {
        appendStanzas(counts, out);
    }
    if (!noise.processes.empty()) {
        out += "\nthe processes that make most of the stream, and what leaves each out\n";
        appendSources(noise.processes, counts, out);
    }
    if (!noise.keys.empty()) {
        out += "\nthe keys and values that make most of the stream, and what leaves each out\n";
        appendSources(noise.keys, counts, out);
    }
    return out;
}

void addPaths(const PathNode &node, Json &keys)
{
    if (node.own.records > 0) {
        keys[node.path] = node.own.records;
    }
    for (const auto &[name, child] : node.children) {
        addPaths(child, keys);
    }
}

std::string jsonOf(const CaptureCounts &counts)
{
    Json json;
    json["records"] = counts.all.records;
    json["lost_reads"] = counts.lostReads;
    for (const char *const name : {"operations", "processes", "keys"}) {
        json[name] = Json::object();
    }
    for (const auto &[name, tally] : counts.operations) {
        json["operations"][name] = tally.records;
    }
    for (const auto &[name, process] : counts.processes) {
        json["processes"][name] = process.records;
    }
    addPaths(counts.keys.root(), json["keys"]);
    json["stanzas"] = Json::array();
    for (const StanzaCounts &stanza : counts.stanzas) {
        json["stanzas"].push_back({{"name", stanza.name.view()},
                                   {"tried", stanza.tried},
                                   {"matched", stanza.matched},
                                   {"accepted", stanza.accepted},
                                   {"bytes", stanza.bytes}});
    }
    // The library throws at bytes that are no UTF-8, and a capture may come from anywhere.
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

/// From here on the monitor's rooms would only say again, with each replay, what they said of the stanzas
/// already. For the rest of the process: nothing is logged behind a summary.
void silenceLog()
{
    LogSystem::instance().categories().root().threshold = LogLevel::Emerg;
    Logger::bindAll();
}

} // namespace

CaptureSummary summarizeCapture(const OpenCapture &open, const MonitorSettings &settings, SummaryForm form)
{
    CaptureCounts counts = countCapture(open, settings);
    const bool hasStanzas = !counts.stanzas.empty();
    if (form == SummaryForm::Json) {
        return {jsonOf(counts), counts.isCut, hasStanzas};
    }
    silenceLog();
    return {textOf(counts, hasStanzas ? findNoise(open, settings, counts) : Noise()), counts.isCut,
            hasStanzas};
}

} // namespace velmox
