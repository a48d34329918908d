#pragma once

#include "util/files/readable_unicode_stream.h"
#include "util/log/logger.h"
#include "util/text/pathname.h"

#include <atomic>
#include <cstdint>

namespace velmox {

/// What a logical line of a conf file is.
enum class ConfLine : std::uint8_t
{
    End = 0,   ///< no further line
    Blank = 1, ///< also a line that cannot be parsed
    Comment = 2,
    StanzaHeader = 3,
    KeyValue = 4,
};

/// The physical lines of a conf file, counted. The stream must outlive the reader.
class ConfLineReader
{
public:
    ConfLineReader(ReadableUnicodeStream &stream, Pathname path) : stream_(stream), path_(std::move(path)) {}

    /// The next physical line, without its end; the view is valid up to the next call.
    bool readLine(StrSegment &out);

    const Pathname &path() const { return path_; }
    /// Physical lines read so far.
    std::uint64_t lineNumber() const { return lineNumber_; }
    /// As far as what was read has shown it.
    TextEncodingWord encoding() const { return stream_.encoding(); }

private:
    ReadableUnicodeStream &stream_;
    Pathname path_;
    std::uint64_t lineNumber_ = 0;
};

/// Reads one logical line: physical lines of which each but the last ends in a backslash are joined by line
/// feeds. Faults are logged and never end the reading.
///
/// `line` gets the whole text, without the backslashes that escaped characters of the key. For a stanza
/// header `name` gets its name; for a key and its value `name` and `value` get both, untrimmed. What the
/// class does not name is left as it was.
ConfLine parseLine(ConfLineReader &reader, Str &line, Str &name, Str &value);

/// Reads to the end of the file: `onHeader` gets the name of each stanza, `onSetting` each key and its value
/// without the blanks around them. `line` holds the text of what they are told.
template <class OnHeader, class OnSetting>
void readSettings(ConfLineReader &reader, Str &line, OnHeader &&onHeader, OnSetting &&onSetting)
{
    Str name;
    Str value;
    for (ConfLine kind; (kind = parseLine(reader, line, name, value)) != ConfLine::End;) {
        if (kind == ConfLine::StanzaHeader) {
            onHeader(name);
        } else if (kind == ConfLine::KeyValue) {
            onSetting(trimmedView(name), trimmedView(value));
        }
    }
}

/// Path and number of the line read last, in front of every warning about it.
Str location(const ConfLineReader &reader);

/// `IniFile`, the logger of all who read and write conf files.
extern Logger iniLog;

/// What mappers read from disk in this process, so that a measurement can show what reading costs.
struct ConfReadCounters
{
    std::atomic<std::uint64_t> filesOpened{0};
    std::atomic<std::uint64_t> bytesParsed{0};

    void count(std::uint64_t bytes)
    {
        filesOpened.fetch_add(1, std::memory_order_relaxed);
        bytesParsed.fetch_add(bytes, std::memory_order_relaxed);
    }
};

inline ConfReadCounters confReadCounters;

} // namespace velmox
