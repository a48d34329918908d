#include "tests/support/child_test.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace velmox::testing {

namespace {

constexpr const char *kArgumentVariable = "VELMOX_CHILD_ARGUMENT";

Str commandLineOf(const char *test)
{
    wchar_t program[MAX_PATH];
    EXPECT_NE(GetModuleFileNameW(nullptr, program, MAX_PATH), 0u);
    return Str::fromFormat(
        "\"%s\" --gtest_filter=%s --gtest_also_run_disabled_tests --gtest_output= --gtest_brief=1",
        Str::fromUtf16(asUtf16(program)).c_str(), test);
}

} // namespace

ChildTest::ChildTest(const char *test, const Pathname &argument)
    : process_(commandLineOf(test), {Str::fromFormat("%s=%s", kArgumentVariable, argument.toStr().c_str())})
{
}

bool ChildTest::succeeds()
{
    const DWORD code = process_.exitCode();
    EXPECT_EQ(code, 0u) << process_.output().c_str();
    return code == 0;
}

Pathname ChildTest::argument()
{
    const char *text = std::getenv(kArgumentVariable);
    return Pathname::fromUtf8(text ? text : "");
}

} // namespace velmox::testing
