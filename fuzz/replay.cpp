// Runs the targets over inputs that are kept, as tests; or one of them over random ones:
//
//     fuzz-replay --random TARGET COUNT [SEED]
//
// until it has made so many comparisons, or, if it counts none, over so many inputs.

#include "fuzz/fuzz_target.h"
#include "util/log/log_system.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <random>

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

std::string randomInput(std::mt19937_64 &dice)
{
    constexpr unsigned kMostBytes = 4096;
    std::string input(1 + dice() % kMostBytes, '\0');
    std::ranges::generate(input, [&dice] { return static_cast<char>(dice()); });
    return input;
}

/// Tells how far it came; where a property does not hold, the input is left in the working directory.
int runRandomly(const Target &target, unsigned long long count, unsigned long long seed)
{
    LogSystem::instance().silenceFallback();
    std::mt19937_64 dice(seed);
    unsigned long long inputs = 0;
    for (; (comparisons == 0 ? inputs : comparisons) < count; ++inputs) {
        const std::string input = randomInput(dice);
        try {
            target.run(input);
        } catch (const std::exception &exception) {
            std::ofstream(Str::concat(target.name, "-fault").c_str(), std::ios::binary) << input;
            std::printf("%s: input %llu of seed %llu: %s\n", target.name, inputs, seed, exception.what());
            return 1;
        }
    }
    std::printf("%s: %llu comparisons over %llu inputs of seed %llu, no difference\n", target.name,
                comparisons, inputs, seed);
    return 0;
}

} // namespace
} // namespace velmox::fuzz

int main(int argc, char **argv)
{
    using velmox::fuzz::Replay;
    using velmox::fuzz::Target;
    for (const Target *target = Target::first; target != nullptr && argc > 3; target = target->next) {
        if (std::string_view(argv[1]) == "--random" && std::string_view(argv[2]) == target->name) {
            const auto number = [](const char *text) { return std::strtoull(text, nullptr, 10); };
            return velmox::fuzz::runRandomly(*target, number(argv[3]), argc > 4 ? number(argv[4]) : 1);
        }
    }
    ::testing::InitGoogleTest(&argc, argv);
    for (const Target *target = Target::first; target != nullptr; target = target->next) {
        ::testing::RegisterTest("Corpus", target->name, nullptr, nullptr, __FILE__, __LINE__,
                                [target]() -> ::testing::Test * { return new Replay(*target); });
    }
    return RUN_ALL_TESTS();
}
