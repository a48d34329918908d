#pragma once

#include "capture/record/recorder.h"
#include "pipeline/input/rules/stanza_configuration.h"

#include <string>
#include <vector>

// The room `program`: `velmox-capture` itself. What it was asked for, and its three commands. But for
// recording it is built natively too.
namespace velmox {

enum class CaptureCommand
{
    Record,
    Replay,
    Summary,
    Help,
};

/// What the user asked `velmox-capture` for.
struct CaptureCommandLine
{
    CaptureCommand command = CaptureCommand::Help;
    Str file;
    RecordOptions record;
    /// What the stanzas of a replay or summary have in common.
    StanzaDefaults defaults = {"default", true};
    /// Whether a summary is for programs.
    bool isJson = false;
    /// Whether to let as much time pass between buffers as did when they came in.
    bool isPaced = false;
};

extern const char *const kCaptureUsage;

/// Reads the words behind the program's name. Throws std::invalid_argument with what is wrong.
CaptureCommandLine readCaptureCommandLine(const std::vector<std::string> &words);

} // namespace velmox
