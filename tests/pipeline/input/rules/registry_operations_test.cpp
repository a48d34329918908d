#include "pipeline/input/events/value_rendering.h"
#include "pipeline/input/rules/registry_operations.h"

#include <gtest/gtest.h>
#include <string>

namespace velmox {
namespace {

TEST(RegistryOperations, CodesAndTypesHaveTheNamesThatReadersOfTheStreamKnow)
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
    EXPECT_STREQ(dataTypeName(1, 0), "REG_NONE");
    EXPECT_STREQ(dataTypeName(1, 7), "REG_MULTI_SZ");
    EXPECT_STREQ(dataTypeName(1, 11), "REG_QWORD");
    EXPECT_STREQ(dataTypeName(1, 12), "UNKNOWN");
    EXPECT_STREQ(dataTypeName(37, 1), "REG_SD");
    EXPECT_STREQ(dataTypeName(39, 99), "REG_SD");
    EXPECT_STREQ(dataTypeName(38, 1), "REG_SZ");
}

} // namespace
} // namespace velmox
