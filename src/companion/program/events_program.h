#pragma once

#include <string>
#include <vector>

namespace velmox {

/// `velmox-events`: reads the words behind the program's name, does what they say, and returns the exit code.
int runEvents(const std::vector<std::string> &words);

} // namespace velmox
