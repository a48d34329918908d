#include "conf/mapper/conf_object_manager.h"

#include "conf/ground/conf_path_exceptions.h"
#include "conf/mapper/meta_filter.h"
#include "conf/pages/property_pages_registry.h"
#include "conf/store/application_manager.h"
#include "conf/store/conf_path.h"
#include "conf/store/conf_settings.h"
#include "conf/store/shared_conf_services.h"

namespace velmox {

bool ConfObjectManager::flush()
{
    const bool done = ConfObjectManagerDB::flush();
    tell();
    return done;
}

bool ConfObjectManager::reload(const Str &type)
{
    const bool done = ConfObjectManagerDB::reload(type);
    tell();
    return done;
}

FileChangeAnswer ConfObjectManager::onFileChange(WatchedFileState &state)
{
    const FileChangeAnswer answer = ConfObjectManagerDB::onFileChange(state);
    tell();
    return answer;
}

/// Without this mapper's lock: those told ask all mappers in turn.
void ConfObjectManager::tell()
{
    const News news = takeNews();
    if (news.ofApp || news.ofExports) {
        setup().shared().applications().rescan(true);
        setup().shared().pages().invalidateAll();
    }
}

bool ConfObjectManager::filter(const Pathname &directory, Pathname &copy) const
{
    return filterMetaFile(
        setup(), file(), owner(), directory, [this](const ConfPathBase &path) { return isObjectThere(path); },
        copy);
}

/// Apps and types need no file of their own to be there.
bool ConfObjectManager::isObjectThere(const ConfPathBase &path) const
{
    if (path.parts().size() < kStanzaParts || setup().shared().settings().allowsDangling(path.app())) {
        return true;
    }
    try {
        ConfPath(setup(), path).readData();
        return true;
    } catch (const ConfPathException &) {
        return false;
    }
}

} // namespace velmox
