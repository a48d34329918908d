#include "pipeline/input/event_filters.h"

#include <gtest/gtest.h>
#include <random>

using namespace velmox;

namespace {

TEST(RegMonEventFilter, JudgesTypeProcessAndPath)
{
    struct Case
    {
        const char *proc;
        const char *hive;
        const char *type;
        SysMonFilterableEvent event;
        bool matches;
    };
    const Case cases[] = {
        {".*", R"(\\registry\\user\\.*)", "set", {"p", R"(\registry\user\s-1-5-18\x)", "set"}, true},
        {".*", R"(\\registry\\user\\.*)", "set", {"p", R"(\registry\user)", "set"}, false},
        {".*", R"(\\REGISTRY\\User\\.*)", "SET", {"p", R"(\registry\user\x)", "set"}, true},
        {".*", R"(\\registry)", "set", {"p", R"(\registry\user)", "set"}, false},
        {".*", ".*", "set", {"", "x", "reset"}, true},
        {".*", ".*", "^set$", {"", "x", "reset"}, false},
        {"reg", ".*", "set", {R"(c:\regedit.exe)", "x", "set"}, true},
        {"[^\\x00-\\xff]", ".*", "set", {R"(c:\regedit.exe)", "x", "set"}, false},
        // Folding turns the class of non-blanks into the class of blanks.
        {".*", R"(A\S+)", "set", {"", "a  ", "set"}, true},
        {".*", R"(A\S+)", "set", {"", "abc", "set"}, false},
        {".*", "\xC3\x84.", "set", {"", "\xC3\xA4\xC3\xB6", "set"}, true},
        // Process events have no path.
        {".*", ".*", "image", {"p", "", "image"}, true},
        {".*", "x+", "image", {"p", "", "image"}, false},
        {"", ".*", "", {"p", "x", "set"}, true},
    };
    for (const Case &c : cases) {
        RegMonEventFilter filter("f", c.proc, c.hive, c.type);
        EXPECT_EQ(filter.matches(c.event), c.matches)
            << c.hive << " " << c.type << " on " << c.event.keyPath.c_str() << " " << c.event.type.c_str();
    }
}

TEST(RegMonEventFilter, PassesAPathThatIsThePatternItself)
{
    RegMonEventFilter filter("f", ".*", R"(\\Registry\\x+)", ".*");
    EXPECT_TRUE(filter.matches({"", R"(\\registry\\x+)", "set"}));
    EXPECT_TRUE(filter.matches({"", R"(\registry\xx)", "set"}));
    EXPECT_FALSE(filter.matches({"", R"(\registry\x+)", "set"}));
    EXPECT_THROW(RegMonEventFilter("f", ".*", "[x", ".*"), RegexException);
}

/// A stanza's patterns, and their verdict by regexes that are compiled for each event.
struct Stanza
{
    Str proc, hive, type;

    bool matches(const SysMonFilterableEvent &event) const
    {
        const auto fresh = [](const Str &pattern) {
            Regex regex;
            regex.compile(pattern.lowered(), false, 0);
            return regex;
        };
        return fresh(type).match(event.type) && fresh(proc).match(event.process) &&
               (hive.lowered() == event.keyPath || fresh(hive).match(event.keyPath, nullptr, false, true));
    }
};

class Dice
{
public:
    explicit Dice(unsigned seed) : engine_(seed) {}
    std::size_t below(std::size_t limit) { return engine_() % limit; }
    template <std::size_t N>
    Str oneOf(const char *const (&texts)[N])
    {
        return texts[below(N)];
    }

private:
    std::mt19937 engine_;
};

Stanza randomStanza(Dice &dice)
{
    static constexpr const char *kProcs[] = {
        ".*", "explorer", R"(\\device\\.*\\SVC.*\.exe$)", "^$", "a|b", R"(\.exe)", "nothing"};
    static constexpr const char *kHives[] = {".*",
                                             R"(\\REGISTRY\\MACHINE\\.*)",
                                             R"(\\registry\\user\\[^\\]+\\software.*)",
                                             R"(\\registry\\machine\\soft\\?([^\\]+){0,1})",
                                             R"(\registry\machine\exact)",
                                             ".*run(once)?",
                                             "\\S+x"};
    static constexpr const char *kTypes[] = {
        "rename|set|delete|create", "set", ".*", "^create$", "e", "query", "x"};
    return {dice.oneOf(kProcs), dice.oneOf(kHives), dice.oneOf(kTypes)};
}

SysMonFilterableEvent randomEvent(Dice &dice)
{
    static constexpr const char *kImages[] = {"", R"(\device\hd1\windows\explorer.exe)",
                                              R"(\device\hd1\svchost.exe)", R"(\device\hd1\b)", "system"};
    static constexpr const char *kRoots[] = {R"(\registry\machine\)", R"(\registry\user\s-1-5-18\)", "",
                                             R"(\\registry\\machine\\)"};
    static constexpr const char *kRests[] = {"software\\run", "software", "exact", ".*", " x",
                                             "soft\\a\\b",    ""};
    static constexpr const char *kWords[] = {"set",  "create", "delete", "rename",
                                             "open", "query",  "close",  "unknown"};
    return {dice.oneOf(kImages), Str::concat(dice.oneOf(kRoots), dice.oneOf(kRests)), dice.oneOf(kWords)};
}

// The list may look at its filters in any order and remember what it likes: verdicts are those of a plain OR,
// and the counters are those of the order in force.
TEST(SysMonEventFilterList, JudgesLikeAPlainOrAcrossResorts)
{
    for (unsigned seed = 1; seed <= 3; ++seed) {
        Dice dice(seed);
        std::map<Str, Stanza> stanzas;
        SysMonEventFilterList list;
        for (std::size_t i = 0, count = 1 + dice.below(8); i < count; ++i) {
            const Str name = Str::fromFormat("stanza-%u", static_cast<unsigned>(i));
            const Stanza stanza = randomStanza(dice);
            stanzas[name] = stanza;
            list.addFilter(new RegMonEventFilter(name, stanza.proc, stanza.hive, stanza.type), true);
        }
        std::vector<SysMonFilterableEvent> events;
        std::map<Str, std::vector<bool>> verdicts;
        for (int i = 0; i < 500; ++i) {
            events.push_back(randomEvent(dice));
            for (const auto &[name, stanza] : stanzas) {
                verdicts[name].push_back(stanza.matches(events.back()));
            }
        }
        std::map<Str, std::pair<std::uint64_t, std::uint64_t>> expected;
        for (int call = 1; call <= 35000; ++call) {
            const std::size_t at = dice.below(events.size());
            const bool verdict = list.matches(events[at]);
            if (call % 10001 == 0) {
                const auto &sorted = list.filters();
                ASSERT_TRUE(std::is_sorted(sorted.begin(), sorted.end(), [&](auto *a, auto *b) {
                    const auto ratio = [&](const Str &name) {
                        const auto &[hits, checks] = expected[name];
                        return checks == 0 ? -1.0 : static_cast<double>(hits) / static_cast<double>(checks);
                    };
                    return ratio(a->name) > ratio(b->name);
                }));
            }
            bool any = false;
            for (auto filter = list.filters().begin(); !any && filter != list.filters().end(); ++filter) {
                auto &[hits, checks] = expected[(*filter)->name];
                any = verdicts[(*filter)->name][at];
                hits += any;
                ++checks;
            }
            ASSERT_EQ(verdict, any) << "seed " << seed << ", call " << call;
        }
        for (const auto *filter : list.filters()) {
            EXPECT_EQ(filter->hits, expected[filter->name].first) << filter->name.c_str();
            EXPECT_EQ(filter->checks, expected[filter->name].second) << filter->name.c_str();
        }
    }
}

} // namespace
