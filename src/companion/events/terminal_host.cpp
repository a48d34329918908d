#include "companion/events/terminal.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velmox {

namespace {

/// Of a terminal that does not say how wide it is, such as a serial line.
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

bool isSameFile(const std::string &path, const std::string &other)
{
    struct stat one = {};
    struct stat two = {};
    const auto find = [](const std::string &name, struct stat &out) {
        // A terminal, a pipe or /dev/null may be read and written at once.
        return (name == "-" ? fstat(STDIN_FILENO, &out) : stat(name.c_str(), &out)) == 0 &&
               S_ISREG(out.st_mode);
    };
    return find(path, one) && find(other, two) && one.st_dev == two.st_dev && one.st_ino == two.st_ino;
}

std::FILE *openForWriting(const std::string &path)
{
    return std::fopen(path.c_str(), "wb");
}

} // namespace velmox
