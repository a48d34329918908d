#include "capture/file/capture_reader.h"
#include "capture/program/capture_command_line.h"
#include "capture/replay/capture_replay.h"
#include "capture/summary/summary.h"
#include "companion/events/terminal.h"
#include "pipeline/input/xml/config_xml_streaming_parser.h"
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

/// What stands on standard input can't be used.
class DocumentException : public BaseException
{
public:
    using BaseException::BaseException;
};

/// Notes whether it met a document at all.
class DocumentParser : public ConfigXmlStreamingParser
{
public:
    void startElement(const Str &name) override
    {
        isDocument_ = isDocument_ || name == "input";
        ConfigXmlStreamingParser::startElement(name);
    }
    bool isDocument() const { return isDocument_; }

private:
    bool isDocument_ = false;
};

/// Standard input as the monitor reads it, which is a text stream there: Ctrl-Z ends it, and a CR before an
/// LF does not count. Empty where there is none.
std::string readText()
{
    std::string text;
    char bytes[8192];
    while (const std::size_t count = std::fread(bytes, 1, sizeof bytes, stdin)) {
        text.append(bytes, count);
    }
    if (std::ferror(stdin) != 0 && errno != EBADF) {
        throw DocumentException(std::strerror(errno));
    }
    text.resize(std::min(text.find('\x1a'), text.size()));
    // In place, as the kept bytes never overtake those that are looked at.
    std::size_t kept = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!std::string_view(text).substr(at).starts_with("\r\n")) {
            text[kept++] = text[at];
        }
    }
    text.resize(kept);
    return text;
}

/// The stanzas of the document on standard input; nothing where that is a terminal, or blank.
std::optional<Stanzas> readStanzas()
{
    // The monitor reads as much at a time, which decides at what length a token without an end is dropped.
    constexpr std::size_t kPiece = 8192;
    const std::string text = isatty(STDIN_FILENO) == 0 ? readText() : std::string();
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
        return std::nullopt;
    }
    DocumentParser parser;
    try {
        for (std::size_t at = 0; at < text.size(); at += kPiece) {
            parser.feed(text.data() + at, std::min(kPiece, text.size() - at));
        }
    } catch (const BaseException &exception) {
        throw DocumentException(exception.what());
    }
    if (!parser.isDocument()) {
        throw DocumentException("is no input document in UTF-8");
    }
    return parser.stanzas();
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
    constexpr char kDocument[] = "standard input";
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
    // Of the monitor's log a recording shows what keeps it from its driver, on standard error. A replay and a
    // summary say what is wrong with their file themselves, and no more.
    LogSystem::instance().categories().root().threshold =
        line.command == CaptureCommand::Record ? LogLevel::Error : LogLevel::Emerg;
    Logger::bindAll();
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
