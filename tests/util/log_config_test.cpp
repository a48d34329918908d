#include "util/log_loader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmox {
namespace {

using testing::ElementsAre;

/// Writes down what the parser finds; every appender property but "bad" is fine.
class Recorder : public LogConfigHandler
{
public:
    void rootCategory(StrSegment value, const LogConfigLine &) override { add("root", value); }
    void category(StrSegment rest, const LogConfigLine &) override { add("category", rest); }
    void appender(StrSegment name) override { add("appender", name); }
    bool appenderProperty(StrSegment name, StrSegment property, StrSegment value) override
    {
        add("property",
            Str::concat(name.toStr(), ":").append(property.view()).append(":").append(value.view()));
        return property.view() != "bad";
    }
    void parseError(const LogConfigLine &at) override
    {
        add("error", Str::fromFormat("%u %s", at.line, at.text.c_str()));
    }
    void unterminatedComment(const LogConfigLine &at) override
    {
        add("open", Str::fromFormat("%u", at.line));
    }

    std::vector<std::string> found;

private:
    static Str operator_plus(const Str &a, const Str &b) { return Str::concat(a, b); }
    void add(const char *what, StrSegment text)
    {
        std::string &line = found.emplace_back(what);
        line += ' ';
        line += text.view();
    }
};

std::vector<std::string> parse(std::initializer_list<const char *> lines, const char *section = "")
{
    Recorder recorder;
    LogConfigParser parser("f", section, recorder);
    for (const char *line : lines) {
        parser.line(line);
    }
    parser.end();
    return recorder.found;
}

TEST(LogConfig, ReadsEachFormOfALine)
{
    const struct
    {
        const char *line;
        const char *found;
    } cases[] = {
        {"rootCategory=WARN,A", "root WARN,A"},
        {"  log4cpp.rootCategory \t=  WARN,A\t", "root WARN,A"},
        {"rootCategory=", "root "},
        {"rootCategory=A # and B", "root A"},
        {"category.Foo = DEBUG , A", "category Foo = DEBUG , A"},
        {"category.Foo", "category Foo"},
        {"appender.A=anything", "appender A"},
        {"appender.A = org.any.Thing", "appender A"},
        {"appender.A.layout=BasicLayout", "property A:layout:BasicLayout"},
        {"appender.A.layout.ConversionPattern \t= %m = %n", "property A:layout.ConversionPattern:%m = %n"},
        {"appender.A.fileName=", "property A:fileName:"},
        {"appender.A.=x", "property A::x"},
        {"rootCat<!-- c -->egory=<!-- # -->A", "root A"},
        {"root<!-->-->Category=A", "root A"},
        {"rootCategory=A # <!-- no comment", "root A"},
        {"rootCategory", "error 1 rootCategory"},
        {"rootCategory.x=A", "error 1 rootCategory.x=A"},
        {"rootCategory A", "error 1 rootCategory A"},
        {"category = A", "error 1 category = A"},
        {"=A", "error 1 =A"},
        {"Rootcategory=A", "error 1 Rootcategory=A"},
        {"log4cpp.log4cpp.rootCategory=A", "error 1 log4cpp.log4cpp.rootCategory=A"},
        {"appender=A", "error 1 appender=A"},
        {"appender.A", "error 1 appender.A"},
        {"appender.A B", "error 1 appender.A B"},
        {"appender..fileName=x", "error 1 appender..fileName=x"},
        {"appender.=x", "error 1 appender.=x"},
        {"appender.A.fileName", "error 1 appender.A.fileName"},
        {" appender.A.fileName x # c", "error 1 appender.A.fileName x"},
    };
    for (const auto &each : cases) {
        EXPECT_THAT(parse({each.line}), ElementsAre(each.found)) << each.line;
    }
    EXPECT_THAT(parse({"", " \t", "# x", "<!-- y -->"}), testing::IsEmpty());
    EXPECT_THAT(parse({"appender.A.bad=1"}), ElementsAre("property A:bad:1", "error 1 appender.A.bad=1"));
}

TEST(LogConfig, CommentsSpanLines)
{
    EXPECT_THAT(parse({"rootCategory=A<!-- one", "rootCategory=B # --", "--> , C <!-- d --> ,E", "bad"}),
                ElementsAre("root A , C  ,E", "error 4 bad"));
    EXPECT_THAT(parse({"rootCategory=A", "rootCategory=B<!--", "rootCategory=C"}),
                ElementsAre("root A", "open 2"));
}

TEST(LogConfig, SectionsSwitchLines)
{
    const auto lines = {"rootCategory=0", "[ One ] ]", "rootCategory=1", "[Two]",
                        "nonsense",       "[TWO",      "rootCategory=2"};
    EXPECT_THAT(parse(lines), ElementsAre("root 0"));
    EXPECT_THAT(parse(lines, "tWo"), ElementsAre("root 0", "error 5 nonsense", "root 2"));
    EXPECT_THAT(parse(lines, " one"), ElementsAre("root 0", "root 1"));
}

TEST(LogCategory, AppliesLevelsAndAppenders)
{
    LogAppenders appenders;
    LogAppender *a = &appenders.obtain("A");
    LogAppender *b = &appenders.obtain("B");
    LogCategories categories;
    EXPECT_TRUE(categories.root().apply("WARN, A", appenders));

    LogCategory &level = categories.named("level");
    EXPECT_TRUE(level.apply("DEBUG", appenders));
    EXPECT_EQ(level.threshold, LogLevel::Debug);
    EXPECT_THAT(level.appenders, ElementsAre(a));

    LogCategory &destination = categories.named("destination");
    EXPECT_TRUE(destination.apply(" \trootAppender,,B\t", appenders));
    EXPECT_EQ(destination.threshold, LogLevel::Warn);
    EXPECT_THAT(destination.appenders, ElementsAre(&appenders.root(), b));

    LogCategory &wrong = categories.named("wrong");
    EXPECT_FALSE(wrong.apply("B,warn,DEBUG", appenders));
    EXPECT_THAT(wrong.appenders, ElementsAre(b));
    EXPECT_EQ(wrong.threshold, LogLevel::Warn);
}

TEST(LogLoader, NamesTheCompanion)
{
    const struct
    {
        const char16_t *path;
        const char16_t *companion;
    } cases[] = {
        {u"C:\\etc\\log-cmdline.cfg", u"C:\\etc\\log-cmdline-local.cfg"},
        {u"C:\\e.tc\\log", u"C:\\e.tc\\log-local"},
        {u"C:\\etc\\.log", u"C:\\etc\\.log-local"},
        {u"a.b.c", u"a.b-local.c"},
    };
    for (const auto &each : cases) {
        EXPECT_EQ(logCompanionPath(Pathname(each.path)), Pathname(each.companion));
    }
}

} // namespace
} // namespace velmox
