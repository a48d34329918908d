#include "fuzz/fuzz_target.h"
#include "pipeline/input/rules/monitor_rules.h"

#include <memory>
#include <pcre.h>

namespace velmox::fuzz {
namespace {

constexpr unsigned kMostStanzas = 24;

/// A plain program, run by the interpreter.
class Plain
{
public:
    Plain(const Str &pattern, int options)
    {
        const char *error = nullptr;
        int offset = 0;
        code_ = pcre_compile(pattern.c_str(), options | PCRE_UTF8, &error, &offset, nullptr);
        require(code_ != nullptr, "a pattern compiles that was compiled before");
    }
    ~Plain() { pcre_free(code_); }
    Plain(const Plain &) = delete;
    Plain &operator=(const Plain &) = delete;

    /// `isSpent` is set when a limit was reached before the answer was known; it is never cleared.
    bool matches(const Str &text, bool isWhole, bool &isSpent) const
    {
        pcre_extra limits = {};
        limits.flags = PCRE_EXTRA_MATCH_LIMIT | PCRE_EXTRA_MATCH_LIMIT_RECURSION;
        limits.match_limit = 20000;
        limits.match_limit_recursion = 2000;
        int offsets[30];
        const int result =
            pcre_exec(code_, &limits, text.data(), static_cast<int>(text.size()), 0,
                      PCRE_NO_UTF8_CHECK | PCRE_NEWLINE_ANY | PCRE_BSR_UNICODE, offsets, std::size(offsets));
        isSpent = isSpent || result < PCRE_ERROR_NOMATCH;
        return result >= 0 && (!isWhole || offsets[1] - offsets[0] == static_cast<int>(text.size()));
    }

private:
    pcre *code_ = nullptr;
};

struct Patterns
{
    Str hive;
    Str proc;
    Str type;
};

/// The filter as its rules read, for the walk that lists do.
class PlainFilter : public AbstractFilter<SysMonFilterableEvent>
{
public:
    PlainFilter(const Str &filterName, const Patterns &patterns, bool &isSpent)
        : AbstractFilter(filterName), hive_(patterns.hive.lowered()),
          whole_(Str::concat(Str::concat("(?:", hive_), ")\\z"), PCRE_ANCHORED), search_(hive_, 0),
          proc_(patterns.proc.lowered(), 0), type_(patterns.type.lowered(), 0), isSpent_(isSpent)
    {
    }

    bool matches(const SysMonFilterableEvent &event) override
    {
        return type_.matches(event.type, false, isSpent_) && proc_.matches(event.process, false, isSpent_) &&
               (hive_.compareCaseless(event.keyPath) == 0 || whole_.matches(event.keyPath, true, isSpent_));
    }

    bool finds(const Str &path) const { return search_.matches(path, false, isSpent_); }
    std::size_t length() const { return hive_.size(); }

private:
    Str hive_;
    Plain whole_;
    Plain search_;
    Plain proc_;
    Plain type_;
    bool &isSpent_;
};

/// The same stanzas twice: as the monitor has them, and plainly.
class Twins
{
public:
    explicit Twins(unsigned resortInterval) : plain_(resortInterval, true), group_(resortInterval) {}

    void add(const Patterns &patterns)
    {
        const Str name = Str::fromFormat("%u", static_cast<unsigned>(filters_.size()));
        std::unique_ptr<RegMonEventFilter> own;
        SystemMonitoringConfig config;
        try {
            own = std::make_unique<RegMonEventFilter>(name, patterns.proc, patterns.hive, patterns.type);
            config.hive.compile(patterns.hive.lowered(), true, 0);
        } catch (const RegexException &) {
            return;
        }
        config.name = name;
        const Str wrapped = Str::fromFormat("(?:%s)\\z", patterns.hive.lowered().c_str());
        if (!compiles(wrapped)) {
            return;
        }
        filters_.push_back(new PlainFilter(name, patterns, isSpent_));
        plain_.addFilter(filters_.back(), true);
        group_.filters->addFilter(own.release(), true);
        group_.configs.push_back(std::move(config));
    }

    void judge(const SysMonFilterableEvent &event)
    {
        const bool plainly = plain_.matches(event);
        const SystemMonitoringConfig *config = group_.stanzaOf(event.keyPath);
        const PlainFilter *best = bestFor(event.keyPath);
        if (isSpent_) {
            return;
        }
        require(group_.filters->matches(event) == plainly, "the verdicts agree");
        require((config == nullptr) == (best == nullptr) && (best == nullptr || config->name == best->name),
                "the stanzas agree");
        compareFilters();
        ++comparisons;
    }

    /// Whether the plain programs came to a limit, which the others need not reach.
    bool isSpent() const { return isSpent_; }

private:
    struct Group : MonitorFilterGroup
    {
        explicit Group(unsigned resortInterval)
        {
            filters = std::make_unique<SysMonEventFilterList>(resortInterval);
        }
    };

    static bool compiles(const Str &pattern)
    {
        const char *error = nullptr;
        int offset = 0;
        pcre *code = pcre_compile(pattern.c_str(), PCRE_UTF8 | PCRE_ANCHORED, &error, &offset, nullptr);
        pcre_free(code);
        return code != nullptr;
    }

    const PlainFilter *bestFor(const Str &path) const
    {
        const PlainFilter *best = nullptr;
        for (const PlainFilter *filter : filters_) {
            if (filter->finds(path) && (best == nullptr || filter->length() > best->length())) {
                best = filter;
            }
        }
        return best;
    }

    void compareFilters() const
    {
        const auto &own = group_.filters->filters();
        const auto &plain = plain_.filters();
        require(own.size() == plain.size(), "both lists have all filters");
        for (std::size_t i = 0; i < own.size(); ++i) {
            require(own[i]->name == plain[i]->name, "the orders agree");
            require(own[i]->checks == plain[i]->checks && own[i]->hits == plain[i]->hits,
                    "the counters agree");
        }
    }

    bool isSpent_ = false;
    SmartFilterList<SysMonFilterableEvent> plain_;
    std::vector<PlainFilter *> filters_;
    Group group_;
};

/// Text from pieces of paths and patterns, chosen by the input's bytes.
template <std::size_t count>
Str textOf(Input &input, const char *const (&pieces)[count], unsigned most)
{
    Str text;
    for (unsigned left = input.choice(most + 1); left > 0; --left) {
        text += pieces[input.choice(count)];
    }
    return text;
}

constexpr const char *kHivePieces[] = {
    R"(\\registry\\machine\\)",
    R"(\\software)",
    R"(\\)",
    ".*",
    "run",
    "once",
    "(run|runonce)",
    R"([^\\]+)",
    R"(\\?([^\\]+){0,1})",
    "(",
    ")",
    "|",
    "?",
    "+",
    "*",
    "{2}",
    "a",
    "abcd",
    ".",
    "[a-d]",
    "^",
    "$",
    "\xC3\xA9",
    R"(\d)",
    R"(\S)",
    "(?:",
    "(?i)",
    "#",
    "(?x)",
    "\n",
    "\xC2\x85",
    "(?=",
    R"(\.)",
};
constexpr const char *kPathPieces[] = {
    R"(\registry\machine\)",
    R"(\software)",
    "\\",
    "run",
    "once",
    "runonce",
    "a",
    "abcd",
    "b",
    "\xC3\xA9",
    "\n",
    "7",
    "\xC2\x85",
    ".",
    " ",
    "\\\\",
    "",
};
constexpr const char *kProcesses[] = {"", "c:\\windows\\system32\\svchost.exe", "c:\\a.exe", "n/a"};
constexpr const char *kProcPatterns[] = {".*", ".*", "svchost", R"(c:\\.*\.exe$)", "^$", "[b-z]\\.exe"};
constexpr const char *kTypes[] = {"set", "create", "delete", "rename", "unknown"};
constexpr const char *kTypePatterns[] = {"set|create|delete|rename", "set", ".*", "e$", "^(create|set)$"};

} // namespace

/// Choices make up to two dozen stanzas, then events. The list's order is made anew every few events.
VELMOX_FUZZ_TARGET(verdict)
{
    Input input(bytes);
    Twins twins(input.choice(8));
    for (unsigned left = input.choice(kMostStanzas + 1); left > 0; --left) {
        const Str hive = textOf(input, kHivePieces, 8);
        twins.add({hive, kProcPatterns[input.choice(std::size(kProcPatterns))],
                   kTypePatterns[input.choice(std::size(kTypePatterns))]});
    }
    while (!input.empty() && !twins.isSpent()) {
        const Str path = textOf(input, kPathPieces, 10);
        twins.judge({kProcesses[input.choice(std::size(kProcesses))], path.lowered(),
                     kTypes[input.choice(std::size(kTypes))]});
    }
}

} // namespace velmox::fuzz
