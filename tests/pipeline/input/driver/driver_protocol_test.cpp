#include "pipeline/input/driver/driver_protocol.h"
#include "testbed/record_builder.h"

namespace velmox {
namespace {

// The length of a counted string has 16 bits: of a longer name only the rest of the division is text, while
// the data and the next record stand behind all of it.
TEST(MonitorRecord, OfALongNameTheLowHalfOfTheLengthIsText)
{
    for (const std::size_t units : {0u, 3u, 0x7FFFu, 0x8000u, 0x8003u}) {
        testbed::RecordFields fields;
        fields.name.assign(units, u'n');
        fields.data = {1, 2, 3};
        const testbed::Bytes bytes = testbed::recordBytes(fields);
        const MonitorRecord record(bytes.data());
        EXPECT_EQ(record.nameUnits(), units % 0x8000) << units;
        EXPECT_EQ(record.data(), bytes.data() + bytes.size() - 3) << units;
        EXPECT_EQ(record.length(), bytes.size()) << units;
    }
}

} // namespace
} // namespace velmox
