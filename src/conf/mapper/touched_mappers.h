#pragma once

#include "conf/mapper/i_conf_path_mapper.h"

#include <algorithm>
#include <vector>

namespace velmox {

/// The mappers that a change went through, each once, in the order in which it came to them.
class TouchedMappers
{
public:
    void add(IConfPathMapper &mapper)
    {
        if (std::find(mappers_.begin(), mappers_.end(), &mapper) == mappers_.end()) {
            mappers_.push_back(&mapper);
        }
    }

    /// Flushes all of them and gives the first that could not; null when all could.
    const IConfPathMapper *flush() const
    {
        const IConfPathMapper *failed = nullptr;
        for (IConfPathMapper *const mapper : mappers_) {
            if (!mapper->flush() && failed == nullptr) {
                failed = mapper;
            }
        }
        return failed;
    }

private:
    std::vector<IConfPathMapper *> mappers_;
};

} // namespace velmox
