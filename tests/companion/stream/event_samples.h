#pragma once

#include "companion/stream/stream_reader.h"

#include <string>
#include <vector>

namespace velmox {

/// The text of `<data>` of a live event.
inline std::string liveData(const std::string &keyPath, const std::string &type, const std::string &data,
                            const std::string &operation = "SetValue")
{
    return "11/21/2026 06:51:16.514\nevent_status=\"(0)Success.\"\npid=252\n"
           "process_image=\"c:\\windows\\regedit.exe\"\nregistry_type=\"" +
           operation + "\"\nkey_path=\"" + keyPath + "\"\ndata_type=\"" + type + "\"\ndata=\"" + data + "\"";
}

inline std::string baselineData(const std::string &keyPath, const std::string &type, const std::string &data)
{
    return "11/21/2026 06:51:16.514\nregistry_type=\"baseline\"\nkey_path=\"" + keyPath + "\"\ndata_type=\"" +
           type + "\"\ndata=\"" + data + "\"";
}

/// An event of the stream around a text that holds nothing which XML would take for markup.
inline std::string eventOf(const std::string &data)
{
    return "<event stanza=\"s\">\n<time>1795243876</time>\n<data>" + data +
           "</data>\n<index>i</index>\n</event>\n";
}

/// The lines of an event on a process, behind its time.
inline std::string processData(const std::string &lines)
{
    return "11/21/2026 06:51:16.514\n" + lines;
}

/// The key paths of the events in `bytes`, and the damage with its offsets, in the order in which they come.
inline std::vector<std::string> read(const std::string &bytes)
{
    std::vector<std::string> told;
    StreamReader reader(
        [&](const StreamEvent &event) {
            told.push_back(std::to_string(event.stream) + " " + std::string(event.keyPath));
        },
        [&](std::uint64_t offset, std::string_view what) {
            told.push_back("at " + std::to_string(offset) + ": " + std::string(what));
        });
    reader.feed(bytes);
    reader.finish();
    return told;
}

/// The fields of what is one event; its views hold for the call of `use` alone.
template <class Use>
void withEvent(const std::string &bytes, Use use)
{
    unsigned count = 0;
    StreamReader reader(
        [&](const StreamEvent &event) {
            ++count;
            use(event);
        },
        [&](std::uint64_t, std::string_view what) { ADD_FAILURE() << what; });
    reader.feed(bytes);
    reader.finish();
    EXPECT_EQ(count, 1U);
}

} // namespace velmox
