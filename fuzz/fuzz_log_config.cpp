#include "fuzz/fuzz_target.h"
#include "util/log/log_config.h"
#include "util/log/log_layout.h"

namespace velmox::fuzz {
namespace {

class Recorder : public LogConfigHandler
{
public:
    Str calls;

    void rootCategory(StrSegment value, const LogConfigLine &at) override { note("root", value, at.line); }
    void category(StrSegment rest, const LogConfigLine &at) override { note("category", rest, at.line); }
    void appender(StrSegment name) override { note("appender", name, 0); }
    bool appenderProperty(StrSegment name, StrSegment property, StrSegment value) override
    {
        note("property", name, 0);
        calls << ' ' << property << '=' << value;
        return value.size() % 2 == 0;
    }
    void parseError(const LogConfigLine &at) override { note("error", at.text, at.line); }
    void unterminatedComment(const LogConfigLine &at) override { note("comment", at.text, at.line); }

private:
    void note(const char *what, StrSegment text, unsigned line)
    {
        calls << '\n' << what << ' ' << static_cast<unsigned long long>(line) << ' ' << text;
    }
};

Str read(const StrVector &lines, const Str &section)
{
    Recorder recorder;
    LogConfigParser parser("log.cfg", section, recorder);
    for (const Str &line : lines) {
        parser.line(line);
    }
    parser.end();
    return recorder.calls;
}

void checkLines(const Str &section, StrVector lines)
{
    const Str once = read(lines, section);
    lines.push_back("# a comment");
    require(read(lines, section) == once, "a comment behind the last line changes nothing");
    lines.pop_back();
    for (Str &line : lines) {
        if (!line.contains("#") && !line.contains("<!--") && !line.contains("-->")) {
            line.append(" \t");
        }
    }
    require(read(lines, section) == once, "blanks behind a line change nothing");
}

void checkPattern(const Str &pattern, const Str &message)
{
    const LogLayout layout(pattern);
    LogRecord record{116'444'736'000'000'000 + 17'000'000'000'000'123, 116'444'736'000'000'000, "logger"};
    Str line = "kept";
    layout.render(record, message, line);
    require(line.startsWith("kept"), "a layout appends");
    if (!pattern.contains("%")) {
        require(line.view().substr(4) == pattern.view(), "a pattern without conversions stands for itself");
    }
    Str literal = pattern;
    literal.replaceAll("%", "%%");
    Str shown;
    LogLayout(literal).render(record, message, shown);
    require(shown == pattern, "two percent signs stand for one");
}

} // namespace

/// Lines of a logging configuration, or a layout's pattern and a message.
VELMOX_FUZZ_TARGET(log_config)
{
    Input input(bytes);
    const bool pattern = input.choice(2) == 0;
    const Str first(input.line());
    if (pattern) {
        checkPattern(first, Str(input.rest()));
    } else {
        checkLines(first, input.lines());
    }
}

} // namespace velmox::fuzz
