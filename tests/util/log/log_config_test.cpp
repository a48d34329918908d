#include "util/log/log_config.h"

namespace velmox {
namespace {

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
        {"rootCategory=A # and B", "root A"},
        {"category.Foo = DEBUG , A", "category Foo = DEBUG , A"},
        {"appender.A = org.any.Thing", "appender A"},
        {"appender.A.layout=BasicLayout", "property A:layout:BasicLayout"},
        {"appender.A.layout.ConversionPattern \t= %m = %n", "property A:layout.ConversionPattern:%m = %n"},
        {"appender.A.=x", "property A::x"},
        {"rootCat<!-- c -->egory=<!-- # -->A", "root A"},
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
    EXPECT_THAT(parse({"", " \t", "# x", "<!-- y -->"}), IsEmpty());
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
    const auto limits = [&] {
        return std::pair(appender.maximumSize(), std::uint64_t{appender.maximumBackupIndex()});
    };
    EXPECT_TRUE(appender.setProperty("maxFileSize", "7") && appender.setProperty("maxBackupIndex", "3"));
    const std::pair<const char *, StrVector> refused[] = {
        {"maxFileSize", {"010", "00", "", "-1", "+1", "12k", "18446744073709551616"}},
        {"maxBackupIndex", {"4294967296", "0x1"}},
        {"layout", {"basicLayout", ""}},
        {"filename", {"y.log"}},
        {"", {"y"}},
        {"maxFileSize.x", {"1"}},
    };
    for (const auto &[property, values] : refused) {
        for (const Str &value : values) {
            EXPECT_FALSE(appender.setProperty(property, value)) << property << value.c_str();
            EXPECT_EQ(limits(), std::pair(std::uint64_t{7}, std::uint64_t{3})) << property << value.c_str();
        }
    }
    EXPECT_TRUE(appender.setProperty("layout", "PatternLayout"));
    EXPECT_TRUE(appender.setProperty("maxFileSize", "18446744073709551615"));
    EXPECT_TRUE(appender.setProperty("maxBackupIndex", "4294967295\ttimes"));
    EXPECT_EQ(limits(), std::pair(~std::uint64_t{0}, std::uint64_t{~std::uint32_t{0}}));
}

TEST(LogLoader, NamesTheCompanion)
{
    EXPECT_EQ(logCompanionPath(u"C:\\e.tc\\log-cmdline.cfg"), u"C:\\e.tc\\log-cmdline-local.cfg");
    EXPECT_EQ(logCompanionPath(u"C:\\e.tc\\log"), u"C:\\e.tc\\log-local");
    EXPECT_EQ(logCompanionPath(u".log"), u".log-local");
}

} // namespace
} // namespace velmox
