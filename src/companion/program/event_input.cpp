#include "companion/program/event_input.h"

#include "companion/program/terminal.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace velmox {

namespace {

constexpr std::size_t kChunkBytes = 65536;

/// Owns a descriptor, but for that of standard input.
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

bool EventInput::read(const std::string &path)
{
    const bool isStandardInput = path == "-";
    const Descriptor descriptor(isStandardInput ? STDIN_FILENO : openForReading(path));
    if (descriptor.number() < 0) {
        complain(path + ": " + std::strerror(errno));
        return false;
    }
    return readBytes(descriptor.number(), isStandardInput ? "standard input" : path);
}

bool EventInput::readBytes(int descriptor, const std::string &name)
{
    bool isSound = true;
    StreamReader reader(
        [&](const StreamEvent &event) {
            fields_.read(event);
            if (filter_.accepts(fields_)) {
                onEvent_(event, fields_);
            }
        },
        [&](std::uint64_t offset, std::string_view what) {
            complain(name + ": offset " + std::to_string(offset) + ": " + std::string(what));
            isSound = false;
        });
    const auto chunk = std::make_unique<std::array<char, kChunkBytes>>();
    while (true) {
        const auto length = ::read(descriptor, chunk->data(), kChunkBytes);
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length < 0) {
            complain(name + ": " + std::strerror(errno));
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
