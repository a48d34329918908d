#pragma once

#include "util/files/file_descriptor.h"

#include <chrono>
#include <string>
#include <string_view>

namespace velmox {

/// The file that a recording goes into. For one thread. Failures throw ComponentException, with the path and
/// what the system says of it.
///
/// Blocks that follow fast on each other are written 64 KiB at a time: a call of the system for each of them
/// made a recording slower than the monitor.
class CaptureOutput
{
public:
    /// Throws unless the path names nothing, an empty file or a capture, and leaves it as it is: a name that
    /// was mistaken costs nothing.
    static void refuseForeignFile(const Str &path);

    /// Empties or creates the file. Others can read it meanwhile: a recording that goes on can be looked at.
    explicit CaptureOutput(const Str &path);
    /// Writes what was gathered, as far as that is possible.
    ~CaptureOutput();
    CaptureOutput(const CaptureOutput &) = delete;
    CaptureOutput &operator=(const CaptureOutput &) = delete;

    /// Holds back no more than that, and nothing for more than a quarter of a second before the next call.
    void write(std::string_view bytes);
    /// Holds nothing back any more.
    void flush();

private:
    using Clock = std::chrono::steady_clock;

    Str path_;
    FileDescriptor file_;
    std::string gathered_;
    Clock::time_point flushed_ = Clock::now();
};

} // namespace velmox
