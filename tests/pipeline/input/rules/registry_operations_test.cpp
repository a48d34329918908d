#include "pipeline/input/rules/registry_operations.h"

namespace velmox {
namespace {

TEST(RegistryOperations, CodesHaveTheNamesThatReadersOfTheStreamKnow)
{
    std::string words;
    for (std::uint32_t code = 0; code < 31; ++code) {
        const RegistryOperation operation = registryOperation(code);
        words.append(operation.word).append(operation.name[0] == 'U' ? "? " : " ");
    }
    EXPECT_EQ(words,
              "delete set delete set rename query query query query query create create open open close "
              "delete set delete unknown? rename unknown? unknown? unknown? query unknown? close create "
              "create open open unknown? ");
    EXPECT_STREQ(registryOperation(17).name, "DeleteKey");
    EXPECT_STREQ(registryOperation(3).name, "SetValue");
    EXPECT_STREQ(registryOperation(0xFFFFFFFF).word, "unknown");
}

} // namespace
} // namespace velmox
