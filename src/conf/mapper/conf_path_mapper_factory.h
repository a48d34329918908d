#pragma once

#include "conf/mapper/i_conf_path_mapper.h"
#include "conf/root/bundle_handler_data.h"

#include <memory>

namespace velmox {

/// What the bootstrap file's handler names stand for.
enum class ConfHandler
{
    Unrecognized,
    IterateOnly, ///< "default": known by its path, user and app alone
    Ignore,
    Mapper,
};

ConfHandler confHandler(const Str &name);

/// The mapper of a handler that has one; null when the handler passes this path over.
std::unique_ptr<IConfPathMapper> makeConfPathMapper(const Str &handler, const BundleHandlerData &data);

} // namespace velmox
