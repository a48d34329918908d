#pragma once

#include "bench/figures.h"
#include "testbed/record_builder.h"

namespace velmox::bench {

struct Options
{
    unsigned rounds = 5;
    unsigned thousandRecords = 2000;
    unsigned thousandEvents = 50;
};

/// A registry record of 180 bytes or so on a key below HKLM\Software.
testbed::RecordFields record(const std::u16string &key, unsigned pid = 4);
/// The name of the last record of any flood, which is accepted: its event in the output says that all before
/// it has been worked off.
inline constexpr char16_t kSentinelKey[] = u"Watched0\\Sentinel";
inline constexpr char kSentinelMark[] = "\\Sentinel\\";

/// The input document with so many stanzas, each for a key of its own: Watched0, Watched1 and so on.
Str watchedKeys(unsigned stanzas);

struct Flood
{
    unsigned thousands;
    unsigned stanzas = 20;
    unsigned processes = 10;

    double records() const { return thousands * 1000.0; }
};

/// What the bare loop does for each buffer that it has read.
using AfterRead = void (*)();

/// How long a loop of the monitor's own reads takes for a flood, on a device that is opened as the monitor
/// opens it: what the driver, and Wine's server, take of any program that reads so.
double bareSeconds(const Flood &flood, AfterRead afterRead = nullptr);

/// How fast records are taken off the driver when 1 in 1000 is accepted, and the memory in use afterwards.
Figures measureFlood(const Options &options);
/// How the time of a flood grows with its size, with the stanzas and with the processes.
Figures measureGrowth(const Options &options);

} // namespace velmox::bench
