#pragma once

#include "util/text/str.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <string_view>

namespace velmox {

/// How long a script may take, how much it may write to standard output, and how much of its standard error
/// goes to the log. What is more of the latter is dropped and never fails a run. Scripts come with apps,
/// from anybody: none may hold up the server or fill its memory or log.
struct ScriptLimits
{
    std::chrono::milliseconds time = std::chrono::seconds(60);
    std::uint64_t outputBytes = 16u << 20;
    std::uint64_t errorLines = 1000;
    /// Without line ends.
    std::uint64_t errorBytes = 1u << 20;
};

/// Cuts text that comes in pieces into lines and hands each on without its line end. A line that is longer
/// than `kLongestLine` bytes is handed on in parts, so that nothing grows without limit.
class LineSplitter
{
public:
    static constexpr std::size_t kLongestLine = 8192;

    explicit LineSplitter(std::function<void(const Str &)> onLine) : onLine_(std::move(onLine)) {}

    void feed(std::string_view piece);
    /// Hands on what stands behind the last line end.
    void finish();

private:
    void handOn();

    std::function<void(const Str &)> onLine_;
    Str line_;
};

/// Runs a script to its end: `input` goes to its standard input, what comes out goes to `onOutput` in pieces,
/// and each line of standard error to the log, with `label` in front, up to the limits; at the end a line
/// tells how much was dropped. Returns the exit status.
///
/// The three streams are served by threads of their own, so neither side can block the other; `onOutput` is
/// called on one of them, and what it throws ends the script and is thrown here. A script that exceeds
/// another limit is ended, with all that it started. Throws ModularInputsException if it cannot be run to its
/// end.
int runScript(const Str &label, const Str &commandLine, std::string_view input,
              const std::function<void(std::string_view)> &onOutput, const ScriptLimits &limits);

/// Reports that a script ran but did not do what it should.
[[noreturn]] void raiseScriptFailed(const Str &label, const Str &reason);

} // namespace velmox
