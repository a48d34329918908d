#include "tests/e2e/monitor_test.h"
#include "util/wide_str.h"

#include <psapi.h>

namespace velmox::e2e {

namespace {

using testbed::RecordFields;

class RulesTest : public MonitorTest
{
protected:
    /// The block that the driver gets for the stanzas.
    VelmoxFilterBlock blockFor(const InputDocument &document)
    {
        driver.reset();
        MonitorRun run(document.text());
        EXPECT_TRUE(driver.waitFor([](const VelmoxTestState &state) { return state.setFilterCalls != 0; }))
            << run.log().c_str();
        run.stop();
        log_ = run.log();
        return driver.state().filter;
    }

    Str log_;
};

InputDocument one(const Str &hive, const Str &type = "set")
{
    return InputDocument().stanza("WinRegMon://one", {{"hive", hive}, {"type", type}});
}

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

Case dropped(std::u16string_view name)
{
    return {keyed(name), std::nullopt};
}

InputDocument &add(InputDocument &document, const Str &name, const Str &hive)
{
    return document.stanza(Str::fromFormat("WinRegMon://%s", name.c_str()),
                           {{"hive", hive}, {"type", "set"}, {"index", name}});
}

TEST_F(RulesTest, TheDriverIsAskedForWhatTheStanzasName)
{
    struct Block
    {
        InputDocument document;
        std::uint32_t ops;
        std::uint32_t hives;
    };
    const Block blocks[] = {
        {InputDocument()
             .stanza("WinRegMon://a", {{"hive", "HKLM\\\\A"}, {"type", "set"}})
             .stanza("WinRegMon://b", {{"hive", "HKEY_LOCAL_MACHINE\\\\B"}, {"type", "create|delete"}})
             .stanza("WinRegMon://c", {{"hive", "HKLM\\\\C"}, {"type", "open"}}),
         29, 2},
        {one("HKU\\\\.*", "query|close|rename"), 98, 1},
        {InputDocument()
             .stanza("WinRegMon://a", {{"hive", "HKLM\\\\A"}, {"type", "c"}})
             .stanza("WinRegMon://b", {{"hive", "\\\\REGISTRY\\\\USER\\\\B"}, {"type", "nothing"}}),
         33, 3},
        {InputDocument().stanza("WinRegMon://a", {{"hive", "HKLM\\\\A"}}), 77, 2},
        {one(".*", "."), 127, 3},
    };
    for (const Block &expected : blocks) {
        const VelmoxFilterBlock block = blockFor(expected.document);
        EXPECT_EQ(block.events, 7u);
        EXPECT_EQ(block.status, 0x17u);
        EXPECT_EQ(block.ops, expected.ops) << log_.c_str();
        EXPECT_EQ(block.hives, expected.hives) << log_.c_str();
    }
    expectLogged(log_,
                 "WinRegistryMonitor::setRegEvtTypesToMonitor: Unable to match a hive root path to any of "
                 "the 'hive' options provided in the configuration file");
    expectLogged(log_, "WinRegistryMonitor::setRegEvtTypesToMonitor: Driver filter configured successfully: "
                       "masks values are events=0x7 status=0x17 ops=0x7f");
}

TEST_F(RulesTest, APatternMatchesTheWholeKey)
{
    InputDocument document;
    add(document, "below", "HKLM\\\\Below\\\\.*");
    add(document, "class", "HKLM\\\\CLASS\\\\\\S+");
    add(document, "one", "HKLM\\\\Soft");
    check(document, {
                        under("one", u"\\REGISTRY\\MACHINE\\SOFT"),
                        under("one", u"\\Registry\\Machine\\soft\\value"),
                        dropped(u"\\REGISTRY\\MACHINE\\SOFT\\value\\deeper"),
                        // The backslash of the suffix is optional.
                        under("one", u"\\REGISTRY\\MACHINE\\Software"),
                        dropped(u"\\REGISTRY\\USER\\SOFT"),
                        dropped(u"x\\REGISTRY\\MACHINE\\SOFT"),
                        under("below", u"\\REGISTRY\\MACHINE\\BELOW\\a\\b\\c"),
                        dropped(u"\\REGISTRY\\MACHINE\\BELOW"),
                        // The pattern is folded, so \S has become \s.
                        dropped(u"\\REGISTRY\\MACHINE\\Class\\word"),
                        under("class", u"\\REGISTRY\\MACHINE\\Class\\ "),
                    });
}

TEST_F(RulesTest, TheLongestPatternGivesStanzaAndIndex)
{
    InputDocument document;
    add(document, "a-short", "HKLM\\\\S.*");
    add(document, "b-long", "HKLM\\\\Software\\\\.*");
    add(document, "c-equal", "HKLM\\\\Softwar.\\\\.*");
    add(document, "d-longer", "HKLM\\\\Software\\\\Deep\\\\.*");
    check(document, {
                        under("a-short", u"\\REGISTRY\\MACHINE\\System"),
                        under("b-long", u"\\REGISTRY\\MACHINE\\Software\\x"),
                        under("d-longer", u"\\REGISTRY\\MACHINE\\Software\\Deep\\x"),
                        under("a-short", u"\\REGISTRY\\MACHINE\\SOFTWARE"),
                    });
}

TEST_F(RulesTest, TheCurrentControlSetIsAnotherNameToTheFiltersAlone)
{
    // The event names no stanza, as its path in the kernel's spelling matches none.
    Case mapped = under("", u"\\REGISTRY\\MACHINE\\SYSTEM\\ControlSet001\\Services");
    InputDocument document;
    add(document, "set", "HKLM\\\\SYSTEM\\\\CurrentControlSet\\\\Services");
    check(document, {
                        mapped,
                        dropped(u"\\REGISTRY\\MACHINE\\SYSTEM\\ControlSet002\\Services"),
                        under("set", u"\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Services\\Start"),
                    });
}

TEST_F(RulesTest, ARootIsShownByItsShortName)
{
    const auto shown = [](std::u16string_view name, const char *keyPath) {
        const RecordFields record = keyed(name);
        ExpectedBody body = bodyOf(record);
        body.keyPath = keyPath;
        return Case{record, ExpectedEvent{.body = body.text()}};
    };
    check(everything(),
          {
              shown(u"\\REGISTRY\\USER\\.DEFAULT", "HKU\\.DEFAULT"),
              shown(u"\\REGISTRY\\MACHINE", "HKLM"),
              shown(u"\\Registry\\Machine\\X", "\\Registry\\Machine\\X"),
              shown(u"\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current\\X",
                    "HKCC\\X"),
              shown(u"\\REGISTRY\\A\\{0}", "\\REGISTRY\\A\\{0}"),
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

class ProcessTest : public MonitorTest
{
protected:
    /// A registry record of the process, reported with the image.
    static Case shownAs(std::uint32_t pid, const Str &image)
    {
        const RecordFields record = {.pid = pid, .dataType = 0};
        ExpectedBody body = bodyOf(record);
        body.image = image;
        return {record, ExpectedEvent{.body = body.text()}};
    }
    static Case silent(const RecordFields &record) { return {record, std::nullopt}; }
};

TEST_F(ProcessTest, TheImageIsKnownFromTheWalkAtTheStart)
{
    check(everything(), {
                            shownAs(GetCurrentProcessId(), ownImage()),
                            shownAs(kUnknownPid, "N/A"),
                        });
}

TEST_F(ProcessTest, ProcessRecordsReportNothingAndKeepTheTableUp)
{
    using testbed::imageLoaded;
    using testbed::processCreated;
    using testbed::processExited;
    constexpr std::uint32_t kPid = kUnknownPid;
    check(everything(), {
                            silent(imageLoaded(kPid, u"\\Device\\Elsewhere\\a.dll")),
                            shownAs(kPid, "N/A"),
                            silent(imageLoaded(kPid, u".exe")),
                            shownAs(kPid, "N/A"),
                            silent(imageLoaded(kPid, u"\\Device\\Elsewhere\\First.EXE")),
                            shownAs(kPid, "\\Device\\Elsewhere\\First.EXE"),
                            silent(imageLoaded(kPid, u"\\Device\\Elsewhere\\second.exe")),
                            shownAs(kPid, "\\Device\\Elsewhere\\First.EXE"),
                            // Nobody runs under the number, so a creation adds nothing.
                            silent(processCreated(kPid + 4, kPid, u"USER\\a")),
                            shownAs(kPid + 4, "N/A"),
                            // Records that were on their way at the exit still find the image.
                            silent(processExited(kPid, 1)),
                            shownAs(kPid, "\\Device\\Elsewhere\\First.EXE"),
                        });
}

TEST_F(ProcessTest, AProcessThatBeganLaterIsKnownByItsCreation)
{
    driver.closeGate();
    MonitorRun run(everything().text());
    // The walk is over when the worker reads.
    ASSERT_TRUE(driver.waitFor([](const VelmoxTestState &state) { return state.reads != 0; }));
    const IdleProcess later;
    const Case before = shownAs(later.pid(), "N/A");
    const Case after = shownAs(later.pid(), ownImage());
    push({before, silent(testbed::processCreated(later.pid(), 1, u"USER\\a")), after});
    driver.openGate();
    EXPECT_TRUE(run.waitForEvents(2)) << run.log().c_str();
    EXPECT_EQ(run.stop(), 0u);
    EXPECT_EQ(run.output(), expectedStream({*before.event, *after.event}));
}

TEST_F(ProcessTest, AReusedNumberShowsTheNewImage)
{
    driver.closeGate();
    MonitorRun run(everything().text());
    ASSERT_TRUE(driver.waitFor([](const VelmoxTestState &state) { return state.reads != 0; }));
    const IdleProcess second;
    const Case old = shownAs(second.pid(), "\\Device\\Elsewhere\\old.exe");
    const Case renewed = shownAs(second.pid(), ownImage());
    push({silent(testbed::imageLoaded(second.pid(), u"\\Device\\Elsewhere\\old.exe")), old,
          silent(testbed::processExited(second.pid(), 1)),
          silent(testbed::processCreated(second.pid(), 1, u"USER\\a")), renewed});
    driver.openGate();
    EXPECT_TRUE(run.waitForEvents(2)) << run.log().c_str();
    EXPECT_EQ(run.stop(), 0u);
    EXPECT_EQ(run.output(), expectedStream({*old.event, *renewed.event}));
}

TEST_F(ProcessTest, AStanzaChoosesByTheImageWithItsDriveLetter)
{
    Str pattern = ownImage();
    pattern.replaceAll("\\", "\\\\");
    const Params params = {{"proc", pattern}, {"type", "set"}};
    check(InputDocument().stanza("WinRegMon://all", params), {
                                                                 silent({.pid = kUnknownPid}),
                                                                 shownAs(GetCurrentProcessId(), ownImage()),
                                                             });
}

} // namespace

} // namespace velmox::e2e
