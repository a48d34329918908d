#include "tests/support/child_process.h"
#include "tests/support/scoped_folder.h"
#include "util/environment.h"
#include "util/file_system.h"
#include "util/loader_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmox {
namespace {

using testing::ChildProcess;
using testing::ScopedFolder;

void readWith(const WideStr &home, const WideStr &db)
{
    setEnvironmentVariable(u"VELMOX_HOME", home);
    setEnvironmentVariable(u"VELMOX_DB", db);
    LoaderInfo::instance()->readEnvironment();
}

TEST(LoaderInfo, CleansThePathsForItselfAndForItsChildren)
{
    struct Case
    {
        const char16_t *given;
        const char16_t *kept;
    };
    for (const Case &row :
         {Case{u"C:\\\\prod\\\\app\\\\", u"C:\\prod\\app"}, Case{u"C:\\", u"C:\\"},
          Case{u"\\\\host\\\\share\\", u"\\\\host\\share"}, Case{u"C:/a//b/", u"C:/a//b/"}}) {
        readWith(row.given, u"C:\\db\\");
        EXPECT_EQ(LoaderInfo::instance()->getHome(), row.kept);
        EXPECT_EQ(LoaderInfo::instance()->getDb(), u"C:\\db");
        ChildProcess child("cmd /c echo %VELMOX_HOME% %VELMOX_DB%");
        child.exitCode();
        EXPECT_EQ(child.output(), Str::concat(Str::fromUtf16(row.kept), " C:\\db\n"));
    }
}

TEST(LoaderInfo, LeavesAPathWhoseVariableIsNotSet)
{
    readWith(u"C:\\one", u"C:\\two");
    readWith(u"C:\\three", u"");
    EXPECT_EQ(LoaderInfo::instance()->getHome(), u"C:\\three");
    EXPECT_EQ(LoaderInfo::instance()->getDb(), u"C:\\two");
    EXPECT_EQ(LoaderInfo::instance()->getCommonConfDir(), u"C:\\three\\etc\\myinstall");
}

TEST(LoaderInfo, TellsTheFirstThingThatIsWrong)
{
    const ScopedFolder folder;
    const auto under = [&](const char *name) { return folder.path().join(name); };
    for (const char *whole : {"whole", "bare", "file"}) {
        ASSERT_TRUE(makeDirs(under(whole).join("bin"), true));
    }
    ASSERT_TRUE(makeDirs(under("whole\\etc\\myinstall"), true));
    ASSERT_TRUE(makeDirs(under("file\\etc"), true));
    testing::writeWhole(under("file\\etc\\myinstall"), "");
    testing::writeWhole(under("plain"), "");
    struct Case
    {
        Pathname home;
        Pathname db;
        const char *message;
    };
    const Case cases[] = {
        {u"missing", under("whole"), "The environment variable VELMOX_HOME must not be a relative path."},
        {under("whole"), u"db", "The environment variable VELMOX_DB must not be a relative path."},
        {under("missing"), under("missing"),
         "The environment variable VELMOX_HOME must point to an existing path."},
        {under("bare"), under("missing"),
         "The environment variable VELMOX_DB must point to an existing path."},
        {under("bare"), under("bare"), "The common config path must point at an existing path."},
        {under("plain"), under("bare"), "The common config path must point at an existing path."},
        {under("whole"), under("plain"), "The environment variable VELMOX_DB must point to a directory."},
        {under("file"), under("bare"), "The common config path must point to a directory."},
        {under("whole"), under("bare"), nullptr},
    };
    for (const Case &row : cases) {
        readWith(row.home, row.db);
        EXPECT_STREQ(LoaderInfo::instance()->validate(), row.message);
    }
}

TEST(LoaderInfo, MissesThePythonThatIsNotThere)
{
    const ScopedFolder folder;
    ASSERT_TRUE(makeDirs(folder / "bin", true));
    readWith(folder.path(), u"");
    EXPECT_TRUE(LoaderInfo::instance()->isNoPython());
    testing::writeWhole(folder / "bin\\python.exe", "");
    readWith(folder.path(), u"");
    EXPECT_FALSE(LoaderInfo::instance()->isNoPython());
}

/// Run by the test below as a process of its own: the names are read once.
TEST(LoaderInfo, DISABLED_PrintNames)
{
    const LoaderInfo &info = *LoaderInfo::instance();
    std::printf("<%s|%s|%s>", Str::fromUtf16(info.getServerName()).c_str(), info.getDefaultPortText().c_str(),
                info.serverIdentity().hostIdentity().c_str());
    EXPECT_STREQ(info.validate(), "The environment variable VELMOX_HOME must not be empty.");
    EXPECT_EQ(info.getPid(), GetCurrentProcessId());
}

Str namesWith(const char *serverName, const char *computer)
{
    ChildProcess child(Str::fromFormat("\"%sutil-tests.exe\" --gtest_also_run_disabled_tests --gtest_output= "
                                       "--gtest_filter=LoaderInfo.DISABLED_PrintNames",
                                       testing::programFolder().c_str()),
                       {Str::fromFormat("VELMOX_SERVER_NAME=%s", serverName),
                        Str::fromFormat("COMPUTERNAME=%s", computer), "VELMOX_HOME=", "VELMOX_DB="});
    EXPECT_EQ(child.exitCode(), 0u) << child.output().c_str();
    const Str output = child.output();
    const std::size_t begin = output.find("<");
    return output.substr(begin, output.find(">") + 1 - begin);
}

TEST(LoaderInfo, NamesTheServerAndTheHost)
{
    const Str named = namesWith("Elsewhere", "BOX");
    EXPECT_THAT(named.c_str(), ::testing::StartsWith("<Elsewhere|8089|BOX ["));
    const Str bare = namesWith("", "");
    EXPECT_THAT(bare.c_str(), ::testing::StartsWith("<Velmoxd|8089|no-hostname-set ["));
    const auto digits = [](const Str &text) { return text.substr(text.find("[") + 1, 32); };
    EXPECT_EQ(digits(named).findFirst(CharSet::hexDigits(), 0, false), -1);
    EXPECT_TRUE(named.c_str()[named.size() - 2] == ']' && named.find("[") == named.size() - 35);
    EXPECT_NE(digits(named), digits(bare));
}

} // namespace
} // namespace velmox
