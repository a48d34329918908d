#pragma once

#include "tests/e2e/input_document.h"

namespace velmox::e2e {

/// Where the tests' prefix has the installation.
inline constexpr char kHome[] = "C:\\velmox";

std::size_t occurrences(std::string_view text, std::string_view part);

/// The command line of one of the installation's programs, by its path in `bin`.
Str installed(const char *program, const Str &arguments);

/// How one run of the installed program differs from the usual.
struct RunOptions
{
    const char *program = "velmox-regmon.exe";
    /// Behind the options that every run has.
    Str arguments;
    StrVector environment;
    /// Whether the run ends when the watched process does; otherwise `arguments` must see to its end.
    bool watched = true;
    /// Whether the document ends; otherwise the server holds its side of the pipe.
    bool inputEnds = true;
    Streams streams = Streams::Apart;
};

/// One run of the installed program, as a server starts it: the document goes to its standard input, which is
/// then closed, and it runs until the process that it watches ends.
class MonitorRun
{
public:
    explicit MonitorRun(std::string_view document, const RunOptions &options = {});
    /// A program that lives on without its starter holds the streams until then.
    ~MonitorRun() { watched_.end(); }

    ChildProcess &process() { return process_; }
    Str output() const { return process_.outputBytes(); }
    Str errors() const { return process_.errorBytes(); }
    /// What the program logged so far, into its file and, before it had read its log configuration, on
    /// standard error.
    Str log() const;
    /// Waits until so many events have come.
    bool waitForEvents(std::size_t count);

    /// Ends the watched process and waits for the program; returns its exit code, 32 bits, or fails the test.
    DWORD stop();
    /// Waits for a program that ends by itself.
    DWORD waitForEnd();

private:
    IdleProcess watched_;
    const Pathname logFile_;
    // Behind what earlier runs left in the log file.
    std::size_t logStart_;
    ChildProcess process_;
};

/// What an event of the stream consists of, as the tests write it down; texts are not yet escaped.
struct ExpectedEvent
{
    Str stanza = "all";
    Str index = "default";
    /// Seconds since 1970.
    Str time = "1577836800";
    // Nine hours ahead of UTC, by the zone that the tests run in.
    Str localTime = "01/01/2020 09:00:00.000";
    Str body;
};

/// The body of a registry event.
struct ExpectedBody
{
    Str status;
    unsigned pid = 0;
    Str image = "N/A";
    Str operation = "SetValue";
    Str keyPath;
    Str dataType = "REG_NONE";
    Str data;

    Str text() const;
};

/// The whole stream of these events with its closing tag, to the byte, and nothing for no events.
Str expectedStream(const std::vector<ExpectedEvent> &events);

} // namespace velmox::e2e
