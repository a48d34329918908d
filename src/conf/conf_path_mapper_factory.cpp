#include "conf/conf_path_mapper_factory.h"

#include "conf/conf_path_mapper.h"

namespace velmox {

namespace {

using MakeMapper = std::unique_ptr<IConfPathMapper> (*)(const Str &handler, const BundleHandlerData &data);

std::unique_ptr<IConfPathMapper> makeConf(const Str &, const BundleHandlerData &data)
{
    return std::make_unique<ConfPathMapper>(data);
}

std::unique_ptr<IConfPathMapper> makeNone(const Str &, const BundleHandlerData &)
{
    return nullptr;
}

struct Handler
{
    const char *name;
    ConfHandler kind;
    MakeMapper make;
};

constexpr Handler kHandlers[] = {
    {"default", ConfHandler::IterateOnly, makeNone}, {"ignore", ConfHandler::Ignore, makeNone},
    {"conf", ConfHandler::Mapper, makeConf},         {"confdb", ConfHandler::Mapper, makeNone},
    {"xml", ConfHandler::Mapper, makeNone},          {"models", ConfHandler::Mapper, makeNone},
    {"lookups", ConfHandler::Mapper, makeNone},      {"searchscripts", ConfHandler::Mapper, makeNone},
    {"history", ConfHandler::Mapper, makeNone},
};

constexpr Handler kUnrecognized{"", ConfHandler::Unrecognized, makeNone};

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
    return handlerNamed(handler).make(handler, data);
}

} // namespace velmox
