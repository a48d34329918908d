#include "util/log/log_loader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmox {
namespace {

using testing::ElementsAre;

/// Writes down what the parser finds; every appender property but "bad" is fine.
class Recorder : public LogConfigHandler
{
public:
    void rootCategory(StrSegment value, const LogConfigLine &) override { add("root %s", value); }
    void category(StrSegment rest, const LogConfigLine &) override { add("category %s", rest); }
    void appender(StrSegment name) override { add("appender %s", name); }
    bool appenderProperty(StrSegment name, StrSegment property, StrSegment value) override
    {
        add("property %s", Str() << name << ":" << property << ":" << value);
        return property.view() != "bad";
    }
    void parseError(const LogConfigLine &at) override { add("error %s", Str() << at.line << " " << at.text); }
    void unterminatedComment(const LogConfigLine &at) override { add("open %s", Str() << at.line); }

    std::vector<std::string> found;

private:
    void add(const char *fmt, StrSegment text)
    {
        found.emplace_back(Str::fromFormat(fmt, text.toStr().c_str()).c_str());
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
    const std::pair<const char *, const char *> cases[] = {
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
        {" appender.A.fileName x # c", "error 1 appender.A.fileName x"},
    };
    for (const auto &[line, found] : cases) {
        EXPECT_THAT(parse({line}), ElementsAre(found)) << line;
    }
    for (const char *line : {"rootCategory", "rootCategory.x=A", "rootCategory A", "category = A", "=A",
                             "Rootcategory=A", "log4cpp.log4cpp.rootCategory=A", "appender=A", "appender.A",
                             "appender.A B", "appender..fileName=x", "appender.=x", "appender.A.fileName"}) {
        EXPECT_THAT(parse({line}), ElementsAre(std::string("error 1 ") + line));
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

    LogAppender *root = &appenders.root();
    const std::tuple<const char *, bool, LogLevel, std::vector<LogAppender *>> cases[] = {
        {"DEBUG", true, LogLevel::Debug, {a}},
        {" \trootAppender,,B\t", true, LogLevel::Warn, {root, b}},
        {"B,warn,DEBUG", false, LogLevel::Warn, {b}},
    };
    for (const auto &[value, taken, threshold, named] : cases) {
        LogCategory &category = categories.named(value);
        EXPECT_EQ(category.apply(value, appenders), taken) << value;
        EXPECT_EQ(category.threshold, threshold) << value;
        EXPECT_EQ(category.appenders, named) << value;
    }
}

TEST(LogAppender, TakesPropertiesOrKeepsTheOldOnes)
{
    LogAppender appender("A", nullptr);
    constexpr std::uint64_t kMost = ~std::uint64_t{0};
    const std::tuple<const char *, const char *, bool, std::uint64_t, std::uint32_t> cases[] = {
        {"maxFileSize", "7", true, 7, 0},
        {"maxBackupIndex", "3", true, 7, 3},
        {"maxFileSize", "010", false, 7, 3},
        {"maxFileSize", "00", false, 7, 3},
        {"maxFileSize", "", false, 7, 3},
        {"maxFileSize", "-1", false, 7, 3},
        {"maxFileSize", "+1", false, 7, 3},
        {"maxFileSize", "12k", false, 7, 3},
        {"maxFileSize", "18446744073709551616", false, 7, 3},
        {"maxBackupIndex", "4294967296", false, 7, 3},
        {"maxBackupIndex", "0x1", false, 7, 3},
        {"layout", "basicLayout", false, 7, 3},
        {"layout", "", false, 7, 3},
        {"filename", "y.log", false, 7, 3},
        {"", "y", false, 7, 3},
        {"maxFileSize.x", "1", false, 7, 3},
        {"layout", "SimpleLayout", true, 7, 3},
        {"layout", "PatternLayout", true, 7, 3},
        {"maxFileSize", "18446744073709551615", true, kMost, 3},
        {"maxBackupIndex", "4294967295", true, kMost, ~std::uint32_t{0}},
        {"maxFileSize", "100 bytes", true, 100, ~std::uint32_t{0}},
        {"maxBackupIndex", "0\ttimes", true, 100, 0},
    };
    for (const auto &[property, value, taken, size, backups] : cases) {
        EXPECT_EQ(appender.setProperty(property, value), taken) << property << value;
        EXPECT_EQ(appender.maximumSize(), size) << property << value;
        EXPECT_EQ(appender.maximumBackupIndex(), backups) << property << value;
    }
    appender.setProperty("fileName", "x.log");
    appender.disable();
    LogReports reports;
    EXPECT_FALSE(appender.append(LogRecord(), "a", reports));
    EXPECT_TRUE(reports.empty());
}

TEST(LogLoader, NamesTheCompanion)
{
    const std::pair<const char16_t *, const char16_t *> cases[] = {
        {u"C:\\etc\\log-cmdline.cfg", u"C:\\etc\\log-cmdline-local.cfg"},
        {u"C:\\e.tc\\log", u"C:\\e.tc\\log-local"},
        {u"C:\\etc\\.log", u"C:\\etc\\.log-local"},
        {u"a.b.c", u"a.b-local.c"},
    };
    for (const auto &[path, companion] : cases) {
        EXPECT_EQ(logCompanionPath(Pathname(path)), companion);
    }
}

} // namespace
} // namespace velmox
