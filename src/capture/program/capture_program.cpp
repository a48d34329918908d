#include "capture/file/capture_reader.h"
#include "capture/program/capture_command_line.h"
#include "capture/replay/capture_replay.h"
#include "capture/summary/summary.h"
#include "companion/events/terminal.h"
#include "pipeline/input/xml/config_xml_streaming_parser.h"
#include "util/log/log_system.h"
#include "util/log/logger.h"
#include "util/system/program_entry.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <thread>
#include <unistd.h>

#ifdef _WIN32
#include "util/system/windows_api.h"
#endif

namespace velmox {

namespace {

constexpr int kEndedEarly = 1;
constexpr int kUnreadable = 2;
constexpr int kUsage = 2;

void complain(const std::string &text)
{
    std::fprintf(stderr, "velmox-capture: %s\n", text.c_str());
}

struct FileCloser
{
    void operator()(std::FILE *file) const { std::fclose(file); }
};

std::unique_ptr<std::FILE, FileCloser> openCapture(const Str &path)
{
    const int descriptor = openForReading(std::string(path.view()));
    std::unique_ptr<std::FILE, FileCloser> file(descriptor < 0 ? nullptr : fdopen(descriptor, "rb"));
    if (!file) {
        throw std::runtime_error(std::strerror(errno));
    }
    return file;
}

CaptureReader::Source sourceOf(std::FILE *file)
{
    return [file](char *out, std::size_t bytes) {
        const std::size_t count = std::fread(out, 1, bytes, file);
        if (std::ferror(file) != 0) {
            throw std::runtime_error(std::strerror(errno));
        }
        return count;
    };
}

/// Feeds standard input to the parser as the monitor gets it. There it is a text stream, from which Windows
/// takes the CR in front of each LF; here it passes bytes as they are.
void readDocument(ConfigXmlStreamingParser &parser)
{
    std::string document;
    char bytes[8192];
    while (const std::size_t count = std::fread(bytes, 1, sizeof bytes, stdin)) {
        document.append(bytes, count);
    }
    // In place, as the kept bytes never overtake those that are looked at.
    std::size_t kept = 0;
    for (std::size_t at = 0; at < document.size(); ++at) {
        if (!document.substr(at, 2).starts_with("\r\n")) {
            document[kept++] = document[at];
        }
    }
    parser.feed(document.data(), kept);
}

/// Lets as much time pass as did while it was recorded. By the time at which each buffer is due, and not from
/// one to the next, so that what the replay itself takes does not add up.
class Pace
{
public:
    explicit Pace(std::uint64_t start) : last_(start) {}

    void waitFor(std::uint64_t time)
    {
        // A clock that was put forward meanwhile, or a file that says anything, costs a day at most.
        constexpr std::uint64_t kLongest = 86'400 * Timeval::kTicksPerSecond;
        const std::uint64_t ticks = last_ != 0 && time > last_ ? time - last_ : 0;
        last_ = time;
        due_ += std::chrono::microseconds(std::min(ticks, kLongest) / 10);
        std::this_thread::sleep_until(due_);
    }

private:
    std::uint64_t last_;
    std::chrono::steady_clock::time_point due_ = std::chrono::steady_clock::now();
};

void tellOfCut(const CaptureCommandLine &line)
{
    complain(std::string(line.file.view()) + ": cut off; read up to its last whole block");
}

/// Tells of what a reader can't see in the stream.
void tellOfLoss(const CaptureCommandLine &line, const CaptureReader &reader, std::uint64_t lostReads)
{
    const std::string file(line.file.view());
    if (reader.isCut()) {
        tellOfCut(line);
    }
    if (lostReads != 0) {
        complain(file + ": " + std::to_string(lostReads) + " reads were lost while it was recorded");
    }
}

void replayBuffers(const CaptureCommandLine &line, CaptureReader &reader, CaptureReplay &replay)
{
    Pace pace(reader.start().time);
    std::uint64_t lostReads = 0;
    for (CapturedBuffer buffer; reader.next(buffer);) {
        if (line.isPaced) {
            pace.waitFor(buffer.facts.time);
        }
        lostReads += buffer.facts.lostReads;
        replay.take(buffer);
        if (std::ferror(stdout) != 0) {
            break; // nobody gets the rest
        }
    }
    // The end as well: a recording that had nothing to tell in the end took its time too.
    if (line.isPaced && std::ferror(stdout) == 0) {
        pace.waitFor(reader.end().time);
    }
    tellOfLoss(line, reader, std::max(lostReads, reader.end().lostReads));
}

int endOutput()
{
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain("standard output: " + std::string(std::strerror(errno)));
        return kEndedEarly;
    }
    return 0;
}

/// Tells of what the driver may have kept back.
void tellOfAsked(const CaptureCommandLine &line, const CaptureReader &reader, const CaptureReplay &replay)
{
    if (reader.isCut()) {
        return;
    }
    const std::string file(line.file.view());
    if (reader.start().filter.events == 0) {
        complain(file + ": recorded beside a monitor; it is not known what the driver was asked for");
    } else if (replay.isIncomplete()) {
        complain(file + ": does not hold all that the document asks for");
    }
}

int replay(const CaptureCommandLine &line)
{
    try {
        const auto file = openCapture(line.file);
        CaptureReader reader(sourceOf(file.get()));
        ConfigXmlStreamingParser parser;
        readDocument(parser);
        CaptureReplay stream(reader.start(), parser.stanzas(), line.defaults, stdout);
        tellOfAsked(line, reader, stream);
        try {
            replayBuffers(line, reader, stream);
        } catch (...) {
            // A damaged capture: without `</stream>` a reader sees that the stream is not whole.
            stream.leaveOpen();
            throw;
        }
    } catch (const std::exception &exception) {
        complain(std::string(line.file.view()) + ": " + exception.what());
        return kUnreadable;
    }
    return endOutput();
}

/// The stanzas of the document on standard input; none where that is a terminal, or empty.
Stanzas readStanzas()
{
    ConfigXmlStreamingParser parser;
    if (isatty(STDIN_FILENO) == 0) {
        readDocument(parser);
    }
    return parser.stanzas();
}

int summarize(const CaptureCommandLine &line)
{
    std::unique_ptr<std::FILE, FileCloser> file;
    // Each opening ends the one before: a summary reads the file once more for each replay, one after the
    // other.
    const auto open = [&] {
        file = openCapture(line.file);
        return sourceOf(file.get());
    };
    try {
        const CaptureSummary summary =
            summarizeCapture(open, readStanzas(), line.isJson ? SummaryForm::Json : SummaryForm::Text);
        if (summary.isCut) {
            tellOfCut(line);
        }
        std::fwrite(summary.text.data(), 1, summary.text.size(), stdout);
    } catch (const std::exception &exception) {
        complain(std::string(line.file.view()) + ": " + exception.what());
        return kUnreadable;
    }
    return endOutput();
}

int recordToFile(const RecordOptions &options)
{
#ifdef _WIN32
    try {
        record(options);
        return 0;
    } catch (const RecordingFailure &exception) {
        complain(exception.what());
        return kEndedEarly;
    } catch (const std::exception &exception) {
        complain(exception.what());
        return kUnreadable;
    }
#else
    complain(std::string(options.file.view()) + ": the driver to record from is one of Windows");
    return kUnreadable;
#endif
}

} // namespace

/// The exit code is 0; 1 for a recording or a stream that ended before its time; 2 for what could not be
/// begun or read.
int runProgram(const std::vector<std::string> &words)
{
    openTerminal();
    CaptureCommandLine line;
    try {
        line = readCaptureCommandLine(words);
    } catch (const std::invalid_argument &exception) {
        complain(std::string(exception.what()) + "\n" + kCaptureUsage);
        return kUsage;
    }
    // Of the monitor's log a recording shows what keeps it from its driver, on standard error. A replay and a
    // summary say what is wrong with their file themselves, and no more.
    LogSystem::instance().categories().root().threshold =
        line.command == CaptureCommand::Record ? LogLevel::Error : LogLevel::Emerg;
    Logger::bindAll();
    switch (line.command) {
    case CaptureCommand::Record:
        return recordToFile(line.record);
    case CaptureCommand::Replay:
        return replay(line);
    case CaptureCommand::Summary:
        return summarize(line);
    case CaptureCommand::Help:
        std::fputs(kCaptureUsage, stdout);
        return 0;
    }
    return kUsage;
}

} // namespace velmox
