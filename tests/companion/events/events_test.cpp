#include "companion/events/baseline.h"
#include "companion/events/event_filter.h"
#include "companion/events/event_json.h"
#include "companion/events/event_table.h"
#include "tests/companion/stream/event_samples.h"

#include <stdexcept>

namespace velmox {
namespace {

std::string json(const std::string &data)
{
    std::string out;
    withEvent(eventOf(data), [&](const StreamEvent &event) {
        EventFields fields;
        fields.read(event);
        EventJson().append(fields, out);
    });
    return out;
}

TEST(EventJson, HasTheFieldsOfALiveEvent)
{
    EXPECT_EQ(json(liveData("HKLM\\Software\\Vendor\\Limit", "REG_DWORD", "0x0000002a(42)")),
              R"({"@timestamp":"2026-11-21T06:51:16.514Z","ecs":{"version":"8.11.0"},)"
              R"("event":{"kind":"event","category":["registry"],"type":["change"],"action":"SetValue",)"
              R"("outcome":"success","code":"0"},"message":"Success.",)"
              R"("process":{"pid":252,"executable":"c:\\windows\\regedit.exe","name":"regedit.exe"},)"
              R"("registry":{"path":"HKLM\\Software\\Vendor\\Limit","hive":"HKLM","key":"Software\\Vendor",)"
              R"("value":"Limit","data":{"type":"REG_DWORD","strings":["42"]}},)"
              R"("labels":{"stanza":"s","index":"i"}})"
              "\n");
}

TEST(EventJson, HasTheFieldsOfABaseline)
{
    EXPECT_EQ(json(baselineData("\\REGISTRY\\MACHINE\\SOFTWARE\\Birds", "REG_MULTI_SZ", "finch\nwren")),
              R"({"@timestamp":"2026-11-21T06:51:16.514Z","ecs":{"version":"8.11.0"},)"
              R"("event":{"kind":"state","category":["registry"],"type":["info"],"action":"baseline"},)"
              R"("registry":{"path":"\\REGISTRY\\MACHINE\\SOFTWARE\\Birds","hive":"HKLM","key":"SOFTWARE",)"
              R"("value":"Birds","data":{"type":"REG_MULTI_SZ","strings":["finch","wren"]}},)"
              R"("labels":{"stanza":"s","index":"i"}})"
              "\n");
}

/// One field of an event, its texts with bars between.
std::string field(const std::string &data, Field which)
{
    std::string out;
    withEvent(eventOf(data), [&](const StreamEvent &event) {
        EventFields fields;
        fields.read(event);
        for (const std::string_view text : fields.texts(which)) {
            out.append(out.empty() ? "" : "|").append(text);
        }
    });
    return out;
}

TEST(EventFields, FollowTheOperation)
{
    struct Row
    {
        const char *operation;
        const char *type;
        const char *value;
    };
    for (const Row &row :
         {Row{"SetValue", "change", "v"}, Row{"CreateKey", "creation", ""}, Row{"OpenKey", "access", ""},
          Row{"CloseKey", "access", ""}, Row{"QueryKey", "access", "v"}, Row{"DeleteKey", "deletion", "v"},
          Row{"RenameKey", "change", ""}, Row{"UNKNOWN", "", ""}}) {
        SCOPED_TRACE(row.operation);
        const std::string data = liveData("HKCU\\k\\v", "REG_SZ", "", row.operation);
        EXPECT_EQ(field(data, Field::Type), row.type);
        EXPECT_EQ(field(data, Field::Value), row.value);
        EXPECT_EQ(field(data, Field::Key), *row.value == '\0' ? "k\\v" : "k");
    }
    EXPECT_EQ(field(liveData("HKU\\k", "REG_NONE", "", "DeleteKey"), Field::Value), "");
}

TEST(EventFields, KnowTheHivesInBothForms)
{
    const auto split = [](const std::string &path) {
        const std::string data = baselineData(path, "REG_NONE", "");
        return field(data, Field::Hive) + "|" + field(data, Field::Key) + "|" + field(data, Field::Value);
    };
    EXPECT_EQ(split("\\Registry\\User\\S-1-5\\x\\"), "HKU|S-1-5\\x|");
    EXPECT_EQ(split("\\REGISTRY\\MACHINE\\SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current\\a\\b"),
              "HKCC|a|b");
    EXPECT_EQ(split("\\REGISTRY\\MACHINES\\a\\b"), "|\\REGISTRY\\MACHINES\\a|b");
    EXPECT_EQ(split("HKCC\\v"), "HKCC||v");
    EXPECT_EQ(split("HKLMX\\v"), "|HKLMX|v");
}

TEST(EventFields, TellOfProcesses)
{
    const std::string start = R"({"@timestamp":"2026-11-21T06:51:16.514Z","ecs":{"version":"8.11.0"},)"
                              R"("event":{"kind":"event","category":["process"],"type":[")";
    const std::string end = R"("labels":{"stanza":"s","index":"i"}})"
                            "\n";
    const std::string parent = "parent_pid=4\nparent_process_image=\"c:\\x\"\npid=252\nprocess_image=\"";
    EXPECT_EQ(json(processData(parent + "N/A\"\nregistry_type=\"ProcessCreated\"\nuser=\"D\\me \"you\"\"")),
              start + R"(start"],"action":"ProcessCreated"},"process":{"pid":252,"parent":{"pid":4}},)" +
                  R"("user":{"name":"D\\me \"you\""},)" + end);
    EXPECT_EQ(json(processData(parent + "c:\\a.exe\"\nregistry_type=\"ProcessExited\"")),
              start + R"(end"],"action":"ProcessExited"},"process":{"pid":252,)" +
                  R"("executable":"c:\\a.exe","name":"a.exe","parent":{"pid":4}},)" + end);
    const std::string image =
        processData("pid=252\nprocess_image=\"c:\\a.exe\"\nimage_path=\"c:\\b.dll...\"\n"
                    "registry_type=\"ProcessImage\"");
    EXPECT_EQ(json(image), start + R"(info"],"action":"ProcessImage"},"process":{"pid":252,)" +
                               R"("executable":"c:\\a.exe","name":"a.exe"},)" +
                               R"("dll":{"path":"c:\\b.dll...","name":"b.dll..."},)" + end);
    StreamEvent event;
    for (const std::string &wrong : {parent + "a\"\nregistry_type=\"ProcessCreated\"",
                                     parent + "a\"\nregistry_type=\"ProcessGone\"", image.substr(24) + "x"}) {
        EXPECT_FALSE(readEventData(processData(wrong), event)) << wrong;
    }
}

TEST(EventFields, LeaveOutWhatAnEventDoesNotTell)
{
    std::string data = liveData("k", "REG_QWORD", "0xffffffffffffffff(-1)");
    EXPECT_EQ(field(data, Field::Strings), "-1");
    data.replace(data.find("(0)Success."), 11, "(-1073741790)Access denied (5).");
    data.replace(data.find("c:\\windows\\regedit.exe"), 22, "N/A");
    EXPECT_EQ(field(data, Field::Outcome), "failure");
    EXPECT_EQ(field(data, Field::Code), "-1073741790");
    EXPECT_EQ(field(data, Field::Message), "Access denied (5).");
    EXPECT_EQ(field(data, Field::Executable) + field(data, Field::ProcessName), "");
    data.replace(data.find("(-1073741790)Access denied (5)."), 31, "N/A");
    EXPECT_EQ(field(data, Field::Outcome) + "|" + field(data, Field::Code), "unknown|");
    EXPECT_EQ(json(baselineData("HKLM\\a", "REG_MULTI_SZ", "")).find("strings"), std::string::npos);
    EXPECT_NE(json(baselineData("HKLM\\a", "REG_SZ", "")).find("\"strings\":[\"\"]"), std::string::npos);
}

bool accepts(const std::vector<std::string> &conditions, const std::string &data)
{
    EventFilter filter;
    for (const std::string &condition : conditions) {
        filter.add(condition);
    }
    bool isAccepted = false;
    withEvent(eventOf(data), [&](const StreamEvent &event) {
        EventFields fields;
        fields.read(event);
        isAccepted = filter.accepts(fields);
    });
    return isAccepted;
}

TEST(EventFilter, SearchesWithoutCaseAndWantsAll)
{
    const std::string data = baselineData("HKLM\\Software\\V", "REG_MULTI_SZ", "one\ntwo=3");
    EXPECT_TRUE(accepts({}, data));
    EXPECT_TRUE(accepts({"registry.path=software\\\\", "registry.data.strings=^TWO=3$"}, data));
    EXPECT_FALSE(accepts({"registry.path=software", "event.action=SetValue"}, data));
    EXPECT_FALSE(accepts({"process.name="}, data)) << "a field that is not there matches nothing";
    for (const char *wrong : {"registry.path", "path=x", "registry.path=("}) {
        EXPECT_THROW(EventFilter().add(wrong), std::invalid_argument) << wrong;
    }
}

TEST(EventFilter, KeepsAnEventWhereThePatternTakesTooManySteps)
{
    const std::string condition = "registry.key=^((a+)+)+$";
    EventFilter filter;
    filter.add(condition);
    withEvent(eventOf(liveData("HKLM\\" + std::string(60, 'a') + "!\\v", "REG_NONE", "")),
              [&](const StreamEvent &event) {
                  EventFields fields;
                  fields.read(event);
                  EXPECT_TRUE(filter.accepts(fields));
                  EXPECT_EQ(filter.takeGivenUp(), condition);
                  EXPECT_TRUE(filter.accepts(fields));
                  EXPECT_EQ(filter.takeGivenUp(), std::nullopt) << "told once";
              });
}

std::string table(const std::string &data, TableStyle style)
{
    std::string out;
    withEvent(eventOf(data), [&](const StreamEvent &event) {
        EventFields fields;
        fields.read(event);
        EventTable(style).append(event, fields, out);
    });
    return out;
}

TEST(EventTable, IsCutForATerminalAlone)
{
    const std::string good = liveData("HKLM\\" + std::string(40, 'k') + "\\end\\V", "REG_SZ", "x\ny");
    EXPECT_EQ(table(good, {}), "2026-11-21 06:51:16.514\tSetValue\tregedit.exe\tHKLM\\" +
                                   std::string(40, 'k') + "\\end\tV = x\\ny\ts\n");
    EXPECT_EQ(table(good, {.width = 80}), "06:51:16.514 SetValue  regedit.exe    \xE2\x80\xA6" +
                                              std::string(13, 'k') + "\\end V = x\\ny     s\n");
    EXPECT_EQ(table(good, {.width = 80, .isColoured = true}).find("\x1B[33mSetValue "), 13U);
}

std::string cell(std::string_view text, unsigned width, bool atStart = false)
{
    std::string out;
    appendCell(text, width, atStart, true, out);
    return out;
}

TEST(CellText, CountsColumnsAndShowsNoControls)
{
    EXPECT_EQ(cell("ab", 4), "ab  ");
    EXPECT_EQ(cell("abcde", 4), "abc\xE2\x80\xA6");
    EXPECT_EQ(cell("abcde", 4, true), "\xE2\x80\xA6"
                                      "cde");
    EXPECT_EQ(cell("\xE6\xBC\xA2\xE5\xAD\x97", 5), "\xE6\xBC\xA2\xE5\xAD\x97 ");
    EXPECT_EQ(cell("\xE6\xBC\xA2\xE5\xAD\x97", 3), "\xE6\xBC\xA2\xE2\x80\xA6");
    EXPECT_EQ(cell("e\xCC\x81", 2), "e\xCC\x81 ");
    EXPECT_EQ(cell("\x1B[31m\xE2\x80\xAE\t", 20), "\\x1B[31m\\u202E\\t    ");
    EXPECT_EQ(cell("\xC2\x9B", 6), "\\x9B  ");
}

void addAll(Baseline &baseline, const std::string &bytes)
{
    StreamReader reader(
        [&](const StreamEvent &event) { baseline.add(event, !event.keyPath.ends_with("unwanted")); },
        [](std::uint64_t, std::string_view what) { ADD_FAILURE() << what; });
    reader.feed(bytes);
    reader.finish();
}

TEST(Baseline, ComparesTheLastOneOfEachInput)
{
    const auto value = [](const std::string &path, const std::string &type, const std::string &data) {
        return eventOf(baselineData(path, type, data));
    };
    Baseline oldOne;
    addAll(oldOne, "<stream>" + value("HKLM\\gone\\long\\ago", "REG_SZ", "") + "</stream><stream>" +
                       value("\\REGISTRY\\MACHINE\\A\\same", "REG_SZ", "x") +
                       value("HKLM\\c", "REG_SZ", "y") + value("HKLM\\b", "REG_DWORD", "0x00000001(1)") +
                       eventOf(liveData("HKLM\\z", "REG_SZ", "z")));
    Baseline newOne;
    addAll(newOne, value("HKLM\\a\\SAME", "REG_SZ", "x") + value("HKLM\\B", "REG_MULTI_SZ", "1\n2") +
                       value("HKLM\\d", "REG_SZ", "n"));
    std::string asJson;
    std::string asRows;
    Baseline::compare(oldOne, newOne, [&](const BaselineDifference &difference) {
        appendDifferenceJson(difference, asJson);
        appendDifferenceRow(difference, {}, asRows);
    });
    EXPECT_EQ(asJson, R"({"change":"changed","path":"HKLM\\B","old":{"type":"REG_DWORD","strings":["1"]},)"
                      R"("new":{"type":"REG_MULTI_SZ","strings":["1","2"]}})"
                      "\n"
                      R"({"change":"removed","path":"HKLM\\c","old":{"type":"REG_SZ","strings":["y"]}})"
                      "\n"
                      R"({"change":"added","path":"HKLM\\d","new":{"type":"REG_SZ","strings":["n"]}})"
                      "\n");
    EXPECT_EQ(asRows, "changed\tHKLM\\B\tREG_DWORD 0x00000001(1)\tREG_MULTI_SZ 1\\n2\n"
                      "removed\tHKLM\\c\tREG_SZ y\t\n"
                      "added\tHKLM\\d\t\tREG_SZ n\n");
}

/// The differences of two inputs, as rows.
std::string differences(const std::string &oldBytes, const std::string &newBytes)
{
    Baseline oldOne;
    Baseline newOne;
    addAll(oldOne, oldBytes);
    addAll(newOne, newBytes);
    std::string rows;
    oldOne.compareStanzas(newOne, [&](const std::string &name) { rows += "only old: " + name + "\n"; });
    Baseline::compare(oldOne, newOne, [&](const BaselineDifference &difference) {
        appendDifferenceRow(difference, {}, rows);
    });
    return rows;
}

std::string valueOf(const std::string &stanza, const std::string &path, const std::string &data = "x")
{
    std::string event = eventOf(baselineData(path, "REG_SZ", data));
    return event.replace(event.find("\"s\""), 3, '"' + stanza + '"');
}

TEST(Baseline, IsTheLastOneOfEachStanza)
{
    const std::string first = "<stream>" + valueOf("a", "HKLM\\a") + valueOf("a", "HKLM\\gone") +
                              valueOf("b", "HKLM\\b") + "</stream>";
    const std::string onlyA = "<stream>" + valueOf("a", "HKLM\\A") + "</stream>";
    EXPECT_EQ(differences(first, first + onlyA), "removed\tHKLM\\gone\tREG_SZ x\t\n");
    EXPECT_EQ(differences(first + onlyA, first), "added\tHKLM\\gone\t\tREG_SZ x\n");
    EXPECT_EQ(differences(first, onlyA),
              "only old: b\nremoved\tHKLM\\b\tREG_SZ x\t\nremoved\tHKLM\\gone\tREG_SZ x\t\n");
    // A value of two stanzas stays while one has it, and is as the later one of these has it.
    const std::string both =
        valueOf("b", "HKLM\\a", "of b") + valueOf("a", "HKLM\\A") + valueOf("b", "HKLM\\b");
    EXPECT_EQ(differences(both, both + "<stream>" + valueOf("b", "HKLM\\b") + "</stream>"), "");
    EXPECT_EQ(differences(both, both + "<stream>" + valueOf("a", "HKLM\\b") + "</stream>"),
              "changed\tHKLM\\a\tREG_SZ x\tREG_SZ of b\n");
}

TEST(Baseline, ComparesWhatIsSelectedOnEitherSide)
{
    EXPECT_EQ(differences(valueOf("a", "HKLM\\unwanted", "1"), valueOf("a", "HKLM\\unwanted", "2")), "");
    EXPECT_EQ(differences(valueOf("a", "HKLM\\Unwanted", "1"), valueOf("a", "HKLM\\unwanted", "2")),
              "changed\tHKLM\\unwanted\tREG_SZ 1\tREG_SZ 2\n");
}

} // namespace
} // namespace velmox
