#include "conf/conf_lock.h"
#include "tests/conf/conf_root.h"
#include "tests/support/function_thread.h"

#include <atomic>

namespace velmox {
namespace {

using namespace testing;

constexpr const char *kKeys[] = {"a", "b", "c", "d", "e"};
constexpr int kWrites = 15;

/// Sets all keys of a stanza to the same value, again and again.
void writeRounds(const ConfRoot &root, const char *stanza, const char *user)
{
    for (int round = 1; round <= kWrites; ++round) {
        PropertiesMap desired;
        for (const char *const key : kKeys) {
            desired.set(key, Str() << round);
        }
        root.pages("t", "app", user).write("app", stanza, desired, false);
    }
}

/// Counts the reads in which a stanza is of two rounds, or of an earlier one than before.
unsigned readRounds(const ConfRoot &root, const char *app, const char *user,
                    const std::atomic<unsigned> &writers)
{
    unsigned faults = 0;
    std::map<Str, int> last;
    while (writers.load() != 0) {
        for (const auto &[name, stanza] : root.stanzas("t", app, user)) {
            const int round = stanza.get("a").toInt(0);
            for (const char *const key : kKeys) {
                faults += stanza.get(key).toInt(0) != round;
            }
            faults += round < std::exchange(last[name], round);
        }
    }
    return faults;
}

TEST(PropertyPagesThreads, EachReadIsOfOneStateWhileOthersWrite)
{
    const CapturedLog quiet;
    const unsigned violations = ConfLock::orderViolations();
    const ConfRoot root;
    root.write("apps/app/default/t.conf", "[shared]\n[own]\n");
    root.setup();
    std::atomic<unsigned> writers{2};
    std::atomic<unsigned> faults{0};
    {
        std::vector<std::unique_ptr<FunctionThread>> threads;
        const auto start = [&](std::function<void()> body) {
            threads.push_back(std::make_unique<FunctionThread>(std::move(body)));
            threads.back()->start();
        };
        start([&] { writeRounds(root, "shared", ""), --writers; });
        start([&] { writeRounds(root, "own", "u"), --writers; });
        constexpr const char *kReaders[][2] = {{"", ""}, {"app", ""}, {"app", "u"}, {"app", "v"}};
        for (const auto &[app, user] : kReaders) {
            start([&, app = app, user = user] { faults += readRounds(root, app, user, writers); });
        }
    }
    EXPECT_EQ(faults.load(), 0u);
    const Str last = Str() << kWrites;
    EXPECT_EQ(root.stanzas("t").at("shared").get("e"), last);
    EXPECT_EQ(root.stanzas("t", "app", "u").at("own").get("e"), last);
    EXPECT_EQ(root.stanzas("t", "app", "v").at("own").get("e"), "");
    EXPECT_EQ(ConfLock::orderViolations(), violations);
}

} // namespace
} // namespace velmox
