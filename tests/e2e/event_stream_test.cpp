#include "tests/e2e/monitor_test.h"

namespace velmox::e2e {

namespace {

using namespace testbed;

constexpr std::uint64_t kMillisecond = 10'000; // in 100 ns

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

Case valueCase(std::uint32_t type, const Bytes &data, const char *typeName, const Str &text)
{
    return reported({.pid = kUnknownPid, .dataType = type, .data = data}, [&](ExpectedBody &body) {
        body.dataType = typeName;
        body.data = text;
    });
}

Case operationCase(std::uint32_t operation, const char *name, const char *typeName)
{
    const RecordFields record = {
        .operation = operation, .pid = kUnknownPid, .dataType = 4, .data = dwordData(2)};
    return reported(record, [&](ExpectedBody &body) {
        body.operation = name;
        body.dataType = typeName;
        body.data = "0x00000002(2)";
    });
}

Case statusCase(std::uint32_t status, unsigned error)
{
    const RecordFields record = {.status = status, .pid = kUnknownPid, .dataType = 0};
    return reported(record,
                    [&](ExpectedBody &body) { body.status = statusText(static_cast<int>(status), error); });
}

TEST_F(EventStreamTest, TellsValueOperationAndStatus)
{
    const auto forged = [](char16_t last) {
        return std::u16string(u"x\n---velmox-regmon-end-of-event---\n***VELMOX***") + last;
    };
    const Str log =
        check(everything(), {
                                valueCase(1, stringData(u"text"), "REG_SZ", "text"),
                                valueCase(1, {'u', 0, 'x'}, "REG_SZ", "u"),
                                valueCase(2, stringData(u"%PATH%;%d"), "REG_EXPAND_SZ", "%PATH%;%d"),
                                valueCase(3, {1, 2, 3}, "REG_BINARY", ""),
                                valueCase(4, dwordData(0xFFFFFFFF), "REG_DWORD", "0xffffffff(4294967295)"),
                                valueCase(7, multiStringData({u"a", u"b"}), "REG_MULTI_SZ", "a\nb"),
                                valueCase(11, qwordData(258), "REG_QWORD", "0x0000000000000102(258)"),
                                valueCase(12, {1}, "UNKNOWN", ""),
                                // No value forges the end of an event.
                                valueCase(1, stringData(u"***VELMOX***"), "REG_SZ", "***VELMOX***"),
                                valueCase(1, stringData(forged(u'y')), "REG_SZ", ""),
                                valueCase(7, multiStringData({forged(u'w')}), "REG_MULTI_SZ", ""),
                                operationCase(0, "DeleteKey", "REG_DWORD"),
                                operationCase(3, "SetValue", "REG_DWORD"),
                                operationCase(19, "RenameKey", "REG_DWORD"),
                                operationCase(23, "QueryKey", "REG_DWORD"),
                                operationCase(26, "CreateKey", "REG_DWORD"),
                                operationCase(29, "OpenKey", "REG_DWORD"),
                                operationCase(25, "CloseKey", "REG_DWORD"),
                                operationCase(18, "UNKNOWN", "REG_DWORD"),
                                operationCase(39, "UNKNOWN", "REG_SD"),
                                operationCase(0xFFFFFFFF, "UNKNOWN", "REG_DWORD"),
                                statusCase(0xC0000034, ERROR_FILE_NOT_FOUND),
                                statusCase(0x80000005, ERROR_MORE_DATA),
                                statusCase(0xC0000034, ERROR_FILE_NOT_FOUND),
                                statusCase(0xC0FFFFF1, ERROR_MR_MID_NOT_FOUND),
                            });
    for (const char last : {'y', 'w'}) {
        expectLogged(log, Str::fromFormat("Found pattern - \\n***VELMOX*** in data "
                                          "x\\n---velmox-regmon-end-of-event---\\n***VELMOX***%c. "
                                          "This data will not be printed.",
                                          last));
    }
}

TEST_F(EventStreamTest, FindsEachRecordByTheSizesOfTheOneBefore)
{
    std::vector<Case> cases;
    for (const std::uint32_t recordClass : {0u, 1u, 3u, 1u, 5u, 8u, 0xFFFFFFFFu, 1u, 1u}) {
        // 1, 2, 3 ... bytes of data, so that the records that follow begin everywhere.
        const RecordFields record = {.recordClass = recordClass,
                                     .reserved = 0xFFFFFFFF,
                                     .pid = kUnknownPid,
                                     .parentPid = 99,
                                     .dataType = 3,
                                     .data = Bytes(cases.size() + 1, 0xEE)};
        cases.push_back(reported(record, [](ExpectedBody &body) { body.dataType = "REG_BINARY"; }));
        if (recordClass != 1) {
            cases.back().event.reset();
        }
    }
    const RecordFields bare = {.pid = kUnknownPid, .dataType = 0, .name = u""};
    cases.push_back(reported(bare, [](ExpectedBody &) {}));
    cases.push_back(cases.back());
    check(everything(), cases);
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
    using namespace std::string_view_literals;
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
              named(u"\\REGISTRY\\MACHINE\\%s%n%d", "HKLM\\%s%n%d", stringData(u"%s%n"), "%s%n"),
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
    };
    std::vector<Case> cases;
    for (const auto &[timestamp, seconds, local] : times) {
        const RecordFields record = {.pid = kUnknownPid, .dataType = 0, .timestamp = timestamp};
        cases.push_back(
            {record, ExpectedEvent{.time = seconds, .localTime = local, .body = bodyOf(record).text()}});
    }
    check(everything(), cases);
}

TEST_F(EventStreamTest, WritesNothingWhenNothingIsReported)
{
    check(InputDocument().stanza("WinRegMon://none", {{"hive", "HKLM\\\\Elsewhere"}}),
          {{{.pid = kUnknownPid}, std::nullopt}});
}

} // namespace

} // namespace velmox::e2e
