#include "capture/program/capture_command_line.h"

#include "util/text/str_segment.h"

#include <stdexcept>

namespace velmox {

const char *const kCaptureUsage =
    "usage: velmox-capture record FILE [--seconds N] [--megabytes N] [--share] [< DOCUMENT]\n"
    "       velmox-capture replay FILE [--pace] [-index NAME] [-inclusive 0] < DOCUMENT\n"
    "       velmox-capture summary FILE [--json] [-index NAME] [-inclusive 0] [< DOCUMENT]\n"
    "\n"
    "  record       writes what the driver reports into FILE until Ctrl-C: all of it, or what the\n"
    "               input document on standard input asks for. An earlier capture is replaced, any other\n"
    "               file refused\n"
    "  --seconds    ends the recording after N seconds\n"
    "  --megabytes  ends it when FILE has N megabytes\n"
    "  --share      records beside a monitor, of what its driver was asked for; each record reaches only\n"
    "               one of the two\n"
    "  replay       writes the event stream that velmox-regmon would have written with DOCUMENT, but for\n"
    "               baselines\n"
    "  --pace       takes as much time as the recording\n"
    "  -index, -inclusive  as for velmox-regmon\n"
    "  summary      counts what FILE holds; with DOCUMENT also what its stanzas make of that, and which\n"
    "               change of a stanza would leave out most\n"
    "  --json       counts as one object of JSON\n"
    "\n"
    "  velmox-capture record monday.vcap --seconds 60\n"
    "  velmoxd print-modinput-config WinRegMon | velmox-capture replay monday.vcap\n"
    "  velmox-capture summary monday.vcap --json\n";

namespace {

/// Takes words from the front; each option's value stands behind it.
class Words
{
public:
    explicit Words(const std::vector<std::string> &words) : at_(words.begin()), end_(words.end()) {}

    bool atEnd() const { return at_ == end_; }
    const std::string &front() const { return *at_; }
    std::string take() { return *at_++; }

    std::string takeValue()
    {
        const std::string option = take();
        if (atEnd()) {
            throw std::invalid_argument(option + " needs a value");
        }
        return take();
    }

    /// As the monitor takes it: without quotes that the caller's shell has left.
    Str takeUnquoted()
    {
        Str value = takeValue();
        value.unquote('"');
        return value;
    }

    std::uint64_t takeNumber()
    {
        const std::string option = front();
        const std::string value = takeValue();
        std::uint64_t number = 0;
        if (!StrSegment(std::string_view(value)).parseUnsigned(number) || number == 0 || number > kMost) {
            throw std::invalid_argument(option + " needs a number from 1 to a million, not " + value);
        }
        return number;
    }

private:
    /// Eleven days, or a terabyte: more is a slip of the finger.
    static constexpr std::uint64_t kMost = 1'000'000;

    std::vector<std::string>::const_iterator at_;
    std::vector<std::string>::const_iterator end_;
};

bool takeSwitch(Words &words, const char *name, bool &isOn)
{
    if (words.front() != name) {
        return false;
    }
    words.take();
    isOn = true;
    return true;
}

bool takeRecordOption(Words &words, RecordOptions &options)
{
    if (words.front() == "--seconds") {
        options.seconds = words.takeNumber();
    } else if (words.front() == "--megabytes") {
        options.megabytes = words.takeNumber();
    } else {
        return takeSwitch(words, "--share", options.isShared);
    }
    return true;
}

/// Those of the monitor.
bool takeStanzaOption(Words &words, StanzaDefaults &defaults)
{
    if (words.front() == "-index") {
        const Str index = words.takeUnquoted();
        // As the monitor reads them.
        defaults.index = index.empty() ? Str("default") : index;
    } else if (words.front() == "-inclusive") {
        defaults.inclusive = words.takeUnquoted() != "0";
    } else {
        return false;
    }
    return true;
}

bool takeOption(Words &words, CaptureCommandLine &line)
{
    switch (line.command) {
    case CaptureCommand::Record:
        return takeRecordOption(words, line.record);
    case CaptureCommand::Replay:
        return takeSwitch(words, "--pace", line.isPaced) || takeStanzaOption(words, line.defaults);
    case CaptureCommand::Summary:
        return takeSwitch(words, "--json", line.isJson) || takeStanzaOption(words, line.defaults);
    case CaptureCommand::Help:
        break;
    }
    return false;
}

CaptureCommand commandOf(const std::string &word)
{
    if (word == "record") {
        return CaptureCommand::Record;
    }
    if (word == "replay") {
        return CaptureCommand::Replay;
    }
    if (word == "summary") {
        return CaptureCommand::Summary;
    }
    throw std::invalid_argument("no such command: " + word);
}

} // namespace

CaptureCommandLine readCaptureCommandLine(const std::vector<std::string> &wordList)
{
    CaptureCommandLine line;
    for (const std::string &word : wordList) {
        if (word == "--help" || word == "-h") {
            return line;
        }
    }
    Words words(wordList);
    if (words.atEnd()) {
        throw std::invalid_argument("a command is needed");
    }
    line.command = commandOf(words.take());
    while (!words.atEnd()) {
        if (takeOption(words, line)) {
            continue;
        }
        if (words.front().starts_with('-')) {
            throw std::invalid_argument("no such option: " + words.front());
        }
        if (!line.file.empty()) {
            throw std::invalid_argument("one file is enough: " + words.front());
        }
        line.file = words.take();
    }
    if (line.file.empty()) {
        throw std::invalid_argument("a file is needed");
    }
    line.record.file = line.file;
    return line;
}

} // namespace velmox
