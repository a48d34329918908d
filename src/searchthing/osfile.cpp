#include "searchthing/osfile.h"

#include "util/files/file_descriptor.h"
#include "util/files/file_permissions.h"
#include "util/files/file_system.h"
#include "util/log/logger.h"
#include "util/system/last_error_keeper.h"
#include "util/time/timeval.h"

#include <winsock2.h>

namespace velmox {

namespace {

Logger permissionsLogger("FilePermissions");

/// The socket library, which knows the host's name, ready for use. Only for the time of the question: the
/// program uses no sockets otherwise.
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

/// The number of a process means nothing without the name of its host: then neither is told.
Str buildOwnerText()
{
    const SocketLibrary sockets;
    // The documentation of gethostname calls this many bytes enough for any name.
    char host[256];
    if (!sockets.isReady() || gethostname(host, sizeof host) != 0) {
        return "0\nuninitialized";
    }
    return Str::fromFormat("%ld\n%s", static_cast<long>(GetCurrentProcessId()), host);
}

} // namespace

FileStatus FileStatus::of(const Pathname &path)
{
    // One call for size and time, which does not open the file: so it works while others keep the file to
    // themselves.
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(asWide(path), GetFileExInfoStandard, &data) ||
        (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return {};
    }
    return {true, std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow,
            timevalOf(data.ftLastWriteTime)};
}

Str FileStatus::toStr() const
{
    if (!exists) {
        return "no file";
    }
    return Str("modtime ") << modtimeText() << ", " << static_cast<unsigned long long>(size) << " bytes";
}

Str FileStatus::modtimeText() const
{
    Str text;
    modtime.toUnixStr(text, 3);
    return text;
}

FileSecurity requireFileSecurity(FilePermissions permissions)
{
    FileSecurity security(permissions);
    if (!security.isValid()) {
        const Str message = Str::fromLastErrorFormat("Error building the permissions of a new file: %m");
        permissionsLogger.error("%s", message.c_str());
        throw FilePermissionsException(message);
    }
    return security;
}

// A file that could not be written whole would be a lock of nobody, so it goes again.
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
    // The same for the life of the process, and built by one thread while others wait.
    static const Str text = buildOwnerText();
    return text;
}

} // namespace velmox
