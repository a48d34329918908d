#include "pipeline/input/diagnostics/modular_inputs_exception.h"
#include "tests/pipeline/input/modinputs/scheme_home.h"
#include "util/system/windows_api.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmox {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::Key;

/// The shipped definition and script of the monitor's scheme, in an installation of the test's own.
class SchemeScriptProgram : public ::testing::Test
{
public:
    SchemeScriptProgram()
    {
        const Pathname spec = Pathname::fromUtf8(VELMOX_SHIPPED_ETC "/system/README/inputs.conf.spec");
        home_.defineSchemes("system", testing::readWhole(spec));
        monitor_ = home_.addScript(
            "bin\\velmox-regmon.exe",
            Str::fromFormat("go save %s\ngo print events\ngo exit 7\n", home_.path("saved").toStr().c_str()));
        script_ = home_.addScript("bin\\scripts\\WinRegMon.exe", "");
        CopyFileW(asWide(Pathname::fromUtf8(VELMOX_SCHEME_SCRIPT)), asWide(script_), FALSE);
    }

    testing::SchemeHome home_;
    Pathname monitor_, script_;
};

TEST_F(SchemeScriptProgram, DescribesTheMonitorAndJudgesItsStanzas)
{
    ModularInputs inputs(home_.host());
    inputs.initializeSchemes();
    EXPECT_THAT(home_.messages, ElementsAre());
    const Scheme *scheme = inputs.find("WinRegMon");
    ASSERT_NE(scheme, nullptr) << home_.log().c_str();
    EXPECT_TRUE(scheme->useSingleInstance && scheme->useExternalValidation);
    EXPECT_EQ(scheme->streamingMode, StreamingMode::Xml);
    EXPECT_THAT(scheme->args, ElementsAre(Key("baseline"), Key("baseline_interval"), Key("hive"), Key("proc"),
                                          Key("type")));
    Stanzas stanzas;
    stanzas["WinRegMon://x"].set("hive", "HKLM\\\\<Soft>");
    EXPECT_NO_THROW(inputs.validate(*scheme, stanzas));
    stanzas["WinRegMon://x"].set("baseline", "<often>");
    try {
        inputs.validate(*scheme, stanzas);
        FAIL() << "it passed";
    } catch (const ModularInputsException &exception) {
        EXPECT_EQ(exception.message(),
                  "Validation for scheme=WinRegMon failed: The value \"<often>\" of baseline "
                  "in the stanza \"WinRegMon://x\" is neither true nor false.");
    }
}

TEST_F(SchemeScriptProgram, IsTheMonitorOtherwise)
{
    Str events;
    const Str command = Str::fromFormat("\"%s\" -index \"a b\" go", script_.toStr().c_str());
    const auto keep = [&events](std::string_view piece) { events.append(piece); };
    EXPECT_EQ(runScript("Monitor", command, "<input/>", keep, {}), 7);
    EXPECT_EQ(events, "events");
    const Str saved = testing::readWhole(home_.path("saved"));
    EXPECT_THAT(saved.c_str(), EndsWith("bin\\velmox-regmon.exe\" -index \"a b\" go\n<input/>"));

    DeleteFileW(asWide(monitor_));
    EXPECT_EQ(runScript("Monitor", command, "<input/>", keep, {}), 1);
    EXPECT_EQ(events, "events");
    const Str line =
        Str::fromFormat("WARN <stderr> Monitor: Unable to run \"%s\": ", monitor_.toStr().c_str());
    EXPECT_TRUE(home_.logged(line)) << home_.log().c_str();
}

} // namespace
} // namespace velmox
