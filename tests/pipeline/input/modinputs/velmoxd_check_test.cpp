#include "pipeline/input/check/check.h"
#include "pipeline/input/explain/registry_paths.h"
#include "tests/pipeline/input/modinputs/scheme_home.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <random>

// `velmoxd check` as users type it, on real files.
namespace velmox {
namespace {

using Json = nlohmann::json;

constexpr char kLocal[] = "etc\\system\\local\\inputs.conf";

/// A stanza with a fault and the same one mended. The fault is found at `key`, or at the header.
struct Case
{
    const char *code;
    const char *key;
    std::string faulty;
    std::string mended;
};

Case ofStanza(const char *code, const char *key, const std::string &name, const std::string &faulty,
              const std::string &mended)
{
    const std::string header = "[WinRegMon://" + name + "]\n";
    return {code, key, header + faulty + "\n", header + mended + "\n"};
}

Case ofHive(const char *code, const std::string &faulty, const std::string &mended)
{
    static int number = 0;
    return ofStanza(code, "hive", code + std::to_string(++number), "hive = " + faulty, "hive = " + mended);
}

Case ofKey(const char *code, const char *key, const std::string &faulty, const std::string &mended)
{
    static int number = 0;
    const std::string name = key + std::to_string(++number);
    const std::string hive = "hive = HKLM\\\\Of\\\\" + name + "(\\\\.*)?\n";
    return ofStanza(code, key, name, hive + key + " = " + faulty, hive + key + " = " + mended);
}

Case ofBaseline(const char *code, const char *key, const std::string &faulty, const std::string &mended)
{
    const std::string behind = "\nbaseline = 1";
    return ofStanza(code, key, code, "hive = " + faulty + behind, "hive = " + mended + behind);
}

Case ofName(const char *code, const std::string &faulty, const std::string &mended)
{
    const std::string body = "\nhive = HKLM\\\\Of\\\\" + mended + "(\\\\.*)?\nbaseline = 1\n";
    return {code, "", "[" + faulty + "]" + body, "[WinRegMon://" + mended + "]" + body};
}

std::vector<Case> cases()
{
    return {
        ofHive("bad-pattern", R"(HKLM\\Bad\\(x)", R"(HKLM\\Bad\\(x)(\\.*)?)"),
        ofHive("bad-pattern", R"(HKLM\\Bad2\\(?P<N>x).*)", R"(HKLM\\Bad2\\(?<N>x).*)"),
        ofKey("bad-pattern", "proc", "[a", "[a]"),
        ofKey("bad-type", "type", "(set|delete)", "set|delete"),
        ofKey("bad-type", "type", "*", "set"),
        ofKey("not-a-boolean", "disabled", "maybe", "1"),
        ofKey("not-a-boolean", "baseline", "ja", "yes"),
        ofKey("not-a-number", "baseline_interval", "1h", "3600"),
        {"unknown-key", "hives", "[WinRegMon://u]\nhive = HKLM\\\\U.*\nhives = x\n",
         "[WinRegMon://u]\nhive = HKLM\\\\U.*\n"},
        ofHive("single-backslash", R"(HKLM\Single(\\.*)?)", R"(HKLM\\Single(\\.*)?)"),
        ofHive("single-backslash", R"(HKLM\\Single2\vendor(\\.*)?)", R"(HKLM\\Single2\\vendor(\\.*)?)"),
        ofKey("single-backslash", "proc", R"(C:\bin\\.*)", R"(C:\\bin\\.*)"),
        ofKey("single-backslash", "proc", R"(\svchost)", R"(\bsvchost)"),
        ofHive("single-backslash", R"(HKLM\\Single3\sub\\.*)", R"(HKLM\\Single3\\sub\\.*)"),
        ofHive("single-backslash", R"(HKLM\\Single4\7-Zip\\.*)", R"(HKLM\\Single4\\7-Zip\\.*)"),
        ofKey("single-backslash", "proc", R"(C:\\Tools\\.*\svchost\.exe)", R"(C:\\Tools\\.*\\svchost\.exe)"),
        ofKey("single-backslash", "proc", R"(C:\\Tools (x86)\7-Zip\\.*)", R"(C:\\Tools (x86)\\7-Zip\\.*)"),
        ofKey("single-backslash", "proc", R"(.*\bash.exe)", R"(.*\\bash.exe)"),
        ofKey("single-backslash", "proc", R"(.*\bin\\.*)", R"(.*\b(in)\\.*)"),
        ofKey("single-backslash", "proc", R"(.*\sc\.exe)", R"(.*\\sc\.exe)"),
        ofKey("folded-escape", "proc", R"(a[\s\S]*b)", R"(a(?s:.)*b)"),
        ofKey("folded-escape", "proc", R"(\Acmd)", R"(^cmd)"),
        ofHive("folded-escape", R"(HKLM\\Fold\\\S+.*)", R"(HKLM\\Fold\\[^\s]+.*)"),
        ofHive("folded-escape", R"(HKLM\\Quote\\\QA.B\E.*)", R"(HKLM\\Quote\\A\.B.*)"),
        ofKey("folded-escape", "type", R"(\Bet)", R"([^x]et)"),
        ofHive("folded-escape", R"(HKLM\\Inside\\.*\Bhost.*)", R"(HKLM\\Inside\\.*(?!\b)host.*)"),
        ofHive("no-tail", R"(HKLM\\Tail\\(A|B))", R"(HKLM\\Tail\\(A|B)(\\.*)?)"),
        ofHive("no-tail", R"(HKLM\\Tail\\C[0-9])", R"(HKLM\\Tail\\C[0-9]$)"),
        ofHive("no-tail", R"(HKLM\\Tail\\(D|E)\\Z)", R"(HKLM\\Tail\\(D|E)\\Z\z)"),
        ofHive("no-tail", R"(HKLM\\Tail\\F\w+)", R"(HKLM\\Tail\\F[^\\]+)"),
        ofHive("plain-path", R"(HKLM\\Plain)", R"(HKLM\\Plain(\\.*)?)"),
        ofBaseline("plain-path", "hive", R"(HKLM\\Walked)", R"(HKLM\\Walked\\.*)"),
        ofHive("control-set-unnamed", R"(HKLM\\SYSTEM\\CurrentControlSet\\A\\.*)",
               R"(HKLM\\SYSTEM\\[^\\]+\\A\\.*)"),
        ofHive("control-set-unnamed", R"(HKLM\\SYSTEM\\CurrentControlSetX\\.*)",
               R"(HKLM\\SYSTEM\\(CurrentControlSetX)\\.*)"),
        ofHive("control-set-hidden", R"(HKLM\\SYSTEM\\ControlSet\d+\\B\\.*)",
               R"(HKLM\\SYSTEM\\[^\\]+\\B\\.*)"),
        ofHive("hkcc", R"(HKCC\\Software\\.*)", R"(HKLM\\SYSTEM\\[^\\]+\\Hardware Profiles\\.*)"),
        ofKey("type-case", "type", "Set|delete", "set|delete"),
        ofBaseline("baseline-nowhere", "baseline", R"(.*\\Nowhere\\.*)", R"(HKLM\\Nowhere\\.*)"),
        ofBaseline("baseline-root", "baseline", R"(HKLM\\.*Root.*)", R"(HKLM\\Root\\.*Root.*)"),
        ofStanza("baseline-root", "baseline", "own", "hive = HKCU\\\\.*\nbaseline = 1",
                 "hive = HKCU\\\\Root\\\\.*\nbaseline = 1"),
        {"name-taken", "hive",
         "[WinRegMon://taken]\nhive = HKLM\\\\Taken\\\\.*\n[WinRegMon://taker]\nhive = "
         "HKLM\\\\(Taken|Other)\\\\.*\n",
         "[WinRegMon://taken]\nhive = HKLM\\\\Taken\\\\.*\n[WinRegMon://taker]\nhive = "
         "HKLM\\\\(Another|Other)\\\\.*\n"},
        {"name-taken", "hive",
         "[WinRegMon://wide]\nhive = HKLM\\\\Wide\\\\.*\ntype = delete\n"
         "[WinRegMon://narrow]\nhive = HKLM\\\\Wide\\\\Narrow\\\\.*\ntype = set\n",
         "[WinRegMon://wide]\nhive = HKLM\\\\Wide\\\\.*\ntype = delete\n"
         "[WinRegMon://narrow]\nhive = HKLM\\\\Wide\\\\Narrow\\\\.*\ntype = delete|set\n"},
        ofKey("matches-nothing", "type", "set|modify", "set"),
        ofKey("matches-nothing", "type", "|", "set|"),
        ofHive("matches-nothing", R"(hklm\\N1\\.*)", R"(HKLM\\N1\\.*)"),
        ofHive("matches-nothing", R"(^HKLM\\N2\\.*)", R"(^\\REGISTRY\\MACHINE\\N2\\.*)"),
        ofHive("matches-nothing", R"((HKLM|HKU)\\N3\\.*)", R"(\\REGISTRY\\(MACHINE|USER)\\N3\\.*)"),
        ofHive("matches-nothing", R"(HKCR\\N4\\.*)", R"(HKU\\[^\\]+_Classes\\N4\\.*)"),
        ofHive("matches-nothing", R"(HKCU\\Software\\Classes(\\.*)?)", R"(HKU\\[^\\]+_Classes\\N5\\.*)"),
        ofHive("matches-nothing", R"(HKLM\\N6\\.*|HKLM\\N7\\.*)", R"(HKLM\\(N6|N7)\\.*)"),
        ofHive("matches-nothing", R"(HKLM\\N9(\\.*)?|HKLM\\N10\\.*)", R"(HKLM\\(N9(\\.*)?|N10\\.*))"),
        ofHive("matches-nothing", R"(HKLM\\\\N8\\.*)", R"(HKLM\\N8\\.*)"),
        ofHive("matches-nothing", R"(HKLM\\N11\\\\A.*)", R"(HKLM\\N11\\A.*)"),
        ofHive("matches-nothing", R"([H]KLM\\N12\\.*)", R"(HKLM\\N12\\.*)"),
        {"hive-missing", "", "[WinRegMon://m]\nproc = x\n",
         "[WinRegMon://m]\nproc = x\nhive = HKLM\\\\M.*\n"},
        {"header-swallowed", "hive", "[WinRegMon://sw]\nhive = HKLM\\\\Sw\\\\\nindex = a\n",
         "[WinRegMon://sw]\nhive = HKLM\\\\Sw\\\\.*\nindex = a\n"},
        {"header-swallowed", "command",
         "[script://x]\ncommand = a\\\n[WinRegMon://lost]\nhive = HKLM\\\\Lost.*\n",
         "[script://x]\ncommand = a\n[WinRegMon://lost]\nhive = HKLM\\\\Lost.*\n"},
        {"header-swallowed", "hive",
         "[x]\nhive = HKLM\\\\Vendor\\\\\n[WinRegMon://y]\nhive = HKLM\\\\Y(\\\\.*)?\n",
         "[x]\nhive = HKLM\\\\Vendor\\\\.*\n[WinRegMon://y]\nhive = HKLM\\\\Y(\\\\.*)?\n"},
        {"header-swallowed", "hive", "[WinRegMon://z]\nhive = HKLM\\\\Zz\\\\\n# x\n",
         "[WinRegMon://z]\nhive = HKLM\\\\Zz\\\\.*\n# x\n"},
        ofKey("header-swallowed", "proc", "a\\\nindex = b", "a|\\\n  b"),
        ofKey("quoted-value", "proc", "\"x\"", "x"),
        ofKey("quoted-value", "proc", "\"x\" # alone", "x"),
        ofKey("quoted-value", "proc", "\u201Cx\u201D", "x"),
        ofKey("trailing-comment", "type", "set # alone", "set"),
        ofKey("trailing-comment", "baseline", "1 #2", "0"),
        ofKey("trailing-comment", "proc", "# any", "any #2"),
        ofKey("trailing-comment", "proc", "x ## y", "x## y"),
        ofHive("trailing-comment", R"(HKLM\\Remark # or HKLM\\B)", R"(HKLM\\Remark.*)"),
        ofHive("trailing-comment", R"(HKLM\\Remark(\\.*)? # or HKLM\\B)",
               R"(HKLM\\Remark \(x\) # b\\?(?s:(?<=\\).*|(?!.)))"),
        ofName("scheme-spelling", "winregmon://s1", "s1"),
        ofName("scheme-spelling", " WinRegMon://s2 ", "s2"),
        ofName("scheme-spelling", "WinRegMno://s3", "s3"),
        ofName("scheme-spelling", "WinRegMon//s4", "s4"),
        ofName("scheme-spelling", "WinRegMon", "s5"),
        ofName("scheme-spelling", "WinRegMon;//s6", "s6"),
        ofName("scheme-spelling", "WinRegMon:/s7", "s7"),
        ofName("scheme-spelling", "WinRegMon://:s8", "s8"),
        ofName("scheme-spelling", "WinRegMon\\\\s9", "s9"),
        ofName("unsafe-name", "WinRegMon://n/1", "n1"),
        ofName("unsafe-name", "WinRegMon://n2.", "n2"),
        ofName("unsafe-name", "WinRegMon://nul", "n3"),
        ofName("unsafe-name", "WinRegMon://n\t4", "n4"),
        ofHive("line-end", R"(HKLM\\LineEnd(\\.*)?)", R"(HKLM\\LineEnd(\\(?s:.*))?)"),
        ofHive("line-end", R"(HKLM\\LineEnd2(\\(.|\n)*)?)", R"(HKLM\\LineEnd2(\\(?s:.)*)?)"),
        ofHive("key-itself", R"(HKLM\\Itself\\.*)", R"(HKLM\\Itself(\\.*)?)"),
        ofHive("key-itself", R"(HKLM\\Optional\\.+)", R"(HKLM\\Optional\\?.*)"),
        ofHive("key-itself", R"(HKLM\\Itself2\\(.|\n)*)", R"(HKLM\\Itself2(\\(.|\n)*)?)"),
        ofHive("wow64", R"(HKLM\\SOFTWARE\\V(\\.*)?)", R"(HKLM\\SOFTWARE\\(WOW6432Node\\)?V(\\.*)?)"),
        ofHive("explosive", R"(HKLM\\Explosive\\(a+)+\\.*)", R"(HKLM\\Explosive\\a+\\.*)"),
        ofHive("explosive", R"(HKLM\\Counted\\(.*a){12})", R"(HKLM\\Counted\\.*a.*)"),
        ofKey("explosive", "proc", "(a|aa)+b", "a+b"),
        ofKey("explosive", "proc", R"((\w+\s?)+$)", R"([\w\s]+$)"),
        ofKey("explosive", "proc", R"((.*a){12})", R"(a.*a.*a)"),
        ofKey("explosive", "proc", R"((.*)*\.exe)", R"(.*\.exe)"),
        ofHive("explosive", R"(HKLM\\Nested\\([^\\]+\\?)+$)", R"(HKLM\\Nested\\([^\\]+\\)+$)"),
    };
}

class VelmoxdCheckTest : public ::testing::Test
{
public:
    VelmoxdCheckTest()
    {
        for (const auto &[file, from] :
             {std::pair{"etc\\system\\default\\conf.conf", "system/default/conf.conf"},
              {"etc\\system\\default\\inputs.conf", "system/default/inputs.conf"},
              {"etc\\system\\README\\inputs.conf.spec", "system/README/inputs.conf.spec"},
              {"etc\\log-velmoxd.cfg", "log-velmoxd.cfg"}}) {
            home_.writeFile(file, testing::readWhole(Pathname::fromUtf8(VELMOX_SHIPPED_ETC).join(from)));
        }
        home_.writeFile("var\\log\\velmox\\velmoxd.log", "");
    }

    std::string run(const std::string &arguments, unsigned status)
    {
        testing::ChildProcess velmoxd(Str::fromFormat("\"%s\" %s", VELMOX_VELMOXD, arguments.c_str()),
                                      {Str::fromFormat("VELMOX_HOME=%s", home_.path("").toStr().c_str()),
                                       Str::fromFormat("VELMOX_DB=%s", home_.path("db").toStr().c_str())},
                                      testing::Streams::Apart);
        EXPECT_TRUE(velmoxd.waitForEnd());
        EXPECT_EQ(velmoxd.exitCode(), status) << arguments;
        errors_ = velmoxd.errorBytes().c_str();
        return velmoxd.outputBytes().c_str();
    }

    std::vector<Json> findings(const std::string &arguments, unsigned status)
    {
        std::vector<Json> all;
        std::istringstream lines(run("check --json " + arguments, status));
        EXPECT_EQ(errors_, "");
        for (std::string line; std::getline(lines, line);) {
            all.push_back(Json::parse(line));
        }
        return all;
    }

    std::string pathOf(const char *relative) { return home_.path(relative).toStr().c_str(); }

    testing::SchemeHome home_;
    std::string errors_;
};

/// Where each case begins in the file of them all.
std::vector<std::size_t> writeAll(testing::SchemeHome &home, std::string Case::*text)
{
    std::string file;
    std::vector<std::size_t> lines;
    for (const Case &one : cases()) {
        lines.push_back(1 + static_cast<std::size_t>(std::ranges::count(file, '\n')));
        file += one.*text;
    }
    lines.push_back(1 + static_cast<std::size_t>(std::ranges::count(file, '\n')));
    home.writeFile(kLocal, file);
    return lines;
}

std::size_t lineOfKey(const Case &one)
{
    const std::size_t at = *one.key == '\0' ? 0 : one.faulty.find(std::string("\n") + one.key + " =") + 1;
    return static_cast<std::size_t>(std::ranges::count(one.faulty.substr(0, at), '\n'));
}

TEST_F(VelmoxdCheckTest, FindsEachFaultAtItsPlace)
{
    const std::vector<Case> all = cases();
    const std::vector<std::size_t> lines = writeAll(home_, &Case::faulty);
    const std::vector<Json> found = findings("--notes", 2);
    for (std::size_t i = 0; i < all.size(); ++i) {
        const std::size_t line = lines[i] + lineOfKey(all[i]);
        EXPECT_TRUE(std::ranges::any_of(found,
                                        [&](const Json &one) {
                                            return one["code"] == all[i].code && one["key"] == all[i].key &&
                                                   one["line"] == line && one["file"] == pathOf(kLocal);
                                        }))
            << all[i].code << ", line " << line << ":\n"
            << all[i].faulty;
    }
}

TEST_F(VelmoxdCheckTest, HasNothingAgainstWhatIsMended)
{
    const std::vector<Case> all = cases();
    const std::vector<std::size_t> lines = writeAll(home_, &Case::mended);
    for (const Json &one : findings("--notes --strict", 0)) {
        EXPECT_EQ(one["severity"], "note") << one;
        const auto next = std::ranges::upper_bound(lines, one["line"].get<std::size_t>());
        const auto place = static_cast<std::size_t>(next - lines.begin()) - 1;
        if (one["file"] == pathOf(kLocal)) {
            EXPECT_NE(one["code"], all.at(place).code) << one;
        }
    }
}

// The line is that of the setting that counts, in the file whose setting counts.
TEST_F(VelmoxdCheckTest, NamesTheLineThatCounts)
{
    home_.writeFile("etc\\apps\\off\\default\\app.conf", "[install]\nstate = disabled\n");
    home_.writeFile("etc\\apps\\off\\local\\inputs.conf", "[WinRegMon://two]\nproc = (\n");
    home_.writeFile("etc\\apps\\on\\default\\inputs.conf",
                    "[WinRegMon://two]\nproc = [\nhive = (\n\n[WinRegMon://three]\nproc = )\n");
    home_.writeFile("etc\\apps\\on\\local\\inputs.conf",
                    "\xEF\xBB\xBF# x\r\n[WinRegMon://three]\r\nhive = (\r\n");
    home_.writeFile(kLocal, "type = (\n[WinRegMon://one]\nhive = (\nhive = x\nproc = a\\\n  b\n"
                            "[WinRegMon://two]\ntype = set\nproc = ok\n"
                            "[WinRegMon://one]\ndisabled = 1\nhive = ((\n");
    std::vector<std::string> places;
    for (const Json &one : findings("", 2)) {
        if (one["severity"] == "error") {
            places.push_back(one["file"].get<std::string>().substr(pathOf("etc\\").size()) + ":" +
                             std::to_string(one["line"].get<int>()) + " " + one["stanza"].get<std::string>() +
                             " " + one["key"].get<std::string>());
        }
    }
    EXPECT_THAT(places, ::testing::ElementsAre("system\\local\\inputs.conf:1 default type",
                                               "system\\local\\inputs.conf:12 WinRegMon://one hive",
                                               "apps\\on\\local\\inputs.conf:3 WinRegMon://three hive",
                                               "apps\\on\\default\\inputs.conf:3 WinRegMon://two hive",
                                               "apps\\on\\default\\inputs.conf:6 WinRegMon://three proc"));
}

TEST_F(VelmoxdCheckTest, SaysItAsCompilersDo)
{
    EXPECT_EQ(run("check --strict", 0), "0 errors, 0 warnings in 1 stanza; --notes shows 2 notes\r\n");
    EXPECT_THAT(run("check --notes", 0),
                ::testing::EndsWith("0 errors, 0 warnings, 2 notes in 1 stanza\r\n"));
    home_.writeFile(kLocal, "[WinRegMon://run-keys]\nhive = hklm\\\\(run\n");
    EXPECT_THAT(run("check", 2),
                ::testing::StartsWith(pathOf(kLocal) + ":2: error: [WinRegMon://run-keys] hive: missing ) at "
                                                       "character 9 of \"hklm\\\\(run\""));
    home_.writeFile(kLocal, "[WinRegMon://a]\nproc = x\n");
    run("check", 0);
    EXPECT_EQ(run("check --strict WinRegMon", 1),
              pathOf(kLocal) +
                  ":1: warning: [WinRegMon://a] there is no hive, so that the stanza is about every "
                  "key (hive-missing)\r\n0 errors, 1 warning in 2 stanzas; --notes shows 2 notes\r\n");
    EXPECT_EQ(errors_, "");
    // What follows from quotes is not said beside them.
    home_.writeFile(kLocal, "[WinRegMon://a]\nhive = \"HKLM\\\\A\\\\[b]\"\n");
    EXPECT_THAT(run("check", 0), HasSubstr("0 errors, 1 warning in"));
    home_.writeFile(kLocal,
                    "[WinRegMon://a]\ntype = (\n hive = [" + std::string(300, 'a') + "\ndisabled = 1\n");
    EXPECT_THAT(run("check", 2), ::testing::AllOf(HasSubstr(std::string(199, 'a') + "...\"; with it"),
                                                  HasSubstr("does not start once the stanza is enabled")));
    EXPECT_EQ(run("check Other", 2), "");
    EXPECT_EQ(errors_, "No inputs.conf.spec defines the scheme \"Other\".\r\n");
    EXPECT_EQ(run("check --jsno", 2), "");
    EXPECT_THAT(errors_, ::testing::StartsWith("Usage:\r\n"));
    EXPECT_THAT(run("--help", 0), HasSubstr("velmoxd check --strict WinRegMon"));
}

// Which roots the driver is asked for is up to all stanzas together.
TEST_F(VelmoxdCheckTest, FindsRootsThatNoStanzaHasTheDriverReport)
{
    const auto unreported = [&](const char *hive, const char *other = "") {
        home_.writeFile(kLocal, Str::fromFormat("[WinRegMon://a]\nhive = %s\n%s", hive, other).c_str());
        const std::string text = run("check", 0);
        const std::size_t below = text.find("matches nothing below ");
        return below == text.npos ? "" : text.substr(below + 22, text.find(':', below) - below - 22);
    };
    EXPECT_EQ(unreported(R"(.*\\HKLM_backup\\.*)"), "HKU");
    EXPECT_EQ(unreported(R"(.*\\HK[L]M_backup\\.*)"), "");
    EXPECT_EQ(unreported(R"(HKLM\\A\\HKU_backup\\.*)"), "HKLM");
    EXPECT_EQ(unreported(R"(HKLM\\A\\HK[U]_backup\\.*)"), "");
    EXPECT_EQ(unreported(R"((\\REGISTRY\\MACHINE\\A|\\REGISTRY\\USER\\B)\\.*)"), "HKU");
    EXPECT_EQ(unreported(R"(\\REGISTRY\\(MACHINE\\A|USER\\B)\\.*)"), "");
    EXPECT_EQ(unreported(R"(.*\\REGISTRY\\MACHINE\\A\\.*)"), "");
    EXPECT_EQ(unreported(R"(.*hklm.*)", "[WinRegMon://b]\nhive = HKU\\\\B\\\\.*\n"), "");
    EXPECT_EQ(unreported(R"(.*hklm.*)", "[WinRegMon://b]\nhive = HKU\\\\B\\\\.*\ndisabled = 1\n"), "HKU");
}

// The store and the search for lines both read the file.
TEST_F(VelmoxdCheckTest, TellsOnceWhatCannotBeRead)
{
    home_.writeFile(kLocal, "[WinRegMon://a]\nhive = HKLM\\\\A(\\\\.*)?\nnot a setting\n");
    EXPECT_THAT(run("check", 0), ::testing::StartsWith("0 errors, 0 warnings"));
    EXPECT_EQ(errors_, "WARN IniFile - " + pathOf(kLocal) +
                           ", line 3: Cannot parse into key-value pair: not a setting\r\n");
}

// Of another scheme's stanzas only the settings are known; its patterns may be none.
TEST_F(VelmoxdCheckTest, ChecksTheSettingsOfAnyScheme)
{
    home_.writeFile("etc\\apps\\other\\README\\inputs.conf.spec", "[other://<name>]\nhive = x\n");
    home_.writeFile(kLocal, "[other://a]\nhive = (\nhvie = 1\nx = 1\ndisabled = maybe\n= v\n[othr://b]\n");
    std::vector<std::string> messages;
    for (const Json &one : findings("other", 0)) {
        messages.push_back(one["code"].get<std::string>() + ": " + one["message"].get<std::string>());
    }
    EXPECT_THAT(
        messages,
        ::testing::ElementsAre(
            "unknown-key: nothing reads this key; there is \"hive\"", "unknown-key: nothing reads this key",
            HasSubstr("not-a-boolean: \"maybe\""), HasSubstr("the key in front of \"=\" is empty"),
            HasSubstr("scheme-spelling: nothing reads this stanza: its name must begin with other://")));
}

TEST(VelmoxdPattern, PrintsWhatCheckHasNothingToWarnOf)
{
    constexpr const char *kPlaces[] = {"HKLM\\SOFTWARE\\", "HKLM\\SYSTEM\\CurrentControlSet", "HKCU\\",
                                       "HKCC\\", "HKU\\S-1-5-18\\Software\\Classes\\"};
    constexpr std::string_view kCharacters = "aZ1 #;.[](){}^$|*+?&'\"%~!@,=<>:/-_\n\t\x01 \\";
    const testing::CapturedLog quiet;
    std::mt19937 dice(21);
    for (int round = 0; round < 200; ++round) {
        Str path(kPlaces[dice() % std::size(kPlaces)]);
        for (unsigned left = 1 + dice() % 12; left > 0; --left) {
            const char next = kCharacters[dice() % kCharacters.size()];
            path << (next == '\\' && path.endsWith("\\") ? 'b' : next);
        }
        // Names that could be taken for remarks, or for roots, are rare among these.
        constexpr const char *kEnds[] = {" # b", " ; b", " #x", "_hklm", "_hkey_usersHKCU"};
        path << kEnds[dice() % std::size(kEnds)];
        ConfiguredStanza stanza;
        stanza.name = "WinRegMon://x";
        stanza.properties.set("hive", hivePattern(readWrittenPath(path), round % 2 == 0, "S-1-5-21-7").hive);
        for (const Finding &one : checkStanzas({stanza}, {kMonitorScheme, {"hive"}, {kMonitorScheme}})) {
            EXPECT_EQ(one.severity, Severity::Note) << path.c_str() << ": " << one.message.c_str();
        }
    }
}

} // namespace
} // namespace velmox
