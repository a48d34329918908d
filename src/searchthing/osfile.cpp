#include "searchthing/osfile.h"

#include "util/files/file_descriptor.h"
#include "util/files/file_system.h"
#include "util/system/last_error_keeper.h"

#include <winsock2.h>

namespace velmox {

namespace {

/// The socket library, which knows the host's name, ready for use.
class SocketLibrary
{
public:
    SocketLibrary() : ready_(WSAStartup(MAKEWORD(2, 2), &data_) == 0) {}
    ~SocketLibrary()
    {
        if (ready_) {
            WSACleanup();
        }
    }
    SocketLibrary(const SocketLibrary &) = delete;
    SocketLibrary &operator=(const SocketLibrary &) = delete;

    bool isReady() const { return ready_; }

private:
    WSADATA data_;
    bool ready_;
};

Str buildOwnerText()
{
    const SocketLibrary sockets;
    char host[256];
    if (!sockets.isReady() || gethostname(host, sizeof host) != 0) {
        return "0\nuninitialized";
    }
    return Str::fromFormat("%ld\n%s", static_cast<long>(GetCurrentProcessId()), host);
}

} // namespace

bool createWithContent(const Pathname &path, std::string_view content)
{
    FileDescriptor file(CreateFileW(asWide(path), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.isOpen()) {
        return false;
    }
    if (file.write(content.data(), content.size()) == static_cast<std::ptrdiff_t>(content.size())) {
        return true;
    }
    const LastErrorKeeper keeper;
    file.close();
    removeFile(path);
    return false;
}

const Str &ownerText()
{
    static const Str text = buildOwnerText();
    return text;
}

} // namespace velmox
