#include "pipeline/input/diagnostics/diagnostics.h"
#include "tests/pipeline/input/modinputs/scheme_home.h"
#include "util/files/file_system.h"

namespace velmox {
namespace {

class ScriptRunTest : public ::testing::Test
{
public:
    /// Runs a script that carries out a plan and gives what becomes of it: its status and the size of its
    /// output, or the exception.
    Str run(const char *plan, std::string_view input = {}, ScriptLimits limits = {})
    {
        const Pathname script = home_.addScript("my scripts\\child.exe", plan);
        return runCommand(Str::fromFormat("\"%s\" --scheme", script.toStr().c_str()), input, limits);
    }
    Str runCommand(const Str &command, std::string_view input = {}, ScriptLimits limits = {})
    {
        int status = 0;
        const auto keep = [this](std::string_view piece) { output_.append(piece); };
        const Str failure = raisedBy<ModularInputsException>(
            [&] { status = runScript("Label", command, input, keep, limits); });
        EXPECT_TRUE(failure == "nothing" || home_.logged(failure.view()));
        return failure != "nothing"
                   ? failure
                   : Str::fromFormat("%d, %u bytes", status, static_cast<unsigned>(output_.size()));
    }

    /// How many lines of `complain` are in the log.
    std::size_t complaints() const
    {
        return home_.log().replaceAll(Str::fromFormat("WARN <stderr> Label: %s\n", Str(99, 'e').c_str()), "");
    }

    testing::SchemeHome home_;
    Str output_;
};

TEST_F(ScriptRunTest, GivesOutputAndExitStatus)
{
    EXPECT_EQ(run("--scheme print <a>|b\n--scheme exit -7\n--other exit 1"), "-7, 6 bytes");
    EXPECT_EQ(output_, "<a>\r\nb");
    // What it leaves running holds its streams open, and ends with it.
    EXPECT_EQ(run("--scheme leave -\n--scheme print done"), "0, 10 bytes");
}

TEST_F(ScriptRunTest, WhatRunsOnWithoutAJobHoldsUpNobody)
{
    {
        const FailingCall noJob("AssignProcessToJobObject", FALSE, ERROR_ACCESS_DENIED);
        EXPECT_EQ(run("--scheme leave -\n--scheme print done", Str(2u << 20, 'i')), "0, 4 bytes");
    }
    removeFile(home_.path("my scripts\\child.exe.plan"));
    const Pathname script = home_.path("my scripts\\child.exe");
    for (int look = 0; look < 500 && !removeFile(script); ++look) {
        Sleep(20);
    }
    EXPECT_EQ(pathKind(script), PathKind::Nothing) << "what it left runs on";
}

// More than pipes hold goes either way while neither side waits for the other.
TEST_F(ScriptRunTest, NeitherSideBlocksTheOther)
{
    const Pathname saved = home_.path("saved");
    const Str plan = Str::fromFormat("--scheme complain 1048576\n--scheme print x\n--scheme save %s\n",
                                     saved.toStr().c_str());
    EXPECT_EQ(run(plan.c_str(), Str(2u << 20, 'i')), "0, 1 bytes");
    const Str received = testing::readWhole(saved);
    EXPECT_EQ(received.size() - received.find("\n") - 1, 2u << 20);
    EXPECT_EQ(complaints(), 1000u);
    EXPECT_TRUE(home_.logged("WARN Label: too much on standard error, dropped: 9486 lines, 939114 bytes.\n"));
    EXPECT_EQ(run("--scheme exit 0", Str(2u << 20, 'i')), "0, 1 bytes") << "it reads nothing";
}

TEST_F(ScriptRunTest, AScriptBeyondItsLimitsIsEnded)
{
    ScriptLimits limits;
    limits.time = std::chrono::milliseconds(1500);
    EXPECT_EQ(run("--scheme hang -", Str(1u << 20, 'i'), limits),
              "Label: script running failed (ended after 1500 ms without an end of its own).");
    limits = {};
    limits.errorBytes = 198;
    EXPECT_EQ(run("--scheme complain 300\n--scheme exit 3", {}, limits), "3, 0 bytes");
    EXPECT_EQ(complaints(), 2u);
    EXPECT_TRUE(home_.logged("dropped: 1 lines, 99 bytes."));
    limits.outputBytes = 4;
    EXPECT_EQ(run("--scheme print four", {}, limits), "0, 4 bytes");
    output_.clear();
    limits.outputBytes = 1u << 20;
    EXPECT_EQ(run("--scheme flood -", {}, limits),
              "Label: script running failed (wrote more than 1048576 bytes).");
}

TEST_F(ScriptRunTest, AFailureIsToldAndEndsTheScript)
{
    EXPECT_TRUE(
        runCommand("no-such-program --scheme").startsWith("Unable to run \"no-such-program --scheme\": "));
    FailingCall unreadable("ReadFile", FALSE, ERROR_NOT_ENOUGH_MEMORY, 0, 2);
    unreadable.onAnyThread();
    EXPECT_TRUE(run("--scheme hang -").startsWith("Label: error reading from pipe: "));
    // With a thread or two that serve it already, too.
    const std::pair<Fault, const char *> faults[] = {
        {{"CreatePipe", FALSE, ERROR_NO_SYSTEM_RESOURCES, 2}, "Label: pipe setup fail: "},
        {{"_beginthreadex", 0, ERROR_NO_SYSTEM_RESOURCES}, "Label: script running failed (Main Thread: "},
        {{"_beginthreadex", 0, ERROR_NO_SYSTEM_RESOURCES, 2}, "Label: script running failed (Main Thread: "},
    };
    for (const auto &[fault, told] : faults) {
        const Str failure = whileFailing(fault, [this] { return run("--scheme hang -"); });
        EXPECT_TRUE(failure.startsWith(told)) << failure.c_str();
    }
}

// Only the reading and writing of pipes: a line of the log that takes long would be lost.
TEST_F(ScriptRunTest, NothingButCallsOnPipesIsCancelled)
{
    const Pathname script = home_.addScript("slow.exe", "--scheme print x");
    const FailingCall cancelled("CancelSynchronousIo", TRUE, 0, 0, 0);
    const auto takeLong = [](std::string_view) { Sleep(1500); };
    EXPECT_EQ(
        runScript("Label", Str::fromFormat("\"%s\" --scheme", script.toStr().c_str()), {}, takeLong, {}), 0);
    EXPECT_EQ(cancelled.calls(), 0);
}

TEST(LineSplitter, HandsOnLinesWhateverThePieces)
{
    const Str longLine(LineSplitter::kLongestLine, 'x');
    const Str text = Str::fromFormat("one\r\n\n%s\n%s%stwo", longLine.c_str(), longLine.c_str(), "y\n");
    for (const std::size_t pieceSize : {1, 7, 100000}) {
        StrVector lines;
        LineSplitter splitter([&lines](const Str &line) { lines.push_back(line); });
        for (std::size_t at = 0; at < text.size(); at += pieceSize) {
            splitter.feed(text.view().substr(at, pieceSize));
        }
        splitter.finish();
        EXPECT_THAT(lines, ::testing::ElementsAre("one", "", longLine, longLine, "y", "two")) << pieceSize;
    }
}

} // namespace
} // namespace velmox
