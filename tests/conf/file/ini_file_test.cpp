#include "conf/file/ini_file.h"
#include "tests/support/memory_stream.h"

namespace velmox {
namespace {

IniFile loaded(std::string bytes)
{
    MemoryReader stream(std::move(bytes));
    IniFile file;
    file.read(stream, u"x.conf");
    return file;
}

std::string written(IniFile file)
{
    MemoryWriter out;
    file.write(out);
    return out.bytes;
}

/// "[stanza]key=value;key=value;" with what callers read.
Str settings(const IniFile &file)
{
    Str out;
    for (const auto &[name, stanza] : file) {
        out << "[" << name << "]";
        for (const auto &[key, value, entry] : stanza) {
            out << key << "=" << value << ";";
        }
    }
    return out;
}

TEST(IniFile, RewritesWhatItRead)
{
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"", "", ""},
        {"; c\nkey=value\n", "[default]key=value;", "; c\n[default]\nkey = value\n"},
        {"k =\t\n\t j\t = \t v \n", "[default]k=;j=v;", "[default]\nk = \nj = v\n"},
        {"[b]\nz=1\na=2\n# of s\n\n[ s ] x\n#k\nk=v\n[t]\n#end\n", "[b]z=1;a=2;[ s ]k=v;[t]",
         "[b]\nz = 1\na = 2\n# of s\n\n[ s ]\n#k\nk = v\n\n[t]\n#end\n"},
        {"[x]\na=1\n#lost\n[y]\n[x]\nb=2\n", "[x]a=1;b=2;[y]", "[x]\na = 1\nb = 2\n#lost\n[y]\n"},
        {"[x]\na=1\n#lost\na=2\nb=3\n", "[x]a=1;b=3;", "[x]\na = 1\nb = 3\n"},
        {"[x]\n[y]\n#lost\n[x]\n#kept\nb=2\n", "[x]b=2;[y]", "[x]\n#kept\nb = 2\n\n[y]\n"},
        {"\\=a=b\n\\[x=C:\\temp\\ \na\\\\b=\\\\=[\n", "[default]=a=b;[x=C:\\temp\\;a\\b=\\\\=[;",
         "[default]\n\\=a = b\n\\[x = C:\\temp\\ \na\\\\b = \\\\=[\n"},
        {"path = a\\\n  b\\\n", "[default]path=a\n  b\n;", "[default]\npath = a\\\n  b\\\n\n"},
        {"[x]\n#c\\\njust text\n  k=v", "[x]k=v;", "[x]\n#c\\\njust text\nk = v\n"},
    };
    const CapturedLog quiet;
    for (const auto &[text, read, rewritten] : cases) {
        IniFile file = loaded(text);
        EXPECT_TRUE(file.loaded());
        EXPECT_EQ(settings(file), read) << text;
        file.setEncoding(2);
        EXPECT_EQ(written(file), rewritten) << text;
        EXPECT_EQ(settings(loaded(rewritten)), read) << text;
    }
}

TEST(IniFile, EncodingMarkAndLineEndsComeBack)
{
    constexpr std::u16string_view kText = u"# \u00e4\U0001F600\n[s]\nk = \u20ac\n\n[t]\n";
    for (const TextEncodingWord word : {0x0002u, 0x8003u, 0xC004u}) {
        MemoryWriter in(word);
        in.write(kText.data(), kText.size());
        const IniFile file = loaded(in.bytes);
        EXPECT_EQ(file.encoding(), word);
        EXPECT_EQ(written(file), in.bytes) << word;
    }
    // Line ends of the one kind that prevails; on a tie those that prevailed before.
    EXPECT_EQ(written(loaded("[a]\r\n\r\n#b\n")), "[a]\r\n\r\n#b\r\n");
    EXPECT_EQ(written(loaded("[a]\r\n#b\n")), "[a]\r\n#b\r\n");
    EXPECT_EQ(written(loaded("[a]\n#b\r\n")), "[a]\n#b\n");
    IniFile made;
    EXPECT_FALSE(made.loaded());
    EXPECT_EQ(made.encoding(), 0x4000u);
    made.stanza("s");
    MemoryWriter out;
    made.write(out);
    EXPECT_EQ(out.bytes, "[s]\r\n");
    EXPECT_EQ(made.encoding(), 0x4002u);
}

TEST(IniFile, TheFirstOfTwoKeysCountsAndTheOtherIsReported)
{
    CapturedLog log;
    const IniFile file = loaded("[s]\n#one\na = 1\n#two\n a\t=2\n[t]\na=3\n");
    EXPECT_EQ(settings(file), "[s]a=1;[t]a=3;");
    EXPECT_EQ(file.findStanza("s")->findKey(" a ")->comments(), StrVector{"#one"});
    EXPECT_EQ(log.text(),
              "WARN IniFile: x.conf, line 5: Key used more than once in the same stanza:  a\t:  a\t=2\n");
}

TEST(IniFile, Edits)
{
    IniFile file = loaded("#head\n[s]\nk=v\n\n\n#t\n\n[t]\n a =1\nb=2\n");
    file.setEncoding(2);
    IniStanza &t = file.stanza("t");
    EXPECT_EQ(file.findStanza("T"), nullptr);
    EXPECT_FALSE(t.insertKey("a\t", "no"));
    EXPECT_TRUE(t.insertKey("=c", "\r\nx\\", {"#c"}));
    t.findKey("b")->setValue("\ntwo\rlines\n ");
    EXPECT_TRUE(t.removeKey("a "));
    EXPECT_FALSE(t.removeKey("a"));
    EXPECT_TRUE(t.insertKey("a", "last"));
    file.stanza("new\r\n[s]");

    IniFile other = loaded("[t]\nb=x\nd=4\n#u\n[u]\nk=5\n");
    file.merge(other);

    const char rest[] = "[t]\nb = \\\ntwo\\\rlines\\\n\n#c\n\\=c = \\\r\nx\\ \na = last\nd = 4\n"
                        "\n[new\\\r\n[s]]\n#u\n[u]\nk = 5\n";
    EXPECT_EQ(written(file), "#head\n[s]\nk = v\n\n\n#t\n\n"s + rest);
    EXPECT_FALSE(file.removeStanza("absent"));
    EXPECT_TRUE(file.removeStanza("s"));
    EXPECT_EQ(written(file), "#head\n#t\n"s + rest);
    EXPECT_TRUE(file.removeStanza("u"));
    EXPECT_TRUE(file.removeStanza("new\r\n[s]"));
    EXPECT_TRUE(file.removeStanza("t"));
    EXPECT_EQ(written(file), "#head\n");

    IniFile blanks = loaded("[a]\n[b]\n\n#c\n[c]\n");
    EXPECT_TRUE(blanks.removeStanza("b"));
    EXPECT_EQ(written(blanks), "[a]\n\n#c\n[c]\n");
    EXPECT_TRUE(blanks.removeStanza("a"));
    EXPECT_EQ(written(blanks), "#c\n[c]\n");
}

} // namespace
} // namespace velmox
