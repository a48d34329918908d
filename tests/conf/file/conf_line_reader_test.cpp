#include "conf/file/conf_line_reader.h"
#include "tests/support/captured_log.h"
#include "tests/support/memory_stream.h"

namespace velmox {
namespace {

using testing::CapturedLog;
using testing::MemoryReader;
using namespace std::string_literals;

/// Each line as its class and what was made of it, then the number of physical lines.
Str parsed(const std::string &text, const char16_t *path)
{
    MemoryReader stream(text);
    ConfLineReader reader(stream, path);
    Str out, line, name, value;
    for (ConfLine kind; (kind = parseLine(reader, line, name, value)) != ConfLine::End;) {
        switch (kind) {
        case ConfLine::StanzaHeader:
            out << "S<" << name << ">";
            break;
        case ConfLine::KeyValue:
            out << "K<" << name << "|" << value << ">";
            break;
        default:
            out << (kind == ConfLine::Blank ? "B<" : "C<") << line << ">";
        }
    }
    EXPECT_EQ(line, "");
    return out << reader.lineNumber();
}

TEST(ConfLineReader, ClassifiesAndTakesApart)
{
    struct Case
    {
        std::string text;
        Str lines;
    };
    const Case cases[] = {
        {"", "0"},
        {"\n \t\r \n\r\n", "B<>B< \t\r >B<>3"},
        {"# a=b\\\n \t;[x]\\\nk=v", "C<# a=b\\>C< \t;[x]\\>K<k|v>3"},
        {"  [ x ]  trailing\n[a]b]\n[]\n[[", "S< x >S<a]b>S<>S<[>4"},
        {"[a\\\n b]\\\nc", "S<a\n b>3"},
        {" key\t=  v # no comment ; = \n=\n =\\", "K< key\t|  v # no comment ; = >K<|>K< |\n>3"},
        {R"(\=a=b\=c)"
         "\n"
         R"(\[k]=1)"
         "\n"
         R"(a\\b\ c=\x)",
         R"(K<=a|b\=c>K<[k]|1>K<a\b c|\x>3)"},
        {"path = a\\\n  b\\\\\n\\\nc\nd=e", "K<path | a\n  b\\\n\nc>K<d|e>5"},
        {"k = ends\\", "K<k | ends\n>1"},
        {"long\\\nkey=v", "K<long\nkey|v>2"},
        {"a\0b\0=c=d"s, "K<ab=c|d>1"},
        {"\0\0=a\n"s, "K<\0|a>1"s},
        {"a\\\0b=c"s, "K<a\0b|c>1"s},
    };
    for (const Case &c : cases) {
        CapturedLog log;
        EXPECT_EQ(parsed(c.text, u"x.conf"), c.lines) << c.text;
        EXPECT_EQ(log.text(), c.text.ends_with("[[")
                                  ? "WARN IniFile: x.conf, line 4: Stanza header is missing "
                                    "terminator: [[\n"
                                  : "")
            << c.text;
    }
}

TEST(ConfLineReader, WarnsWithTheLineAndGoesOn)
{
    struct Case
    {
        std::string text;
        Str lines;
        Str warnings;
    };
    const Case cases[] = {
        {"\njust\\text %s\nk=v", "B<>B<justtext %s>K<k|v>3",
         "WARN IniFile: c:\\f\\x.conf, line 2: Cannot parse into key-value pair: justtext %s\n"},
        {"\\=x\\\ny\n[z", "B<=x\ny>S<z>3",
         "WARN IniFile: c:\\f\\x.conf, line 2: Cannot parse into key-value pair: =x\\ny\n"
         "WARN IniFile: c:\\f\\x.conf, line 3: Stanza header is missing terminator: [z\n"},
        {"k=v\0w\0\0"s, "K<k|vw>1",
         "WARN IniFile: c:\\f\\x.conf, line 1:  Found null character: k=v\0w\0\0\n"s},
        {"\0=v\0"s, "B<=v>1", "WARN IniFile: c:\\f\\x.conf, line 1: Cannot parse into key-value pair: =v\n"},
    };
    for (const Case &c : cases) {
        CapturedLog log;
        EXPECT_EQ(parsed(c.text, u"c:\\f\\x.conf"), c.lines) << c.text;
        EXPECT_EQ(log.text(), c.warnings) << c.text;
    }
    for (const auto &[path, silent] : {std::pair{u"x.spec", true},
                                       {u"x.conf.spec", true},
                                       {u"x.SPEC", false},
                                       {u"x.spec.conf", false},
                                       {u"x", false}}) {
        CapturedLog log;
        EXPECT_EQ(parsed("justtext", path), "B<justtext>1");
        EXPECT_EQ(log.text().empty(), silent) << Str::fromUtf16(path).view();
    }
}

} // namespace
} // namespace velmox
