#pragma once

#include "companion/stream/stream_event.h"

#include <array>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace velmox {

/// The fields of the Elastic Common Schema that an event can have.
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
/// one event after the other.
class EventFields
{
public:
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

} // namespace velmox
