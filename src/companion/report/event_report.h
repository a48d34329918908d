#pragma once

#include "companion/events/event_fields.h"

#include <array>
#include <deque>
#include <string>
#include <unordered_map>

namespace velmox {

/// Gathers events for the page: each text once, and columns of numbers that say which text stands where. So a
/// page of hundreds of thousands of events stays small, and is quick to search.
class EventReport
{
public:
    void add(const StreamEvent &event, const EventFields &fields);

    static constexpr std::string_view kPageStart = "<!DOCTYPE html>";

    /// Whether a file that begins so holds a page, or nothing.
    static bool isPage(std::string_view beginning) { return beginning.empty() || beginning == kPageStart; }

    /// The whole page, which needs nothing besides itself.
    std::string page() const;

private:
    static constexpr std::size_t kColumnCount = 10;

    /// JSON without a `<`, so that nothing in it can end the element that it stands in.
    std::string json() const;
    std::uint32_t numberOf(std::string_view text);
    std::uint32_t numberOfKey(const std::string &key);

    /// A deque, as its texts stay where they are.
    std::deque<std::string> texts_;
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
