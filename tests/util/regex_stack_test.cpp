#include "util/regex.h"

#include <gtest/gtest.h>

using namespace velmox;

namespace {

// PCRE recurses for each turn of a repeated group: programs are linked with room for the longest key path.
TEST(RegexStack, HoldsTheLongestKeyPath)
{
    const Str path(std::size_t{32767}, 'a');
    for (const char *pattern : {"(?:a|b)*", "(?:(a)|(b)|c+?)*"}) {
        EXPECT_TRUE(Regex(pattern, true, 0).match(path, nullptr, false, true)) << pattern;
    }
}

} // namespace
