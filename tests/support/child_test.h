#pragma once

#include "tests/support/child_process.h"
#include "util/pathname.h"

namespace velmox::testing {

/// A child process that runs one disabled test of this very program: what a test needs another process to do.
class ChildTest
{
public:
    /// Starts `suite.DISABLED_name`; `argument` is what `argument()` gives there.
    ChildTest(const char *test, const Pathname &argument);

    /// Whether the child ended by itself, and well.
    bool succeeds();

    /// All it wrote; after `succeeds`.
    Str output() { return process_.output(); }

    static Pathname argument();

private:
    ChildProcess process_;
};

} // namespace velmox::testing
