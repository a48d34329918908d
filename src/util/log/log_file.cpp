#include "util/log/log_file.h"

#include "util/files/file_descriptor.h"
#include "util/files/file_system.h"

namespace velmox {

namespace {

class SystemLogFile : public LogFile
{
public:
    explicit SystemLogFile(FileDescriptor file) : file_(std::move(file)) {}

    bool size(std::uint64_t &bytes) override
    {
        LARGE_INTEGER size;
        if (!GetFileSizeEx(file_.get(), &size)) {
            return false;
        }
        bytes = static_cast<std::uint64_t>(size.QuadPart);
        return true;
    }

    std::ptrdiff_t write(const char *bytes, std::size_t length) override
    {
        return file_.write(bytes, length);
    }

private:
    FileDescriptor file_;
};

class SystemLogFiles : public LogFileSystem
{
public:
    std::unique_ptr<LogFile> openAppend(const Pathname &path) override
    {
        FileDescriptor file;
        if (!file.openAppend(path, FilePermissions::PublicRead)) {
            return nullptr;
        }
        return std::make_unique<SystemLogFile>(std::move(file));
    }

    bool exists(const Pathname &path) override { return pathKind(path) != PathKind::Nothing; }
    bool remove(const Pathname &path) override { return removeFile(path); }
    bool rename(const Pathname &from, const Pathname &to) override { return moveFile(from, to); }
};

} // namespace

LogFileSystem &systemLogFiles()
{
    static SystemLogFiles &files = *new SystemLogFiles;
    return files;
}

} // namespace velmox
