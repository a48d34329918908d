#include "capture/summary/noise.h"

#include "capture/summary/quieter.h"

#include <algorithm>
#include <optional>
#include <set>

namespace velmox {

namespace {

using Clock = std::chrono::steady_clock;

/// Of each kind. Every source costs a replay of the capture.
constexpr std::size_t kMostSources = 10;

struct Candidate
{
    std::string name;
    /// Of a process, as its image path for the filters; of a key, as its path for them.
    std::string filterText;
    Tally tally;
    /// Numbers of the stanzas that would let it pass.
    std::set<std::size_t> stanzas;
    /// Records that the stanzas were asked about.
    unsigned asked = 0;
};

std::vector<Candidate> loudestProcesses(const CaptureCounts &counts)
{
    std::vector<Candidate> candidates;
    for (const auto &[image, process] : counts.processes) {
        if (process.bytes > 0) {
            candidates.push_back({image, process.folded, process, {}});
        }
    }
    std::ranges::stable_sort(candidates, std::greater(),
                             [](const Candidate &candidate) { return candidate.tally.bytes; });
    candidates.resize(std::min(candidates.size(), kMostSources));
    return candidates;
}

std::vector<Candidate> loudestKeys(const CaptureCounts &counts)
{
    std::vector<Candidate> candidates;
    for (const PathNode *node : counts.keys.loudest(kMostSources)) {
        candidates.push_back({node->path, node->filterPath, node->all, {}});
    }
    return candidates;
}

bool isAtOrBelow(const Str &path, std::string_view key)
{
    return path.view().starts_with(key) && (path.size() == key.size() || path[key.size()] == '\\');
}

/// Asks each stanza by itself, as no one else does: which let a candidate's records pass, how long one takes,
/// and whether one that never was the first to match would match at all.
class Probe
{
public:
    Probe(CaptureCounts &counts, MonitorFilterGroup &group, std::vector<Candidate> &processes,
          std::vector<Candidate> &keys)
        : counts_(counts), processes_(processes), keys_(keys), spent_(counts.stanzas.size()),
          askedTimes_(counts.stanzas.size()), isInclusive_(group.inclusive)
    {
        for (const auto &[header, filter] : group.filters->byName()) {
            filters_.push_back(filter);
        }
        stride_ = 1 + counts.all.records / kTimed;
    }

    void take(WalkedRecord &record);
    void finish();

private:
    /// Records of the capture that times are taken of, spread over all of it, and of a candidate that stanzas
    /// are asked about, the first ones. So few cost little beside a replay, however long the capture.
    static constexpr std::uint64_t kTimed = 5000;
    static constexpr unsigned kAsked = 5000;
    /// For one stanza, so that an explosive expression cannot take forever.
    static constexpr Clock::duration kMostTime = std::chrono::milliseconds(200);

    void time(const SysMonFilterableEvent &event, bool isLetPass);
    void ask(const SysMonFilterableEvent &event, Candidate &candidate);

    CaptureCounts &counts_;
    std::vector<Candidate> &processes_;
    std::vector<Candidate> &keys_;
    std::vector<AbstractFilter<SysMonFilterableEvent> *> filters_;
    std::vector<Clock::duration> spent_;
    std::vector<std::uint64_t> askedTimes_;
    bool isInclusive_;
    std::uint64_t stride_;
    std::uint64_t number_ = 0;
};

void Probe::take(WalkedRecord &record)
{
    if (!record.isOnRegistry()) {
        return;
    }
    // Records that were dropped are timed too: they are most of what a stanza is asked about.
    const bool isTimed = number_++ % stride_ == 0;
    if (!isTimed && record.eventBytes == 0) {
        return;
    }
    const SysMonFilterableEvent event{record.texts.process().folded, record.texts.keyPath(),
                                      Str(record.word)};
    if (isTimed) {
        time(event, record.eventBytes > 0);
    }
    if (record.eventBytes == 0) {
        return;
    }
    for (Candidate &candidate : processes_) {
        if (event.process.view() == candidate.filterText) {
            ask(event, candidate);
        }
    }
    for (Candidate &candidate : keys_) {
        if (isAtOrBelow(event.keyPath, candidate.filterText)) {
            ask(event, candidate);
        }
    }
}

void Probe::time(const SysMonFilterableEvent &event, bool isLetPass)
{
    for (std::size_t at = 0; at < filters_.size(); ++at) {
        if (spent_[at] > kMostTime) {
            continue;
        }
        if (askedTimes_[at] == 0) {
            // At the first match expressions are made into machine code.
            filters_[at]->matches(event);
        }
        const Clock::time_point begin = Clock::now();
        const bool isMatch = filters_[at]->matches(event);
        spent_[at] += Clock::now() - begin;
        ++askedTimes_[at];
        StanzaCounts &stanza = counts_.stanzas[at];
        // A stanza that never was the one to match can still match, if another was asked before it, or if the
        // monitor never got to see the record.
        if (isMatch && stanza.matched == 0 && isInclusive_) {
            (isLetPass ? stanza.isHidden : stanza.isUnasked) = true;
        }
    }
}

void Probe::ask(const SysMonFilterableEvent &event, Candidate &candidate)
{
    if (candidate.asked == kAsked) {
        return;
    }
    ++candidate.asked;
    for (std::size_t at = 0; at < filters_.size(); ++at) {
        if (!candidate.stanzas.contains(at) && filters_[at]->matches(event)) {
            candidate.stanzas.insert(at);
        }
    }
}

void Probe::finish()
{
    for (std::size_t at = 0; at < filters_.size(); ++at) {
        if (askedTimes_[at] > 0) {
            counts_.stanzas[at].time = std::chrono::duration_cast<std::chrono::nanoseconds>(spent_[at]) /
                                       static_cast<std::int64_t>(askedTimes_[at]);
        }
    }
}

/// Makes a source of each candidate: its settings by `quieter`, of a stanza and a candidate, and the stream
/// with them.
template <class Quieter>
std::vector<NoiseSource> sourcesOf(const OpenCapture &open, const MonitorSettings &settings,
                                   const CaptureCounts &counts, const std::vector<Candidate> &candidates,
                                   const char *key, Quieter quieter)
{
    std::vector<NoiseSource> sources;
    for (const Candidate &candidate : candidates) {
        NoiseSource source{candidate.name, candidate.tally, {}, {}, {}};
        // Each stanza that lets it pass has to leave it out: where one alone does, the next one lets it pass
        // instead.
        MonitorSettings changed = settings;
        for (const std::size_t at : candidate.stanzas) {
            const Str &header = counts.stanzas[at].header;
            const std::optional<Str> value = quieter(settings.stanzas.at(header).get(key), candidate);
            if (!value) {
                source.unchanged.push_back(header);
                continue;
            }
            changed.stanzas[header].set(key, *value);
            source.settings.push_back({header, key, *value});
        }
        if (!source.settings.empty()) {
            source.streamWithout = countStream(open, changed);
        }
        sources.push_back(std::move(source));
    }
    return sources;
}

} // namespace

Noise findNoise(const OpenCapture &open, const MonitorSettings &settings, CaptureCounts &counts)
{
    std::vector<Candidate> processes;
    std::vector<Candidate> keys;
    if (settings.defaults.inclusive) {
        processes = loudestProcesses(counts);
        keys = loudestKeys(counts);
    }
    HiveNames hiveNames;
    DriveMap drives{DriveMappings()};
    {
        // In a block of its own: there is one table of processes, and the replays below need it.
        CaptureWalk walk(open, settings);
        Probe probe(counts, walk.group(), processes, keys);
        walk.run([&](WalkedRecord &record) { probe.take(record); });
        probe.finish();
        hiveNames = walk.replay().hiveNames();
        drives = walk.replay().machine().drives();
    }
    Noise noise;
    noise.processes = sourcesOf(
        open, settings, counts, processes, "proc", [&](const Str &proc, const Candidate &candidate) {
            return std::optional(procWithout(proc, {candidate.filterText, candidate.name}, drives));
        });
    noise.keys =
        sourcesOf(open, settings, counts, keys, "hive", [&](const Str &hive, const Candidate &candidate) {
            return hiveWithout(hive, candidate.filterText, candidate.name, hiveNames);
        });
    return noise;
}

} // namespace velmox
