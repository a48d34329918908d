#include "tests/util/child_test.h"

#include <gtest/gtest.h>

namespace velmox::test {

namespace {

constexpr wchar_t kArgumentVariable[] = L"VELMOX_CHILD_ARGUMENT";
constexpr DWORD kPatienceMs = 60'000;

} // namespace

ChildTest::ChildTest(const char *test, const Pathname &argument)
{
    wchar_t program[MAX_PATH];
    EXPECT_NE(GetModuleFileNameW(nullptr, program, MAX_PATH), 0u);
    WideStr command(u"\"");
    command += WideStr::View(asUtf16(program));
    command.appendUtf8(
        Str::fromFormat(
            "\" --gtest_filter=%s --gtest_also_run_disabled_tests --gtest_output= --gtest_brief=1", test)
            .c_str());
    SetEnvironmentVariableW(kArgumentVariable, asWide(argument));
    STARTUPINFOW startup = {sizeof startup};
    PROCESS_INFORMATION process = {};
    EXPECT_TRUE(CreateProcessW(program, reinterpret_cast<wchar_t *>(command.data()), nullptr, nullptr, FALSE,
                               0, nullptr, nullptr, &startup, &process));
    SetEnvironmentVariableW(kArgumentVariable, nullptr);
    KernelHandle thread(process.hThread);
    process_.reset(process.hProcess);
}

ChildTest::~ChildTest()
{
    kill();
}

void ChildTest::kill()
{
    if (process_.isValid()) {
        TerminateProcess(process_.get(), 1);
        WaitForSingleObject(process_.get(), kPatienceMs);
        process_.reset();
    }
}

bool ChildTest::succeeds()
{
    DWORD code = 1;
    return WaitForSingleObject(process_.get(), kPatienceMs) == WAIT_OBJECT_0 &&
           GetExitCodeProcess(process_.get(), &code) && code == 0;
}

Pathname ChildTest::argument()
{
    wchar_t text[MAX_PATH] = L"";
    GetEnvironmentVariableW(kArgumentVariable, text, MAX_PATH);
    return Pathname(asUtf16(text));
}

} // namespace velmox::test
