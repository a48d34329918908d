#include "companion/stream/stream_event.h"

#include "companion/stream/registry_text.h"

namespace velmox {

namespace {

constexpr std::string_view kBaseline = "baseline";
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view kTypeCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ_";

bool take(std::string_view &rest, std::string_view literal)
{
    if (!rest.starts_with(literal)) {
        return false;
    }
    rest.remove_prefix(literal.size());
    return true;
}

/// The characters of `set` at the front, which there may be none of.
std::string_view takeAll(std::string_view &rest, std::string_view set)
{
    std::size_t length = 0;
    while (length < rest.size() && set.find(rest[length]) != std::string_view::npos) {
        ++length;
    }
    const std::string_view taken = rest.substr(0, length);
    rest.remove_prefix(length);
    return taken;
}

bool takeDigits(std::string_view &rest)
{
    return !takeAll(rest, kDigits).empty();
}

// Month/day/year hour:minute:second.milliseconds. How many digits a part has is not checked but for the last:
// a text of the registry never stands here, so that there is nothing to mistake it for.
bool takeLocalTime(std::string_view &rest, std::string_view &out)
{
    const std::string_view before = rest;
    const bool isTime = takeDigits(rest) && take(rest, "/") && takeDigits(rest) && take(rest, "/") &&
                        takeDigits(rest) && take(rest, " ") && takeDigits(rest) && take(rest, ":") &&
                        takeDigits(rest) && take(rest, ":") && takeDigits(rest) && take(rest, ".");
    out = before.substr(0, before.size() - rest.size() + 3);
    return isTime && takeAll(rest, kDigits).size() == 3 && take(rest, "\n");
}

/// Takes a field up to the first place where `separator` stands and `takeNext` can take what follows it.
template <class TakeNext>
bool takeField(std::string_view &rest, std::string_view separator, std::string_view &out, TakeNext takeNext)
{
    // On a copy, for a place where the next field can't be read belongs to this field's text.
    for (std::size_t at = rest.find(separator); at != std::string_view::npos;
         at = rest.find(separator, at + 1)) {
        std::string_view behind = rest.substr(at + separator.size());
        if (takeNext(behind)) {
            out = rest.substr(0, at);
            rest = behind;
            return true;
        }
    }
    return false;
}

/// A number, and what introduces the image behind it. It may have a sign: the monitor writes it as it stands
/// in a signed word.
bool takePid(std::string_view &rest, std::string_view &out, std::string_view next = "\nprocess_image=\"")
{
    const std::string_view before = rest;
    take(rest, "-");
    const bool isNumber = takeDigits(rest);
    out = before.substr(0, before.size() - rest.size());
    return isNumber && take(rest, next);
}

bool takeOperation(std::string_view &rest, std::string_view &out)
{
    out = takeAll(rest, kLetters);
    return !out.empty() && out != kBaseline && take(rest, "\"\nkey_path=\"");
}

/// What stands between status and key. A status text comes from Windows, in its language, and may hold
/// anything, so it is read up to what follows it.
bool takeProcess(std::string_view &rest, StreamEvent &event)
{
    return takeField(rest, "\"\npid=", event.status,
                     [&](std::string_view &behind) { return takePid(behind, event.pid); }) &&
           takeField(rest, "\"\nregistry_type=\"", event.processImage,
                     [&](std::string_view &behind) { return takeOperation(behind, event.operation); });
}

bool takeValue(std::string_view &rest, StreamEvent &event)
{
    event.dataType = takeAll(rest, kTypeCharacters);
    if (!take(rest, "\"\ndata=\"") || !rest.ends_with('"')) {
        return false;
    }
    // The data is the last field: everything up to the last quote is its text, quotes and line ends included.
    event.data = rest.substr(0, rest.size() - 1);
    return isValueText(event.dataType, event.data);
}

/// The last lines of the begin or end of a process.
bool takeProcessEnd(std::string_view rest, StreamEvent &event)
{
    if (rest == "ProcessExited\"") {
        event.operation = rest.substr(0, rest.size() - 1);
        return true;
    }
    event.operation = rest.substr(0, std::string_view("ProcessCreated").size());
    if (!take(rest, "ProcessCreated\"\nuser=\"") || !rest.ends_with('"')) {
        return false;
    }
    event.user = rest.substr(0, rest.size() - 1);
    return true;
}

/// The begin or end of a process, from the number of its parent on.
bool readProcess(std::string_view rest, StreamEvent &event)
{
    // Read over, and not kept: see `parentPid`.
    std::string_view parentImage;
    return takePid(rest, event.parentPid, "\nparent_process_image=\"") &&
           takeField(rest, "\"\npid=", parentImage,
                     [&](std::string_view &behind) { return takePid(behind, event.pid); }) &&
           takeField(rest, "\"\nregistry_type=\"", event.processImage,
                     [&](std::string_view behind) { return takeProcessEnd(behind, event); });
}

/// An image that was mapped into a process, from the number of that on.
bool readImage(std::string_view rest, StreamEvent &event)
{
    constexpr std::string_view kImagePath = "\"\nimage_path=\"";
    constexpr std::string_view kOperation = "ProcessImage";
    constexpr std::string_view kEnd = "\"\nregistry_type=\"ProcessImage\"";
    if (!takePid(rest, event.pid) || !rest.ends_with(kEnd)) {
        return false;
    }
    rest.remove_suffix(kEnd.size());
    event.operation = kOperation;
    // Of two paths the first ends where the second is introduced: no path of a file holds a quote.
    return takeField(rest, kImagePath, event.processImage, [&](std::string_view behind) {
        event.imagePath = behind;
        return true;
    });
}

} // namespace

bool readEventData(std::string_view data, StreamEvent &event)
{
    std::string_view rest = data;
    if (!takeLocalTime(rest, event.localTime)) {
        return false;
    }
    // The four kinds of event differ in the field behind the local time.
    if (take(rest, "registry_type=\"baseline\"\nkey_path=\"")) {
        event.operation = kBaseline;
    } else if (take(rest, "parent_pid=")) {
        return readProcess(rest, event);
    } else if (take(rest, "pid=")) {
        return readImage(rest, event);
    } else if (!take(rest, "event_status=\"") || !takeProcess(rest, event)) {
        return false;
    }
    return takeField(rest, "\"\ndata_type=\"", event.keyPath,
                     [&](std::string_view &behind) { return takeValue(behind, event); });
}

} // namespace velmox
