#include "testbed/driver_control.h"
#include "testbed/driver_service.h"

namespace velmox::testbed {

namespace {

constexpr std::uint32_t kTooLarge = 70'000;

/// The driver, started once for all tests of the class and fresh for each. Here is only what neither the demo
/// nor the tests of the installed program would show: that it keeps to the filter, and gives whole records.
class DriverTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { startDriverService(); }
    static void TearDownTestSuite() { removeDriverService(); }

    DriverTest()
    {
        driver.reset();
        driver.setFilter(everything());
    }

    TestDriver driver;
};

RecordFields withData(std::size_t size)
{
    return {.dataType = 3, .name = u"\\REGISTRY\\MACHINE\\A", .data = Bytes(size, 0xEE)};
}

TEST_F(DriverTest, givesWholeRecordsThatFitAndLosesNothing)
{
    const Bytes first = recordBytes(withData(1));
    const Bytes second = recordBytes(withData(100));
    const Bytes large = recordBytes(withData(kTooLarge));
    const auto size = static_cast<std::uint32_t>(first.size());
    const auto both = static_cast<std::uint32_t>(first.size() + second.size());
    driver.push(recordBuffer({withData(1), withData(100), withData(1), withData(kTooLarge)}));
    const struct
    {
        std::uint32_t capacity;
        DWORD error;
        Bytes bytes;
    } reads[] = {
        {size - 1, 122, {}},   {0, 122, {}},     {size, 0, first}, {size, 122, {}},
        {both - 1, 0, second}, {8191, 0, first}, {65536, 122, {}}, {kTooLarge + 1000, 0, large},
        {8192, 0, {}},
    };
    for (const auto &read : reads) {
        // Whoever reads, it is one queue.
        const ReadResult result = TestDriver().read(read.capacity);
        EXPECT_EQ(result.error, read.error) << &read - reads;
        EXPECT_EQ(result.bytes, read.bytes) << &read - reads;
    }
    EXPECT_EQ(driver.state().recordsWaiting, 0u);
    EXPECT_EQ(driver.state().readsEmpty, 1u);
}

TEST_F(DriverTest, obeysTheFilterBlock)
{
    struct Case
    {
        VelmoxFilterBlock block;
        RecordFields record;
        bool passes;
    };
    const RecordFields machineSet = {.operation = 16, .name = u"\\Registry\\Machine\\Software"};
    const RecordFields userDelete = {.operation = 0, .name = u"\\REGISTRY\\USER\\S-1-5-18"};
    const RecordFields deleteValue = {.operation = 17, .name = u"\\REGISTRY\\USER"};
    const RecordFields unknownOperation = {.operation = 20};
    const RecordFields otherHive = {.name = u"\\REGISTRY\\USERS\\A"};
    const Case cases[] = {
        {{7, 0, 4, 2}, machineSet, true},
        {{7, 0, 4, 1}, machineSet, false},
        {{6, 0, 127, 3}, machineSet, false},
        {{1, 0, 8, 1}, userDelete, true},
        {{1, 0, 8, 1}, deleteValue, true},
        {{7, 0, 127, 3}, otherHive, false},
        {{2, 0, 0, 0}, processCreated(8, 4, u"A\\b"), true},
        {{3, 0, 127, 3}, imageLoaded(8, u"\\Device\\x.exe"), false},
    };
    for (const Case &one : cases) {
        driver.setFilter(one.block);
        driver.push(recordBytes(one.record));
        EXPECT_EQ(!driver.read(8192).bytes.empty(), one.passes) << &one - cases;
    }
    driver.pushUnfiltered(recordBuffer({{.recordClass = 5}, unknownOperation}));
    EXPECT_EQ(countRecords(driver.read(8192).bytes), 2u);
}

} // namespace

} // namespace velmox::testbed
