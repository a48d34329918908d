#pragma once

#include "util/system/owned_handle.h"
#include "util/text/str.h"

#include <string_view>

namespace velmox::testing {

/// A program on a console of its own that the test types into, as at a terminal. The program's screen is
/// thrown away. The process is ended with the object.
class PseudoConsole
{
public:
    /// `environment` as for `startProcess`.
    explicit PseudoConsole(const Str &commandLine, const StrVector &environment = {});
    ~PseudoConsole();
    PseudoConsole(const PseudoConsole &) = delete;
    PseudoConsole &operator=(const PseudoConsole &) = delete;

    void pressCtrlC();
    /// All 32 bits, or STILL_ACTIVE when the wait runs out.
    DWORD exitCode();

private:
    void *console_ = nullptr;
    KernelHandle keyboard_;
    KernelHandle screen_;
    KernelHandle process_;
};

} // namespace velmox::testing
