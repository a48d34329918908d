#include "conf/file/conf_line_reader.h"
#include "tests/support/memory_stream.h"

namespace velmox {
namespace {

/// Each line as its class and what was made of it, then the number of physical lines.
Str parsed(const std::string &text, const char16_t *path)
{
    MemoryReader stream(text);
    ConfLineReader reader(stream, path);
    Str out, line, name, value;
    for (ConfLine kind; (kind = parseLine(reader, line, name, value)) != ConfLine::End;) {
        if (kind == ConfLine::StanzaHeader) {
            out << "S<" << name << ">";
        } else if (kind == ConfLine::KeyValue) {
            out << "K<" << name << "|" << value << ">";
        } else {
            out << (kind == ConfLine::Blank ? "B<" : "C<") << line << ">";
        }
    }
    EXPECT_EQ(line, "");
    return out << reader.lineNumber();
}

TEST(ConfLineReader, ClassifiesAndTakesApart)
{
    const struct
    {
        std::string text;
        Str lines;
        Str warnings = {}; ///< each behind the path of the file
    } cases[] = {
        {"", "0"},
        {"\n \t\r \n\r\n", "B<>B< \t\r >B<>3"},
        {"# a=b\\\n \t;[x]\\\nk=v", "C<# a=b\\>C< \t;[x]\\>K<k|v>3"},
        {"  [ x ]  trailing\n[a]b]\n[]\n[[", "S< x >S<a]b>S<>S<[>4",
         "4: Stanza header is missing terminator: [["},
        {" key\t=  v # no comment ; = \n=\n =\\", "K< key\t|  v # no comment ; = >K<|>K< |\n>3"},
        {"\\=a=b\\=c\n\\[k]=1\na\\\\b\\ c=\\x", "K<=a|b\\=c>K<[k]|1>K<a\\b c|\\x>3"},
        {"path = a\\\n  b\\\\\n\\\nc\nd=e", "K<path | a\n  b\\\n\nc>K<d|e>5"},
        {"k = ends\\", "K<k | ends\n>1"},
        {"a\0b\0=c=d"s, "K<ab=c|d>1"},
        {"\0\0=a\n"s, "K<\0|a>1"s},
        {"a\\\0b=c"s, "K<a\0b|c>1"s},
        {"\njust\\text %s\nk=v", "B<>B<justtext %s>K<k|v>3",
         "2: Cannot parse into key-value pair: justtext %s"},
        {"\\=x\\\ny", "B<=x\ny>2", "2: Cannot parse into key-value pair: =x\\ny"},
        {"k=v\0w\0\0"s, "K<k|vw>1", "1:  Found null character: k=v\0w\0\0"s},
        {"\0=v\0"s, "B<=v>1", "1: Cannot parse into key-value pair: =v"},
    };
    for (const auto &[text, lines, warnings] : cases) {
        const CapturedLog log;
        EXPECT_EQ(parsed(text, u"c:\\f\\x.conf"), lines) << text;
        EXPECT_EQ(log.text(),
                  warnings.empty() ? Str() : Str("WARN IniFile: c:\\f\\x.conf, line ") << warnings << "\n");
    }
    for (const auto &[path, silent] : {std::pair{u"x.conf.spec", true}, {u"x.SPEC", false}, {u"x", false}}) {
        const CapturedLog log;
        EXPECT_EQ(parsed("justtext", path), "B<justtext>1");
        EXPECT_EQ(log.text().empty(), silent) << Str::fromUtf16(path).view();
    }
}

} // namespace
} // namespace velmox
