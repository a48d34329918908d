#pragma once

#include <cstdio>
#include <string>

namespace velmox {

/// Where standard output goes.
struct Terminal
{
    /// In columns; 0 if it is no terminal.
    unsigned width = 0;
    bool hasColours = false;
};

/// Makes the standard streams pass bytes as they are, and a console show UTF-8 until the program ends. To be
/// called once, before anything is read or written.
Terminal openTerminal();

/// Opens a file for reading, without any change of line ends, by its UTF-8 path, and returns its descriptor,
/// which the caller closes; -1 with errno set when that fails.
int openForReading(const std::string &path);

/// Whether a path leads to the file that another one leads to, "-" to that of standard input, however they
/// are spelt. False where one of them leads to no file.
bool isSameFile(const std::string &path, const std::string &other);

/// Opens a new or emptied file for writing, without any change of line ends, by its UTF-8 path. The caller
/// closes it. Null with errno set when that fails.
std::FILE *openForWriting(const std::string &path);

} // namespace velmox
