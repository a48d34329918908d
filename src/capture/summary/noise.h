#pragma once

#include "capture/summary/capture_counts.h"

namespace velmox {

/// A setting of a stanza.
struct StanzaSetting
{
    Str header;
    /// `proc` or `hive`.
    const char *key;
    Str value;
};

/// A process or key that makes much of the stream, and what leaves it out.
struct NoiseSource
{
    /// As events have it.
    std::string name;
    Tally tally;
    /// The settings to be changed, of each stanza that would let it pass.
    std::vector<StanzaSetting> settings;
    /// Those that would let it pass and for which no setting that leaves it out is known, by their headers.
    std::vector<Str> unchanged;
    /// The stream with these settings, from a replay.
    Tally streamWithout;
};

struct Noise
{
    std::vector<NoiseSource> processes;
    std::vector<NoiseSource> keys;
};

/// Finds the ten processes and the ten keys that make most of the stream, and replays the capture without
/// each; none where what stanzas match is left out, which takes another stanza and no other pattern. On the
/// way the stanzas of `counts` get their times, and it becomes known which of them are hidden.
Noise findNoise(const OpenCapture &open, const MonitorSettings &settings, CaptureCounts &counts);

} // namespace velmox
