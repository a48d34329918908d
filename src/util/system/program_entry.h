#pragma once

#include <string>
#include <vector>

namespace velmox {

/// What a program that is built for Windows and natively does, defined by the program itself: `words` are
/// those behind its name, in UTF-8, and the result is the exit code. Called once, on the main thread, by the
/// entry point in the library velmox-entry, which differs between the two.
int runProgram(const std::vector<std::string> &words);

} // namespace velmox
