#pragma once

#include "conf/mapper/i_conf_path_mapper.h"

#include <memory>

namespace velmox {

// Which class serves a path is said by the bootstrap file, by the name of a handler. The one table of these
// names is behind this header: a new mapper needs a row there and nothing else here.

/// What the bootstrap file's handler names stand for.
enum class ConfHandler
{
    Unrecognized,
    IterateOnly, ///< "default": known by its path, user and app alone
    Ignore,      ///< nobody looks at the path
    Mapper,      ///< `makeConfPathMapper` makes one
};

ConfHandler confHandler(const Str &name);

/// The mapper of a handler that has one, which reads nothing but names of files yet; null when the handler
/// passes this path over.
std::unique_ptr<IConfPathMapper> makeConfPathMapper(const Str &handler, const BundleHandlerData &data);

} // namespace velmox
