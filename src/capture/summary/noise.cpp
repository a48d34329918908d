#include "capture/summary/noise.h"

#include <algorithm>
#include <optional>
#include <set>

namespace velmox {

namespace {

using Components = std::vector<std::string>;

constexpr std::string_view kSpecial = "^$.|?*+()[]{}\\";
constexpr std::string_view kQuantifiers = "?*+{";
constexpr std::string_view kAnything = ".*";

bool isIn(char byte, std::string_view set)
{
    return set.find(byte) != std::string_view::npos;
}

Str escaped(std::string_view text)
{
    Str out;
    for (const char byte : text) {
        if (static_cast<unsigned char>(byte) < ' ') {
            out.appendFormat("\\x%02x", static_cast<unsigned>(byte));
            continue;
        }
        if (isIn(byte, kSpecial)) {
            out << '\\';
        }
        out << byte;
    }
    return out;
}

Components split(std::string_view path)
{
    Components components;
    for (std::size_t end = path.find('\\'); end != std::string_view::npos; end = path.find('\\')) {
        components.emplace_back(path.substr(0, end));
        path.remove_prefix(end + 1);
    }
    components.emplace_back(path);
    return components;
}

/// The alternatives of a pattern: its pieces between bars that stand in no group or class.
std::vector<std::string_view> alternatives(std::string_view pattern)
{
    std::vector<std::string_view> pieces;
    std::size_t from = 0;
    int depth = 0;
    bool isInClass = false;
    for (std::size_t at = 0; at < pattern.size(); ++at) {
        const char byte = pattern[at];
        if (byte == '\\') {
            ++at;
        } else if (isInClass) {
            isInClass = byte != ']';
        } else if (byte == '[') {
            isInClass = true;
        } else if (byte == '(' || byte == ')') {
            depth += byte == '(' ? 1 : -1;
        } else if (byte == '|' && depth == 0) {
            pieces.push_back(pattern.substr(from, at - from));
            from = at + 1;
        }
    }
    pieces.push_back(pattern.substr(from));
    return pieces;
}

/// A place behind a separator, with the text that leads there all literal.
struct Cut
{
    std::size_t at;
    std::string literal;
};

/// The places behind the separators of the literal beginning of a pattern, the first being its very front.
std::vector<Cut> cutsOf(std::string_view pattern)
{
    std::vector<Cut> cuts{{0, {}}};
    std::string literal;
    for (std::size_t at = 0; at < pattern.size();) {
        const bool isEscape = pattern[at] == '\\' && at + 1 < pattern.size();
        const char byte = isEscape ? pattern[at + 1] : pattern[at];
        const bool isClass = isEscape && std::isalnum(static_cast<unsigned char>(byte)) != 0;
        const std::size_t next = at + (isEscape ? 2 : 1);
        const bool isRepeated = next < pattern.size() && isIn(pattern[next], kQuantifiers);
        if (isClass || isRepeated || (!isEscape && isIn(byte, kSpecial))) {
            break;
        }
        literal += byte;
        at = next;
        if (isEscape && byte == '\\') {
            cuts.push_back({at, literal});
        }
    }
    return cuts;
}

/// The components that a cut leads through, as the filters see them. A root at the front of the whole pattern
/// stands for the kernel's.
Components componentsOf(const Cut &cut, bool isAtFront, const HiveNames &hiveNames)
{
    Str text = Str(cut.literal);
    if (isAtFront) {
        // The translation is one of patterns, in which a backslash is doubled.
        text.replaceAll("\\", "\\\\");
        WideStr wide = WideStr::fromUtf8(text);
        hiveNames.translateHiveRoot(wide);
        text = Str::fromUtf16(wide);
        text.replaceAll("\\\\", "\\");
    }
    Components components = split(text.lowered().view());
    components.pop_back();
    return components;
}

/// The components of a path of the filters, each as events spell it where they have it too.
Components spelt(std::string_view filterPath, std::string_view path)
{
    Components components = split(filterPath);
    const Components names = split(path);
    for (std::size_t fromEnd = 1; fromEnd <= std::min(components.size(), names.size()); ++fromEnd) {
        std::string &component = components[components.size() - fromEnd];
        const std::string &name = names[names.size() - fromEnd];
        if (Str(name).lowered().view() == component) {
            component = name;
        }
    }
    return components;
}

/// Whether the pattern begins with a root that the monitor knows at the very front alone.
bool beginsWithRoot(std::string_view pattern, const HiveNames &hiveNames)
{
    const WideStr wide = WideStr::fromUtf8(Str(pattern));
    WideStr translated = wide;
    hiveNames.translateHiveRoot(translated);
    return translated != wide;
}

/// `path` is for the filters, `names` has its components as they are spelt. Nothing where only the place in
/// front of a root is left to cut at.
std::optional<Str> alternativeWithout(std::string_view pattern, bool isAtFront, const Components &path,
                                      const Components &names, const HiveNames &hiveNames)
{
    std::vector<Cut> cuts = cutsOf(pattern);
    for (; !cuts.empty(); cuts.pop_back()) {
        const Components before = componentsOf(cuts.back(), isAtFront, hiveNames);
        const std::size_t shared = std::min(before.size(), path.size());
        if (!std::equal(before.begin(), before.begin() + static_cast<std::ptrdiff_t>(shared), path.begin())) {
            return Str(pattern);
        }
        if (before.size() < path.size()) {
            if (cuts.back().at == 0 && isAtFront && beginsWithRoot(pattern, hiveNames)) {
                return std::nullopt;
            }
            Str rest;
            for (std::size_t at = before.size(); at < path.size(); ++at) {
                rest << (at == before.size() ? "" : "\\\\") << escaped(names[at]);
            }
            Str out(pattern.substr(0, cuts.back().at));
            out << "(?!" << rest << "(\\\\|\\z))" << pattern.substr(cuts.back().at);
            return out;
        }
    }
    return Str(pattern);
}

/// A process for a pattern, by its image path.
struct QuietProcess
{
    /// For the filters; empty for an unknown process.
    std::string_view folded;
    /// As events have it, with a drive where there is one.
    std::string_view displayed;
};

/// The path behind the drive, if for the filters it is the same behind a device `\device\NAME`; else empty.
std::string_view pathOnVolume(const QuietProcess &process)
{
    constexpr std::string_view kDevices = "\\device\\";
    constexpr std::size_t kDrive = 2;
    if (process.displayed.size() <= kDrive || process.displayed[1] != ':' ||
        !process.folded.starts_with(kDevices)) {
        return {};
    }
    const std::string_view path = process.displayed.substr(kDrive);
    const std::size_t end = process.folded.find('\\', kDevices.size());
    const bool isSame =
        end != std::string_view::npos && Str(path).lowered().view() == process.folded.substr(end);
    return isSame ? path : std::string_view();
}

/// A `proc` that matches what `proc` does, but for one process, of whatever drive. A drive at the front of
/// `proc` becomes its device, as it is no longer at the front.
Str procWithout(const Str &proc, const QuietProcess &process, DriveMap &drives)
{
    Str out("^(?!");
    const std::string_view onVolume = pathOnVolume(process);
    if (onVolume.empty()) {
        out << escaped(process.folded);
    } else {
        out << R"(\\device\\[^\\]*)" << escaped(onVolume);
    }
    out << "\\z)";
    if (!proc.empty() && proc.view() != kAnything) {
        out << ".*(?:" << drives.translateProcessDrive(proc) << ')';
    }
    return out;
}

/// A `hive` that matches what `hive` does, but for one path and all below it, which is given for the filters
/// and as events have it. What is literal at the beginning of `hive` stays there, since the driver's filter
/// and baselines go by it. `hive` itself where it matches nothing of the path anyway; nothing where a root at
/// its front has no plain separator behind it, since only at the very front it is a root.
std::optional<Str> hiveWithout(const Str &hive, std::string_view filterPath, std::string_view path,
                               const HiveNames &hiveNames)
{
    const std::string_view pattern = hive.empty() ? kAnything : hive.view();
    const Components components = split(filterPath);
    const Components names = spelt(filterPath, path);
    Str out;
    bool isFirst = true;
    for (const std::string_view alternative : alternatives(pattern)) {
        const auto without = alternativeWithout(alternative, isFirst, components, names, hiveNames);
        if (!without) {
            return std::nullopt;
        }
        out << (isFirst ? "" : "|") << *without;
        isFirst = false;
    }
    if (!hasPatternCharacters(Str(pattern)) && out.view() != pattern) {
        // What a plain path means, which this one no longer is.
        out << R"(\\?([^\\\r\n]+)?)";
    }
    return out;
}

using Clock = std::chrono::steady_clock;

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
          askedTimes_(counts.stanzas.size())
    {
        for (const auto &[header, filter] : group.filters->byName()) {
            filters_.push_back(filter);
        }
        stride_ = 1 + counts.all.records / kTimed;
    }

    void take(WalkedRecord &record);
    void finish();

private:
    /// Records of the capture that times are taken of, and of a candidate that stanzas are asked about.
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
    std::uint64_t stride_;
    std::uint64_t number_ = 0;
};

void Probe::take(WalkedRecord &record)
{
    if (!record.isOnRegistry()) {
        return;
    }
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
        if (isMatch && stanza.matched == 0) {
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
std::vector<NoiseSource> sourcesOf(const OpenCapture &open, const Stanzas &stanzas,
                                   const CaptureCounts &counts, const std::vector<Candidate> &candidates,
                                   const char *key, Quieter quieter)
{
    std::vector<NoiseSource> sources;
    for (const Candidate &candidate : candidates) {
        NoiseSource source{candidate.name, candidate.tally, {}, {}, {}};
        Stanzas changed = stanzas;
        for (const std::size_t at : candidate.stanzas) {
            const Str &header = counts.stanzas[at].header;
            const std::optional<Str> value = quieter(stanzas.at(header).get(key), candidate);
            if (!value) {
                source.unchanged.push_back(header);
                continue;
            }
            changed[header].set(key, *value);
            source.settings.push_back({header, key, *value});
        }
        source.streamWithout = countStream(open, changed);
        sources.push_back(std::move(source));
    }
    return sources;
}

} // namespace

Noise findNoise(const OpenCapture &open, const Stanzas &stanzas, CaptureCounts &counts)
{
    std::vector<Candidate> processes = loudestProcesses(counts);
    std::vector<Candidate> keys = loudestKeys(counts);
    HiveNames hiveNames;
    DriveMap drives{DriveMappings()};
    {
        CaptureWalk walk(open, stanzas);
        Probe probe(counts, walk.group(), processes, keys);
        walk.run([&](WalkedRecord &record) { probe.take(record); });
        probe.finish();
        hiveNames = walk.replay().hiveNames();
        drives = walk.replay().machine().drives();
    }
    Noise noise;
    noise.processes =
        sourcesOf(open, stanzas, counts, processes, "proc", [&](const Str &proc, const Candidate &candidate) {
            return std::optional(procWithout(proc, {candidate.filterText, candidate.name}, drives));
        });
    noise.keys =
        sourcesOf(open, stanzas, counts, keys, "hive", [&](const Str &hive, const Candidate &candidate) {
            return hiveWithout(hive, candidate.filterText, candidate.name, hiveNames);
        });
    return noise;
}

} // namespace velmox
