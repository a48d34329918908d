#pragma once

#include "bench/flood.h"

namespace velmox::bench {

/// How long a program runs from its start to its end, with its output in a file.
double programSeconds(const Str &commandLine);
Str exportCommand();
/// The bare walk of HKLM, which writes the text of a file for each value.
Str walkCommand(const char *writtenFile = "");

/// How fast a baseline of HKLM is taken when every value is accepted, and when 1 in 1000 is.
Figures measureBaseline(const Options &options);

/// How long the program takes to its first poll of the device without a baseline.
Figures measureStart(const Options &options);

} // namespace velmox::bench
