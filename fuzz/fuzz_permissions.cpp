#include "conf/mapper/meta_file.h"
#include "conf/tree/conf_acl.h"
#include "fuzz/fuzz_target.h"

namespace velmox::fuzz {
namespace {

void checkPermissions(const Str &text)
{
    ConfAcl::Capabilities capabilities;
    if (!parsePermissions(text, capabilities)) {
        return;
    }
    // A list in which no role could be decoded has no text: the empty list holds the role without a name.
    std::erase_if(capabilities, [](const auto &entry) { return entry.second.empty(); });
    const Str written = permissionText(capabilities);
    ConfAcl::Capabilities again;
    require(parsePermissions(written, again) && again == capabilities, "permissions read back");
    const ConfAcl acl(capabilities);
    for (const auto &[name, roles] : capabilities) {
        require(acl.allows(name, roles), "who is named is allowed");
    }
}

bool hasEmptyPart(const ConfPathBase &path)
{
    for (const Str &part : path.parts()) {
        if (part.empty()) {
            return true;
        }
    }
    return path.user().empty() || path.app().empty();
}

void checkHeader(const Str &name)
{
    const ConfPathBase app("nobody", "search");
    const std::optional<ConfPathBase> path = parseMetaHeader(name, app);
    if (!path || hasEmptyPart(*path)) {
        return; // an empty part need not have a name
    }
    const std::optional<Str> header = metaHeader(*path, app);
    require(header.has_value(), "a path that was read has a name");
    const std::optional<ConfPathBase> back = parseMetaHeader(*header, app);
    require(back && back->toStr() == path->toStr() && back->parts() == path->parts(), "the name reads back");
    require(metaHeader(*back, app) == header, "naming settles at once");
}

} // namespace

/// The first line is the header of a metadata stanza, the rest a permission text.
VELMOX_FUZZ_TARGET(permissions)
{
    Input input(bytes);
    const std::string_view name = input.line();
    if (Str::isValidUtf8(name.data(), name.size())) { // readers of files give nothing else
        checkHeader(Str(name));
    }
    checkPermissions(Str(input.rest()));
}

} // namespace velmox::fuzz
