#include "tests/capture/random_input.h"
#include "tests/e2e/monitor_test.h"
#include "tests/support/pseudo_console.h"
#include "util/files/file_system.h"

namespace velmox::e2e {

namespace {

using testbed::TestDriver;
using velmox::testing::PseudoConsole;
using velmox::testing::RandomInput;

constexpr char kFile[] = "C:\\x.vcap";
constexpr char kProgram[] = "velmox-capture.exe";

struct Replay
{
    DWORD exitCode;
    Str output;
    Str errors;
};

Replay replay(const Str &document, const char *options = "", const char *file = kFile)
{
    ChildProcess process(installed(kProgram, Str::fromFormat("replay %s %s", file, options)), {},
                         Streams::Apart);
    process.write(document);
    process.closeInput();
    EXPECT_TRUE(process.waitForEnd());
    return {process.exitCode(), process.outputBytes(), process.errorBytes()};
}

Str recording(const Str &options, const char *file = kFile)
{
    return installed(kProgram, Str::fromFormat("record %s %s", file, options.c_str()));
}

Str escaped(Str text)
{
    text.replaceAll("&", "&amp;");
    return text;
}

InputDocument documentOf(const Stanzas &stanzas)
{
    InputDocument document;
    for (const auto &[name, stanza] : stanzas) {
        Params params;
        for (const char *key : {"hive", "proc", "type", "index"}) {
            if (Str value; stanza.tryGet(key, value)) {
                params.emplace_back(key, escaped(value));
            }
        }
        document.stanza(name, params);
    }
    return document;
}

class CaptureTest : public MonitorTest
{
protected:
    ~CaptureTest() override { removeFile(Pathname::fromUtf8(kFile)); }

    /// Lets the driver report everything, as a monitor has it do that asks for it.
    void push(const std::vector<testbed::Bytes> &buffers)
    {
        driver.reset();
        driver.setFilter(testbed::everything());
        for (const testbed::Bytes &buffer : buffers) {
            driver.push(buffer);
        }
    }
    bool waitUntilTaken() const
    {
        return driver.waitFor(
            [](const VelmoxTestState &state) { return state.recordsWaiting == 0 && state.readsEmpty != 0; });
    }
};

TEST_F(CaptureTest, ReplaysTheMonitorsStreamToTheByte)
{
    // Both go on when tests are repeated: four pairs may have few events.
    static unsigned seed = 1000;
    static std::size_t events = 0;
    for (const unsigned last = seed + 4; seed < last; ++seed) {
        RandomInput input(seed, GetCurrentProcessId());
        std::vector<testbed::Bytes> buffers(20 + input.below(20));
        std::ranges::generate(buffers, [&input] { return input.buffer(); });
        push(buffers);
        PseudoConsole recorder(recording("--share"));
        ASSERT_TRUE(waitUntilTaken());
        recorder.pressCtrlC();
        ASSERT_EQ(recorder.exitCode(), 0u);

        Str document = documentOf(input.stanzas()).text();
        // Read as a text stream: behind Ctrl-Z nothing counts.
        document.replaceAll("</configuration>", "\x1a<fault/>");
        const char *options = input.below(3) == 0 ? R"(-inclusive \"0\" -index \"a<b\")" : "";
        const Replay replayed = replay(document, options);
        EXPECT_EQ(replayed.exitCode, 0u) << replayed.errors.c_str();
        const std::size_t count = occurrences(replayed.output, "</event>");
        events += count;

        push(buffers);
        MonitorRun run(document, {.arguments = options});
        EXPECT_TRUE(run.waitForEvents(count)) << seed;
        EXPECT_TRUE(waitUntilTaken());
        EXPECT_EQ(run.stop(), 0u);
        EXPECT_EQ(replayed.output, run.output()) << seed;
    }
    EXPECT_GT(events, 20u) << "too little is compared";
}

TEST_F(CaptureTest, RefusesBesideAMonitorAndWhatIsNoCapture)
{
    ChildProcess refused(recording(""), {}, Streams::Apart);
    refused.closeInput();
    EXPECT_TRUE(refused.waitForEnd());
    EXPECT_EQ(refused.exitCode(), 2u);
    EXPECT_TRUE(refused.errorBytes().contains("--share"));
    EXPECT_EQ(velmox::testing::readWhole(Pathname::fromUtf8(kFile)), "<unreadable>");
    const Replay missing = replay(everything().text());
    EXPECT_EQ(missing.exitCode, 2u);
    EXPECT_EQ(occurrences(missing.errors, "\n"), 1u) << missing.errors.c_str();
    velmox::testing::writeWhole(Pathname::fromUtf8(kFile), "[WinRegMon://x]\n");
    const Replay foreign = replay(everything().text());
    EXPECT_EQ(foreign.exitCode, 2u);
    EXPECT_EQ(foreign.errors, "velmox-capture: C:\\x.vcap: is no capture\r\n");
    EXPECT_EQ(foreign.output, "");
    ChildProcess overwriter(recording("--share --seconds 1"), {}, Streams::Apart);
    overwriter.closeInput();
    EXPECT_TRUE(overwriter.waitForEnd());
    EXPECT_EQ(overwriter.exitCode(), 2u);
    EXPECT_EQ(velmox::testing::readWhole(Pathname::fromUtf8(kFile)), "[WinRegMon://x]\n");
    ASSERT_TRUE(DeleteFileA(kFile));
    ChildProcess misled(recording("--share --seconds 1"), {}, Streams::Apart);
    misled.write("no document");
    misled.closeInput();
    EXPECT_TRUE(misled.waitForEnd());
    EXPECT_EQ(misled.exitCode(), 2u);
    EXPECT_TRUE(misled.errorBytes().contains("no input document")) << misled.errorBytes().c_str();
}

// What it has written until it is killed can be read; a byte changed in that can not.
TEST_F(CaptureTest, KilledLeavesWhatWasRecorded)
{
    const Pathname path = Pathname::fromUtf8(kFile);
    const testbed::Bytes records = testbed::recordBuffer({{}, {}, {.operation = 15}});
    push({records, records});
    {
        ChildProcess recorder(recording("--share"), {}, Streams::Apart);
        recorder.closeInput();
        ASSERT_TRUE(waitUntilTaken());
        const std::string_view sought(reinterpret_cast<const char *>(records.data()), records.size());
        for (int left = 300; left > 0 && occurrences(velmox::testing::readWhole(path), sought) < 2; --left) {
            Sleep(100);
        }
        recorder.kill(1);
    }
    const Replay cut = replay(everything().text());
    EXPECT_EQ(cut.exitCode, 0u);
    EXPECT_EQ(cut.errors, "velmox-capture: C:\\x.vcap: recorded beside a monitor; it is not known what the "
                          "driver was asked for\r\n"
                          "velmox-capture: C:\\x.vcap: cut off; read up to its last whole block\r\n");
    EXPECT_EQ(occurrences(cut.output, "</event>"), 6u);
    Str bytes = velmox::testing::readWhole(path);
    bytes[bytes.size() - 1] = static_cast<char>(bytes.back() ^ 1);
    velmox::testing::writeWhole(path, bytes);
    const Replay damaged = replay(everything().text());
    EXPECT_EQ(damaged.exitCode, 2u);
    EXPECT_TRUE(damaged.errors.contains("is damaged: its check sum is wrong")) << damaged.errors.c_str();
    EXPECT_TRUE(cut.output.startsWith(damaged.output) && !damaged.output.contains("</stream>"));
}

TEST_F(CaptureTest, PacesItsReplayAndEndsWithItsReader)
{
    push({testbed::recordBuffer({{}, {.operation = 15}})});
    ChildProcess recorder(recording("--share --seconds 1"), {}, Streams::Apart);
    recorder.closeInput();
    ASSERT_TRUE(recorder.waitForEnd());
    const Str document = everything().text();
    const Replay once = replay(document);
    EXPECT_EQ(occurrences(once.output, "</event>"), 2u);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(replay(document, "--pace").output, once.output);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));

    ChildProcess unread(installed(kProgram, Str::fromFormat("replay %s", kFile)), {}, Streams::Unread);
    unread.closeOutput();
    unread.write(document);
    unread.closeInput();
    EXPECT_TRUE(unread.waitForEnd());
    EXPECT_EQ(unread.exitCode(), 1u);
    EXPECT_TRUE(unread.errorBytes().contains("velmox-capture: standard output: "))
        << unread.errorBytes().c_str();

    const Replay misread = replay("no document");
    EXPECT_EQ(misread.exitCode, 2u);
    EXPECT_EQ(misread.errors, "velmox-capture: standard input: is no input document in UTF-8\r\n");
    const Replay disabled = replay(InputDocument().stanza("WinRegMon://a", {{"disabled", "1"}}).text());
    EXPECT_EQ(disabled.exitCode, 0u);
    EXPECT_EQ(disabled.output, "");
    EXPECT_TRUE(disabled.errors.contains("no enabled stanza"));
}

// By scripts/check-disk, on a disk of a megabyte.
TEST_F(CaptureTest, DISABLED_OnAFullDisk)
{
    const Str file = Str::concat(std::getenv("VELMOX_TEST_DISK"), "\\x.vcap");
    testbed::Bytes records;
    for (int left = 100; left > 0; --left) {
        testbed::appendRecord(records, {});
    }
    driver.setFilter(testbed::everything());
    driver.push(records, 1000);
    ChildProcess recorder(recording("--share", file.c_str()), {}, Streams::Apart);
    recorder.closeInput();
    EXPECT_TRUE(recorder.waitForEnd());
    EXPECT_EQ(recorder.exitCode(), 1u);
    Str full = Str::concat(file, ": ");
    full.appendErrorText(ERROR_DISK_FULL);
    EXPECT_TRUE(recorder.errorBytes().contains(full)) << recorder.errorBytes().c_str();
    const Replay cut = replay(everything().text(), "", file.c_str());
    EXPECT_EQ(cut.exitCode, 0u);
    EXPECT_TRUE(cut.errors.contains("cut off"));
    EXPECT_GT(occurrences(cut.output, "</event>"), 1000u);
}

/// The driver comes and goes with the recorder.
class CaptureDriverTest : public ::testing::Test
{
protected:
    void SetUp() override { testbed::placeDriverFile(); }
    void TearDown() override
    {
        testbed::removeDriverService();
        removeFile(Pathname::fromUtf8(kFile));
    }
};

TEST_F(CaptureDriverTest, IsAskedForWhatTheDocumentAsksForAndGoesInTheEnd)
{
    ChildProcess recorder(recording("--seconds 3"), {}, Streams::Apart);
    recorder.write(InputDocument().stanza("WinRegMon://a", {{"hive", "HKLM\\\\.*"}, {"type", "set"}}).text());
    recorder.closeInput();
    for (int left = 300; left > 0 && !TestDriver::isPresent(); --left) {
        Sleep(10);
    }
    {
        TestDriver driver;
        EXPECT_TRUE(driver.waitFor([](const VelmoxTestState &state) {
            return state.filter.ops == 4 && state.filter.hives == 2 && state.filter.events == 7;
        }));
        driver.push(testbed::recordBuffer({{}, {.operation = 15}, {}}));
        EXPECT_TRUE(driver.waitFor([](const VelmoxTestState &state) { return state.recordsDelivered == 2; }));
    }
    EXPECT_TRUE(recorder.waitForEnd());
    EXPECT_EQ(recorder.exitCode(), 0u);
    EXPECT_TRUE(recorder.errorBytes().contains(" s, 2 records, ")) << recorder.errorBytes().c_str();
    EXPECT_FALSE(testbed::isDriverServiceInstalled());
    const Replay replayed = replay(everything().text());
    EXPECT_EQ(occurrences(replayed.output, "</event>"), 2u);
    EXPECT_TRUE(replayed.errors.contains("does not hold all that the document asks for"));
}

} // namespace

} // namespace velmox::e2e
