#include "pipeline/input/modinputs/script_run.h"
#include "pipeline/input/modular_inputs_exception.h"
#include "tests/pipeline/input/modinputs/scheme_home.h"

#include <gtest/gtest.h>

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
        Str command;
        command << '"' << script.toStr() << "\" --scheme";
        try {
            const int status = runScript(
                "Label", command, input, [this](std::string_view piece) { output_.append(piece); }, limits);
            return Str::fromFormat("%d, %zu bytes", status, output_.size());
        } catch (const ModularInputsException &exception) {
            EXPECT_TRUE(home_.logged(exception.what()));
            return exception.message();
        }
    }

    testing::SchemeHome home_;
    Str output_;
};

TEST_F(ScriptRunTest, GivesOutputAndExitStatus)
{
    EXPECT_EQ(run("--scheme print <a>|b\n--scheme exit -7\n--other exit 1"), "-7, 6 bytes");
    EXPECT_EQ(output_, "<a>\r\nb");
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
    const Str line = Str::concat("WARN <stderr> Label: ", Str(99, 'e'));
    Str log = home_.log();
    EXPECT_EQ(log.replaceAll(line, ""), 10486u);
    // It reads nothing of what it is given.
    EXPECT_EQ(run("--scheme exit 0", Str(2u << 20, 'i')), "0, 1 bytes");
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

// What it leaves running holds its streams open.
TEST_F(ScriptRunTest, WhatAScriptLeavesRunningEndsWithIt)
{
    EXPECT_EQ(run("--scheme leave -\n--scheme print done"), "0, 4 bytes");
}

TEST_F(ScriptRunTest, TellsWhatCannotBeStarted)
{
    try {
        runScript("Label", "no-such-program --scheme", {}, [](std::string_view) {}, {});
        FAIL() << "it ran";
    } catch (const ModularInputsException &exception) {
        EXPECT_TRUE(exception.message().startsWith("Unable to run \"no-such-program --scheme\": "));
        EXPECT_GT(exception.message().size(), 50u) << "the reason";
    }
}

} // namespace
} // namespace velmox
