#pragma once

#include "capture/summary/noise.h"

#include <string>

namespace velmox {

/// Whether a summary is for people or for programs.
enum class SummaryForm
{
    Text,
    Json,
};

struct CaptureSummary
{
    std::string text;
    /// Whether the capture ends before its totals.
    bool isCut = false;
    /// Whether any of the stanzas is enabled.
    bool hasStanzas = false;
};

/// Makes a summary: of the records of a capture, of its loss, and, with stanzas, of what these make of it and
/// where most of that comes from. A name can neither end a line nor send a terminal a command.
///
/// It replays the capture once, and for people once more for each of up to twenty sources of noise. Throws
/// CaptureException for a capture that can't be read, RegexException for a pattern that does not compile;
/// what `open` throws passes through. Main thread. A summary for people leaves the log turned off.
CaptureSummary summarizeCapture(const OpenCapture &open, const MonitorSettings &settings, SummaryForm form);

} // namespace velmox
