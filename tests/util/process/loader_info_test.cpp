#include "tests/support/child_test.h"
#include "tests/support/failing_call.h"
#include "tests/support/file_tree.h"
#include "tests/support/scoped_folder.h"
#include "util/files/file_system.h"
#include "util/process/loader_info.h"
#include "util/system/environment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmox {
namespace {

using testing::FailingCall;
using testing::ScopedFolder;

LoaderInfo &readWith(const WideStr &home, const WideStr &db)
{
    setEnvironmentVariable(u"VELMOX_HOME", home);
    setEnvironmentVariable(u"VELMOX_DB", db);
    LoaderInfo::instance()->readEnvironment();
    return *LoaderInfo::instance();
}

TEST(LoaderInfo, CleansThePathsForItselfAndForItsChildren)
{
    const std::pair<const char16_t *, const char16_t *> cases[] = {
        {u"C:\\\\prod\\\\app\\\\", u"C:\\prod\\app"},
        {u"C:\\", u"C:\\"},
        {u"\\\\host\\\\share\\", u"\\\\host\\share"},
        {u"C:/a//b/", u"C:/a//b/"},
    };
    for (const auto &[given, kept] : cases) {
        const LoaderInfo &info = readWith(given, u"C:\\db\\");
        EXPECT_EQ(info.getHome(), kept);
        EXPECT_EQ(info.getDb(), u"C:\\db");
        testing::ChildProcess child("cmd /c echo %VELMOX_HOME% %VELMOX_DB%");
        child.exitCode();
        EXPECT_EQ(child.output(), Str::concat(Str::fromUtf16(kept), " C:\\db\n"));
    }
    readWith(u"C:\\three", u"");
    EXPECT_EQ(LoaderInfo::instance()->getDb(), u"C:\\db") << "a path whose variable is not set stays";
    EXPECT_EQ(LoaderInfo::instance()->getCommonConfDir(), u"C:\\three\\etc\\myinstall");
}

TEST(LoaderInfo, SurvivesAnEnvironmentThatCannotBeWritten)
{
    setEnvironmentVariable(u"VELMOX_HOME", u"C:\\new\\");
    const FailingCall refused("_wputenv_s", ENOMEM, ENOMEM);
    LoaderInfo::instance()->readEnvironment();
    EXPECT_EQ(refused.failed(), 1);
    EXPECT_EQ(LoaderInfo::instance()->getHome(), u"C:\\new");
}

TEST(LoaderInfo, TellsOfUsedUpMemory)
{
    setEnvironmentVariable(u"VELMOX_HOME", u"C:\\longer than what fits in place");
    try {
        const FailingCall refused("malloc", 0, ENOMEM);
        environmentVariable(u"VELMOX_HOME");
        FAIL();
    } catch (const std::bad_alloc &exception) {
        EXPECT_STREQ(exception.what(), "bad allocation");
    }
}

TEST(LoaderInfo, TellsTheFirstThingThatIsWrong)
{
    const ScopedFolder folder;
    testing::writeTree(
        folder.path(),
        {{"whole\\etc\\myinstall\\x", ""}, {"bare\\x", ""}, {"file\\etc\\myinstall", ""}, {"plain", ""}});
    const Pathname whole = folder / "whole";
    const Pathname bare = folder / "bare";
    const Pathname missing = folder / "missing";
    const Pathname plain = folder / "plain";
    const std::tuple<Pathname, Pathname, const char *> cases[] = {
        {u"missing", whole, "The environment variable VELMOX_HOME must not be a relative path."},
        {whole, u"db", "The environment variable VELMOX_DB must not be a relative path."},
        {missing, missing, "The environment variable VELMOX_HOME must point to an existing path."},
        {bare, missing, "The environment variable VELMOX_DB must point to an existing path."},
        {bare, bare, "The common config path must point at an existing path."},
        {plain, bare, "The common config path must point at an existing path."},
        {whole, plain, "The environment variable VELMOX_DB must point to a directory."},
        {folder / "file", bare, "The common config path must point to a directory."},
        {whole, bare, nullptr},
    };
    for (const auto &[home, db, message] : cases) {
        EXPECT_STREQ(readWith(home, db).validate(), message);
    }
}

TEST(LoaderInfo, MissesThePythonThatIsNotThere)
{
    const ScopedFolder folder;
    EXPECT_TRUE(readWith(folder.path(), u"").isNoPython());
    testing::writeTree(folder.path(), {{"bin\\python.exe", ""}});
    EXPECT_FALSE(readWith(folder.path(), u"").isNoPython());
}

/// A process of its own: the names are read once.
TEST(LoaderInfoChild, DISABLED_PrintsNames)
{
    const LoaderInfo &info = *LoaderInfo::instance();
    std::printf("<%s|%s|%s>", Str::fromUtf16(info.getServerName()).c_str(), info.getDefaultPortText().c_str(),
                info.serverIdentity().hostIdentity().c_str());
    EXPECT_STREQ(info.validate(), "The environment variable VELMOX_HOME must not be empty.");
    EXPECT_EQ(info.getPid(), GetCurrentProcessId());
}

TEST(LoaderInfo, NamesTheServerAndTheHost)
{
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"VELMOX_SERVER_NAME=Elsewhere", "COMPUTERNAME=BOX", "<Elsewhere|8089|BOX ["},
        {"VELMOX_SERVER_NAME=", "COMPUTERNAME=", "<Velmoxd|8089|no-hostname-set ["},
    };
    Str before;
    for (const auto &[server, computer, names] : cases) {
        testing::ChildTest child("LoaderInfoChild.DISABLED_PrintsNames", Pathname(),
                                 {server, computer, "VELMOX_HOME=", "VELMOX_DB="});
        EXPECT_TRUE(child.succeeds());
        const Str output = child.output();
        EXPECT_THAT(output.c_str(), ::testing::HasSubstr(names));
        const Str digits = output.substr(output.find(names) + Str(names).size());
        EXPECT_EQ(digits.findFirst(CharSet::hexDigits(), 0, false), 32) << digits.c_str();
        EXPECT_TRUE(digits.substr(32).startsWith("]>"));
        EXPECT_NE(digits, before);
        before = digits;
    }
}

} // namespace
} // namespace velmox
