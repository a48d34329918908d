#pragma once

#include "tests/support/child_process.h"
#include "util/text/pathname.h"

namespace velmox::testing {

/// A child process that runs one disabled test of this very program: what a test needs another process to do.
class ChildTest : public ChildProcess
{
public:
    /// Starts `suite.DISABLED_name`; `argument` is what `argument()` gives there.
    ChildTest(const char *test, const Pathname &argument, const StrVector &environment = {});

    /// Whether the child ended by itself, and well.
    bool succeeds();

    static Str commandLine(const char *test, const Pathname &argument);
    static Pathname argument();
};

} // namespace velmox::testing
