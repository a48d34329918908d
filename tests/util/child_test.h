#pragma once

#include "util/owned_handle.h"
#include "util/pathname.h"

namespace velmox::test {

/// A child process that runs one disabled test of this very program: what the test needs another process to
/// do. A child that still runs when the object goes is ended.
class ChildTest
{
public:
    /// Starts `suite.DISABLED_name`; `argument` is what `argument()` gives there.
    ChildTest(const char *test, const Pathname &argument);
    ~ChildTest();
    ChildTest(const ChildTest &) = delete;
    ChildTest &operator=(const ChildTest &) = delete;

    /// Ends the child at once, wherever it stands.
    void kill();
    /// Whether the child ended by itself, and well, within a minute.
    bool succeeds();

    static Pathname argument();

private:
    KernelHandle process_;
};

} // namespace velmox::test
