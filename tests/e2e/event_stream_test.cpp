#include "tests/e2e/monitor_test.h"

namespace velmox::e2e {

namespace {

using testbed::Bytes;
using testbed::RecordFields;

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

Bytes joined(const Bytes &first, const Bytes &second)
{
    Bytes all = first;
    all.insert(all.end(), second.begin(), second.end());
    return all;
}

TEST_F(EventStreamTest, ShowsEveryTypeOfValue)
{
    check(everything(),
          {
              valueCase(0, testbed::stringData(u"not shown"), "REG_NONE", ""),
              valueCase(1, testbed::stringData(u"text"), "REG_SZ", "text"),
              valueCase(1, testbed::textData(u"unended"), "REG_SZ", "unended"),
              valueCase(1, {}, "REG_SZ", ""),
              valueCase(1, joined(testbed::textData(u"odd"), {'x'}), "REG_SZ", "odd"),
              valueCase(1, joined(testbed::stringData(u"before"), testbed::stringData(u"after")), "REG_SZ",
                        "before"),
              valueCase(2, testbed::stringData(u"%PATH%;%d"), "REG_EXPAND_SZ", "%PATH%;%d"),
              valueCase(3, {1, 2, 3}, "REG_BINARY", ""),
              valueCase(4, testbed::dwordData(1), "REG_DWORD", "0x00000001(1)"),
              valueCase(4, testbed::dwordData(0xFFFFFFFF), "REG_DWORD", "0xffffffff(4294967295)"),
              valueCase(5, testbed::dwordData(1), "REG_DWORD_BIG_ENDIAN", ""),
              valueCase(6, testbed::stringData(u"\\REGISTRY"), "REG_LINK", ""),
              valueCase(7, testbed::multiStringData({u"a", u"b"}), "REG_MULTI_SZ", "a\nb"),
              valueCase(7, testbed::stringData(u"alone"), "REG_MULTI_SZ", ""),
              valueCase(7, testbed::multiStringData({u"alone"}), "REG_MULTI_SZ", "alone"),
              valueCase(7, {}, "REG_MULTI_SZ", ""),
              valueCase(8, {1}, "REG_RESOURCE_LIST", ""),
              valueCase(9, {1}, "REG_FULL_RESOURCE_DESCRIPTOR", ""),
              valueCase(10, {1}, "REG_RESOURCE_REQUIREMENTS_LIST", ""),
              valueCase(11, testbed::qwordData(0xFFFFFFFFFFFFFFFF), "REG_QWORD", "0xffffffffffffffff(-1)"),
              valueCase(11, testbed::qwordData(258), "REG_QWORD", "0x0000000000000102(258)"),
              valueCase(12, {1}, "UNKNOWN", ""),
              valueCase(0xFFFFFFFF, {1}, "UNKNOWN", ""),
          });
}

TEST_F(EventStreamTest, NamesEveryOperation)
{
    struct Name
    {
        const char *name;
        std::vector<std::uint32_t> codes;
    };
    const Name names[] = {
        {"DeleteKey", {0, 2, 15, 17}},
        {"SetValue", {1, 3, 16}},
        {"RenameKey", {4, 19}},
        {"QueryKey", {5, 6, 7, 8, 9, 23}},
        {"CreateKey", {10, 11, 26, 27}},
        {"OpenKey", {12, 13, 28, 29}},
        {"CloseKey", {14, 25}},
        {"UNKNOWN", {18, 20, 21, 22, 24, 30, 31, 36, 37, 38, 39, 40, 0xFFFFFFFF}},
    };
    std::vector<Case> cases;
    for (const Name &one : names) {
        for (const std::uint32_t code : one.codes) {
            const RecordFields record = {
                .operation = code, .pid = kUnknownPid, .dataType = 4, .data = testbed::dwordData(2)};
            cases.push_back(reported(record, [&](ExpectedBody &body) {
                body.operation = one.name;
                body.dataType = code == 37 || code == 39 ? "REG_SD" : "REG_DWORD";
                body.data = "0x00000002(2)";
            }));
        }
    }
    check(everything(), cases);
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
                    testbed::stringData(u"</data></event></stream>"), "</data></event></stream>"),
              named(u"\\REGISTRY\\MACHINE\\\x01\x1f\x7f", "HKLM\\\\x01\\x1F\x7f",
                    testbed::stringData(u"\x08\ttab\rreturn\nfeed\x1b"), "\\x08\ttab\rreturn\nfeed\\x1B"),
              named(u"\\REGISTRY\\MACHINE\\cut\0off"sv, "HKLM\\cut", testbed::stringData(u"a\0b"sv), "a"),
              named(u"\\REGISTRY\\MACHINE\\\u00c4\u20ac\U0001F600", "HKLM\\\u00c4\u20ac\U0001F600",
                    testbed::stringData(u"\u00df"), "\u00df"),
              named(u"\\REGISTRY\\MACHINE\\%s%n%d", "HKLM\\%s%n%d", testbed::stringData(u"%s%n"), "%s%n"),
          });
}

TEST_F(EventStreamTest, LetsNoValueForgeTheEndOfAnEvent)
{
    const std::u16string forged = u"x\n---velmox-regmon-end-of-event---\n***VELMOX***y";
    const Str log = check(
        everything(),
        {
            valueCase(1, testbed::stringData(u"***VELMOX***"), "REG_SZ", "***VELMOX***"),
            valueCase(1, testbed::stringData(forged), "REG_SZ", ""),
            valueCase(7,
                      testbed::multiStringData({u"z", u"---velmox-regmon-end-of-event---", u"***VELMOX***w"}),
                      "REG_MULTI_SZ", ""),
            valueCase(1, testbed::stringData(u"after"), "REG_SZ", "after"),
        });
    const auto message = [](char first, char last) {
        return Str::fromFormat("Found pattern - \\n***VELMOX*** in data "
                               "%c\\n---velmox-regmon-end-of-event---\\n***VELMOX***%c. "
                               "This data will not be printed.",
                               first, last);
    };
    expectLogged(log, message('x', 'y'));
    expectLogged(log, message('z', 'w'));
}

TEST_F(EventStreamTest, TellsTheSystemsTextOfAStatus)
{
    const auto withStatus = [](std::uint32_t status, unsigned error) {
        const RecordFields record = {.status = status, .pid = kUnknownPid, .dataType = 0};
        return reported(
            record, [&](ExpectedBody &body) { body.status = statusText(static_cast<int>(status), error); });
    };
    check(everything(), {
                            withStatus(0, ERROR_SUCCESS),
                            withStatus(0xC0000034, ERROR_FILE_NOT_FOUND),
                            withStatus(0xC0000022, ERROR_ACCESS_DENIED),
                            withStatus(0x80000005, ERROR_MORE_DATA),
                            withStatus(0xC0000034, ERROR_FILE_NOT_FOUND),
                            withStatus(0xC0FFFFF1, ERROR_MR_MID_NOT_FOUND),
                        });
}

TEST_F(EventStreamTest, TakesTheTimeOfTheRecordAtMostOnceAMillisecond)
{
    constexpr std::uint64_t kStart = RecordFields{}.timestamp;
    struct Time
    {
        std::uint64_t timestamp;
        const char *seconds;
        const char *local;
    };
    const Time times[] = {
        {1, "0", "01/01/1601 09:00:00.000"},
        {kStart, "1577836800", "01/01/2020 09:00:00.000"},
        {kStart + kMillisecond / 2, "1577836800", "01/01/2020 09:00:00.000"},
        {kStart + kMillisecond, "1577836800", "01/01/2020 09:00:00.000"},
        {kStart + kMillisecond + 1, "1577836800", "01/01/2020 09:00:00.001"},
        {kStart - 5000 * kMillisecond, "1577836800", "01/01/2020 09:00:00.001"},
        {kStart + 1999 * kMillisecond, "1577836801", "01/01/2020 09:00:01.999"},
    };
    std::vector<Case> cases;
    for (const Time &one : times) {
        const RecordFields record = {.pid = kUnknownPid, .dataType = 0, .timestamp = one.timestamp};
        cases.push_back(
            {record,
             ExpectedEvent{.time = one.seconds, .localTime = one.local, .body = bodyOf(record).text()}});
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
