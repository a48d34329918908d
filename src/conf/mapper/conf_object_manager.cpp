#include "conf/mapper/conf_object_manager.h"

#include "conf/mapper/meta_filter.h"

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

void ConfObjectManager::tell()
{
    const News news = takeNews();
    if (news.ofApp || news.ofExports) {
        observer_.onAppsChanged();
    }
}

bool ConfObjectManager::filter(const Pathname &directory,
                               const std::function<bool(const ConfPathBase &)> &isThere, Pathname &copy) const
{
    return filterMetaFile(setup(), file(), owner(), directory, isThere, copy);
}

} // namespace velmox
