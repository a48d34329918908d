#include "tests/e2e/monitor_test.h"

#include <cwctype>

namespace velmox::e2e {

namespace {

using namespace testbed;

class RulesTest : public MonitorTest
{
};

RecordFields keyed(std::u16string_view name)
{
    return {.pid = kUnknownPid, .dataType = 0, .name = std::u16string(name)};
}

/// Reported under the stanza; the index is the stanza's name, as all documents here have it.
Case under(const Str &stanza, std::u16string_view name)
{
    const RecordFields record = keyed(name);
    return {record, ExpectedEvent{.stanza = stanza, .index = stanza, .body = bodyOf(record).text()}};
}

Case dropped(const RecordFields &record)
{
    return {record, std::nullopt};
}

InputDocument &add(InputDocument &document, const Str &name, const Str &hive)
{
    return document.stanza(Str::fromFormat("WinRegMon://%s", name.c_str()),
                           {{"hive", hive}, {"type", "set"}, {"index", name}});
}

TEST_F(RulesTest, TheDriverIsAskedForWhatTheStanzasName)
{
    MonitorRun run(InputDocument()
                       .stanza("WinRegMon://a", {{"hive", "HKLM\\\\A"}, {"type", "set"}})
                       .stanza("WinRegMon://b", {{"hive", "elsewhere"}, {"type", "rename|delete"}})
                       .text());
    EXPECT_TRUE(waitUntilPolled()) << run.log().c_str();
    run.stop();
    const VelmoxFilterBlock block = driver.state().filter;
    EXPECT_EQ(block.events, 7u);
    EXPECT_EQ(block.status, 0x17u);
    EXPECT_EQ(block.ops, 76u);
    EXPECT_EQ(block.hives, 3u);
    for (const char *told :
         {"Unable to match a hive root path to any of the 'hive' options provided in the configuration file",
          "Driver is configured to report 'rename' type events",
          "Driver filter configured successfully: masks values are events=0x7 status=0x17 ops=0x4c"}) {
        expectLogged(run.log(), Str::concat("WinRegistryMonitor::setRegEvtTypesToMonitor: ", told));
    }
}

TEST_F(RulesTest, TheLongestPatternFoundInAKeyThatOneMatchesGivesStanzaAndIndex)
{
    InputDocument document;
    add(document, "a-short", "HKLM\\\\S.*");
    add(document, "b-long", "HKLM\\\\Software\\\\.*");
    add(document, "c-equal", "HKLM\\\\Softwar.\\\\.*");
    add(document, "d-plain", "HKLM\\\\Software\\\\Plain\\\\Deep");
    check(document, {
                        under("a-short", u"\\REGISTRY\\MACHINE\\System"),
                        under("b-long", u"\\REGISTRY\\MACHINE\\Software\\x"),
                        under("d-plain", u"\\Registry\\Machine\\Software\\Plain\\Deep\\value"),
                        // Let through by another pattern, as this one does not match the whole key.
                        under("d-plain", u"\\REGISTRY\\MACHINE\\Software\\Plain\\Deep\\value\\deeper"),
                        dropped(keyed(u"x\\REGISTRY\\MACHINE\\System")),
                    });
}

TEST_F(RulesTest, TheCurrentControlSetIsAnotherNameToTheFiltersAlone)
{
    InputDocument document;
    add(document, "set", "HKLM\\\\SYSTEM\\\\CurrentControlSet\\\\Services");
    check(document, {
                        // No stanza, as the path in the kernel's spelling matches none.
                        under("", u"\\REGISTRY\\MACHINE\\SYSTEM\\ControlSet001\\Services"),
                        dropped(keyed(u"\\REGISTRY\\MACHINE\\SYSTEM\\ControlSet002\\Services")),
                        under("set", u"\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Services\\Start"),
                    });
}

/// This program's image as the stream shows it.
Str ownImage()
{
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    path[0] = static_cast<wchar_t>(std::towlower(path[0]));
    return Str::fromUtf16(asUtf16(path));
}

/// A registry record of the process, reported with the image.
Case shownAs(std::uint32_t pid, const Str &image)
{
    const RecordFields record = {.pid = pid, .dataType = 0};
    ExpectedBody body = bodyOf(record);
    body.image = image;
    return {record, ExpectedEvent{.body = body.text()}};
}

class ProcessTest : public MonitorTest
{
};

TEST_F(ProcessTest, ProcessRecordsReportNothingAndKeepTheTableUp)
{
    constexpr std::uint32_t kPid = kUnknownPid;
    check(everything(), {
                            // Known from the walk at the start.
                            shownAs(GetCurrentProcessId(), ownImage()),
                            dropped(imageLoaded(kPid, u"\\Device\\Elsewhere\\a.dll")),
                            shownAs(kPid, "N/A"),
                            dropped(imageLoaded(kPid, u"\\Device\\Elsewhere\\First.EXE")),
                            shownAs(kPid, "\\Device\\Elsewhere\\First.EXE"),
                            dropped(imageLoaded(kPid, u"\\Device\\Elsewhere\\second.exe")),
                            // Nobody runs under the number, so a creation adds nothing.
                            dropped(processCreated(kPid + 4, kPid, u"USER\\a")),
                            shownAs(kPid + 4, "N/A"),
                            // Records that were on their way at the exit still find the image.
                            dropped(processExited(kPid, 1)),
                            shownAs(kPid, "\\Device\\Elsewhere\\First.EXE"),
                        });
}

TEST_F(ProcessTest, AProcessThatBeganLaterIsKnownByItsCreationThoughItsNumberWasUsedBefore)
{
    driver.closeGate();
    MonitorRun run(everything().text());
    // The walk is over when the worker reads.
    ASSERT_TRUE(waitUntilPolled());
    const IdleProcess later;
    const IdleProcess reused;
    const std::vector<Case> cases = {
        shownAs(later.pid(), "N/A"),
        dropped(processCreated(later.pid(), 1, u"USER\\a")),
        shownAs(later.pid(), ownImage()),
        dropped(imageLoaded(reused.pid(), u"\\Device\\Elsewhere\\old.exe")),
        shownAs(reused.pid(), "\\Device\\Elsewhere\\old.exe"),
        dropped(processExited(reused.pid(), 1)),
        dropped(processCreated(reused.pid(), 1, u"USER\\a")),
        shownAs(reused.pid(), ownImage()),
        // Of two that have gone the first is found.
        dropped(processExited(reused.pid(), 1)),
        shownAs(reused.pid(), "\\Device\\Elsewhere\\old.exe"),
    };
    push(cases);
    driver.openGate();
    EXPECT_TRUE(run.waitForEvents(5)) << run.log().c_str();
    EXPECT_EQ(run.stop(), 0u);
    EXPECT_EQ(run.output(), expectedStream(eventsOf(cases)));
}

TEST_F(ProcessTest, AStanzaChoosesByTheImageWithItsDriveLetter)
{
    Str pattern = ownImage();
    pattern.replaceAll("\\", "\\\\");
    const Params params = {{"proc", pattern}, {"type", "set"}};
    check(InputDocument().stanza("WinRegMon://all", params),
          {dropped({.pid = kUnknownPid}), shownAs(GetCurrentProcessId(), ownImage())});
}

} // namespace

} // namespace velmox::e2e
