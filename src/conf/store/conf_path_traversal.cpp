#include "conf/store/conf_path_traversal.h"

#include "conf/ground/conf_path_exceptions.h"
#include "conf/tree/conf_path_base.h"

namespace velmox {

namespace {

constexpr CharSet kSlashes("/\\");

} // namespace

void refuseTraversal(const ConfPathBase &path, const Str &part)
{
    if (part.findFirst(kSlashes, 0, true) >= 0) {
        throw ConfPathDirectoryTraversalException(Str::fromFormat(
            "Directory traversal risk in %s at segment \"%s\"", path.toStr().c_str(), part.c_str()));
    }
}

void refuseTraversal(const ConfPathBase &path)
{
    refuseTraversal(path, path.app());
    const StrVector &parts = path.parts();
    for (std::size_t part = 0; part < parts.size(); ++part) {
        if (part != kStanzaParts - 1) {
            refuseTraversal(path, parts[part]);
        }
    }
}

} // namespace velmox
