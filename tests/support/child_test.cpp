#include "tests/support/child_test.h"

#include <gtest/gtest.h>

namespace velmox::testing {

namespace {

constexpr std::u16string_view kArgument = u" --argument=";

} // namespace

ChildTest::ChildTest(const char *test, const Pathname &argument, const StrVector &environment)
    : ChildProcess(commandLine(test, argument), environment)
{
}

bool ChildTest::succeeds()
{
    const DWORD code = exitCode();
    EXPECT_EQ(code, 0u) << output().c_str();
    return code == 0;
}

Str ChildTest::commandLine(const char *test, const Pathname &argument)
{
    return Str::fromFormat("\"%s\" --gtest_filter=%s --gtest_also_run_disabled_tests --gtest_output= "
                           "--gtest_brief=1 --gtest_catch_exceptions=0%s%s",
                           programPath().c_str(), test, Str::fromUtf16(kArgument).c_str(),
                           argument.toStr().c_str());
}

Pathname ChildTest::argument()
{
    const std::u16string_view whole = asUtf16(GetCommandLineW());
    const std::size_t at = whole.find(kArgument);
    return at == whole.npos ? Pathname() : Pathname(whole.substr(at + kArgument.size()));
}

} // namespace velmox::testing
