#pragma once

#include "companion/events/table_text.h"
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

    bool operator==(const BaselineValue &other) const { return type == other.type && data == other.data; }
};

/// A value that is not the same in two baselines; null is for one that is not there.
struct BaselineDifference
{
    const std::string &path;
    const BaselineValue *oldValue;
    const BaselineValue *newValue;
};

/// The values that the last baseline of an input reported. Live events do not count: what they changed was
/// reported by them.
class Baseline
{
public:
    /// A baseline event of a later stream than those before empties the baseline.
    void beginStream(const StreamEvent &event);
    void add(const StreamEvent &event);

    bool empty() const { return values_.empty(); }

    /// Calls `onDifference` where two baselines differ, in the order of paths.
    using OnDifference = std::function<void(const BaselineDifference &)>;
    static void compare(const Baseline &oldOne, const Baseline &newOne, const OnDifference &onDifference);

private:
    std::uint64_t stream_ = 0;
    /// By the path in a form that can be compared.
    std::map<std::string, BaselineValue> values_;
};

/// Appends a difference as a JSON object in a line: `change`, `path`, and `old` and `new` where there is one,
/// with `type` and `strings`.
void appendDifferenceJson(const BaselineDifference &difference, std::string &out);

/// Appends a difference as a line of a table: what happened, path, old text, new text.
void appendDifferenceRow(const BaselineDifference &difference, TableStyle style, std::string &out);

} // namespace velmox
