#include "conf/conf_path_mapper.h"

#include "conf/conf_file_reader.h"
#include "conf/conf_path.h"
#include "conf/conf_path_mapper_log.h"
#include "util/directory_listing.h"

#include <mutex>

namespace velmox {

Logger confPathMapperLog("ConfPathMapper");

namespace {

constexpr char kExtension[] = "conf";

} // namespace

ConfPathMapper::ConfPathMapper(const BundleHandlerData &data)
    : setup_(data.setup), directory_(data.path), rootDirectory_(data.rootDirectory),
      user_(data.user.lowered()), app_(data.app), isLocal_(data.path.basename() == u"local")
{
    listTypes();
}

/// Adds the types that have a file and are not known. A directory need not exist before the first write.
void ConfPathMapper::listTypes()
{
    std::vector<DirectoryEntry> entries;
    listDirectory(directory_, entries);
    for (const DirectoryEntry &entry : entries) {
        const Pathname name(entry.name);
        if (!entry.isFolder && name.extension() == kExtension) {
            types_[name.stem()].state.status = {true, entry.size, entry.modtime};
        }
    }
}

Pathname ConfPathMapper::fileOf(const Str &type) const
{
    return directory_.join(type).concat(".conf");
}

ConfPathMetadata ConfPathMapper::fileMetadata(const ConfFileStatus &status) const
{
    ConfPathMetadata metadata;
    metadata.removable = isLocal_;
    metadata.modtime = status.modtime;
    return metadata;
}

/// Whether the path is of this mapper's user and app.
bool ConfPathMapper::isOwn(const ConfPathBase &path) const
{
    return path.app() == app_ && path.user().compareCaseless(user_) == 0;
}

/// Whether the file of a type lies in the directory.
bool ConfPathMapper::isFileName(const Str &type)
{
    return !type.empty() && type.view().find_first_of("/\\") == std::string_view::npos;
}

bool ConfPathMapper::belongs(const ConfPathBase &path) const
{
    return isOwn(path) && (path.parts().empty() || types_.contains(path.type()));
}

bool ConfPathMapper::read(const ConfPath &path, ConfPathTrie &out, unsigned levels)
{
    const std::lock_guard guard(lock_);
    if (!belongs(path) || (path.parts().empty() && levels == 0)) {
        return false;
    }
    loadFor(path);
    return copyOut(path, out, levels);
}

bool ConfPathMapper::search(const ConfSearch &search, ConfPathTrie &out)
{
    ConfPathBase path(search.constraint(ConfSearch::User).value_or(user_).lowered(),
                      search.constraint(ConfSearch::App).value_or(app_));
    if (const auto &type = search.constraint(ConfSearch::Type)) {
        path.addPart(*type);
    }
    const std::lock_guard guard(lock_);
    if (!belongs(path)) {
        return false;
    }
    if (search.maxLevel() >= ConfPathTrie::kTypeLevel) {
        loadFor(path);
        const auto level = static_cast<unsigned>(ConfPathTrie::kAppLevel + path.parts().size());
        copyOut(path, out, search.maxLevel() - level);
    }
    return true;
}

/// The type's node is left out when it holds nothing.
bool ConfPathMapper::copyOut(const ConfPathBase &path, ConfPathTrie &out, unsigned levels)
{
    const ConfPathTrie *from = master_.find(ConfPathBase(user_, app_, path.parts()));
    if (!from || from->empty()) {
        return false;
    }
    out.node(path).merge(*from, levels);
    return true;
}

void ConfPathMapper::loadFor(const ConfPathBase &path)
{
    if (!path.parts().empty()) {
        load(path.type(), types_[path.type()]);
        return;
    }
    for (auto &[type, record] : types_) {
        load(type, record);
    }
}

/// A file that is there and cannot be opened, as another program keeps it to itself, is tried again with the
/// next read; one that vanished is empty.
void ConfPathMapper::load(const Str &type, Type &record)
{
    if (record.loaded || !record.state.status.exists) {
        return;
    }
    record.state.status = ConfFileStatus::of(fileOf(type));
    ConfPathTrie content;
    record.loaded = readFile(type, record.state.status, content) || !record.state.status.exists;
    if (!content.empty()) {
        appNode().child(type) = std::move(content);
    }
}

bool ConfPathMapper::readFile(const Str &type, const ConfFileStatus &status, ConfPathTrie &content) const
{
    const Pathname file = fileOf(type);
    const Str name = setup_.text(file);
    if (!readConfFile(file, rootDirectory_, fileMetadata(status), content)) {
        confPathMapperLog.warn("Failed to open: %s: %m", name.c_str());
        return false;
    }
    return true;
}

bool ConfPathMapper::hasChangedSince(const Str &type, ConfTypeState &state)
{
    const std::lock_guard guard(lock_);
    const auto found = types_.find(type);
    const ConfTypeState current = found == types_.end() ? ConfTypeState() : found->second.state;
    if (current.generation == state.generation) {
        return false;
    }
    confPathMapperLog.debug("%s: Changed since: %s -> %s", directoryText().c_str(), state.toStr().c_str(),
                            current.toStr().c_str());
    state = current;
    return true;
}

Str ConfPathMapper::describe() const
{
    return Str("ConfPathMapper: ") << directoryText();
}

} // namespace velmox
