#pragma once

#include "conf/root/bundles_setup.h"
#include "util/text/str.h"

#include <map>

namespace velmox {

class UsernameMapper;

/// What a handler is told of the path that it is to serve.
struct BundleHandlerData
{
    BundlesSetup setup;
    /// The file or directory; absolute.
    Pathname path;
    /// The directory of the app, or of the user's app, in which the path lies.
    Pathname rootDirectory;
    Str user;
    Str app;
    /// The settings of the handler's own stanza in the bootstrap file.
    std::map<Str, Str> settings;
    /// Lives as long as the mappers.
    UsernameMapper *users = nullptr;
};

} // namespace velmox
