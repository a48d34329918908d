#pragma once

#include "companion/stream/stream_event.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

// The room `events`: what is made of events for people and programs. `EventFields` names what an event tells;
// conditions, JSON and the table are built on these names. Besides them stand differences of baselines, and
// the terminal, which knows the operating system.
namespace velmox {

/// The fields that an event can have in JSON: those of the Elastic Common Schema (version 8.11, its reference
/// of fields), and `labels.*` for what that has no field for. In the order in which they are written.
enum class Field : std::size_t
{
    Timestamp,
    SchemaVersion,
    Kind,
    Category,
    Type,
    Action,
    Outcome,
    Code,
    Message,
    Pid,
    Executable,
    ProcessName,
    ParentPid,
    User,
    ImagePath,
    ImageName,
    Path,
    Hive,
    Key,
    Value,
    DataType,
    Strings,
    Stanza,
    Index,
    Host,
    Count,
};

enum class FieldForm
{
    Text,
    Number,
    /// Always a list, of one text where nothing else is said.
    List,
};

inline constexpr std::size_t kFieldCount = static_cast<std::size_t>(Field::Count);

/// Name with dots, as `registry.data.type`.
std::string_view fieldName(Field field);
FieldForm fieldForm(Field field);
std::optional<Field> findField(std::string_view name);

/// What an event tells, by the fields of the schema. Views into the event and into this object, which serves
/// one event after the other; they hold until the next one is read, or the event goes. For one thread.
class EventFields
{
public:
    /// Takes up an event. What the one before told is gone.
    void read(const StreamEvent &event);

    /// Empty when the event has no such field, and for `Strings`.
    std::string_view text(Field field) const { return texts_[static_cast<std::size_t>(field)]; }
    /// All texts of a field: at most one but for `Strings`.
    std::span<const std::string_view> texts(Field field) const;

    /// What the event is about: the path of the key, with its hive in front, or of the image.
    std::string place() const;

private:
    void set(Field field, std::string_view text) { texts_[static_cast<std::size_t>(field)] = text; }
    void readStatus(const StreamEvent &event);
    void readProcess(const StreamEvent &event);
    void readPath(const StreamEvent &event);

    std::array<std::string_view, kFieldCount> texts_;
    std::vector<std::string_view> strings_;
    std::array<char, 24> timestamp_{};
};

/// Writes the time of an event as RFC 3339 in UTC with milliseconds, such as 2026-11-21T08:36:51.835Z: the
/// second by `seconds` since 1970, the milliseconds by the end of `localTime`. Returns what it wrote; nothing
/// for a time that is no number, or of a year that does not have four digits.
std::string_view writeTimestamp(std::string_view seconds, std::string_view localTime,
                                std::span<char, 24> room);

/// The time of an event in milliseconds since 1970, from the same two texts; nothing where one is no number.
std::optional<std::int64_t> millisecondsOf(std::string_view seconds, std::string_view localTime);

/// A local time of the form month/day/year hour:minute:second.milliseconds as year-month-day and the rest; as
/// it is if it has another form. Uses `room` for the text.
std::string_view writeSortableTime(std::string_view localTime, std::span<char, 24> room);

} // namespace velmox
