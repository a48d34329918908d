#include "companion/events/event_fields.h"

#include "companion/stream/registry_text.h"

#include <algorithm>
#include <charconv>
#include <chrono>

namespace velmox {

namespace {

struct FieldRow
{
    std::string_view name;
    FieldForm form = FieldForm::Text;
};

// In the order of `Field`. The schema wants `event.category` and `event.type` to be lists.
constexpr std::array<FieldRow, kFieldCount> kFields{{
    {"@timestamp"},
    {"ecs.version"},
    {"event.kind"},
    {"event.category", FieldForm::List},
    {"event.type", FieldForm::List},
    {"event.action"},
    {"event.outcome"},
    {"event.code"},
    {"message"},
    {"process.pid", FieldForm::Number},
    {"process.executable"},
    {"process.name"},
    {"process.parent.pid", FieldForm::Number},
    {"user.name"},
    {"dll.path"},
    {"dll.name"},
    {"registry.path"},
    {"registry.hive"},
    {"registry.key"},
    {"registry.value"},
    {"registry.data.type"},
    {"registry.data.strings", FieldForm::List},
    {"labels.stanza"},
    {"labels.index"},
    {"host.name"},
}};

/// What the schema says of an operation: a word for `event.type`, which has a fixed set of them.
struct OperationRow
{
    std::string_view name;
    std::string_view type;
    /// Whether its path leads to a value: always, or where the event has data of a type.
    bool isOnValue = false;
    bool mayBeOnValue = false;
};

constexpr OperationRow kOperations[] = {
    {"SetValue", "change", true},
    {"CreateKey", "creation"},
    {"OpenKey", "access"},
    {"CloseKey", "access"},
    {"QueryKey", "access", false, true},
    {"DeleteKey", "deletion", false, true},
    {"ProcessCreated", "start"},
    {"ProcessExited", "end"},
    {"ProcessImage", "info"},
    {"RenameKey", "change"},
    {"baseline", "info", true},
};

constexpr OperationRow kOtherOperation = {"", ""};

const OperationRow &operationRow(std::string_view name)
{
    const auto *const row = std::ranges::find(kOperations, name, &OperationRow::name);
    return row == std::end(kOperations) ? kOtherOperation : *row;
}

/// The path of a query or a deletion does not tell whether its last component is a key or a value. A key has
/// no data, so where there is a type of data the operation was on a value.
bool hasValueType(const StreamEvent &event)
{
    return event.dataType != "REG_NONE" && event.dataType != "REG_SD";
}

constexpr std::size_t kMillisecondDigits = 3;
/// "mm/dd/yyyy hh:mm:ss.mmm"
constexpr std::size_t kLocalTimeLength = 23;

/// Writes the last digits of a number into the whole of a room, with zeros in front.
void putNumber(unsigned number, char *begin, char *end)
{
    while (end != begin) {
        *--end = static_cast<char>('0' + number % 10);
        number /= 10;
    }
}

bool readNumber(std::string_view text, std::int64_t &out)
{
    const char *const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, out);
    return parsed.ec == std::errc() && parsed.ptr == end;
}

} // namespace

std::string_view fieldName(Field field)
{
    return kFields[static_cast<std::size_t>(field)].name;
}

FieldForm fieldForm(Field field)
{
    return kFields[static_cast<std::size_t>(field)].form;
}

std::optional<Field> findField(std::string_view name)
{
    const auto *const row = std::ranges::find(kFields, name, &FieldRow::name);
    if (row == kFields.end()) {
        return std::nullopt;
    }
    return static_cast<Field>(row - kFields.begin());
}

std::span<const std::string_view> EventFields::texts(Field field) const
{
    if (field == Field::Strings) {
        return strings_;
    }
    const std::string_view &text = texts_[static_cast<std::size_t>(field)];
    return {&text, text.empty() ? std::size_t{0} : std::size_t{1}};
}

void EventFields::read(const StreamEvent &event)
{
    texts_ = {};
    set(Field::Timestamp, writeTimestamp(event.time, event.localTime, timestamp_));
    // Collectors choose by it how they read the rest; it has to be the version that the names were taken
    // from.
    set(Field::SchemaVersion, "8.11.0");
    set(Field::Kind, event.isBaseline() ? "state" : "event");
    set(Field::Category, event.isOnRegistry() ? "registry" : "process");
    set(Field::Type, operationRow(event.operation).type);
    set(Field::Action, event.operation);
    set(Field::DataType, event.dataType);
    set(Field::Stanza, event.stanza);
    set(Field::Index, event.index);
    set(Field::Host, event.host);
    readStatus(event);
    readProcess(event);
    if (event.isOnRegistry()) {
        readPath(event);
    }
    readValueStrings(event.dataType, event.data, strings_);
}

std::string EventFields::place() const
{
    if (!text(Field::ImagePath).empty()) {
        return std::string(text(Field::ImagePath));
    }
    std::string place(text(Field::Hive));
    if (!place.empty() && !text(Field::Key).empty()) {
        place += '\\';
    }
    place += text(Field::Key);
    return place;
}

void EventFields::readStatus(const StreamEvent &event)
{
    // Only an operation of some program on the registry has a status.
    if (event.isBaseline() || !event.isOnRegistry()) {
        return;
    }
    const std::size_t end = event.status.find(')');
    if (!event.status.starts_with('(') || end == std::string_view::npos) {
        set(Field::Outcome, "unknown");
        set(Field::Message, event.status);
        return;
    }
    const std::string_view number = event.status.substr(1, end - 1);
    // The number is an NTSTATUS in decimal with its sign: of warnings and errors the highest bit is set
    // (ntdef.h, NT_SUCCESS).
    set(Field::Outcome, number.starts_with('-') ? "failure" : "success");
    set(Field::Code, number);
    set(Field::Message, event.status.substr(end + 1));
}

void EventFields::readProcess(const StreamEvent &event)
{
    set(Field::Pid, event.pid);
    // What the monitor writes for a process that it does not know.
    if (event.processImage != "N/A") {
        set(Field::Executable, event.processImage);
        set(Field::ProcessName, lastComponent(event.processImage));
    }
    set(Field::ParentPid, event.parentPid);
    set(Field::User, event.user);
    set(Field::ImagePath, event.imagePath);
    set(Field::ImageName, lastComponent(event.imagePath));
}

void EventFields::readPath(const StreamEvent &event)
{
    const OperationRow &operation = operationRow(event.operation);
    const bool hasValue = operation.isOnValue || (operation.mayBeOnValue && hasValueType(event));
    const RegistryPath path = splitRegistryPath(event.keyPath, hasValue);
    set(Field::Path, event.keyPath);
    set(Field::Hive, path.hive);
    set(Field::Key, path.key);
    set(Field::Value, path.value);
}

std::optional<std::int64_t> millisecondsOf(std::string_view seconds, std::string_view localTime)
{
    // In seconds, some way below the 8.64e15 milliseconds at which the times of a browser end (ECMA-262, Time
    // Values): the page that gets these numbers could show no later one.
    constexpr std::int64_t kMost = 8'000'000'000'000;
    std::int64_t number = 0;
    std::int64_t fraction = 0;
    const std::size_t point = localTime.rfind('.');
    const bool isTime = readNumber(seconds, number) && point != std::string_view::npos &&
                        readNumber(localTime.substr(point + 1), fraction);
    return isTime && number > -kMost && number < kMost ? std::optional(number * 1000 + fraction)
                                                       : std::nullopt;
}

std::string_view writeTimestamp(std::string_view seconds, std::string_view localTime,
                                std::span<char, 24> room)
{
    std::int64_t number = 0;
    const char *const end = seconds.data() + seconds.size();
    const auto parsed = std::from_chars(seconds.data(), end, number);
    // The first second of the year 0 and the last one of 9999: RFC 3339 has years of four digits only.
    constexpr std::int64_t kFirst = -62167219200;
    constexpr std::int64_t kLast = 253402300799;
    if (seconds.empty() || parsed.ptr != end || number < kFirst || number > kLast ||
        localTime.size() < kMillisecondDigits) {
        return {};
    }
    const std::chrono::sys_seconds time{std::chrono::seconds(number)};
    const auto days = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(days);
    const std::chrono::hh_mm_ss clock(time - days);
    char *const at = room.data();
    std::ranges::copy(std::string_view("0000-00-00T00:00:00.000Z"), at);
    putNumber(static_cast<unsigned>(static_cast<int>(date.year())), at, at + 4);
    putNumber(static_cast<unsigned>(date.month()), at + 5, at + 7);
    putNumber(static_cast<unsigned>(date.day()), at + 8, at + 10);
    putNumber(static_cast<unsigned>(clock.hours().count()), at + 11, at + 13);
    putNumber(static_cast<unsigned>(clock.minutes().count()), at + 14, at + 16);
    putNumber(static_cast<unsigned>(clock.seconds().count()), at + 17, at + 19);
    // The stream has the moment in whole seconds. Its milliseconds stand in the local time alone, and are
    // right in any zone, as zones differ by whole seconds.
    localTime.copy(at + 20, kMillisecondDigits, localTime.size() - kMillisecondDigits);
    return {at, room.size()};
}

std::string_view writeSortableTime(std::string_view localTime, std::span<char, 24> room)
{
    if (localTime.size() != kLocalTimeLength || localTime[2] != '/' || localTime[5] != '/') {
        return localTime;
    }
    char *const at = room.data();
    localTime.copy(at, 4, 6);
    at[4] = '-';
    localTime.copy(at + 5, 2, 0);
    at[7] = '-';
    localTime.copy(at + 8, 2, 3);
    localTime.copy(at + 10, std::string_view::npos, 10);
    return {at, kLocalTimeLength};
}

} // namespace velmox
