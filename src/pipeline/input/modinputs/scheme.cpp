#include "pipeline/input/modinputs/scheme.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace velmox {

namespace {

constexpr char kPython[] = "python";
constexpr char kPythonExtension[] = "py";

/// No path holds a quote on Windows, so there is nothing to escape.
Str quoted(const Str &path)
{
    const bool hasBlank = path.findFirst(CharSet::blanks(), 0, true) != -1;
    return hasBlank ? Str::fromFormat("\"%s\"", path.c_str()) : path;
}

} // namespace

ScriptName ScriptName::fromText(const Str &text)
{
    const Str script = text.trimmed();
    const std::ptrdiff_t blank = script.findFirst(CharSet::blanks(), 0, true);
    const std::size_t end = blank < 0 ? script.size() : static_cast<std::size_t>(blank);
    return {script.substr(0, end), script.substr(end).trimmed()};
}

Str ScriptCommand::text() const
{
    Str text = file.toStr();
    if (!arguments.empty()) {
        text << ' ' << arguments;
    }
    return text;
}

Str ScriptCommand::commandLine() const
{
    Str line;
    // Windows starts no such file by itself; which interpreter answers to the word is up to PATH.
    if (file.extension().lowered() == kPythonExtension) {
        line << kPython << ' ';
    }
    line << quoted(file.toStr());
    if (!arguments.empty()) {
        line << ' ' << arguments;
    }
    return line;
}

Str stanzaPrefix(const Str &scheme)
{
    return Str::concat(scheme, "://");
}

bool isInternalArgument(const Str &name)
{
    return std::find(std::begin(kInternalArguments), std::end(kInternalArguments), name.view()) !=
           std::end(kInternalArguments);
}

} // namespace velmox
