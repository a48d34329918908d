#include "conf/mapper/conf_path_mapper_factory.h"

#include "conf/mapper/conf_object_manager.h"
#include "conf/mapper/conf_path_mapper.h"
#include "conf/mapper/json_conf_path_mapper.h"
#include "util/log/logger.h"

namespace velmox {

namespace {

Logger log("ConfPathMapperFactory");

using MakeMapper = std::unique_ptr<IConfPathMapper> (*)(const Str &handler, const BundleHandlerData &data);

template <class Mapper>
std::unique_ptr<IConfPathMapper> make(const Str &, const BundleHandlerData &data)
{
    return std::make_unique<Mapper>(data);
}

/// One class under several names: the name becomes the type of its objects.
std::unique_ptr<IConfPathMapper> makeLookupTable(const Str &handler, const BundleHandlerData &data)
{
    return std::make_unique<LookupTableConfPathMapper>(data, handler);
}

/// A pattern of the bootstrap file may match any file of a directory; those with this extension are
/// metadata.
std::unique_ptr<IConfPathMapper> makeMeta(const Str &, const BundleHandlerData &data)
{
    if (data.path.extension() != "meta") {
        log.debug("Skipping non-meta file: %s", data.setup.text(data.path).c_str());
        return nullptr;
    }
    return std::make_unique<ConfObjectManager>(data);
}

struct Handler
{
    const char *name;
    ConfHandler kind;
    MakeMapper make; ///< null when there is none to make
};

/// The names are those that bootstrap files in the field use.
constexpr Handler kHandlers[] = {
    {"default", ConfHandler::IterateOnly, nullptr},
    {"ignore", ConfHandler::Ignore, nullptr},
    {"conf", ConfHandler::Mapper, make<ConfPathMapper>},
    {"confdb", ConfHandler::Mapper, makeMeta},
    {"xml", ConfHandler::Mapper, make<DirectFileConfPathMapper>},
    {"models", ConfHandler::Mapper, make<ModelConfPathMapper>},
    {"lookups", ConfHandler::Mapper, makeLookupTable},
    {"searchscripts", ConfHandler::Mapper, makeLookupTable},
    {"history", ConfHandler::Mapper, makeLookupTable},
};

constexpr Handler kUnrecognized{"", ConfHandler::Unrecognized, nullptr};

const Handler &handlerNamed(const Str &name)
{
    for (const Handler &handler : kHandlers) {
        if (name == handler.name) {
            return handler;
        }
    }
    return kUnrecognized;
}

} // namespace

ConfHandler confHandler(const Str &name)
{
    return handlerNamed(name).kind;
}

std::unique_ptr<IConfPathMapper> makeConfPathMapper(const Str &handler, const BundleHandlerData &data)
{
    const MakeMapper make = handlerNamed(handler).make;
    return make == nullptr ? nullptr : make(handler, data);
}

} // namespace velmox
