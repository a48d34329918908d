#include "util/files/file_system.h"
#include "util/process/loader_info.h"

namespace velmox {
namespace {

/// The two variables as they were, in the end.
struct LoaderInfoTest : ::testing::Test
{
    const ScopedVariable home{u"VELMOX_HOME", u""};
    const ScopedVariable db{u"VELMOX_DB", u""};
};

LoaderInfo &readWith(const WideStr &home, const WideStr &db)
{
    setEnvironmentVariable(u"VELMOX_HOME", home);
    setEnvironmentVariable(u"VELMOX_DB", db);
    LoaderInfo::instance()->readEnvironment();
    return *LoaderInfo::instance();
}

TEST_F(LoaderInfoTest, CleansThePathsForItselfAndForItsChildren)
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
        ChildProcess child("cmd /c echo %VELMOX_HOME% %VELMOX_DB%");
        child.exitCode();
        EXPECT_EQ(child.output(), Str::concat(Str::fromUtf16(kept), " C:\\db\n"));
    }
    readWith(u"C:\\three", u"");
    EXPECT_EQ(LoaderInfo::instance()->getDb(), u"C:\\db") << "a path whose variable is not set stays";
    EXPECT_EQ(LoaderInfo::instance()->getCommonConfDir(), u"C:\\three\\etc\\myinstall");
}

TEST_F(LoaderInfoTest, TellsTheFirstThingThatIsWrong)
{
    const ScopedFolder folder;
    writeTree(folder.path(), {{"whole\\etc\\myinstall\\x", ""}, {"bare\\x", ""}});
    const Pathname whole = folder / "whole";
    const std::tuple<Pathname, Pathname, const char *> cases[] = {
        {u"bare", whole, "The environment variable VELMOX_HOME must not be a relative path."},
        {whole, folder / "missing", "The environment variable VELMOX_DB must point to an existing path."},
        {folder / "bare", whole, "The common config path must point at an existing path."},
        {whole, folder / "bare\\x", "The environment variable VELMOX_DB must point to a directory."},
        {whole, whole, nullptr},
    };
    for (const auto &[home, db, message] : cases) {
        EXPECT_STREQ(readWith(home, db).validate(), message);
    }
    EXPECT_TRUE(LoaderInfo::instance()->isNoPython());
    writeTree(whole, {{"bin\\python.exe", ""}});
    EXPECT_FALSE(readWith(whole, whole).isNoPython());
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

TEST_F(LoaderInfoTest, NamesTheServerAndTheHost)
{
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"VELMOX_SERVER_NAME=Elsewhere", "COMPUTERNAME=BOX", "<Elsewhere|8089|BOX ["},
        {"VELMOX_SERVER_NAME=", "COMPUTERNAME=", "<Velmoxd|8089|no-hostname-set ["},
    };
    for (const auto &[server, computer, names] : cases) {
        ChildTest child("LoaderInfoChild.DISABLED_PrintsNames", Pathname(),
                        {server, computer, "VELMOX_HOME=", "VELMOX_DB="});
        EXPECT_TRUE(child.succeeds());
        const Str output = child.output();
        EXPECT_THAT(output.c_str(), HasSubstr(names));
        const Str rest = output.substr(output.find(names) + Str(names).size());
        EXPECT_EQ(rest.findFirst(CharSet::hexDigits(), 0, false), 32) << rest.c_str();
    }
}

} // namespace
} // namespace velmox
