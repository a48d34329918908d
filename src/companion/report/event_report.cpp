#include "companion/report/event_report.h"

#include "companion/stream/registry_text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace velmox {

namespace {

// kPageHead and kPageTail.
#include "report_page.inc"

using Json = nlohmann::ordered_json;

// In the order of the columns. The page's scripts know them by these names.
constexpr std::string_view kColumns[] = {"operation", "process", "key",     "value", "data",
                                         "stanza",    "status",  "message", "pid",   "type"};

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

/// Appends a text as JSON that can stand in a `<script>` element: HTML ends one at the first `</script`, also
/// within a string of JSON (HTML, "Restrictions for contents of script elements").
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

std::uint32_t EventReport::numberOfKey(const std::string &key)
{
    const auto known = keys_.find(key);
    if (known != keys_.end()) {
        return known->second;
    }
    // Component by component from the front, so that `HKLM\Software\A` and `HKLM\SOFTWARE\B` are two branches
    // of one key: the folded path so far decides, and what it was first spelt like replaces what was
    // gathered.
    std::string spelt;
    std::string folded;
    for (std::size_t at = 0; at <= key.size();) {
        const std::size_t end = std::min(key.find('\\', at), key.size());
        const std::string component = key.substr(at, end - at);
        if (at > 0) {
            spelt += '\\';
            folded += '\\';
        }
        spelt += component;
        folded += foldedText(component);
        spelt = spellings_.try_emplace(folded, spelt).first->second;
        at = end + 1;
    }
    return keys_[key] = numberOf(spelt);
}

void EventReport::add(const StreamEvent &event, const EventFields &fields)
{
    const std::uint32_t key = numberOfKey(fields.place());
    const std::string_view texts[] = {event.operation,
                                      fields.text(Field::Executable),
                                      texts_[key],
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
    // An event without a time has that of the one before. The page has differences, as these are short
    // numbers.
    const std::int64_t time = millisecondsOf(event.time, event.localTime).value_or(last_);
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
    // By this an earlier page is known from any other file.
    static_assert(kPageHead.starts_with(kPageStart));
    std::string page(kPageHead);
    page += json();
    page += kPageTail;
    return page;
}

} // namespace velmox
