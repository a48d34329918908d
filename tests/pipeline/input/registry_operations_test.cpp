#include "pipeline/input/registry_operations.h"
#include "util/str.h"

#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>

namespace velmox {
namespace {

TEST(RegistryOperations, CodesGroupAsReadersOfTheStreamKnowThem)
{
    const std::map<std::string, std::set<unsigned>> groups = {
        {"DeleteKey/delete", {0, 2, 15, 17}},
        {"SetValue/set", {1, 3, 16}},
        {"RenameKey/rename", {4, 19}},
        {"QueryKey/query", {5, 6, 7, 8, 9, 23}},
        {"CreateKey/create", {10, 11, 26, 27}},
        {"OpenKey/open", {12, 13, 28, 29}},
        {"CloseKey/close", {14, 25}},
        {"UNKNOWN/unknown", {18, 20, 21, 22, 24, 30, 37, 39, 0xffffffff}},
    };
    unsigned codes = 0;
    for (const auto &[names, members] : groups) {
        for (const unsigned code : members) {
            const RegistryOperation operation = registryOperation(code);
            EXPECT_EQ(std::string(operation.name) + "/" + operation.word, names) << code;
            codes += code < 30;
        }
    }
    EXPECT_EQ(codes, 30u);
}

TEST(RegistryOperations, DataTypesHaveTheirNumbersAndSecurityItsOwn)
{
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
