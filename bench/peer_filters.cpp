#include "bench/peers.h"
#include "pipeline/input/rules/event_filters.h"

#include <memory>
#include <pcre.h>
#include <stdexcept>

namespace velmox::bench {

namespace {

constexpr unsigned kStanzas = 20;
constexpr unsigned kEvents = 1000;
constexpr unsigned kPasses = 200;

/// The patterns of a stanza, in lower case.
struct Patterns
{
    Str process;
    Str hive;
    Str type;
};

/// Every other stanza is for the programs of one folder.
std::vector<Patterns> patternsOfGroup()
{
    std::vector<Patterns> group;
    for (unsigned i = 0; i < kStanzas; ++i) {
        group.push_back({i % 2 == 0 ? ".*" : "c:\\\\program files\\\\.*\\.exe",
                         Str::fromFormat("hklm\\\\software\\\\watched%u\\\\.*", i),
                         "set|create|delete|rename"});
    }
    return group;
}

using Events = std::vector<SysMonFilterableEvent>;

/// One in `acceptedOf` is on a key that some stanza watches.
Events makeEvents(unsigned acceptedOf)
{
    Events events;
    for (unsigned i = 0; i < kEvents; ++i) {
        const char *const name = i % acceptedOf == 0 ? "watched" : "vendor";
        events.push_back({"c:\\program files\\some product\\program.exe",
                          Str::fromFormat("hklm\\software\\%s%u\\settings\\value", name, i % kStanzas),
                          "set"});
    }
    return events;
}

std::unique_ptr<SysMonEventFilterList> makeGroup()
{
    auto group = std::make_unique<SysMonEventFilterList>();
    for (const Patterns &patterns : patternsOfGroup()) {
        const Str name = Str::fromFormat("bench%u", static_cast<unsigned>(group->filters().size()));
        group->addFilter(new RegMonEventFilter(name, patterns.process, patterns.hive, patterns.type), true);
    }
    return group;
}

class Pattern
{
public:
    explicit Pattern(const Str &text, int options = 0)
    {
        const char *error = nullptr;
        int offset = 0;
        code_.reset(pcre_compile(text.c_str(), options | PCRE_UTF8, &error, &offset, nullptr));
        if (!code_) {
            throw std::runtime_error(error);
        }
        study_.reset(pcre_study(code_.get(), 0, &error));
    }

    bool finds(const Str &subject) const
    {
        int offsets[30];
        return pcre_exec(code_.get(), study_.get(), subject.data(), static_cast<int>(subject.size()), 0,
                         PCRE_NO_UTF8_CHECK, offsets, std::size(offsets)) >= 0;
    }

private:
    struct Free
    {
        void operator()(pcre *code) const { pcre_free(code); }
        void operator()(pcre_extra *study) const { pcre_free_study(study); }
    };
    std::unique_ptr<pcre, Free> code_;
    std::unique_ptr<pcre_extra, Free> study_;
};

/// The loop that a reader of the stanzas' rules would write.
class PlainGroup
{
public:
    PlainGroup()
    {
        for (const Patterns &patterns : patternsOfGroup()) {
            stanzas_.push_back({Pattern(patterns.process),
                                Pattern(Str::fromFormat("(?:%s)\\z", patterns.hive.c_str()), PCRE_ANCHORED),
                                Pattern(patterns.type)});
        }
    }

    bool matches(const SysMonFilterableEvent &event) const
    {
        for (const Stanza &stanza : stanzas_) {
            if (stanza.process.finds(event.process) && stanza.hive.finds(event.keyPath) &&
                stanza.type.finds(event.type)) {
                return true;
            }
        }
        return false;
    }

private:
    struct Stanza
    {
        Pattern process;
        Pattern hive;
        Pattern type;
    };
    std::vector<Stanza> stanzas_;
};

struct Verdicts
{
    double seconds;
    unsigned accepted;
};

template <class Group>
Verdicts judge(Group &group, const Events &events)
{
    Verdicts verdicts = {};
    verdicts.seconds = secondsOf([&] {
        for (unsigned pass = 0; pass < kPasses; ++pass) {
            for (const SysMonFilterableEvent &event : events) {
                verdicts.accepted += group.matches(event) ? 1 : 0;
            }
        }
    });
    return verdicts;
}

void compare(const Events &events, Figure &figure)
{
    // New for each round, for the list learns which filters match most.
    const auto group = makeGroup();
    PlainGroup plain;
    const Verdicts own = judge(*group, events);
    const Verdicts peer = judge(plain, events);
    if (own.accepted == 0 || own.accepted != peer.accepted) {
        throw std::runtime_error("the verdicts differ");
    }
    figure.add(peer.seconds / own.seconds, own.seconds / (kPasses * kEvents) * 1e9);
}

} // namespace

Figures measureFilters(unsigned rounds)
{
    constexpr char kPeer[] = "loop over the same patterns in PCRE";
    Figures figures = {Figure("filters: verdict of 20 stanzas, 1 event in 1000 accepted", kPeer, {}, "ns"),
                       Figure("the same, every event accepted", kPeer, {}, "ns")};
    const Events few = makeEvents(kEvents);
    const Events all = makeEvents(1);
    for (unsigned round = 0; round < rounds; ++round) {
        compare(few, figures[0]);
        compare(all, figures[1]);
    }
    return figures;
}

} // namespace velmox::bench
