#include "pipeline/input/diagnostics/modular_inputs_exception.h"
#include "tests/pipeline/input/modinputs/scheme_home.h"
#include "tests/support/failing_call.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

using testing::FailingCall;

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
        try {
            const auto keep = [this](std::string_view piece) { output_.append(piece); };
            const int status = runScript("Label", command, input, keep, limits);
            return Str::fromFormat("%d, %u bytes", status, static_cast<unsigned>(output_.size()));
        } catch (const ModularInputsException &exception) {
            EXPECT_TRUE(home_.logged(exception.what()));
            return exception.message();
        }
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

TEST_F(ScriptRunTest, LogsNoMoreBytesOfStandardErrorThanItsLimit)
{
    ScriptLimits limits;
    limits.errorBytes = 198;
    EXPECT_EQ(run("--scheme complain 200", {}, limits), "0, 0 bytes");
    EXPECT_EQ(complaints(), 2u);
    EXPECT_FALSE(home_.logged("dropped"));
    EXPECT_EQ(run("--scheme complain 300\n--scheme exit 3", {}, limits), "3, 0 bytes");
    EXPECT_EQ(complaints(), 4u);
    EXPECT_TRUE(home_.logged("dropped: 1 lines, 99 bytes."));
}

TEST_F(ScriptRunTest, AScriptBeyondItsLimitsIsEnded)
{
    ScriptLimits limits;
    limits.time = std::chrono::milliseconds(1500);
    EXPECT_EQ(run("--scheme hang -", Str(1u << 20, 'i'), limits),
              "Label: script running failed (ended after 1500 ms without an end of its own).");
    limits = {};
    limits.outputBytes = 4;
    EXPECT_EQ(run("--scheme print four", {}, limits), "0, 4 bytes");
    limits.outputBytes = 1u << 20;
    EXPECT_EQ(run("--scheme flood -", {}, limits),
              "Label: script running failed (wrote more than 1048576 bytes).");
}

TEST_F(ScriptRunTest, EachCallThatFailsIsToldAndEndsTheScript)
{
    const struct
    {
        const char *function;
        std::intptr_t result;
        int passed, failures, closes;
        const char *message;
    } rows[] = {
        {"CreatePipe", FALSE, 0, 1, 0, "Label: pipe setup fail: %m"},
        {"CreatePipe", FALSE, 2, 1, 4, "Label: pipe setup fail: %m"},
        {"SetHandleInformation", FALSE, 1, 1, 4, "Label: pipe setup fail: %m"},
        {"InitializeProcThreadAttributeList", FALSE, 1, 1, 6, "Unable to run \"COMMAND\": %m"},
        {"UpdateProcThreadAttribute", FALSE, 0, 1, 6, "Unable to run \"COMMAND\": %m"},
        {"CreateProcessW", FALSE, 0, 1, 7, "Unable to run \"COMMAND\": %m"},
        {"WaitForMultipleObjects", static_cast<std::intptr_t>(WAIT_FAILED), 0, 1, -1,
         "Label: script running failed (%m)."},
        {"ReadFile", FALSE, 0, 2, -1, "Label: error reading from pipe: %m"},
    };
    const Pathname script = home_.addScript("child.exe", "--scheme hang -");
    const Str command = Str::fromFormat("\"%s\" --scheme", script.toStr().c_str());
    Str reason;
    reason.appendErrorText(ERROR_NOT_ENOUGH_MEMORY);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.function);
        Str expected = row.message;
        expected.replaceAll("%m", reason);
        expected.replaceAll("COMMAND", command);
        FailingCall refused(row.function, row.result, ERROR_NOT_ENOUGH_MEMORY, row.passed, row.failures);
        const FailingCall closes("CloseHandle", TRUE, 0, 0, 0);
        if (row.failures == 2) {
            refused.onAnyThread();
        }
        EXPECT_EQ(runCommand(command), expected);
        EXPECT_EQ(refused.failed(), row.failures);
        if (row.closes >= 0) {
            EXPECT_EQ(closes.calls(), row.closes);
        }
    }
    EXPECT_TRUE(home_.logged(Str::fromFormat("WARN Label: error reading from pipe: %s\n", reason.c_str())));
    EXPECT_TRUE(
        runCommand("no-such-program --scheme").startsWith("Unable to run \"no-such-program --scheme\": "));
}

} // namespace
} // namespace velmox
