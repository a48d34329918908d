#pragma once

#include "companion/events/event_table.h"
#include "companion/stream/stream_event.h"

#include <functional>
#include <map>
#include <string>

namespace velmox {

/// A value as a baseline reported it.
struct BaselineValue
{
    std::string path;
    std::string type;
    std::string data;
    /// Whether the conditions of the user hold for its event.
    bool isSelected;
    /// Of its event among the input's baseline events, from 0.
    std::uint64_t number;

    /// Whether it is the same value as far as a stream shows.
    bool operator==(const BaselineValue &other) const { return type == other.type && data == other.data; }
};

/// A value that is not the same in two baselines; null is for one that is not there. It refers to the
/// baselines, and holds as long as they do.
struct BaselineDifference
{
    const std::string &path;
    const BaselineValue *oldValue;
    const BaselineValue *newValue;
};

/// The values that an input's baselines reported: of each stanza the last one, as a start walks those that
/// are due. What several of them hold is as the latest of those reported it. Live events do not count: what
/// they changed was reported by them.
class Baseline
{
public:
    /// The first event that a stanza has in a later stream empties its baseline.
    void add(const StreamEvent &event, bool isSelected);

    bool empty() const { return stanzas_.empty(); }

    /// Calls `onMissing` with the name of each stanza that has a baseline here, and none in another input.
    void compareStanzas(const Baseline &other,
                        const std::function<void(const std::string &)> &onMissing) const;

    /// Calls `onDifference` where two baselines differ and the value of either is selected, in the order of
    /// paths.
    using OnDifference = std::function<void(const BaselineDifference &)>;
    static void compare(const Baseline &oldOne, const Baseline &newOne, const OnDifference &onDifference);

private:
    struct Stanza
    {
        /// Where its last baseline stands.
        std::uint64_t stream;
        /// By the path in a form that can be compared.
        std::map<std::string, BaselineValue> values;
    };

    /// What any of the stanzas holds.
    std::map<std::string_view, const BaselineValue *> all() const;

    std::map<std::string, Stanza, std::less<>> stanzas_;
    // Baseline events so far.
    std::uint64_t count_ = 0;
};

/// Appends a difference as a JSON object in a line: `change`, `path`, and `old` and `new` where there is one,
/// with `type` and `strings`.
void appendDifferenceJson(const BaselineDifference &difference, std::string &out);

/// Appends a difference as a line of a table: what happened, path, old text, new text.
void appendDifferenceRow(const BaselineDifference &difference, TableStyle style, std::string &out);

} // namespace velmox
