#include "pipeline/input/modinputs/velmoxd_command_line.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

TEST(VelmoxdCommandLine, KnowsItsForms)
{
    const auto one = readVelmoxdCommandLine({"print-modinput-config", "s"});
    ASSERT_TRUE(one);
    EXPECT_FALSE(one->debug);
    EXPECT_EQ(one->scheme, "s");
    EXPECT_FALSE(one->stanza);
    const auto two = readVelmoxdCommandLine({"--debug", "print-modinput-config", "s", "s://x"});
    ASSERT_TRUE(two);
    EXPECT_TRUE(two->debug);
    EXPECT_EQ(two->stanza, "s://x");
}

TEST(VelmoxdCommandLine, KnowsNothingElse)
{
    for (const StrVector &words : std::vector<StrVector>{{},
                                                         {"--debug"},
                                                         {"--help"},
                                                         {"print-modinput-config"},
                                                         {"--debug", "print-modinput-config"},
                                                         {"--debug", "--debug", "print-modinput-config", "s"},
                                                         {"Print-Modinput-Config", "s"},
                                                         {"print-modinput-config", "s", "x", "y"}}) {
        EXPECT_FALSE(readVelmoxdCommandLine(words)) << (words.empty() ? "" : words.back().c_str());
    }
}

} // namespace
} // namespace velmox
