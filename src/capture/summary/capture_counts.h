#pragma once

#include "capture/file/capture_reader.h"
#include "capture/replay/capture_replay.h"

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

// The room `summary`: what a capture holds, counted, and what a document's stanzas would make of it. All of
// it comes of replays, so that what is counted is what the monitor does.
namespace velmox {

/// Records, and the events and bytes of stream that came of them.
struct Tally
{
    std::uint64_t records = 0;
    std::uint64_t events = 0;
    std::uint64_t bytes = 0;

    Tally &operator+=(const Tally &other);
};

/// A key or value with what lies below it. The registry knows no difference of case, so neither do its nodes;
/// one is spelt as it came first.
struct PathNode
{
    std::string name;
    /// From the root, as events have it.
    std::string path;
    /// The same as the filters see it: from the kernel's root, in lower case.
    std::string filterPath;
    /// What was said of this very path.
    Tally own;
    /// The same with all below.
    Tally all;
    /// By name in lower case.
    std::map<std::string, PathNode> children;
};

/// Counts by path, summed up for each key above.
class PathTree
{
public:
    /// `path` is as events have it, `filterPath` as the filters do: from their ends they correspond,
    /// component by component, while at the front one may have a short root where the other has several
    /// components. What lies deeper than any key of a registry is one component.
    void add(std::string_view path, std::string_view filterPath, const Tally &tally);

    const PathNode &root() const { return root_; }

    /// Where most of the bytes come from, the largest first: paths that make at least a hundredth of them,
    /// not counting what a path below them, which is one itself, makes; and with all below those that make
    /// more than twice as much as the largest path right below. No hive is one, nor a path above.
    std::vector<const PathNode *> loudest(std::size_t most) const;

private:
    PathNode root_;
};

/// What a monitor is given: the stanzas of a document, and what its options say of them.
struct MonitorSettings
{
    Stanzas stanzas;
    StanzaDefaults defaults = {"default", true};
};

/// Opens the capture once more, from its beginning.
using OpenCapture = std::function<CaptureReader::Source()>;

/// A record that was just handled, and what came of it. Holds for the call that it is passed to.
struct WalkedRecord
{
    RecordAtHand &texts;
    /// As events have it, such as SetValue or ProcessCreated; empty for a class that nobody knows.
    std::string_view operation;
    /// The same for the filters; empty for what is no operation on the registry.
    std::string_view word;
    /// Bytes of its event; 0 if it was dropped.
    std::uint64_t eventBytes;

    bool isOnRegistry() const { return !word.empty(); }
};

/// Hands the records of a capture, one by one, to the monitor's own rooms, and tells of each. One at a time
/// in a process, as its replay is; main thread only.
class CaptureWalk
{
public:
    using OnRecord = std::function<void(WalkedRecord &record)>;

    /// What the constructors of reader and replay throw passes through.
    CaptureWalk(const OpenCapture &open, const MonitorSettings &settings);

    void run(const OnRecord &onRecord);

    /// Only with an enabled stanza.
    MonitorFilterGroup &group() { return *replay_.rules().registryGroup(); }
    CaptureReplay &replay() { return replay_; }

    // Behind `run`.

    const CaptureReader &reader() const { return reader_; }
    std::uint64_t lostReads() const { return lostReads_; }
    /// All of the stream, with its frame.
    std::uint64_t streamBytes() const;

private:
    void take(const unsigned char *start, std::uint32_t length, const OnRecord &onRecord);

    CaptureReader reader_;
    CaptureReplay replay_;
    ProcessTexts processes_;
    RecordAtHand texts_;
    std::uint64_t lostReads_ = 0;
};

/// What one stanza had to do with a capture.
struct StanzaCounts
{
    /// As events carry it, and as a document does.
    Str name;
    Str header;
    /// How often the monitor asked it, and how often it was the one that let a record pass.
    std::uint64_t tried = 0;
    std::uint64_t matched = 0;
    /// The events that carry its name, whichever let them pass, and their bytes.
    std::uint64_t accepted = 0;
    std::uint64_t bytes = 0;
    /// What its expressions take for a record; zero if there was none to ask it about.
    std::chrono::nanoseconds time{0};
    /// Of one that never matched, whether it would match a record that one asked before it let pass.
    bool isHidden = false;
    /// The same of a record that the driver is not asked for.
    bool isUnasked = false;
};

/// What a process had to do with a capture.
struct ProcessCounts : Tally
{
    /// Its image path for the filters; empty for an unknown process.
    std::string folded;
};

/// Everything that a summary says of the records of a capture.
struct CaptureCounts
{
    Tally all;
    std::uint64_t lostReads = 0;
    std::uint64_t streamBytes = 0;
    bool isCut = false;
    /// Whether the driver had been asked for less than the stanzas want.
    bool isIncomplete = false;
    std::map<std::string, Tally, std::less<>> operations;
    /// By image path.
    std::map<std::string, ProcessCounts, std::less<>> processes;
    /// By path, as events have it.
    PathTree keys;
    /// Records by the second in which they came about, since 1 January 1601 UTC.
    std::map<std::uint64_t, std::uint64_t> seconds;
    /// In the order of their headers.
    std::vector<StanzaCounts> stanzas;
};

/// Replays the capture and counts. Without enabled stanzas nothing is accepted. Throws as `CaptureWalk` does.
CaptureCounts countCapture(const OpenCapture &open, const MonitorSettings &settings);

/// Replays the capture, and returns the events of its stream with their bytes and the frame's.
Tally countStream(const OpenCapture &open, const MonitorSettings &settings);

} // namespace velmox
