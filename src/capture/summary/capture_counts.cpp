#include "capture/summary/capture_counts.h"

#include "pipeline/input/rules/registry_operations.h"
#include "util/time/timeval.h"

#include <algorithm>
#include <unordered_map>

namespace velmox {

namespace {

constexpr char kSeparator = '\\';

/// Keys of a registry are at most 512 levels deep (Microsoft, "Registry element size limits"), and whoever
/// walks the tree calls itself for each level: a file that somebody made up must not use up the stack.
constexpr std::size_t kMostDepth = 512;

std::size_t componentCount(std::string_view path)
{
    return 1 + static_cast<std::size_t>(std::ranges::count(path, kSeparator));
}

/// The path without its last components.
std::string_view without(std::string_view path, std::size_t components)
{
    for (; components > 0; --components) {
        path = path.substr(0, path.rfind(kSeparator));
    }
    return path;
}

struct LoudPath
{
    const PathNode *node;
    std::uint64_t bytes;
};

/// Appends the loud paths at and below a node, and returns the bytes that are not theirs. From below, so that
/// a path is loud by what its loud children leave; but one whose children are many and none large, such as a
/// key with a value for each file, is loud with all of them.
std::uint64_t gather(const PathNode &node, unsigned depth, std::uint64_t least, std::vector<LoudPath> &out)
{
    // Depth of the first component below a hive. Nobody wants to leave out a hive as a whole.
    constexpr unsigned kBelowHive = 2;
    std::uint64_t bytes = node.own.bytes;
    std::uint64_t largest = 0;
    for (const auto &[name, child] : node.children) {
        bytes += gather(child, depth + 1, least, out);
        largest = std::max(largest, child.all.bytes);
    }
    const bool isSpread = node.all.bytes >= least && node.all.bytes / 2 > largest;
    if ((bytes < least && !isSpread) || depth < kBelowHive) {
        return bytes;
    }
    out.push_back({&node, isSpread ? node.all.bytes : bytes});
    return 0;
}

/// What the monitor writes around the events; it belongs to no record.
constexpr std::string_view kStreamStart = "<stream>\r\n";
constexpr std::string_view kStreamEnd = "</stream>\r\n";

std::string_view operationName(const MonitorRecord &fields)
{
    switch (fields.recordClass()) {
    case kRegistryRecord:
        return registryOperation(fields.operation()).name;
    case kProcessRecord:
        return fields.operation() == kProcessCreated ? "ProcessCreated" : "ProcessExited";
    case kImageRecord:
        return "ProcessImage";
    default:
        return {};
    }
}

/// Gathers what is said of the records one by one. Paths come again and again, and are summed up at the end.
class Counter
{
public:
    Counter(CaptureCounts &counts, CaptureWalk &walk) : counts_(counts), walk_(walk) {}

    void take(WalkedRecord &record);
    void finish();

private:
    struct KeyCounts : Tally
    {
        std::string filterPath;
    };

    std::string keyOf(WalkedRecord &record) const;

    CaptureCounts &counts_;
    CaptureWalk &walk_;
    std::unordered_map<std::string, KeyCounts> keys_;
    /// What carries a stanza's name, of which there may be two of one name.
    std::map<const SystemMonitoringConfig *, Tally> stanzas_;
};

/// The path as events have it, which end it at a NUL.
std::string Counter::keyOf(WalkedRecord &record) const
{
    Str key = record.texts.nameText();
    walk_.replay().hiveNames().shortenHiveRoot(key);
    return key.c_str();
}

void Counter::take(WalkedRecord &record)
{
    const Tally tally{1, record.eventBytes > 0 ? 1U : 0U, record.eventBytes};
    counts_.all += tally;
    ++counts_.seconds[record.texts.fields().timestamp() / Timeval::kTicksPerSecond];
    if (record.operation.empty()) {
        return;
    }
    counts_.operations[std::string(record.operation)] += tally;
    const ProcessText &process = record.texts.process();
    ProcessCounts &ofProcess = counts_.processes[process.displayed.c_str()];
    ofProcess += tally;
    ofProcess.folded = process.folded.view();
    if (!record.isOnRegistry()) {
        return;
    }
    KeyCounts &ofKey = keys_[keyOf(record)];
    ofKey += tally;
    if (ofKey.filterPath.empty()) {
        ofKey.filterPath = record.texts.keyPath().c_str();
    }
    // Asked once more, for the emitter does not tell which stanza it named the event by; the group's answer
    // is the same.
    if (record.eventBytes > 0) {
        stanzas_[walk_.group().stanzaOf(record.texts.foldedName())] += tally;
    }
}

void Counter::finish()
{
    for (const auto &[path, key] : keys_) {
        counts_.keys.add(path, key.filterPath, key);
    }
    if (!walk_.replay().hasStanzas()) {
        return;
    }
    MonitorFilterGroup &group = walk_.group();
    group.filters->filters(); // the counters stand in the filters now
    // Both are in the order of the headers.
    auto config = group.configs.begin();
    for (const auto &[header, filter] : group.filters->byName()) {
        const Tally &carried = stanzas_[&*config];
        counts_.stanzas.push_back(
            {config->name, header, filter->checks, filter->hits, carried.events, carried.bytes});
        ++config;
    }
}

} // namespace

Tally &Tally::operator+=(const Tally &other)
{
    records += other.records;
    events += other.events;
    bytes += other.bytes;
    return *this;
}

void PathTree::add(std::string_view path, std::string_view filterPath, const Tally &tally)
{
    const std::size_t count = componentCount(path);
    PathNode *node = &root_;
    node->all += tally;
    const std::size_t depth = std::min(count, kMostDepth);
    for (std::size_t at = 0, number = 1; number <= depth; ++number) {
        const bool isLast = number == depth;
        const std::size_t end = isLast ? path.size() : path.find(kSeparator, at);
        const std::string_view name = path.substr(at, end - at);
        const auto [place, isNew] = node->children.try_emplace(std::string(Str(name).lowered().view()));
        PathNode &child = place->second;
        if (isNew) {
            child.name = name;
            child.path = number == 1 ? std::string() : node->path + kSeparator;
            child.path += name;
            // As many components as are left to come are taken off the end.
            child.filterPath = without(filterPath, isLast ? 0 : count - number);
        }
        child.all += tally;
        node = &child;
        at = end + 1;
    }
    node->own += tally;
}

std::vector<const PathNode *> PathTree::loudest(std::size_t most) const
{
    constexpr std::uint64_t kShare = 100;
    std::vector<LoudPath> loud;
    gather(root_, 0, root_.all.bytes / kShare + 1, loud);
    std::ranges::stable_sort(loud, std::greater(), &LoudPath::bytes);
    std::vector<const PathNode *> nodes;
    for (const LoudPath &path : loud) {
        if (nodes.size() < most) {
            nodes.push_back(path.node);
        }
    }
    return nodes;
}

CaptureWalk::CaptureWalk(const OpenCapture &open, const MonitorSettings &settings)
    : reader_(open()), replay_(reader_.start(), settings.stanzas, settings.defaults, nullptr),
      processes_(replay_.machine().drives()), texts_(replay_.hiveNames(), processes_)
{
}

void CaptureWalk::run(const OnRecord &onRecord)
{
    for (CapturedBuffer buffer; reader_.next(buffer);) {
        lostReads_ += buffer.facts.lostReads;
        replay_.moveTo(buffer.facts);
        for (std::size_t at = 0; at < buffer.records.size();) {
            const unsigned char *const start = buffer.records.data() + at;
            const std::uint32_t length = MonitorRecord(start).length();
            take(start, length, onRecord);
            at += length;
        }
    }
    // The totals have those behind the last buffer too, and are zeros in a file that was cut off.
    lostReads_ = std::max(lostReads_, reader_.end().lostReads);
}

void CaptureWalk::take(const unsigned char *start, std::uint32_t length, const OnRecord &onRecord)
{
    const std::uint64_t before = replay_.writtenBytes();
    // First the monitor's rooms: the table of processes then knows what this record says of them, when the
    // texts below ask it.
    replay_.take({start, length});
    std::uint64_t bytes = replay_.writtenBytes() - before;
    // With the first event comes the stream's own tag.
    if (before == 0 && bytes > 0) {
        bytes -= kStreamStart.size();
    }
    const MonitorRecord fields(start);
    texts_.take(fields);
    const bool isOnRegistry = fields.recordClass() == kRegistryRecord;
    WalkedRecord record{texts_, operationName(fields),
                        isOnRegistry ? registryOperation(fields.operation()).word : std::string_view(),
                        bytes};
    onRecord(record);
}

std::uint64_t CaptureWalk::streamBytes() const
{
    const std::uint64_t written = replay_.writtenBytes();
    return written == 0 ? 0 : written + kStreamEnd.size();
}

CaptureCounts countCapture(const OpenCapture &open, const MonitorSettings &settings)
{
    CaptureCounts counts;
    CaptureWalk walk(open, settings);
    Counter counter(counts, walk);
    walk.run([&](WalkedRecord &record) { counter.take(record); });
    counter.finish();
    counts.lostReads = walk.lostReads();
    counts.streamBytes = walk.streamBytes();
    counts.isCut = walk.reader().isCut();
    counts.isIncomplete = walk.replay().isIncomplete();
    return counts;
}

Tally countStream(const OpenCapture &open, const MonitorSettings &settings)
{
    CaptureWalk walk(open, settings);
    Tally tally;
    walk.run([&](WalkedRecord &record) { tally += {1, record.eventBytes > 0 ? 1U : 0U, 0}; });
    tally.bytes = walk.streamBytes();
    return tally;
}

} // namespace velmox
