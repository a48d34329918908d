#pragma once

namespace velmox {

/// Lets what this process writes on its console be taken for UTF-8, until it ends; nothing changes for a file
/// or a pipe. The code page belongs to the console, which outlives the process: whoever reads it next gets
/// back the former one. Any thread.
void showUtf8OnConsole();

} // namespace velmox
