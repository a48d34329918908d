#include "capture/file/capture_reader.h"
#include "capture/program/capture_command_line.h"
#include "capture/program/given_document.h"
#include "capture/replay/capture_replay.h"
#include "capture/summary/summary.h"
#include "companion/events/terminal.h"
#include "util/log/log_system.h"
#include "util/log/logger.h"
#include "util/match/regex.h"
#include "util/system/program_entry.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>

#ifdef _WIN32
#include "util/system/windows_api.h"
#endif

namespace velmox {

namespace {

constexpr int kEndedEarly = 1;
constexpr int kUnreadable = 2;
constexpr int kUsage = 2;
constexpr char kDocument[] = "standard input";

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

void tellOfNoStanza()
{
    complain("standard input: no enabled stanza in the document");
}

/// Tells of what the driver may have kept back.
void tellOfAsked(const CaptureCommandLine &line, const CaptureReader &reader, CaptureReplay &replay)
{
    const std::string file(line.file.view());
    if (!replay.hasStanzas()) {
        tellOfNoStanza();
    } else if (reader.start().filter.events == 0) {
        complain(file + ": recorded beside a monitor; it is not known what the driver was asked for");
    } else if (replay.isIncomplete()) {
        complain(file + ": does not hold all that the document asks for");
    }
}

/// Returns the reads that were lost.
std::uint64_t replayBuffers(const CaptureCommandLine &line, CaptureReader &reader, CaptureReplay &replay)
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
    return std::max(lostReads, reader.end().lostReads);
}

// What is wrong with a file is all that is said of it, so the rest is told behind its end.
void replay(const CaptureCommandLine &line)
{
    const std::optional<Stanzas> stanzas = readStanzas();
    if (!stanzas) {
        throw DocumentException("an input document is needed");
    }
    const auto file = openCapture(line.file);
    CaptureReader reader(sourceOf(file.get()));
    const bool hasStart = !reader.isCut();
    CaptureReplay stream(reader.start(), *stanzas, line.defaults, stdout);
    std::uint64_t lostReads = 0;
    try {
        lostReads = replayBuffers(line, reader, stream);
    } catch (...) {
        stream.leaveOpen();
        throw;
    }
    if (hasStart) {
        tellOfAsked(line, reader, stream);
    }
    if (reader.isCut()) {
        tellOfCut(line);
    }
    if (lostReads != 0) {
        complain(std::string(line.file.view()) + ": " + std::to_string(lostReads) +
                 " reads were lost while it was recorded");
    }
}

void summarize(const CaptureCommandLine &line)
{
    const std::optional<Stanzas> stanzas = readStanzas();
    std::unique_ptr<std::FILE, FileCloser> file;
    const auto open = [&] {
        file = openCapture(line.file);
        return sourceOf(file.get());
    };
    const CaptureSummary summary = summarizeCapture(open, {stanzas.value_or(Stanzas()), line.defaults},
                                                    line.isJson ? SummaryForm::Json : SummaryForm::Text);
    if (stanzas && !summary.hasStanzas) {
        tellOfNoStanza();
    }
    if (summary.isCut) {
        tellOfCut(line);
    }
    std::fwrite(summary.text.data(), 1, summary.text.size(), stdout);
}

int endOutput()
{
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain("standard output: " + std::string(std::strerror(errno)));
        return kEndedEarly;
    }
    return 0;
}

int refuse(const std::string &source, const std::exception &exception)
{
    complain(source + ": " + exception.what());
    return kUnreadable;
}

/// Writes what a command makes of a capture, or tells what it cannot read.
int carryOut(void (*command)(const CaptureCommandLine &), const CaptureCommandLine &line)
{
    try {
        command(line);
        return endOutput();
    } catch (const DocumentException &exception) {
        return refuse(kDocument, exception);
    } catch (const RegexException &exception) {
        return refuse(kDocument, exception);
    } catch (const std::exception &exception) {
        return refuse(std::string(line.file.view()), exception);
    }
}

/// The program says what is wrong with its files and its document itself, and no more; of the monitor's log a
/// recording shows what keeps it from its driver, on standard error.
void showLog(LogLevel threshold)
{
    LogSystem::instance().categories().root().threshold = threshold;
    Logger::bindAll();
}

int recordToFile([[maybe_unused]] RecordOptions options)
{
#ifdef _WIN32
    try {
        options.stanzas = readStanzas();
        showLog(LogLevel::Error);
        record(options);
        return 0;
    } catch (const RecordingFailure &exception) {
        complain(exception.what());
        return kEndedEarly;
    } catch (const DocumentException &exception) {
        return refuse(kDocument, exception);
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
#ifndef _WIN32
    // A reader that goes away makes writes fail, as it does on Windows.
    std::signal(SIGPIPE, SIG_IGN);
#endif
    openTerminal();
    CaptureCommandLine line;
    try {
        line = readCaptureCommandLine(words);
    } catch (const std::invalid_argument &exception) {
        complain(std::string(exception.what()) + "\n" + kCaptureUsage);
        return kUsage;
    }
    showLog(LogLevel::Emerg);
    switch (line.command) {
    case CaptureCommand::Record:
        return recordToFile(line.record);
    case CaptureCommand::Replay:
        return carryOut(replay, line);
    case CaptureCommand::Summary:
        return carryOut(summarize, line);
    case CaptureCommand::Help:
        std::fputs(kCaptureUsage, stdout);
        return endOutput();
    }
    return kUsage;
}

} // namespace velmox
