#include "companion/report/event_report.h"

#include <charconv>
#include <nlohmann/json.hpp>

namespace velmox {

namespace {

// kPageHead and kPageTail.
#include "report_page.inc"

using Json = nlohmann::ordered_json;

// In the order of the columns.
constexpr std::string_view kColumns[] = {"operation", "process", "key",     "value", "data",
                                         "stanza",    "status",  "message", "pid",   "type"};

/// Milliseconds since 1970, or those of the event before where this one has no time.
std::int64_t millisecondsOf(const StreamEvent &event, std::int64_t before)
{
    constexpr std::int64_t kMost = 8'000'000'000'000;
    const auto number = [](std::string_view text, std::int64_t &out) {
        const char *const end = text.data() + text.size();
        const auto parsed = std::from_chars(text.data(), end, out);
        return parsed.ec == std::errc() && parsed.ptr == end;
    };
    std::int64_t seconds = 0;
    std::int64_t fraction = 0;
    const std::size_t point = event.localTime.rfind('.');
    const bool isTime = number(event.time, seconds) && point != std::string_view::npos &&
                        number(event.localTime.substr(point + 1), fraction);
    return isTime && seconds > -kMost && seconds < kMost ? seconds * 1000 + fraction : before;
}

void appendNumbers(const auto &numbers, std::string &out)
{
    char separator = '[';
    for (const auto number : numbers) {
        out += separator;
        out += std::to_string(number);
        separator = ',';
    }
    out += numbers.empty() ? "[]" : "]";
}

void appendText(const std::string &text, std::string &out)
{
    for (const char byte : Json(text).dump()) {
        if (byte == '<') {
            out += "\\u003c";
        } else {
            out += byte;
        }
    }
}

} // namespace

std::uint32_t EventReport::numberOf(std::string_view text)
{
    const auto found = numbers_.find(text);
    if (found != numbers_.end()) {
        return found->second;
    }
    const std::string &kept = texts_.emplace_back(text);
    const auto number = static_cast<std::uint32_t>(texts_.size() - 1);
    numbers_.emplace(kept, number);
    return number;
}

void EventReport::add(const StreamEvent &event, const EventFields &fields)
{
    std::string key(fields.text(Field::Hive));
    if (!key.empty() && !fields.text(Field::Key).empty()) {
        key += '\\';
    }
    key += fields.text(Field::Key);
    const std::string_view texts[] = {event.operation,
                                      fields.text(Field::Executable),
                                      key,
                                      fields.text(Field::Value),
                                      event.data,
                                      event.stanza,
                                      fields.text(Field::Code),
                                      fields.text(Field::Message),
                                      event.pid,
                                      event.dataType};
    static_assert(std::size(texts) == kColumnCount && std::size(kColumns) == kColumnCount);
    for (std::size_t at = 0; at < kColumnCount; ++at) {
        columns_[at].push_back(numberOf(texts[at]));
    }
    const std::int64_t time = millisecondsOf(event, last_);
    times_.push_back(time - last_);
    last_ = time;
}

std::string EventReport::json() const
{
    std::string out = "{\"strings\":[";
    for (const std::string &text : texts_) {
        out += &text == &texts_.front() ? "" : ",";
        appendText(text, out);
    }
    out += "],\"time\":";
    appendNumbers(times_, out);
    out += ",\"columns\":{";
    for (std::size_t at = 0; at < kColumnCount; ++at) {
        out += at == 0 ? "\"" : ",\"";
        out += kColumns[at];
        out += "\":";
        appendNumbers(columns_[at], out);
    }
    out += "}}";
    return out;
}

std::string EventReport::page() const
{
    std::string page(kPageHead);
    page += json();
    page += kPageTail;
    return page;
}

} // namespace velmox
