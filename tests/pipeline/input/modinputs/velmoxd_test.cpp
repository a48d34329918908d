#include "tests/pipeline/input/modinputs/scheme_home.h"
#include "util/system/environment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmox {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr char kInputs[] = R"([default]
index = main
[all://b]
key = 1 < 2
[all://a]
index =
[all://off]
disabled = 1
[other://x]
key = no
)";

/// Runs the program with an installation of the test's own.
class VelmoxdTest : public ::testing::Test
{
public:
    VelmoxdTest()
    {
        setEnvironmentVariable(u"VELMOX_HOME", home_.path("").view());
        setEnvironmentVariable(u"VELMOX_DB", home_.path("db"));
        for (const auto &[file, from] :
             {std::pair{"etc\\system\\default\\conf.conf", "system/default/conf.conf"},
              {"etc\\log-velmoxd.cfg", "log-velmoxd.cfg"}}) {
            home_.writeFile(file, testing::readWhole(Pathname::fromUtf8(VELMOX_SHIPPED_ETC).join(from)));
        }
        home_.writeFile("etc\\system\\local\\inputs.conf", kInputs);
        home_.writeFile("var\\log\\velmox\\velmoxd.log", "");
        home_.writeFile("etc\\apps\\without-schemes\\default\\app.conf", "");
        home_.defineSchemes("system", "[all://x]\n[broken://x]\n");
        home_.addScript("bin\\scripts\\all.exe",
                        "--scheme print <scheme><use_single_instance>true</use_single_instance></scheme>");
    }
    ~VelmoxdTest() override
    {
        setEnvironmentVariable(u"VELMOX_HOME", {});
        setEnvironmentVariable(u"VELMOX_DB", {});
    }

    /// What comes out; standard error is in the log.
    Str run(const char *arguments, int status)
    {
        Str output;
        const Str command = Str::fromFormat("\"%s\" %s", VELMOX_VELMOXD, arguments);
        const auto keep = [&output](std::string_view piece) { output.append(piece); };
        EXPECT_EQ(runScript("velmoxd", command, {}, keep, {}), status) << arguments << home_.log().c_str();
        return output;
    }

    bool complained(const char *line) const
    {
        return home_.logged(Str::fromFormat("<stderr> velmoxd: %s\n", line));
    }

    testing::SchemeHome home_;
};

TEST_F(VelmoxdTest, PrintsTheInputDocument)
{
    const Str output = run("print-modinput-config all", 0);
    EXPECT_THAT(output.c_str(), StartsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<input>\n"));
    EXPECT_EQ(output.substr(output.find("  <server_uri>")),
              Str::fromFormat(R"(  <server_uri>https://127.0.0.1:8089</server_uri>
  <session_key></session_key>
  <checkpoint_dir>%s</checkpoint_dir>
  <configuration>
    <stanza name="all://a">
      <param name="index"></param>
    </stanza>
    <stanza name="all://b">
      <param name="index">main</param>
      <param name="key">1 &lt; 2</param>
    </stanza>
  </configuration>
</input>
)",
                              home_.path("db\\modinputs\\all").toStr().c_str()));
    EXPECT_FALSE(home_.logged("<stderr>")) << home_.log().c_str();
}

TEST_F(VelmoxdTest, TellsErrorsOnStandardErrorAlone)
{
    EXPECT_EQ(run("print-modinput-config broken", 1), "");
    EXPECT_TRUE(complained("Scheme \"broken\" is not initialized."));
    EXPECT_FALSE(home_.logged("velmoxd: DEBUG"));

    home_.addScript("bin\\scripts\\broken.exe", "--scheme exit 9");
    EXPECT_EQ(run("--debug print-modinput-config broken", 1), "");
    EXPECT_TRUE(complained("DEBUG ModularInputs - Found scheme=\"all\"."));
    EXPECT_TRUE(
        complained("MessageHandler:MOD_INPUT_INIT: Unable to initialize modular input \"broken\"  defined "
                   "in the system context: Introspecting scheme=broken: script running failed (exited "
                   "with status 9)."));
    EXPECT_THAT(testing::readWhole(home_.path("var\\log\\velmox\\velmoxd.log")).c_str(),
                HasSubstr("ERROR ModularInputs - Introspecting scheme=broken: script running failed"));

    setEnvironmentVariable(u"VELMOX_HOME", {});
    EXPECT_EQ(run("print-modinput-config all", 1), "");
    EXPECT_TRUE(complained("VELMOX_HOME must be set. Stopping."));
    for (const char *arguments :
         {"", "--help", "--debug", "print-modinput-config", "print-modinput-config all x y",
          "--debug --debug print-modinput-config all", "Print-Modinput-Config all"}) {
        const testing::SchemeHome fresh;
        EXPECT_EQ(run(arguments, 1), "");
        EXPECT_TRUE(fresh.logged("<stderr> velmoxd: Usage:\n")) << arguments;
    }
}

} // namespace
} // namespace velmox
