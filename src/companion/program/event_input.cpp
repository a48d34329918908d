#include "companion/program/event_input.h"

#include "companion/events/terminal.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace velmox {

namespace {

/// Bytes that are read at once; what a full pipe of Linux holds.
constexpr std::size_t kChunkBytes = 65536;

/// Owns a descriptor, but for that of standard input, and for the -1 of a file that could not be opened.
class Descriptor
{
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor()
    {
        if (number_ > STDIN_FILENO) {
            close(number_);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int number() const { return number_; }

private:
    int number_;
};

} // namespace

void complain(const std::string &what)
{
    std::fprintf(stderr, "velmox-events: %s\n", what.c_str());
}

std::string readBeginning(const std::string &path, std::size_t most)
{
    const Descriptor descriptor(openForReading(path));
    std::string bytes(most, '\0');
    const auto length =
        descriptor.number() < 0 ? 0 : ::read(descriptor.number(), bytes.data(), static_cast<unsigned>(most));
    bytes.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    return bytes;
}

bool EventInput::read(const std::string &path)
{
    const bool isStandardInput = path == "-";
    const Descriptor descriptor(isStandardInput ? STDIN_FILENO : openForReading(path));
    if (descriptor.number() < 0) {
        complain(path + ": " + std::strerror(errno));
        hasUnreadable_ = true;
        return false;
    }
    return readBytes(descriptor.number(), isStandardInput ? "standard input" : path);
}

void EventInput::pass(const StreamEvent &event)
{
    fields_.read(event);
    (filter_.accepts(fields_) ? onEvent_ : onOther_)(event, fields_);
    // Behind the event, which counts as accepted.
    if (const std::optional<std::string> condition = filter_.takeGivenUp()) {
        complain("--where " + *condition +
                 ": the pattern takes too many steps; events where it does are kept");
        hasGivenUp_ = true;
    }
}

bool EventInput::readBytes(int descriptor, const std::string &name)
{
    bool isSound = true;
    StreamReader reader([this](const StreamEvent &event) { pass(event); },
                        [&](std::uint64_t offset, std::string_view what) {
                            complain(name + ": offset " + std::to_string(offset) + ": " + std::string(what));
                            isSound = false;
                        });
    const auto chunk = std::make_unique<std::array<char, kChunkBytes>>();
    while (true) {
        // Returns what a pipe has by now, so that events are passed on as they come, and the pause below is
        // the moment before the next wait.
        const auto length = ::read(descriptor, chunk->data(), kChunkBytes);
        // A signal came in between, and nothing was read.
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length < 0) {
            complain(name + ": " + std::strerror(errno));
            hasUnreadable_ = true;
            isSound = false;
        }
        if (length <= 0) {
            break;
        }
        reader.feed({chunk->data(), static_cast<std::size_t>(length)});
        onPause_();
    }
    reader.finish();
    onPause_();
    return isSound;
}

} // namespace velmox
