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

/// Has child tests of this name change a file, and kills each some moments after its first change: `rounds`
/// times. `isWhole` is to hold for whatever then stands in the file. Returns how many rounds left another
/// content.
unsigned killWhileChanging(const Pathname &file, const char *test, const Pathname &argument, unsigned rounds,
                           const std::function<bool(const Str &content)> &isWhole);

} // namespace velmox::testing
