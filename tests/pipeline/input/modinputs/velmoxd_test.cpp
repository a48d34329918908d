#include "tests/pipeline/input/modinputs/scheme_home.h"

namespace velmox {
namespace {

constexpr char kScheme[] = "--scheme print <scheme><use_single_instance>true</use_single_instance></scheme>";

/// Runs the program with an installation of the test's own.
class VelmoxdTest : public ::testing::Test
{
public:
    VelmoxdTest()
    {
        for (const auto &[file, from] :
             {std::pair{"etc\\system\\default\\conf.conf", "system/default/conf.conf"},
              {"etc\\log-velmoxd.cfg", "log-velmoxd.cfg"}}) {
            home_.writeFile(file, testing::readWhole(Pathname::fromUtf8(VELMOX_SHIPPED_ETC).join(from)));
        }
        home_.writeFile("etc\\system\\local\\inputs.conf",
                        "[default]\nindex = main\n[all://b]\nkey = 1 < 2\n[all://a]\nindex =\n"
                        "[all://off]\ndisabled = 1\n[other://x]\nkey = no\n");
        home_.writeFile("var\\log\\velmox\\velmoxd.log", "");
        home_.defineSchemes("system", "[all://x]\n[broken://x]\n");
        home_.addScript("bin\\scripts\\all.exe", kScheme);
    }

    /// What comes out; standard error is kept.
    Str run(const char *arguments, unsigned status, const char *home = nullptr)
    {
        const Str installation = home_.path("").toStr();
        testing::ChildProcess velmoxd(Str::fromFormat("\"%s\" %s", VELMOX_VELMOXD, arguments),
                                      {Str::fromFormat("VELMOX_HOME=%s", home ? home : installation.c_str()),
                                       Str::fromFormat("VELMOX_DB=%s", home_.path("db").toStr().c_str()),
                                       "COMPUTERNAME=THIS-HOST"},
                                      testing::Streams::Apart);
        EXPECT_TRUE(velmoxd.waitForEnd());
        EXPECT_EQ(velmoxd.exitCode(), status) << arguments;
        errors_ = velmoxd.errorBytes().c_str();
        return velmoxd.outputBytes();
    }

    testing::SchemeHome home_;
    std::string errors_;
};

TEST_F(VelmoxdTest, PrintsTheInputDocument)
{
    EXPECT_EQ(run("print-modinput-config all", 0),
              Str::fromFormat(R"(<?xml version="1.0" encoding="UTF-8"?>
<input>
  <server_host>THIS-HOST</server_host>
  <server_uri>https://127.0.0.1:8089</server_uri>
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
    EXPECT_EQ(errors_, "");
}

// Apps that the server hands out to its members are apps; those that are disabled are none.
TEST_F(VelmoxdTest, FindsSchemesInEveryAppThatIsEnabled)
{
    for (const auto &[parent, app, state] : {std::tuple{"apps", "on", "enabled"},
                                             {"apps", "off", "disabled"},
                                             {"slave-apps", "handed-out", "enabled"}}) {
        const Str folder = Str::fromFormat("etc\\%s\\%s\\", parent, app);
        home_.writeFile(Str::concat(folder, "default\\app.conf").c_str(),
                        Str::fromFormat("[install]\nstate = %s\n", state));
        home_.writeFile(Str::concat(folder, "README\\inputs.conf.spec").c_str(),
                        Str::fromFormat("[%s://x]\n", app));
        home_.writeFile(Str::concat(folder, "default\\inputs.conf").c_str(),
                        Str::fromFormat("[%s://x]\nexport = system\n", app));
        home_.addScript(Str::fromFormat("%sbin\\%s.exe", folder.c_str(), app).c_str(), kScheme);
    }
    EXPECT_THAT(run("print-modinput-config on", 0).c_str(), HasSubstr("<stanza name=\"on://x\">"));
    run("print-modinput-config handed-out", 0);
    EXPECT_EQ(run("print-modinput-config off", 1), "");
    EXPECT_THAT(errors_, ::testing::EndsWith("\r\nScheme \"off\" is not initialized.\r\n"));
}

TEST_F(VelmoxdTest, TellsErrorsOnStandardErrorAlone)
{
    home_.addScript("bin\\scripts\\broken.exe", "--scheme exit 9");
    EXPECT_EQ(run("--debug print-modinput-config broken", 1), "");
    EXPECT_THAT(errors_, HasSubstr("DEBUG ModularInputs - Found scheme=\"all\"."));
    constexpr char kFailed[] = "Introspecting scheme=broken: script running failed (exited with status 9).";
    EXPECT_THAT(errors_,
                HasSubstr(Str::fromFormat("MessageHandler:MOD_INPUT_INIT: Unable to initialize modular "
                                          "input \"broken\"  defined in the system context: %s",
                                          kFailed)
                              .c_str()));
    EXPECT_THAT(testing::readWhole(home_.path("var\\log\\velmox\\velmoxd.log")).c_str(),
                HasSubstr(Str::concat("ERROR ModularInputs - ", kFailed).c_str()));

    EXPECT_EQ(run("print-modinput-config all", 1, ""), "");
    EXPECT_EQ(errors_, "VELMOX_HOME must be set. Stopping.\r\n");
    for (const char *arguments : {"", "print-modinput-config", "print-modinput-config all x y",
                                  "--debug --debug print-modinput-config all"}) {
        EXPECT_EQ(run(arguments, 1), "");
        EXPECT_THAT(errors_, ::testing::StartsWith("Usage:\r\n")) << arguments;
    }
}

TEST_F(VelmoxdTest, PrintsAPatternAndExplainsWhatItMatches)
{
    const Str hive = run("pattern \"HKLM\\SOFTWARE\\A (x)\\\xc3\xa4\"", 0);
    EXPECT_EQ(hive, "hive = HKLM\\\\SOFTWARE\\\\A \\(x\\)\\\\\xc3\xa4\\\\?(?s:(?<=\\\\).*|(?!.))\n");
    EXPECT_EQ(run("pattern HKCR\\x --wow64", 2), "");
    const char *const settings = "etc\\system\\local\\inputs.conf";
    home_.writeFile(settings,
                    Str::fromFormat("[WinRegMon://x]\n%sindex = i\n[WinRegMon://y]\ndisabled = 1\n"
                                    "[WinRegMon://z]\nhive = HKLM\\\\SYSTEM\\\\CurrentControlSet\\\\.*\n",
                                    hive.c_str()));
    const Str text = run(
        "explain --key \"hklm\\Software\\a (X)\\\xc3\x84\\b\" --process C:\\x.exe --value-type reg_sz", 0);
    EXPECT_TRUE(text.endsWith("\naccepted stanza=x index=i\n") && text.contains("\n  z\n")) << text.c_str();
    EXPECT_TRUE(
        run("explain --key HKLM\\SYSTEM\\CurrentControlSet\\a", 0).endsWith("\naccepted stanza=- index=-\n"));
    EXPECT_TRUE(run("explain --key HKLM\\SOFTWARE\\b --operation DeleteKey", 1).endsWith("\ndropped\n"));
    EXPECT_TRUE(
        run("explain --key HKLM\\SOFTWARE\\b -inclusive 0", 0).endsWith("\naccepted stanza=- index=-\n"));
    const Str json = run("explain --json --key HKLM\\SYSTEM\\ControlSet001\\a --operation open", 1);
    EXPECT_TRUE(json.startsWith("{\"accepted\":false,\"stanza\":null,\"index\":null,")) << json.c_str();
    EXPECT_TRUE(json.contains(R"({"name":"z","process":true,"key":true,"type":false,"why":)"))
        << json.c_str();
    EXPECT_EQ(run("explain --key HKLM --key HKLM\\SOFTWARE\\b", 2), "");
    home_.writeFile(settings, "[WinRegMon://x]\nhive = (\n");
    for (const char *arguments :
         {"explain --key HKLM", "explain --key", "explain --key X", "explain --key HKLM --operation x",
          "--debug check", "--debug pattern HKLM"}) {
        EXPECT_EQ(run(arguments, 2), "") << arguments;
    }
}

} // namespace
} // namespace velmox
