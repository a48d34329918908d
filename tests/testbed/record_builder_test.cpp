#include "testbed/record_builder.h"

#include <gtest/gtest.h>

namespace velmox::testbed {

namespace {

TEST(RecordBuilder, laysRecordsOutBackToBackWithEveryFieldAtItsOffset)
{
    const Bytes first = {4,    3,    2,    1,    0x14, 0x13, 0x12, 0x11, 0x24, 0x23, 0x22, 0x21, 0x34, 0x33,
                         0x32, 0x31, 0x44, 0x43, 0x42, 0x41, 0x54, 0x53, 0x52, 0x51, 0x64, 0x63, 0x62, 0x61,
                         0x78, 0x77, 0x76, 0x75, 0x74, 0x73, 0x72, 0x71, 4,    0,    0,    0,    3,    0,
                         0,    0,    'a',  0,    'Z',  0,    0,    0,    9,    8,    7};
    Bytes buffer = recordBuffer({{.recordClass = 0x01020304,
                                  .reserved = 0x11121314,
                                  .operation = 0x21222324,
                                  .status = 0x31323334,
                                  .pid = 0x41424344,
                                  .parentPid = 0x51525354,
                                  .dataType = 0x61626364,
                                  .timestamp = 0x7172737475767778,
                                  .name = u"aZ",
                                  .data = {9, 8, 7}},
                                 {.name = {}}});
    EXPECT_EQ(buffer.size(), first.size() + 46);
    EXPECT_EQ(countRecords(buffer), 2u);
    buffer.resize(first.size());
    EXPECT_EQ(buffer, first);
}

} // namespace

} // namespace velmox::testbed
