#pragma once

#include "companion/events/event_fields.h"

#include <array>
#include <deque>
#include <string>
#include <unordered_map>

// The room `report`: the page that shows events in a browser. The C++ side gathers the data; the page itself
// (page.html, page.css and the scripts beside it) is put into the program by embed_page.pl when that is
// built.
namespace velmox {

/// Gathers events for the page: each text once, and columns of numbers that say which text stands where. So a
/// page of hundreds of thousands of events stays small, and is quick to search. It keeps copies of what it is
/// given. For one thread.
class EventReport
{
public:
    void add(const StreamEvent &event, const EventFields &fields);

    /// What every page begins with.
    static constexpr std::string_view kPageStart = "<!DOCTYPE html>";

    /// Whether a file that begins so, its first `kPageStart.size()` bytes, holds a page, or nothing.
    static bool isPage(std::string_view beginning) { return beginning.empty() || beginning == kPageStart; }

    /// The whole page, which needs nothing besides itself.
    std::string page() const;

private:
    static constexpr std::size_t kColumnCount = 10;

    /// JSON without a `<`, so that nothing in it can end the element that it stands in.
    std::string json() const;
    // The number of a text in `strings` of the page, given to it where it is new.
    std::uint32_t numberOf(std::string_view text);
    std::uint32_t numberOfKey(const std::string &key);

    /// A deque, as its texts stay where they are while it grows.
    std::deque<std::string> texts_;
    // Views into `texts_`.
    std::unordered_map<std::string_view, std::uint32_t> numbers_;
    /// Keys as events spell them, and the numbers of their texts.
    std::unordered_map<std::string, std::uint32_t> keys_;
    /// Keys in lower case, each as it was spelt where it came first, so that the tree has it once.
    std::unordered_map<std::string, std::string> spellings_;
    std::array<std::vector<std::uint32_t>, kColumnCount> columns_;
    /// Milliseconds since the event before.
    std::vector<std::int64_t> times_;
    std::int64_t last_ = 0;
};

} // namespace velmox
