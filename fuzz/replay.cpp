#include "fuzz/fuzz_target.h"
#include "util/log/log_system.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace velmox::fuzz {
namespace {

std::vector<std::filesystem::path> inputsOf(const Target &target)
{
    std::vector<std::filesystem::path> paths;
    const std::filesystem::path folder = std::filesystem::path(VELMOX_FUZZ_CORPUS) / target.name;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::string contentsOf(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Runs a target over its inputs, which fuzzing found worth keeping.
class Replay : public ::testing::Test
{
public:
    explicit Replay(const Target &target) : target_(target) {}

    void TestBody() override
    {
        LogSystem::instance().silenceFallback();
        const std::vector<std::filesystem::path> inputs = inputsOf(target_);
        EXPECT_FALSE(inputs.empty());
        for (const std::filesystem::path &path : inputs) {
            SCOPED_TRACE(path.filename().string());
            EXPECT_NO_THROW(target_.run(contentsOf(path)));
        }
    }

private:
    const Target &target_;
};

} // namespace
} // namespace velmox::fuzz

int main(int argc, char **argv)
{
    using velmox::fuzz::Replay;
    using velmox::fuzz::Target;
    ::testing::InitGoogleTest(&argc, argv);
    for (const Target *target = Target::first; target != nullptr; target = target->next) {
        ::testing::RegisterTest("Corpus", target->name, nullptr, nullptr, __FILE__, __LINE__,
                                [target]() -> ::testing::Test * { return new Replay(*target); });
    }
    return RUN_ALL_TESTS();
}
