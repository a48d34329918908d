#pragma once

#include "tests/support/main_thread.h"

#include <functional>

namespace velmox::testing {

/// A thread whose body is a function. Joins at its end when it was started.
class FunctionThread : public Thread
{
public:
    explicit FunctionThread(std::function<void()> body, const char *name = "FunctionThread")
        : Thread("%s", (ensureMainThread(), name)), body_(std::move(body))
    {
    }
    ~FunctionThread() noexcept(false) override { joinOrCancel(); }

private:
    void main() override { body_(); }

    std::function<void()> body_;
};

} // namespace velmox::testing
