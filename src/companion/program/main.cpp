#include "companion/events/baseline.h"
#include "companion/events/event_json.h"
#include "companion/events/event_table.h"
#include "companion/events/terminal.h"
#include "companion/program/event_input.h"
#include "companion/program/events_command_line.h"
#include "companion/report/event_report.h"
#include "util/system/program_entry.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace velmox {

namespace {

/// Exit codes. A comparison has those of `diff`: 0 for no difference, 1 for some, 2 where that is not known;
/// elsewhere 1 says that the output may not be all that the input held, or more than was asked for.
constexpr int kDamaged = 1;
constexpr int kDifferent = 1;
constexpr int kUnreadable = 2;
constexpr int kUnsure = 2;
constexpr int kUsage = 2;

/// Writes out what gathered, and empties it. Called before each wait for input: events of a running monitor
/// appear at once, and a file costs few writes. Throws when nobody takes the output any more.
void flush(std::string &text)
{
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (!isWritten || std::fflush(stdout) != 0) {
        throw std::runtime_error(std::string("standard output: ") + std::strerror(errno));
    }
    text.clear();
}

int readAll(EventInput &input, const std::vector<std::string> &files)
{
    int exitCode = 0;
    for (const std::string &file : files) {
        exitCode = input.read(file) ? exitCode : kDamaged;
    }
    return input.hasGivenUp() ? kDamaged : exitCode;
}

int printTable(EventsCommandLine &line, TableStyle style)
{
    std::string out;
    EventTable table(style);
    table.appendHeader(out);
    EventInput input(
        line.filter,
        [&](const StreamEvent &event, const EventFields &fields) { table.append(event, fields, out); },
        [&] { flush(out); });
    return readAll(input, line.files);
}

int printJson(EventsCommandLine &line)
{
    std::string out;
    EventJson json;
    EventInput input(
        line.filter, [&](const StreamEvent &, const EventFields &fields) { json.append(fields, out); },
        [&] { flush(out); });
    return readAll(input, line.files);
}

/// Reads all of an input, selected or not, since a comparison is one of whole baselines. False when the input
/// is damaged, or holds no baseline: nothing can be said then of what is not in it.
bool readBaseline(EventsCommandLine &line, const std::string &file, Baseline &baseline, bool &hasGivenUp)
{
    EventInput input(
        line.filter, [&](const StreamEvent &event, const EventFields &) { baseline.add(event, true); }, [] {},
        [&](const StreamEvent &event, const EventFields &) { baseline.add(event, false); });
    const bool isSound = input.read(file);
    hasGivenUp |= input.hasGivenUp();
    if (!isSound) {
        return false;
    }
    if (baseline.empty()) {
        complain(file + ": no baseline in it");
    }
    return !baseline.empty();
}

/// Names the stanzas that have a baseline in one input alone. Their values all read as added or removed,
/// while it may just be that the stanza was not due.
void tellOfStanzas(const EventsCommandLine &line, const Baseline &oldOne, const Baseline &newOne)
{
    const auto tell = [](const Baseline &baseline, const std::string &file, const Baseline &other,
                         const std::string &otherFile) {
        baseline.compareStanzas(other, [&](const std::string &stanza) {
            complain(otherFile + ": no baseline of the stanza \"" + stanza + "\", which " + file + " has");
        });
    };
    tell(oldOne, line.files[0], newOne, line.files[1]);
    tell(newOne, line.files[1], oldOne, line.files[0]);
}

int printDifferences(EventsCommandLine &line, TableStyle style)
{
    Baseline oldOne;
    Baseline newOne;
    bool hasGivenUp = false;
    // Both are read before either is judged: what is wrong with the second one is told as well.
    const bool isOldSound = readBaseline(line, line.files[0], oldOne, hasGivenUp);
    const bool isNewSound = readBaseline(line, line.files[1], newOne, hasGivenUp);
    if (!isOldSound || !isNewSound) {
        return kUnreadable;
    }
    tellOfStanzas(line, oldOne, newOne);
    std::string out;
    int exitCode = 0;
    Baseline::compare(oldOne, newOne, [&](const BaselineDifference &difference) {
        exitCode = kDifferent;
        if (line.isJson) {
            appendDifferenceJson(difference, out);
        } else {
            appendDifferenceRow(difference, style, out);
        }
    });
    flush(out);
    // With a condition given up it is not known which of the differences the user asked for.
    return hasGivenUp ? kUnsure : exitCode;
}

/// A path from UTF-8. Made of plain characters it would be taken for the code page of the system on Windows.
std::filesystem::path asPath(const std::string &name)
{
    return std::u8string(name.begin(), name.end());
}

/// Where a page goes.
struct PagePlace
{
    explicit PagePlace(const std::string &name);

    std::string output;
    /// What is no plain file, such as a pipe or a link, is written to directly.
    bool isPlain;
    /// Where the page is written until it is whole. In the same folder, as only there a file takes the place
    /// of another in one step.
    std::string written;
};

PagePlace::PagePlace(const std::string &name) : output(name)
{
    std::error_code ignored;
    const auto type = std::filesystem::symlink_status(asPath(name), ignored).type();
    isPlain = type == std::filesystem::file_type::regular || type == std::filesystem::file_type::not_found;
    written = isPlain ? name + ".new" : name;
}

/// Whether what the command writes is no input of it, and no other file than an earlier page. It guards
/// against words in the wrong order: `report stream.xml page.html` must not cost the stream.
bool mayWriteReport(const EventsCommandLine &line, const PagePlace &place)
{
    for (const std::string &written : {place.output, place.written}) {
        for (const std::string &file : line.files) {
            if (isSameFile(written, file)) {
                complain(written + ": the page would replace this input; the first file is the page");
                return false;
            }
        }
        // True for any file that is there.
        if (isSameFile(written, written) &&
            !EventReport::isPage(readBeginning(written, EventReport::kPageStart.size()))) {
            complain(written + ": this file is no page, and is left as it is; the first file is the page");
            return false;
        }
    }
    return true;
}

/// False with errno set when not all was written.
bool writeFile(const std::string &path, const std::string &content)
{
    std::FILE *const file = openForWriting(path);
    if (file == nullptr) {
        return false;
    }
    const bool isWritten = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    return std::fclose(file) == 0 && isWritten;
}

/// Puts a page in the place of an earlier one, which hands down its permissions. If that fails the earlier
/// one stays, and a std::runtime_error says why.
void putPage(const PagePlace &place, const std::string &page)
{
    std::error_code error;
    std::error_code ignored;
    if (!writeFile(place.written, page)) {
        error.assign(errno, std::generic_category());
    } else if (place.isPlain) {
        const auto earlier = std::filesystem::status(asPath(place.output), ignored);
        if (std::filesystem::exists(earlier)) {
            // A page readable by all stays so, and one that was closed to others is not opened by being made
            // anew.
            std::filesystem::permissions(asPath(place.written), earlier.permissions(), ignored);
        }
        std::filesystem::rename(asPath(place.written), asPath(place.output), error);
    }
    if (error) {
        if (place.isPlain) {
            std::filesystem::remove(asPath(place.written), ignored);
        }
        throw std::runtime_error(place.output + ": " + error.message());
    }
}

int writeReport(EventsCommandLine &line)
{
    const PagePlace place(line.output);
    const bool isToStandardOutput = line.output == "-";
    if (!isToStandardOutput && !mayWriteReport(line, place)) {
        return kUsage;
    }
    EventReport report;
    EventInput input(line.filter,
                     [&](const StreamEvent &event, const EventFields &fields) { report.add(event, fields); });
    const int exitCode = readAll(input, line.files);
    if (input.hasUnreadable()) {
        // An earlier page tells more than one that lacks an input.
        complain(line.output + ": no page is written, as an input could not be read");
        return kDamaged;
    }
    std::string page = report.page();
    if (isToStandardOutput) {
        flush(page);
    } else {
        putPage(place, page);
    }
    return exitCode;
}

int run(EventsCommandLine &line, TableStyle style)
{
    switch (line.command) {
    case EventsCommand::Table:
        return printTable(line, style);
    case EventsCommand::Json:
        return printJson(line);
    case EventsCommand::Diff:
        return printDifferences(line, style);
    case EventsCommand::Report:
        return writeReport(line);
    case EventsCommand::Help:
        std::fputs(kEventsUsage, stdout);
        return 0;
    }
    return kUsage;
}

} // namespace

/// Does what the words behind the program's name say, and returns the exit code.
int runProgram(const std::vector<std::string> &words)
{
    const Terminal terminal = openTerminal();
    EventsCommandLine line;
    try {
        line = readEventsCommandLine(words, terminal.width != 0);
    } catch (const std::invalid_argument &exception) {
        complain(std::string(exception.what()) + "\n" + kEventsUsage);
        return kUsage;
    }
    try {
        return run(line, {terminal.width, terminal.hasColours});
    } catch (const std::exception &exception) {
        complain(exception.what());
        return line.command == EventsCommand::Diff ? kUnreadable : kDamaged;
    }
}

} // namespace velmox
