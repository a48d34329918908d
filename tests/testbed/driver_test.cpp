#include "testbed/driver_control.h"
#include "testbed/driver_service.h"

#include <gtest/gtest.h>

namespace velmox::testbed {

namespace {

constexpr std::uint32_t kStatusDeviceNotReady = 0xC00000A3; // error 21
constexpr std::uint32_t kTooLarge = 70'000;

/// The driver, started once for all tests of the class and fresh for each.
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
        {{7, 0, 123, 3}, machineSet, false},
        {{6, 0, 127, 3}, machineSet, false},
        {{1, 0, 8, 1}, userDelete, true},
        {{1, 0, 8, 2}, userDelete, false},
        {{1, 0, 8, 1}, deleteValue, true},
        {{7, 0, 0xFFFFFFFF, 3}, unknownOperation, false},
        {{7, 0, 127, 3}, otherHive, false},
        {{2, 0, 0, 0}, processCreated(8, 4, u"A\\b"), true},
        {{4, 0, 0, 0}, imageLoaded(8, u"\\Device\\x.exe"), true},
        {{3, 0, 127, 3}, imageLoaded(8, u"\\Device\\x.exe"), false},
        {{7, 0, 127, 3}, {.recordClass = 3}, false},
    };
    for (const Case &one : cases) {
        driver.setFilter(one.block);
        driver.push(recordBytes(one.record));
        EXPECT_EQ(!driver.read(8192).bytes.empty(), one.passes) << &one - cases;
    }
    driver.pushUnfiltered(recordBuffer({{.recordClass = 5}, unknownOperation}));
    EXPECT_EQ(countRecords(driver.read(8192).bytes), 2u);
}

TEST_F(DriverTest, givesNothingBeforeAFilterNorBehindTheGate)
{
    driver.reset();
    driver.push(recordBytes({}));
    EXPECT_TRUE(driver.read(8192).bytes.empty());
    driver.setFilter(everything());
    driver.closeGate();
    EXPECT_TRUE(driver.read(8192).bytes.empty());
    EXPECT_EQ(driver.state().recordsWaiting, 1u);
    driver.openGate();
    EXPECT_FALSE(driver.read(8192).bytes.empty());
    EXPECT_EQ(driver.state().filter.status, 0x17u);
    EXPECT_EQ(driver.state().setFilterCalls, 1u);
}

TEST_F(DriverTest, playsScriptedFaultsInOrder)
{
    driver.push(recordBytes({}), 2);
    driver.passReads(1);
    driver.failReads(kStatusDeviceNotReady, 2);
    driver.failReads(0);
    driver.failSetFilter(kStatusDeviceNotReady);
    EXPECT_EQ(driver.setFilter({}), 21u);
    const auto size = static_cast<std::uint32_t>(recordBytes({}).size());
    for (const DWORD expected : {0u, 21u, 21u, 0u, 0u}) {
        EXPECT_EQ(driver.read(size).error, expected);
    }
    EXPECT_EQ(driver.state().readsEmpty, 1u);
    EXPECT_EQ(driver.state().recordsWaiting, 0u);
    EXPECT_EQ(driver.state().faultsWaiting, 0u);
}

TEST_F(DriverTest, floodsFromAFewRecords)
{
    driver.push(recordBuffer({{.timestamp = 100}, {.timestamp = 100}}), 1000, 7);
    EXPECT_EQ(driver.state().recordsWaiting, 2000u);
    std::size_t records = 0;
    Bytes last;
    for (Bytes read; !(read = driver.read(65536).bytes).empty(); last = read) {
        records += countRecords(read);
    }
    EXPECT_EQ(records, 2000u);
    const Bytes expected = recordBytes({.timestamp = 100 + 7 * 1999});
    EXPECT_TRUE(std::equal(expected.rbegin(), expected.rend(), last.rbegin()));
}

TEST_F(DriverTest, refusesPartsOfRecordsAndMoreThanItsBound)
{
    Bytes cut = recordBytes({});
    cut.pop_back();
    EXPECT_THROW(driver.push(cut), std::system_error);
    EXPECT_THROW(driver.push({}), std::system_error);

    driver.push(recordBytes(withData(VELMOX_TEST_QUEUE_BYTES - 1000)));
    EXPECT_THROW(driver.push(recordBytes(withData(1000))), std::system_error);
    EXPECT_EQ(driver.state().recordsDropped, 1u);
}

} // namespace

} // namespace velmox::testbed
