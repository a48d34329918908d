#pragma once

#include <exception>

namespace velmox {

/// A fault of the processor or the system (access violation, stack overflow and the like) as a C++ exception.
class StructuredException : public std::exception
{
public:
    explicit StructuredException(unsigned code) : code_(code) {}
    const char *what() const noexcept override { return "structured exception"; }
    unsigned code() const { return code_; }

private:
    unsigned code_;
};

/// Calls `body(argument)` and throws a StructuredException when a structured exception leaves it. C++
/// exceptions pass.
///
/// The stack between the fault and this call is dropped without running its destructors, because the compiler
/// does not know that any instruction may throw. Code that takes a lock therefore makes this call inside the
/// lock, so that the lock's owner sees an ordinary exception.
void callGuarded(void (*body)(void *), void *argument);

template <class Body>
void guarded(Body body)
{
    callGuarded([](void *argument) { (*static_cast<Body *>(argument))(); }, &body);
}

} // namespace velmox
