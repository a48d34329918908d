#include "pipeline/input/baseline/baseline_scan.h"
#include "tests/pipeline/input/registry/registry_test_key.h"
#include "tests/pipeline/input/rules/stanzas.h"
#include "util/files/file_star.h"

namespace velmox {
namespace {

/// Baselines of a key with one value and two sub keys with one each. The stanzas know the current user by
/// another name, so that the tests see which root a walk began at.
class BaselineScanTest : public ::testing::Test
{
protected:
    BaselineScanTest()
    {
        key_.setNumber(u"", u"v", 7);
        key_.setNumber(u"Sub", u"w", 1);
        key_.setNumber(u"Sub2", u"x", 2);
    }

    /// A hive pattern for what `below` says of the key, under a root.
    Str pattern(const char *root, const char *below) const
    {
        Str text = Str::fromFormat("%s\\%s%s", root, Str::fromUtf16(key_.path()).c_str(), below);
        text.replaceAll("\\", "\\\\");
        return text;
    }

    /// Takes stanzas of these names and patterns; each has its name as its index.
    void configure(const std::vector<std::pair<Str, Str>> &stanzas)
    {
        for (const auto &[name, hive] : stanzas) {
            set_.add(Str::concat("WinRegMon://", name), {{"hive", hive}, {"baseline", "1"}, {"index", name}});
        }
        rules_.insert(kRegmonFilters, set_.group());
    }

    /// Scans, and keeps the stream and what it reports: "stanza key_path" from the test's key on.
    bool establish(MonitorRules &rules)
    {
        events_.clear();
        const FileStar out = FileStar::tempFile();
        EventEmitter emitter([this](const Str &text) { onEvent_(text); }, out.get());
        BaselineCheckPoint checkpoint;
        checkpoint.setDirectory(folder_.path().concat("\\"));
        const bool isDone = BaselineScan(rules, set_.hives, checkpoint, emitter, stop_).establishBaseline();
        std::rewind(out.get());
        stream_.clear();
        for (int byte = 0; (byte = std::getc(out.get())) != EOF;) {
            stream_ += static_cast<char>(byte);
        }
        for (std::size_t at = 0; (at = stream_.find("<event", at)) != Str::npos; ++at) {
            events_.push_back(between("stanza=\"", "\"", at)
                                  .append(" ")
                                  .append(between("<index>", "<", at))
                                  .append(" ")
                                  .append(between("key_path=&quot;", "&quot;", at)));
        }
        return isDone;
    }
    Str between(const char *before, const char *after, std::size_t from) const
    {
        const std::size_t end = stream_.find("</event>", from);
        const std::size_t at = stream_.find(before, from);
        const std::size_t start = at + std::strlen(before);
        return at < end ? stream_.substr(start, stream_.find(after, start) - start) : Str();
    }
    /// An event of a value below the key, from a root as the walk spells it.
    Str event(const char *stanza, const char *root, const char *below) const
    {
        return Str::fromFormat("%s %s %s\\%s%s", stanza, stanza, root,
                               Str::fromUtf16(key_.path()).uppered().c_str(), below);
    }

    const RegistryTestKey key_;
    const testing::ScopedFolder folder_;
    testing::StanzaSet set_;
    MonitorRules rules_;
    StopFlag stop_;
    std::function<void(const Str &)> onEvent_ = [](const Str &) {};
    Str stream_;
    StrVector events_;
};

constexpr char kUser[] = "\\REGISTRY\\USER\\S-1-5-21-7";

TEST_F(BaselineScanTest, EachStanzaReportsItsOwnTree)
{
    const CapturedLog log;
    configure({{"a", pattern("HKCU", "\\Sub\\.*")}, {"b", pattern("HKCU", "\\Sub2\\.*")}});
    EXPECT_TRUE(establish(rules_));
    EXPECT_THAT(events_, ElementsAre(event("a", kUser, "\\SUB\\w"), event("b", kUser, "\\SUB2\\x")));
    EXPECT_TRUE(stream_.contains("data_type=&quot;REG_DWORD&quot;\ndata=&quot;0x00000001(1)&quot;</data>\n"));
}

TEST_F(BaselineScanTest, APatternWithoutABeginningStartsNoWalkAndMatchesWhatOthersMeet)
{
    const CapturedLog log;
    configure({{"all", ".*"}, {"few", pattern("HKCU", "\\Sub\\.*nothing")}});
    EXPECT_TRUE(establish(rules_));
    EXPECT_THAT(events_, ElementsAre(event("all", kUser, "\\SUB\\w")));
}

TEST_F(BaselineScanTest, WalksFromTheRootThatThePatternNames)
{
    const CapturedLog log;
    WideStr name;
    ASSERT_TRUE(queryName(findNtQueryObject(), key_.create(u"").get(), name));
    const Str users = Str::fromUtf16(name.substr(0, name.size() - key_.path().size() - 1));
    const Str user = users.substr(users.view().rfind('\\'));
    const auto value = [this](LSTATUS (*call)(HKEY, const wchar_t *)) {
        return call(HKEY_CURRENT_CONFIG, asWide(key_.path()));
    };
    value([](HKEY root, const wchar_t *path) { return RegSetKeyValueW(root, path, L"v", REG_SZ, L"", 2); });
    configure({{"of-user", pattern(Str::concat("HKU", user).c_str(), "\\Sub\\.*")},
               {"of-config", pattern("HKEY_CURRENT_CONFIG", "\\.*")}});
    EXPECT_TRUE(establish(rules_));
    value([](HKEY root, const wchar_t *path) { return RegDeleteTreeW(root, path); });
    EXPECT_THAT(
        events_,
        UnorderedElementsAre(
            event("of-user", Str::concat("\\REGISTRY\\USER", user.uppered()).c_str(), "\\SUB\\w"),
            event("of-config", "\\REGISTRY\\MACHINE\\SYSTEM\\CURRENTCONTROLSET\\HARDWARE PROFILES\\CURRENT",
                  "\\v")))
        << stream_.c_str() << log.text().c_str();
}

TEST_F(BaselineScanTest, TheTimeOfAnEventIsWhenItsKeyWasWritten)
{
    const CapturedLog log;
    static FILETIME written;
    const ReplacedCall info(
        "RegQueryInfoKeyA", +[](HKEY key, char *, DWORD *, DWORD *, DWORD *keys, DWORD *keyName, DWORD *,
                                DWORD *values, DWORD *valueName, DWORD *data, DWORD *, FILETIME *time) {
            const LSTATUS result = RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, keys, keyName, nullptr,
                                                    values, valueName, data, nullptr, nullptr);
            *time = written;
            return result;
        });
    configure({{"a", pattern("HKCU", "\\Sub\\.*")}});
    written = {0x69050000, 0x01D5C036};
    EXPECT_TRUE(establish(rules_));
    EXPECT_EQ(between("<time>", "<", 0), "1577836800");
    // A key that does not tell was written now.
    written = {};
    DeleteFileW(asWide(folder_ / "comleted"));
    const long long before = secondsSinceEpoch();
    EXPECT_TRUE(establish(rules_));
    EXPECT_GE(between("<time>", "<", 0).toInt64(0, 10), before);
}

TEST_F(BaselineScanTest, AStopEndsTheWalkBehindTheKeyAtHandAndItCountsAsDone)
{
    const CapturedLog log;
    configure({{"a", pattern("HKCU", "\\.*")}});
    onEvent_ = [this](const Str &) { stop_.set(); };
    EXPECT_TRUE(establish(rules_));
    EXPECT_THAT(events_, ElementsAre(event("a", kUser, "\\v")));
    EXPECT_EQ(testing::readWhole(folder_ / "comleted"), "1");
}

TEST_F(BaselineScanTest, ATreeThatCannotBeReadIsTold)
{
    configure({{"x", pattern("HKCU", "\\.*")}});
    const CapturedLog log;
    EXPECT_TRUE(
        whileFailing({"RegOpenKeyExW", ERROR_ACCESS_DENIED, 0}, [this] { return establish(rules_); }));
    EXPECT_THAT(events_, IsEmpty());
    EXPECT_TRUE(log.text().contains("Failed to enumerate registry for baselining: "
                                    "hkey='\\REGISTRY\\USER\\S-1-5-21-7' start_point='\\SOFTWARE\\"))
        << log.text().c_str();
    EXPECT_EQ(testing::readWhole(folder_ / "comleted"), "<unreadable>");
}

TEST_F(BaselineScanTest, ACheckpointSaysWhetherItIsDue)
{
    const ReplacedCall clock(
        "GetSystemTimeAsFileTime", +[](FILETIME *time) {
            *time = {0, 30'800'000};
        });
    configure({{"x", pattern("HKCU", "\\Sub\\.*")}});
    const Str finalPattern = rules_.group(kRegmonFilters)->configs[0].hive.pattern();
    const auto ago = [](long long seconds) { return Str::fromFormat("%lld", secondsSinceEpoch() - seconds); };
    const FileTree fresh = {{"filter_x", finalPattern}, {"comleted", "1"}, {"last_time_run", ago(0)}};
    const struct
    {
        const char *name; // of the file that is not as after a walk; nothing for none
        Str content;
        bool isDue;
    } rows[] = {
        {"filter_x", Str::concat(finalPattern, "\r\nmore"), false},
        {"filter_x", "x", true},
        {"comleted", "maybe", false},
        {"comleted", "0", true},
        {"last_time_run", "soon", true},
        {"last_time_run", ago(86400), true},
        {"last_time_run", ago(86399), false},
    };
    const CapturedLog log;
    for (const auto &row : rows) {
        FileTree files = fresh;
        files[row.name] = row.content;
        testing::writeTree(folder_.path(), files);
        if (row.content.empty()) {
            DeleteFileW(asWide(folder_ / row.name));
        }
        EXPECT_TRUE(establish(rules_));
        EXPECT_EQ(events_.size(), row.isDue ? 1u : 0u) << &row - rows;
        // The first pattern stays, or an operator could not tell that it has changed.
        EXPECT_EQ(testing::readWhole(folder_ / "filter_x"),
                  files["filter_x"].empty() ? finalPattern : files["filter_x"]);
    }
}

TEST_F(BaselineScanTest, FailsAsAWholeWithoutRulesOrAPlaceForItsEvents)
{
    const CapturedLog log;
    MonitorRules none;
    EXPECT_FALSE(establish(none));
    configure({{"x", pattern("HKCU", "\\.*")}});
    onEvent_ = [](const Str &) { throw std::runtime_error("no more events"); };
    EXPECT_FALSE(establish(rules_));
    for (const char *line :
         {"INFO velmox-regmon: WinRegistryMonitor::processHivePaths: regmon-filters has been turned off, or "
          "no "
          "configuration file was found\n",
          "ERROR velmox-regmon: WinRegistryMonitor::establishBaseline: Failed to process filter hive paths\n",
          "establishBaseline: Failed to establish baseline: 'no more events'\n"}) {
        EXPECT_TRUE(log.text().contains(line)) << line;
    }
    EXPECT_EQ(testing::readWhole(folder_ / "comleted"), "<unreadable>");
}

} // namespace
} // namespace velmox
