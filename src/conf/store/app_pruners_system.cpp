#include "conf/store/application_manager.h"
#include "conf/store/conf_context.h"
#include "conf/store/conf_settings.h"
#include "conf/store/shared_conf_services.h"
#include "conf/tree/conf_path_pruners.h"
#include "conf/tree/context_pruners.h"

namespace velmox {

namespace {

std::set<Str> importsOf(const ConfContext &reader)
{
    std::set<Str> apps = {reader.app};
    reader.setup.shared().applications().expandImports(apps);
    return apps;
}

} // namespace

DisabledApplicationPruner::DisabledApplicationPruner(const BundlesSetup &setup)
    : DisabledApplicationPruner(
          [setup](const Str &app) { return setup.shared().applications().isUsable(app); })
{
}

DanglingDataPruner::DanglingDataPruner(const BundlesSetup &setup)
    : DanglingDataPruner(
          setup.shared().settings().isSharedStorageMode(),
          [setup](const Str &app) { return setup.shared().applications().isKnown(app); },
          [setup](const Str &app) { return setup.shared().settings().allowsDangling(app); })
{
}

SingleUserAppContextPruner::SingleUserAppContextPruner(const ConfContext &reader)
    : SingleUserAppContextPruner(reader.user, reader.app, importsOf(reader))
{
}

} // namespace velmox
