#include "tests/support/child_test.h"

#include "tests/support/scoped_folder.h"

#include <gtest/gtest.h>
#include <random>

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
    wchar_t program[MAX_PATH];
    EXPECT_NE(GetModuleFileNameW(nullptr, program, MAX_PATH), 0u);
    return Str::fromFormat("\"%s\" --gtest_filter=%s --gtest_also_run_disabled_tests --gtest_output= "
                           "--gtest_brief=1 --gtest_catch_exceptions=0%s%s",
                           Str::fromUtf16(asUtf16(program)).c_str(), test, Str::fromUtf16(kArgument).c_str(),
                           argument.toStr().c_str());
}

Pathname ChildTest::argument()
{
    const std::u16string_view whole = asUtf16(GetCommandLineW());
    const std::size_t at = whole.find(kArgument);
    return at == whole.npos ? Pathname() : Pathname(whole.substr(at + kArgument.size()));
}

unsigned killWhileChanging(const Pathname &file, const char *test, const Pathname &argument, unsigned rounds,
                           const std::function<bool(const Str &content)> &isWhole)
{
    std::mt19937 random(std::random_device{}());
    unsigned changes = 0;
    for (unsigned round = 0; round < rounds; ++round) {
        const Str before = readWhole(file);
        {
            const ChildTest child(test, argument);
            for (int wait = 0; wait < 2'000 && readWhole(file) == before; ++wait) {
                Sleep(5);
            }
            Sleep(random() % 20);
        }
        const Str after = readLeftBehind(file);
        EXPECT_TRUE(isWhole(after)) << "round " << round << ": " << after.size() << " bytes";
        changes += after != before;
    }
    return changes;
}

} // namespace velmox::testing
