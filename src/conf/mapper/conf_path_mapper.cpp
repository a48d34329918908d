#include "conf/mapper/conf_path_mapper.h"

#include "conf/mapper/conf_file_reader.h"
#include "conf/mapper/conf_path_mapper_log.h"
#include "util/files/directory_listing.h"

namespace velmox {

Logger confPathMapperLog("ConfPathMapper");

ConfPathMapper::ConfPathMapper(const BundleHandlerData &data)
    : LazyConfPathMapper(data, confPathMapperLog, "ConfPathMapper", data.path.basename() == u"local")
{
    listTypes();
}

/// Takes the types that have a file. A directory need not exist before the first write.
void ConfPathMapper::listTypes()
{
    std::vector<DirectoryEntry> entries;
    listDirectory(path_, entries);
    for (const DirectoryEntry &entry : entries) {
        const Pathname name(entry.name);
        if (!entry.isFolder && name.extension() == kExtension) {
            types_[name.stem()].state.status = {true, entry.size, entry.modtime};
        }
    }
}

Pathname ConfPathMapper::fileOf(const Str &type) const
{
    return path_.join(type).concat(Str(".") << kExtension);
}

/// A file that is there and cannot be opened, as another program keeps it to itself, is tried again with the
/// next read; one that vanished is empty.
bool ConfPathMapper::readType(const Str &type, Type &record, ConfPathTrie &content)
{
    if (!record.state.status.exists) {
        return false;
    }
    record.state.status = FileStatus::of(fileOf(type));
    return readFile(type, record.state.status, content) || !record.state.status.exists;
}

bool ConfPathMapper::readFile(const Str &type, const FileStatus &status, ConfPathTrie &content) const
{
    const Pathname file = fileOf(type);
    const Str name = text(file);
    if (!readConfFile(file, rootDirectory_, metadataOf(status), content)) {
        log_.warn("Failed to open: %s: %m", name.c_str());
        return false;
    }
    return true;
}

} // namespace velmox
