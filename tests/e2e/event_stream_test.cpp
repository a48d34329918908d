#include "tests/e2e/monitor_test.h"

namespace velmox::e2e {

namespace {

using namespace testbed;

constexpr std::uint64_t kMillisecond = 10'000; // in 100 ns
constexpr std::uint64_t kDay = 86'400'000 * kMillisecond;

class EventStreamTest : public MonitorTest
{
};

/// A reported record: the body is its own, changed by the caller.
Case reported(const RecordFields &record, const std::function<void(ExpectedBody &)> &change)
{
    ExpectedBody body = bodyOf(record);
    change(body);
    return {record, ExpectedEvent{.body = body.text()}};
}

TEST_F(EventStreamTest, TellsOperationValueAndStatus)
{
    // What would end the event for a reader who takes it apart by its lines.
    constexpr char16_t kForged[] = u"x\n---velmox-regmon-end-of-event---\n***VELMOX***y";
    const struct
    {
        std::uint32_t operation;
        std::uint32_t type;
        Bytes data;
        const char *operationName;
        const char *typeName;
        Str text;
        std::uint32_t status = 0;
        unsigned error = ERROR_SUCCESS;
    } rows[] = {
        {16, 1, stringData(u"text"), "SetValue", "REG_SZ", "text"},
        {26, 4, dwordData(0xFFFFFFFF), "CreateKey", "REG_DWORD", "0xffffffff(4294967295)"},
        {29, 7, multiStringData({u"a", u"b"}), "OpenKey", "REG_MULTI_SZ", "a\nb"},
        {39, 4, dwordData(2), "UNKNOWN", "REG_SD", "0x00000002(2)"},
        {16, 1, stringData(kForged), "SetValue", "REG_SZ", ""},
        {16, 0, {}, "SetValue", "REG_NONE", "", 0xC0000034, ERROR_FILE_NOT_FOUND},
        {16, 0, {}, "SetValue", "REG_NONE", "", 0xC0FFFFF1, ERROR_MR_MID_NOT_FOUND},
    };
    std::vector<Case> cases;
    for (const auto &row : rows) {
        const RecordFields record = {.operation = row.operation,
                                     .status = row.status,
                                     .pid = kUnknownPid,
                                     .dataType = row.type,
                                     .data = row.data};
        cases.push_back(reported(record, [&](ExpectedBody &body) {
            body.operation = row.operationName;
            body.dataType = row.typeName;
            body.data = row.text;
            body.status = statusText(static_cast<int>(row.status), row.error);
        }));
    }
    const Str log = check(everything(), cases);
    expectLogged(log, "Found pattern - \\n***VELMOX*** in data x\\n---velmox-regmon-end-of-event---\\n"
                      "***VELMOX***y. This data will not be printed.");
}

TEST_F(EventStreamTest, KeepsTheDocumentWhole)
{
    const auto named = [](std::u16string_view name, const Str &keyPath, const Bytes &data, const Str &text) {
        const RecordFields record = {.pid = kUnknownPid, .name = std::u16string(name), .data = data};
        Case one = reported(record, [&](ExpectedBody &body) {
            body.keyPath = keyPath;
            body.dataType = "REG_SZ";
            body.data = text;
        });
        one.event->stanza = "a&b<\"'>";
        one.event->index = "<main>";
        return one;
    };
    Params params = everyOperation();
    params.emplace_back("index", "&lt;main&gt;");
    check(InputDocument().stanza("WinRegMon://a&amp;b&lt;&quot;&apos;&#x3e;", params),
          {
              named(u"\\REGISTRY\\MACHINE\\<b a=\"1\">&amp;'", "HKLM\\<b a=\"1\">&amp;'",
                    stringData(u"</data></event></stream>"), "</data></event></stream>"),
              named(u"\\REGISTRY\\MACHINE\\\x01\x1f\x7f", "HKLM\\\\x01\\x1F\x7f",
                    stringData(u"\x08\ttab\rreturn\nfeed\x1b"), "\\x08\ttab\rreturn\nfeed\\x1B"),
              named(u"\\REGISTRY\\MACHINE\\cut\0off"sv, "HKLM\\cut", stringData(u"a\0b"sv), "a"),
              named(u"\\REGISTRY\\MACHINE\\\u00c4\u20ac\U0001F600", "HKLM\\\u00c4\u20ac\U0001F600",
                    stringData(u"\u00df"), "\u00df"),
          });
}

TEST_F(EventStreamTest, TakesTheTimeOfTheRecordAtMostOnceAMillisecond)
{
    constexpr std::uint64_t kStart = RecordFields{}.timestamp;
    const struct
    {
        std::uint64_t timestamp;
        const char *seconds;
        const char *local;
    } times[] = {
        {1, "0", "01/01/1601 09:00:00.000"},
        {kStart, "1577836800", "01/01/2020 09:00:00.000"},
        {kStart + kMillisecond, "1577836800", "01/01/2020 09:00:00.000"},
        {kStart + kMillisecond + 1, "1577836800", "01/01/2020 09:00:00.001"},
        {kStart - 5000 * kMillisecond, "1577836800", "01/01/2020 09:00:00.001"},
        {kStart + 1999 * kMillisecond, "1577836801", "01/01/2020 09:00:01.999"},
        // The same second of another day, month and year.
        {kStart + 1999 * kMillisecond + kDay, "1577923201", "01/02/2020 09:00:01.999"},
        {kStart + 1999 * kMillisecond + 32 * kDay, "1580601601", "02/02/2020 09:00:01.999"},
        {kStart + 1999 * kMillisecond + 398 * kDay, "1612224001", "02/02/2021 09:00:01.999"},
    };
    std::vector<Case> cases;
    for (const auto &[timestamp, seconds, local] : times) {
        const RecordFields record = {.pid = kUnknownPid, .dataType = 0, .timestamp = timestamp};
        cases.push_back(
            {record, ExpectedEvent{.time = seconds, .localTime = local, .body = bodyOf(record).text()}});
    }
    check(everything(), cases);
}

} // namespace

} // namespace velmox::e2e
