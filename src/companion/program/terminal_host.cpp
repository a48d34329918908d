#include "companion/program/terminal.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace velmox {

namespace {

constexpr unsigned kUsualWidth = 80;

} // namespace

Terminal openTerminal()
{
    Terminal terminal;
    if (isatty(STDOUT_FILENO) == 0) {
        return terminal;
    }
    winsize size = {};
    const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    terminal.width = isKnown ? size.ws_col : kUsualWidth;
    terminal.hasColours = true;
    return terminal;
}

int openForReading(const std::string &path)
{
    return open(path.c_str(), O_RDONLY | O_CLOEXEC);
}

std::FILE *openForWriting(const std::string &path)
{
    return std::fopen(path.c_str(), "wb");
}

} // namespace velmox
