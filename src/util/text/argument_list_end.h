#pragma once

#include <cstdarg>

namespace velmox {

/// Ends an argument list also when an exception leaves the function that began it.
struct ArgumentListEnd
{
    std::va_list &args;
    ~ArgumentListEnd() { va_end(args); }
};

} // namespace velmox
