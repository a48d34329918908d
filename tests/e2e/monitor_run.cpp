#include "tests/e2e/monitor_run.h"

#include "util/open_file.h"

#include <gtest/gtest.h>

namespace velmox::e2e {

namespace {

Str commandLine(DWORD watchedPid, const RunOptions &options)
{
    Str line = Str::fromFormat("\"%s\\bin\\%s\" -disableSysmonMigrate", kHome, options.program.c_str());
    if (options.watched) {
        line.appendFormat(" -run-until-pid-dies %lu", watchedPid);
    }
    return options.arguments.empty() ? line : line.append(" ").append(options.arguments);
}

StrVector environment(const RunOptions &options)
{
    StrVector rows = {Str::fromFormat("VELMOX_HOME=%s", kHome), "VELMOXD_PROCESSID="};
    rows.insert(rows.end(), options.environment.begin(), options.environment.end());
    return rows;
}

Str logFile()
{
    FileStar file = openFile(Pathname::fromUtf8(kHome).join("var\\log\\velmox\\velmox-regmon.log"), "rb");
    Str text;
    char piece[4096];
    for (std::ptrdiff_t count = 0; file.isOpen() && (count = file.read(piece, sizeof piece)) > 0;) {
        text.append(piece, static_cast<std::size_t>(count));
    }
    return text;
}

Str escaped(const Str &text)
{
    Str out;
    for (const char byte : text) {
        switch (byte) {
        case '"':
            out += "&quot;";
            break;
        case '&':
            out += "&amp;";
            break;
        case '\'':
            out += "&apos;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        default:
            out += byte;
        }
    }
    return out;
}

std::size_t occurrences(std::string_view text, std::string_view part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

Str eventText(const ExpectedEvent &event)
{
    Str text = "<event";
    if (!event.stanza.empty()) {
        text += Str::fromFormat(" stanza=\"%s\"", escaped(event.stanza).c_str());
    }
    text += Str::fromFormat(">\n<time>%s</time>\n<data>%s\n%s</data>\n<source>WinRegistry</source>\n"
                            "<sourcetype>WinRegistry</sourcetype>\n",
                            event.time.c_str(), event.localTime.c_str(), escaped(event.body).c_str());
    if (!event.index.empty()) {
        text += Str::fromFormat("<index>%s</index>\n", escaped(event.index).c_str());
    }
    return text += "</event>\n";
}

} // namespace

MonitorRun::MonitorRun(std::string_view document, const RunOptions &options)
    : logStart_(logFile().size()),
      process_(commandLine(watched_.pid(), options), environment(options), options.withInput)
{
    process_.writeInput(document);
    process_.closeInput();
}

Str MonitorRun::log() const
{
    return errors().append(logFile().substr(logStart_));
}

bool MonitorRun::waitForEvents(std::size_t count)
{
    const auto arrived = [count](const Str &output) { return occurrences(output, "</event>") >= count; };
    return process_.waitForOutput(arrived);
}

DWORD MonitorRun::stop()
{
    requestStop();
    return waitForEnd();
}

DWORD MonitorRun::waitForEnd()
{
    EXPECT_TRUE(process_.waitForExit()) << "still running; log: " << log().c_str();
    return process_.exitCode();
}

Str ExpectedBody::text() const
{
    return Str::fromFormat(
        "event_status=\"%s\"\npid=%u\nprocess_image=\"%s\"\nregistry_type=\"%s\"\nkey_path=\"%s\"\n"
        "data_type=\"%s\"\ndata=\"%s\"",
        status.c_str(), pid, image.c_str(), operation.c_str(), keyPath.c_str(), dataType.c_str(),
        data.c_str());
}

Str expectedStream(const std::vector<ExpectedEvent> &events)
{
    if (events.empty()) {
        return {};
    }
    Str text = "<stream>\n";
    for (const ExpectedEvent &event : events) {
        text += eventText(event);
    }
    text += "</stream>\n";
    // Standard output is a text stream of the C run-time library.
    text.replaceAll("\n", "\r\n");
    return text;
}

} // namespace velmox::e2e
