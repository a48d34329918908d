#include "companion/events/baseline.h"

#include "companion/stream/registry_path.h"

namespace velmox {

void Baseline::beginStream(const StreamEvent &event)
{
    if (event.isBaseline() && event.stream != stream_) {
        values_.clear();
        stream_ = event.stream;
    }
}

void Baseline::add(const StreamEvent &event)
{
    if (!event.isBaseline()) {
        return;
    }
    values_.insert_or_assign(
        comparableRegistryPath(event.keyPath),
        BaselineValue{std::string(event.keyPath), std::string(event.dataType), std::string(event.data)});
}

void Baseline::compare(const Baseline &oldOne, const Baseline &newOne, const OnDifference &onDifference)
{
    auto oldAt = oldOne.values_.begin();
    auto newAt = newOne.values_.begin();
    while (oldAt != oldOne.values_.end() || newAt != newOne.values_.end()) {
        const bool isOldLeft = oldAt != oldOne.values_.end();
        const bool isNewLeft = newAt != newOne.values_.end();
        const bool isOld = isOldLeft && (!isNewLeft || oldAt->first <= newAt->first);
        const bool isNew = isNewLeft && (!isOldLeft || newAt->first <= oldAt->first);
        if (!isOld || !isNew || oldAt->second != newAt->second) {
            onDifference({isNew ? newAt->second.path : oldAt->second.path, isOld ? &oldAt->second : nullptr,
                          isNew ? &newAt->second : nullptr});
        }
        if (isOld) {
            ++oldAt;
        }
        if (isNew) {
            ++newAt;
        }
    }
}

} // namespace velmox
