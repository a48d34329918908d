#include "tests/e2e/monitor_run.h"

namespace velmox::e2e {

namespace {

Str commandLine(DWORD watchedPid, const RunOptions &options)
{
    Str arguments = "-disableSysmonMigrate";
    if (options.watched) {
        arguments.appendFormat(" -run-until-pid-dies %lu", watchedPid);
    }
    return installed(options.program, arguments.append(" ").append(options.arguments));
}

StrVector environment(const RunOptions &options)
{
    StrVector rows = {Str::fromFormat("VELMOX_HOME=%s", kHome), "VELMOXD_PROCESSID="};
    rows.insert(rows.end(), options.environment.begin(), options.environment.end());
    return rows;
}

/// The file's text, nothing if there is none.
Str logText(const Pathname &file)
{
    const Str text = velmox::testing::readWhole(file);
    return text == "<unreadable>" ? Str() : text;
}

Str escaped(Str text)
{
    const std::pair<const char *, const char *> entities[] = {
        {"&", "&amp;"}, {"\"", "&quot;"}, {"'", "&apos;"}, {"<", "&lt;"}, {">", "&gt;"}};
    for (const auto &[byte, entity] : entities) {
        text.replaceAll(byte, entity);
    }
    return text;
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

std::size_t occurrences(std::string_view text, std::string_view part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

Str installed(const char *program, const Str &arguments)
{
    return Str::fromFormat("\"%s\\bin\\%s\" %s", kHome, program, arguments.c_str());
}

MonitorRun::MonitorRun(std::string_view document, const RunOptions &options)
    : logFile_(Pathname::fromUtf8(kHome).join("var\\log\\velmox\\velmox-regmon.log")),
      logStart_(logText(logFile_).size()),
      process_(commandLine(watched_.pid(), options), environment(options), options.streams)
{
    process_.write(document);
    if (options.inputEnds) {
        process_.closeInput();
    }
}

Str MonitorRun::log() const
{
    return errors().append(logText(logFile_).substr(logStart_));
}

bool MonitorRun::waitForEvents(std::size_t count)
{
    const auto arrived = [count](const Str &output) { return occurrences(output, "</event>") >= count; };
    return process_.waitForOutput(arrived);
}

DWORD MonitorRun::stop()
{
    watched_.end();
    return waitForEnd();
}

DWORD MonitorRun::waitForEnd()
{
    EXPECT_TRUE(process_.waitForEnd()) << "still running; log: " << log().c_str();
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
