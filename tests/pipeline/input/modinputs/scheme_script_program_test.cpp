#include "pipeline/input/diagnostics/diagnostics.h"
#include "tests/pipeline/input/modinputs/scheme_home.h"
#include "util/system/windows_api.h"

namespace velmox {
namespace {

// The shipped definition and script of the monitor's scheme, in an installation of the test's own.
TEST(SchemeScriptProgram, DescribesTheMonitorAndJudgesItsStanzas)
{
    testing::SchemeHome home;
    const Pathname spec = Pathname::fromUtf8(VELMOX_SHIPPED_ETC "/system/README/inputs.conf.spec");
    home.defineSchemes("system", testing::readWhole(spec));
    const Pathname script = home.addScript("bin\\scripts\\WinRegMon.exe", "");
    CopyFileW(asWide(Pathname::fromUtf8(VELMOX_SCHEME_SCRIPT)), asWide(script), FALSE);
    ModularInputs inputs(home.host());
    inputs.initializeSchemes();
    EXPECT_THAT(home.messages, ElementsAre());
    const Scheme *scheme = inputs.find("WinRegMon");
    ASSERT_NE(scheme, nullptr) << home.log().c_str();
    EXPECT_TRUE(scheme->useSingleInstance && scheme->useExternalValidation);
    EXPECT_EQ(scheme->streamingMode, StreamingMode::Xml);
    EXPECT_THAT(scheme->args, ElementsAre(Key("baseline"), Key("baseline_interval"), Key("hive"), Key("proc"),
                                          Key("type")));
    Stanzas stanzas;
    stanzas["WinRegMon://x"].set("hive", "HKLM\\\\<Soft>");
    EXPECT_NO_THROW(inputs.validate(*scheme, stanzas));
    stanzas["WinRegMon://x"].set("baseline", "<often>");
    EXPECT_EQ(raisedBy<ModularInputsException>([&] { inputs.validate(*scheme, stanzas); }),
              "Validation for scheme=WinRegMon failed: The value \"<often>\" of baseline "
              "in the stanza \"WinRegMon://x\" is neither true nor false.");
}

} // namespace
} // namespace velmox
