#include "conf/setup/path_owner.h"
#include "conf/setup/username_mapper.h"
#include "tests/conf/conf_root.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

using namespace velmox::testing;

TEST(PathOwner, FollowsFromWhereThePathLies)
{
    const ConfRoot root;
    const BundlesSetup setup = root.setup();
    UsernameMapper users(setup);
    const Str reserved = users.directoryName("A:B");
    ASSERT_TRUE(reserved.startsWith("_reserved/"));
    const struct
    {
        const char *path;
        /// Null where there is no owner.
        const char *user;
        const char *app;
        const char *rootDirectory;
    } cases[] = {
        {"apps\\Search\\local", "nobody", "Search", "apps\\Search"},
        {"APPS\\Search", "nobody", "Search", "apps\\Search"},
        {"slave-apps\\peer\\default", "nobody", "peer", "slave-apps\\peer"},
        {"system\\local", "nobody", "system", "system"},
        {"system", "nobody", "system", "system"},
        {"users\\Alice\\Search\\local", "alice", "Search", "users\\Alice\\Search"},
        {"users\\_reserved\\unknown.0\\Search\\local", "", "Search", "users\\_reserved\\unknown.0\\Search"},
        {"bundles\\old\\local", "nobody", "system", "bundles\\old"},
        {"bundles", "nobody", "system", "bundles"},
        {".", "nobody", "system", "."},
        {"users\\alice", nullptr, nullptr, nullptr},
        {"master-apps\\x\\local", nullptr, nullptr, nullptr},
        {"..\\apps\\search", nullptr, nullptr, nullptr},
    };
    for (const auto &each : cases) {
        const auto below = [&root](const Str &name) {
            return name == "." ? root.path() : root.path().join(name);
        };
        PathOwner owner;
        ASSERT_EQ(findPathOwner(setup, users, below(each.path), owner), each.user != nullptr) << each.path;
        if (each.user != nullptr) {
            EXPECT_EQ(owner.user, each.user) << each.path;
            EXPECT_EQ(owner.app, each.app) << each.path;
            EXPECT_EQ(owner.rootDirectory, below(each.rootDirectory)) << each.path;
        }
    }
    Pathname place = root.path().join("users").join(reserved).join("Search\\local");
    std::replace(place.begin(), place.end(), u'/', u'\\');
    PathOwner owner;
    EXPECT_TRUE(findPathOwner(setup, users, place, owner));
    EXPECT_EQ(owner.user, "A:B");
    EXPECT_EQ(owner.app, "Search");
}

} // namespace
} // namespace velmox
