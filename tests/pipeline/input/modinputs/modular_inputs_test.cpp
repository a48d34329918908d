#include "pipeline/input/diagnostics/diagnostics.h"
#include "pipeline/input/modinputs/modular_inputs.h"
#include "pipeline/input/modinputs/scheme_files.h"
#include "tests/pipeline/input/modinputs/scheme_home.h"
#include "util/files/file_system.h"
#include "util/match/regex.h"

namespace velmox {
namespace {

class ModularInputsTest : public ::testing::Test
{
public:
    ModularInputs initialized()
    {
        ModularInputs inputs(home_.host());
        inputs.initializeSchemes();
        return inputs;
    }

    void expectLogged(const StrVector &lines) { expectInOrder(home_.log(), lines); }

    testing::SchemeHome home_;
};

TEST_F(ModularInputsTest, FindsSchemesOfTheSystemAndOfApps)
{
    home_.defineSchemes("system", "[one://<name>]\nkey = <string>\n* key = a description\n[default]\na = b\n"
                                  "[absent://x]\n[://nameless]\n");
    home_.defineSchemes(
        "b", "[one://again]\n[two://x]\nindex = <name>\nproc =\n[of two words://x]\n[two://y]\nhive =\n");
    home_.defineSchemes("a", "[broken://x]\n[named://x]\nname = <string>\n[lost://x]\n");
    home_.defineSchemes("c", "[broken://again]\n");
    home_.defineSchemes("disabled", "[off://x]\n");
    for (const auto &[script, plan] :
         {std::pair{"bin\\scripts\\off.exe", "--scheme print <scheme/>"},
          {"etc\\system\\bin\\one.exe", "--scheme print <scheme><title>1</title></scheme>"},
          {"etc\\apps\\b\\bin\\two.exe",
           "--scheme print <scheme><script>three.exe -x</script><endpoint><args>"
           "<arg name=\"proc\"/><arg name=\"hive\"/></args></endpoint></scheme>"},
          {"etc\\apps\\b\\bin\\three.exe", ""},
          {"etc\\apps\\b\\bin\\of two words.exe", "--scheme print <scheme/>"},
          {"bin\\scripts\\broken.exe", "--scheme complain 100\n--scheme exit 3\n"},
          {"bin\\scripts\\named.exe", ""}}) {
        home_.addScript(script, plan);
    }
    const ModularInputs inputs = initialized();
    EXPECT_EQ(inputs.find("one")->title, "1");
    ASSERT_NE(inputs.find("two"), nullptr);
    EXPECT_EQ(inputs.find("two")->args.size(), 2u);
    EXPECT_TRUE(inputs.find("two")->script.text().endsWith("\\bin\\three.exe -x"));
    EXPECT_NE(inputs.find("of two words"), nullptr);
    for (const char *name : {"absent", "broken", "named", "lost", "default", "off", ""}) {
        EXPECT_EQ(inputs.find(name), nullptr) << name;
    }
    ASSERT_EQ(home_.messages.size(), 3u);
    for (const auto &[at, text] :
         {std::pair{
              0, "broken\"  defined inside the app \"a\": Introspecting scheme=broken: script running failed "
                 "(exited with status 3)."},
          {1, "named\"  defined inside the app \"a\": Parameter \"name\" serves a special purpose"},
          {2, "lost\"  defined inside the app \"a\": Unable to locate suitable script for introspection."}}) {
        EXPECT_TRUE(home_.messages[at].startsWith(
            Str::concat("MessageHandler:MOD_INPUT_INIT Unable to initialize modular input \"", text).view()))
            << home_.messages[at].c_str();
    }
    expectLogged(
        {"DEBUG Found scheme=\"one\".",
         "DEBUG Unable to find suitable script for scheme \"absent\" defined in the system context.  "
         "This scheme will not be initialized.",
         "WARN <stderr> Introspecting scheme=broken: eee",
         "ERROR Introspecting scheme=broken: script running failed (exited with status 3).",
         "ERROR No script to handle scheme \"lost\" was found.  This modular input will be disabled.",
         "DEBUG Scheme \"one\" already defined.  Skipping.",
         "DEBUG Scheme \"broken\" already defined.  Skipping."});
    EXPECT_FALSE(home_.logged("Scheme \"two\" already defined."));
}

TEST_F(ModularInputsTest, OddScripts)
{
    for (const auto &[scheme, plan] :
         {std::pair{"mute", "--scheme exit 0"}, {"usage", "--scheme print usage: me|\n--scheme exit 0"}}) {
        home_.defineSchemes(scheme, Str::fromFormat("[%s://x]\n", scheme).view());
        home_.addScript(Str::fromFormat("bin\\scripts\\%s.exe", scheme).c_str(), plan);
    }
    // It has the name of a program and is none.
    home_.defineSchemes("binary", "[binary://x]\n");
    home_.writeFile("bin\\scripts\\binary.exe", "no program");
    const ModularInputs inputs = initialized();
    EXPECT_TRUE(inputs.find("mute") && inputs.find("usage") && !inputs.find("binary"));
    ASSERT_EQ(home_.messages.size(), 1u);
    EXPECT_TRUE(
        home_.messages[0].contains("\"binary\"  defined inside the app \"binary\": Unable to run \""));
    // Nothing runs where no server does.
    ModularInputsHost host = home_.host();
    host.context = ProcessContext::Other;
    ModularInputs elsewhere(host);
    elsewhere.initializeSchemes();
    EXPECT_EQ(elsewhere.find("mute"), nullptr);
    expectLogged({"WARN Introspecting scheme=mute: the script printed no <scheme> element, so all its "
                  "settings are defaults.",
                  "INFO Not running in velmoxd or REST context: Will not initialize modular inputs."});
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
}

TEST_F(ModularInputsTest, ValidatesByTheScript)
{
    const ModularInputs inputs(home_.host());
    Scheme scheme;
    scheme.name = "mine";
    const auto validated = [&](const char *plan) {
        scheme.script.file = home_.addScript("mine.exe", Str::concat("--validate-arguments ", plan));
        return raisedBy<ModularInputsException>([&] { inputs.validate(scheme, {{"mine://x", {}}}); });
    };
    const Str saved = home_.path("saved").toStr();
    EXPECT_EQ(validated("exit 1"), "nothing") << "it wants no validation";
    scheme.useExternalValidation = true;
    EXPECT_EQ(validated(Str::concat("save ", saved).c_str()), "nothing");
    const Str document = testing::readWhole(home_.path("saved"));
    for (const char *part : {"--validate-arguments\n<?xml version=\"1.0\"", "<session_key>key</session_key>",
                             "<stanza name=\"mine://x\">"}) {
        EXPECT_TRUE(document.contains(part)) << document.c_str();
    }
    EXPECT_EQ(validated("print <error><message>all well</message></error>"), "nothing");
    EXPECT_EQ(
        validated("print <error><message>No such\thost.</message></error>\n--validate-arguments exit 1"),
        "Validation for scheme=mine failed: No such\thost.");
    EXPECT_EQ(validated("exit 2"),
              "Validation for scheme=mine failed: The script returned with exit status 2.");
    scheme.script.file = home_.path("gone.exe");
    EXPECT_EQ(
        raisedBy<ModularInputsException>([&] { inputs.validate(scheme, {}); }),
        "Unable to run external validation for scheme=\"mine\".  Please see velmoxd.log for more details.");
}

TEST_F(ModularInputsTest, MakesCheckpointFoldersOrTellsWhyNot)
{
    const Pathname db = home_.path("db");
    const Pathname own = db.join("modinputs\\mine");
    EXPECT_EQ(checkpointFolder(db, "mine"), own);
    EXPECT_EQ(pathKind(own), PathKind::Folder);
    testing::writeWhole(db.join("modinputs\\file"), "");
    const FileHandle held(CreateFileW(asWide(own), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    for (const auto &[scheme, message] :
         {std::pair{"file", "Existing path \"%s\" is expected to be a directory."},
          {"mine", "No read-write access on directory \"%s\"."},
          {"a?b", "Unable to create directory \"%s\" (mkdir_p): "}}) {
        const Str thrown =
            raisedBy<ModularInputsException>([&, name = scheme] { checkpointFolder(db, name); });
        const Str path = db.join("modinputs").join(scheme).toStr();
        EXPECT_TRUE(thrown.startsWith(Str::fromFormat(message, path.c_str()))) << thrown.c_str();
    }
    EXPECT_EQ(raisedBy<ModularInputsException>([] { checkpointFolder({}, "mine"); }),
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
    std::string print(const char *scheme, const std::optional<Str> &stanza = {})
    {
        ModularInputs inputs = initialized();
        ModinputsHelperThread helper(inputs, scheme, stanza);
        helper.start();
        helper.join();
        EXPECT_NE(helper.document().has_value(), !helper.error().empty());
        return helper.document().value_or(helper.error()).c_str();
    }
};

TEST_F(PrintConfigTest, TellsWhatIsWrong)
{
    EXPECT_EQ(print("each", "2"), print("each", "each://2"));
    EXPECT_THAT(print("each", "2"), Not(HasSubstr("each://1")));
    EXPECT_EQ(print("each"), "Stanza name must be specified.");
    EXPECT_EQ(print("all", "1"), "Stanza name should not be specified when \"use_single_instance\" is set to "
                                 "true in introspection.");
    EXPECT_THAT(print("each", "3"), HasSubstr("No configuration for stanza \"each://3\""));
    home_.stanzas.clear();
    EXPECT_THAT(print("all"), HasSubstr("No configuration for scheme \"all\""));
    home_.stanzas["all://1"];
    testing::writeWhole(home_.path("db\\modinputs\\all"), "a file where the folder should be");
    EXPECT_THAT(print("all"), HasSubstr("No configuration for scheme \"all\""));
    expectLogged({"ERROR Error generating configuration arguments for scheme \"all\""});
}

// The store asks patterns of its settings about paths, and the interpreter goes as deep as a path is long.
TEST_F(PrintConfigTest, HasTheStackForAnyPattern)
{
    ModularInputsHost host = home_.host();
    host.enabledStanzas = [stanzas = host.enabledStanzas](const Str &prefix) {
        EXPECT_TRUE(Regex("(?:a(?=.)|b)*", true, 0).finds(Str(32'000, 'a')));
        return stanzas(prefix);
    };
    ModularInputs inputs(std::move(host));
    inputs.initializeSchemes();
    ModinputsHelperThread helper(inputs, "all", {});
    helper.start();
    helper.join();
    EXPECT_TRUE(helper.document().has_value()) << helper.error().c_str();
}

} // namespace
} // namespace velmox
