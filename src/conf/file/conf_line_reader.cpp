#include "conf/file/conf_line_reader.h"

#include <algorithm>

namespace velmox {

Logger iniLog("IniFile");

namespace {

using namespace std::string_view_literals;

constexpr CharSet kBlankLine(" \t\r\n");
/// What does not stand for itself in a key.
constexpr CharSet kKeySpecials("=\\\0"sv);

/// Joins the physical lines that follow while the line ends in a backslash. One that has nothing behind it
/// still becomes a line feed.
void readContinuations(ConfLineReader &reader, Str &line)
{
    StrSegment next;
    // However many backslashes: the last one continues the line, also behind another that seems to escape it.
    while (line.endsWith("\\")) {
        line[line.size() - 1] = '\n';
        if (!reader.readLine(next)) {
            return;
        }
        line.append(next.view());
    }
}

void parseStanzaHeader(const ConfLineReader &reader, const Str &line, std::size_t open, Str &name)
{
    // The last bracket, so that a name may hold some; what is behind it counts for nothing.
    const std::size_t close = line.rfind(']');
    if (close == Str::npos) {
        iniLog.warn() << location(reader) << ": Stanza header is missing terminator: " << line;
    }
    const std::string_view behind = line.view().substr(open + 1);
    name.assign(close == Str::npos ? behind : behind.substr(0, close - open - 1));
}

/// Where the key ends: at the separator, or at the end of a line that has none.
struct KeyEnd
{
    std::size_t position;
    bool isSeparator;
    bool inEscape;
};

/// Removes the escapes and the NULs of the key from the line. What stands behind one of them is part of the
/// key, whatever it is; behind a NUL too, so that a separator there does not count.
KeyEnd unescapeKey(Str &line)
{
    const std::ptrdiff_t special = line.findFirst(kKeySpecials, 0, true);
    std::size_t from = special < 0 ? line.size() : static_cast<std::size_t>(special);
    std::size_t to = from;
    bool inEscape = false;
    while (from < line.size() && line[from] != '=') {
        // The line closes up over what is removed, and what moved into its place is taken unlooked at.
        if (line[from] == '\\' || line[from] == '\0') {
            inEscape = line[from] == '\\' && from + 1 == line.size();
            if (++from == line.size()) {
                break;
            }
        }
        line[to++] = line[from++];
    }
    line.erase(to, from - to);
    return {to, to < line.size(), inEscape};
}

void takeValue(const ConfLineReader &reader, const Str &line, std::size_t from, Str &value)
{
    value.assign(line.view().substr(from));
    if (value.find('\0') != Str::npos) {
        iniLog.warn() << location(reader) << ":  Found null character: " << line;
        value.resize(static_cast<std::size_t>(std::remove(value.begin(), value.end(), '\0') - value.begin()));
    }
}

ConfLine parseKeyValue(const ConfLineReader &reader, Str &line, Str &key, Str &value)
{
    const KeyEnd end = unescapeKey(line);
    if (end.isSeparator) {
        key.assign(line.view().substr(0, end.position));
        takeValue(reader, line, end.position + 1, value);
        return ConfLine::KeyValue;
    }
    if (end.inEscape) {
        iniLog.warn() << location(reader) << ": Cannot end on an escape character: " << line;
    }
    // Spec files describe the keys of a conf file, and are prose in parts.
    if (reader.path().extension() != "spec") {
        iniLog.warn() << location(reader) << ": Cannot parse into key-value pair: " << line;
    }
    return ConfLine::Blank;
}

} // namespace

bool ConfLineReader::readLine(StrSegment &out)
{
    if (!stream_.readLine(out)) {
        return false;
    }
    ++lineNumber_;
    return true;
}

ConfLine parseLine(ConfLineReader &reader, Str &line, Str &name, Str &value)
{
    StrSegment physical;
    const bool read = reader.readLine(physical);
    // At the end of the file too: no text of an earlier line stays in there.
    line.assign(physical.view());
    if (!read) {
        return ConfLine::End;
    }
    // Blank lines and comments first: what they end in continues nothing.
    const std::ptrdiff_t first = line.findFirst(kBlankLine, 0, false);
    if (first < 0) {
        return ConfLine::Blank;
    }
    const auto start = static_cast<std::size_t>(first);
    if (line[start] == ';' || line[start] == '#') {
        return ConfLine::Comment;
    }
    readContinuations(reader, line);
    if (line[start] == '[') {
        parseStanzaHeader(reader, line, start, name);
        return ConfLine::StanzaHeader;
    }
    return parseKeyValue(reader, line, name, value);
}

Str location(const ConfLineReader &reader)
{
    return reader.path().toStr() << ", line " << static_cast<unsigned long long>(reader.lineNumber());
}

} // namespace velmox
