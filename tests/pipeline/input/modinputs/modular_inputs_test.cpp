#include "pipeline/input/modinputs/checkpoint_folder.h"
#include "pipeline/input/modinputs/modinputs_helper_thread.h"
#include "pipeline/input/modinputs/modular_inputs.h"
#include "pipeline/input/modular_inputs_exception.h"
#include "tests/pipeline/input/modinputs/scheme_home.h"
#include "util/environment.h"
#include "util/file_system.h"
#include "util/owned_handle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmox {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

template <class Call>
Str messageOf(Call call)
{
    try {
        call();
        return "nothing thrown";
    } catch (const ModularInputsException &exception) {
        return exception.message();
    }
}

class ModularInputsTest : public ::testing::Test
{
public:
    ModularInputs initialized()
    {
        ModularInputs inputs(home_.host());
        inputs.initializeSchemes();
        return inputs;
    }

    /// What stands in the log from the first of these texts on, in their order; fails at one that doesn't.
    void expectLogged(const std::vector<const char *> &texts)
    {
        const Str log = home_.log();
        std::size_t at = 0;
        for (const char *text : texts) {
            at = log.find(Str::concat(text, "\n"), at);
            ASSERT_NE(at, Str::npos) << text << "\nis not where it should be in\n" << log.c_str();
        }
    }

    testing::SchemeHome home_;
};

TEST_F(ModularInputsTest, OnlyServersInitializeSchemes)
{
    home_.defineSchemes("app", "[mine://x]\n");
    home_.addScript("etc\\apps\\app\\bin\\mine.exe", "--scheme print <scheme/>");
    for (const auto &[context, runs] : {std::pair{ProcessContext::Other, false},
                                        {ProcessContext::Rest, true},
                                        {ProcessContext::Server, true}}) {
        ModularInputsHost host = home_.host();
        host.context = context;
        ModularInputs inputs(host);
        inputs.initializeSchemes();
        EXPECT_EQ(inputs.find("mine") != nullptr, runs);
    }
    expectLogged({"INFO Not running in velmoxd or REST context: Will not initialize modular inputs.",
                  "DEBUG ==================================================="});
}

TEST_F(ModularInputsTest, FindsSchemesOfTheSystemAndOfApps)
{
    home_.defineSchemes("system", "[one://<name>]\nkey = <string>\n* key = a description\n[default]\na = b\n"
                                  "[absent://x]\n[://nameless]\n");
    home_.defineSchemes("b",
                        "[one://again]\n[two://x]\nindex = <name>\nproc =\n[two://y]\n[of two words://x]\n");
    home_.defineSchemes("a", "[broken://x]\n[named://x]\nname = <string>\n[lost://x]\n");
    home_.defineSchemes("disabled", "[off://x]\n");
    home_.addScript("bin\\scripts\\off.exe", "--scheme print <scheme/>");
    home_.addScript("etc\\system\\bin\\one.exe", "--scheme print <scheme><title>1</title></scheme>");
    home_.addScript("etc\\apps\\b\\bin\\two.exe",
                    "--scheme print <scheme><endpoint><args><arg name=\"proc\"/></args></endpoint></scheme>");
    home_.addScript("etc\\apps\\b\\bin\\of two words.exe", "--scheme print <scheme/>");
    home_.addScript("bin\\scripts\\broken.exe", "--scheme complain 100\n--scheme exit 3\n");
    home_.addScript("bin\\scripts\\named.exe", "");
    const ModularInputs inputs = initialized();
    ASSERT_NE(inputs.find("one"), nullptr);
    EXPECT_EQ(inputs.find("one")->title, "1");
    ASSERT_NE(inputs.find("two"), nullptr);
    EXPECT_TRUE(inputs.find("two")->args.contains("proc"));
    EXPECT_NE(inputs.find("of two words"), nullptr);
    for (const char *name : {"absent", "broken", "named", "lost", "default", "off", ""}) {
        EXPECT_EQ(inputs.find(name), nullptr) << name;
    }
    EXPECT_THAT(
        home_.messages,
        ElementsAre(
            "MessageHandler:MOD_INPUT_INIT Unable to initialize modular input \"broken\"  defined inside "
            "the app \"a\": Introspecting scheme=broken: script running failed (exited with status 3).",
            "MessageHandler:MOD_INPUT_INIT Unable to initialize modular input \"named\"  defined inside "
            "the app \"a\": Parameter \"name\" serves a special purpose, and it should not be specified "
            "in the spec file.  Please choose a different parameter name.",
            "MessageHandler:MOD_INPUT_INIT Unable to initialize modular input \"lost\"  defined inside "
            "the app \"a\": Unable to locate suitable script for introspection."));
    expectLogged(
        {"DEBUG Found scheme=\"one\".", "DEBUG Found scheme=\"absent\".",
         "DEBUG Unable to find suitable script for scheme \"absent\" defined in the system context.  "
         "This scheme will not be initialized.",
         "ERROR Introspecting scheme=broken: script running failed (exited with status 3).",
         "ERROR No script to handle scheme \"lost\" was found.  This modular input will be disabled.",
         "ERROR Unable to locate suitable script for introspection.",
         "DEBUG Scheme \"one\" already defined.  Skipping.",
         "DEBUG Ignoring parameter \"index\" from the spec file: it is an "
         "internal arg that gets handled in a special way.",
         "INFO Endpoint argument settings for \"proc\":",
         "INFO Introspection setup completed for scheme \"two\".",
         "DEBUG Scheme \"two\" already defined.  Skipping."});
    EXPECT_FALSE(home_.logged("ERROR No script to handle scheme \"absent\""));
}

TEST_F(ModularInputsTest, OddScripts)
{
    home_.defineSchemes("app", "[mute://x]\n[talks://x]\n[usage://x]\n[binary://x]\n");
    home_.addScript("bin\\scripts\\mute.exe", "--scheme exit 0");
    home_.addScript("bin\\scripts\\talks.exe", "--scheme complain 1048576\n--scheme print <scheme/>");
    home_.addScript("bin\\scripts\\usage.exe", "--scheme print usage: me|\n--scheme exit 0");
    home_.defineSchemes("floods", "[floods://x]\n");
    home_.addScript("bin\\scripts\\floods.exe", "--scheme flood -");
    // It has the name of a program and is none.
    home_.writeFile("bin\\scripts\\binary.exe", "no program");
    const ModularInputs inputs = initialized();
    EXPECT_NE(inputs.find("mute"), nullptr);
    EXPECT_NE(inputs.find("talks"), nullptr);
    EXPECT_NE(inputs.find("usage"), nullptr);
    EXPECT_EQ(inputs.find("floods"), nullptr);
    EXPECT_EQ(inputs.find("binary"), nullptr);
    expectLogged(
        {"WARN Introspecting scheme=mute: the script printed no <scheme> element, so all its settings "
         "are defaults."});
    EXPECT_TRUE(home_.logged("ERROR Unable to run \""));
}

TEST_F(ModularInputsTest, AHangingScriptLeavesItsSchemeOut)
{
    home_.defineSchemes("system", "[hangs://x]\n");
    home_.addScript("bin\\scripts\\hangs.exe", "--scheme print <scheme>\n--scheme hang -");
    ModularInputsHost host = home_.host();
    host.limits.time = std::chrono::milliseconds(500);
    ModularInputs inputs(host);
    inputs.initializeSchemes();
    EXPECT_EQ(inputs.find("hangs"), nullptr);
    EXPECT_THAT(
        home_.messages,
        ElementsAre("MessageHandler:MOD_INPUT_INIT Unable to initialize modular input \"hangs\"  defined in "
                    "the system context: Introspecting scheme=hangs: script running failed (ended after "
                    "500 ms without an end of its own)."));
}

TEST_F(ModularInputsTest, LocatesScriptsInTheirOrder)
{
    const AppFolder app = home_.app("app");
    const ModularInputs inputs(home_.host());
    const auto located = [&] {
        return inputs.locateScript(app, "s", ScriptCandidates({"s", "-a b"})).text();
    };
    EXPECT_EQ(located(), "");
    const char *places[] = {"bin\\scripts\\s.py",
                            "etc\\apps\\app\\bin\\s.py",
                            "etc\\apps\\app\\bin\\s.exe",
                            "etc\\apps\\app\\bin\\s",
                            "etc\\apps\\app\\windows_x86_64\\bin\\s.py",
                            "etc\\apps\\app\\windows_x86_64\\bin\\s.exe"};
    for (const char *place : places) {
        const Pathname script = home_.addScript(place, "");
        EXPECT_EQ(located(), script.concat(" -a b").toStr());
    }
    EXPECT_TRUE(makeDirs(app.path.join("windows_x86_64\\bin\\s"), true));
    EXPECT_EQ(located(), home_.path(places[5]).concat(" -a b").toStr()) << "a folder is no script";
    const Str first = home_.path("etc\\apps\\app\\windows_x86_64\\bin").toStr();
    const Str last = home_.path("bin\\scripts").toStr();
    expectLogged(
        {Str::fromFormat("DEBUG No regular file=\"%s\\s\".", first.c_str()).c_str(),
         Str::fromFormat("DEBUG No regular file=\"%s\\s.exe\".", first.c_str()).c_str(),
         Str::fromFormat("DEBUG No script found in dir=\"%s\"", last.c_str()).c_str(),
         "ERROR No script to handle scheme \"s\" was found.  This modular input will be disabled.",
         Str::fromFormat("DEBUG Found script \"%s\\s.py -a b\" to handle scheme \"s\".", last.c_str())
             .c_str()});
}

// The word is looked up as any program is; here it stands for an interpreter that is found by PATH.
TEST_F(ModularInputsTest, PythonRunsItsScripts)
{
    home_.addScript("tools\\python.exe",
                    Str::fromFormat("--scheme print <scheme><script>mine.py -v</script></scheme>\n"
                                    "--validate-arguments save %s\n",
                                    home_.path("saved").toStr().c_str()));
    home_.defineSchemes("app", "[mine://x]\n");
    const Pathname script = home_.addScript("etc\\apps\\app\\bin\\mine.py", "");
    const WideStr path = environmentVariable(u"PATH");
    setEnvironmentVariable(u"PATH", home_.path("tools").concat(u";").concat(path.c_str()));
    ModularInputs inputs = initialized();
    ASSERT_NE(inputs.find("mine"), nullptr);
    Scheme scheme = *inputs.find("mine");
    scheme.useExternalValidation = true;
    inputs.validate(scheme, {});
    setEnvironmentVariable(u"PATH", path);
    const Str saved = testing::readWhole(home_.path("saved"));
    const Str command = Str::fromFormat("python %s -v --validate-arguments\n", script.toStr().c_str());
    EXPECT_TRUE(saved.startsWith(command.view())) << saved.c_str();
}

TEST_F(ModularInputsTest, ValidatesByTheScript)
{
    const ModularInputs inputs(home_.host());
    Scheme scheme;
    scheme.name = "mine";
    const InputStanzas stanzas = {{"mine://x", {}}};
    const auto validated = [&](const Str &plan) {
        scheme.script.file = home_.addScript("mine.exe", plan);
        return messageOf([&] { inputs.validate(scheme, stanzas); });
    };
    const Str saved = home_.path("saved").toStr();
    const Str saving = Str::fromFormat("--validate-arguments save %s\n", saved.c_str());
    EXPECT_EQ(validated("--validate-arguments exit 1"), "nothing thrown") << "it wants no validation";
    scheme.useExternalValidation = true;
    EXPECT_EQ(validated(saving), "nothing thrown");
    const Str document = testing::readWhole(home_.path("saved"));
    EXPECT_THAT(document.c_str(), HasSubstr("--validate-arguments\n<?xml version=\"1.0\""));
    EXPECT_THAT(document.c_str(), HasSubstr("<session_key>key</session_key>"));
    EXPECT_THAT(document.c_str(), HasSubstr("<stanza name=\"mine://x\">"));

    EXPECT_EQ(validated("--validate-arguments exit 2"),
              "Validation for scheme=mine failed: The script returned with exit status 2.");
    EXPECT_EQ(validated("--validate-arguments print <error><message>No such\thost.</message></error>\n"
                        "--validate-arguments exit 1"),
              "Validation for scheme=mine failed: No such\thost.");
    EXPECT_EQ(validated("--validate-arguments print <error><message>all well</message></error>"),
              "nothing thrown");
    scheme.script.file = home_.path("gone.exe");
    EXPECT_EQ(
        messageOf([&] { inputs.validate(scheme, stanzas); }),
        "Unable to run external validation for scheme=\"mine\".  Please see velmoxd.log for more details.");
    expectLogged({"WARN Validation for scheme=mine failed: The script returned with exit status 2."});
}

TEST_F(ModularInputsTest, MakesCheckpointFolders)
{
    const Pathname db = home_.path("db");
    const auto message = [&](const char *scheme) { return messageOf([&] { checkpointFolder(db, scheme); }); };
    EXPECT_EQ(checkpointFolder(db, "mine"), db.join("modinputs").join("mine"));
    EXPECT_EQ(pathKind(db.join("modinputs\\mine")), PathKind::Folder);
    EXPECT_EQ(message("mine"), "nothing thrown") << "it is there";
    const Pathname file = db.join("modinputs\\file");
    testing::writeWhole(file, "");
    EXPECT_EQ(message("file"),
              Str::fromFormat("Existing path \"%s\" is expected to be a directory.", file.toStr().c_str()));
    const Pathname own = db.join("modinputs\\mine");
    {
        const FileHandle held(CreateFileW(asWide(own), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                          OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
        EXPECT_EQ(message("mine"),
                  Str::fromFormat("No read-write access on directory \"%s\".", own.toStr().c_str()));
    }
    const Pathname bad = db.join("modinputs\\a?b");
    EXPECT_THAT(
        message("a?b").c_str(),
        HasSubstr(
            Str::fromFormat("Unable to create directory \"%s\" (mkdir_p): ", bad.toStr().c_str()).c_str()));
    EXPECT_EQ(messageOf([] { checkpointFolder({}, "mine"); }),
              "The environment variable VELMOX_DB must not be empty.");
}

class PrintConfigTest : public ModularInputsTest
{
public:
    PrintConfigTest()
    {
        home_.defineSchemes("app", "[all://x]\n[each://x]\n");
        home_.addScript("bin\\scripts\\all.exe",
                        "--scheme print <scheme><use_single_instance>true</use_single_instance></scheme>");
        home_.addScript("bin\\scripts\\each.exe", "--scheme print <scheme/>");
        for (const char *name : {"all://1", "all://2", "each://1", "each://2", "other://1"}) {
            home_.stanzas[name].set("key", name);
        }
    }

    /// The document, or what is wrong.
    Str print(const char *scheme, const std::optional<Str> &stanza = {})
    {
        ModularInputs inputs = initialized();
        ModinputsHelperThread helper(inputs, scheme, stanza);
        helper.start();
        helper.join();
        EXPECT_NE(helper.document().has_value(), !helper.error().empty());
        return helper.document().value_or(helper.error());
    }
};

TEST_F(PrintConfigTest, PrintsWhatAScriptGets)
{
    const Str all = print("all");
    EXPECT_THAT(all.c_str(), HasSubstr("<param name=\"key\">all://1</param>"));
    EXPECT_THAT(all.c_str(), HasSubstr("<param name=\"key\">all://2</param>"));
    EXPECT_FALSE(all.contains("each"));
    const Str checkpoints = home_.path("db\\modinputs\\all").toStr();
    EXPECT_THAT(all.c_str(), HasSubstr(Str::fromFormat("<checkpoint_dir>%s<", checkpoints.c_str()).c_str()));
    const Str one = print("each", "2");
    EXPECT_EQ(one, print("each", "each://2"));
    EXPECT_THAT(one.c_str(), HasSubstr("<param name=\"key\">each://2</param>"));
    EXPECT_FALSE(one.contains("each://1"));
}

TEST_F(PrintConfigTest, TellsWhatIsWrong)
{
    EXPECT_EQ(print("other"), "Scheme \"other\" is not initialized.");
    EXPECT_EQ(print("each"), "Stanza name must be specified.");
    EXPECT_EQ(print("all", "1"), "Stanza name should not be specified when \"use_single_instance\" is set to "
                                 "true in introspection.");
    EXPECT_THAT(print("each", "3").c_str(), HasSubstr("No configuration for stanza \"each://3\""));
    expectLogged({"DEBUG Unable to find stanza \"each://3\" in inputs.conf.  This is normal for "
                  "use_single_instance=true modular inputs."});
    home_.stanzas.clear();
    EXPECT_THAT(print("all").c_str(), HasSubstr("No configuration for scheme \"all\""));
    expectLogged({"INFO No stanzas found for scheme \"all\" in inputs.conf at script (re)start."});
    home_.stanzas["all://1"];
    testing::writeWhole(home_.path("db"), "a file where the folder should be");
    EXPECT_THAT(print("all").c_str(), HasSubstr("No configuration for scheme \"all\""));
    expectLogged({"ERROR Error generating configuration arguments for scheme \"all\""});
}

} // namespace
} // namespace velmox
