#include "capture/file/capture_reader.h"
#include "capture/file/capture_writer.h"
#include "testbed/record_builder.h"

namespace velmox {
namespace {

CaptureReader::Source sourceOf(std::string_view bytes)
{
    return [bytes](char *out, std::size_t wanted) mutable {
        const std::size_t count = bytes.copy(out, wanted);
        bytes.remove_prefix(count);
        return count;
    };
}

const testbed::Bytes kFirst = testbed::recordBuffer({{.data = {1, 2, 3}}, {.operation = 15}});
const testbed::Bytes kSecond = testbed::recordBuffer({testbed::processCreated(7, 4, u"user"), {}});

/// A capture with all that one can hold, and where its blocks end if none are gathered.
std::string sample(std::set<std::size_t> &ends, std::size_t gatheredBytes = 0)
{
    std::string file;
    CaptureWriter writer([&file](std::string_view bytes) { file += bytes; }, gatheredBytes);
    writer.write({.time = 5,
                  .filter = {7, 0x17, 127, 3},
                  .userPath = u"\\REGISTRY\\USER\\S-1",
                  .controlSet = 2,
                  .drives = {{"c:", "\\device\\harddiskvolume2"}},
                  .processes = {{4, u"System"}, {8, u"\\Device\\x.exe"}}});
    ends.insert(file.size());
    writer.write({.time = 6,
                  .tickCount = 100,
                  .offsets = {{13'222'310'400, -36'000'000'000}},
                  .statuses = {{0, "(0)Success."}}},
                 kFirst);
    ends.insert(file.size());
    writer.write({.time = 7, .lostReads = 3, .created = {{7, u"a.exe"}}}, kSecond);
    ends.insert(file.size());
    writer.write({.time = 8, .records = 4, .lostReads = 3});
    writer.flush();
    EXPECT_EQ(writer.bytes(), file.size());
    return file;
}

std::size_t countBuffers(CaptureReader &reader)
{
    std::size_t count = 0;
    for (CapturedBuffer buffer; reader.next(buffer);) {
        ++count;
    }
    return count;
}

TEST(CaptureFile, GivesBackWhatWasWritten)
{
    std::set<std::size_t> ends;
    const std::string file = sample(ends);
    CaptureReader reader(sourceOf(file));
    EXPECT_EQ(reader.start().filter.ops, 127u);
    EXPECT_EQ(reader.start().userPath, u"\\REGISTRY\\USER\\S-1");
    EXPECT_EQ(reader.start().controlSet, 2u);
    EXPECT_EQ(reader.start().drives.at(0).device, "\\device\\harddiskvolume2");
    EXPECT_EQ(reader.start().processes.at(1).image, u"\\Device\\x.exe");
    CapturedBuffer buffer;
    ASSERT_TRUE(reader.next(buffer));
    EXPECT_THAT(buffer.records, ElementsAreArray(kFirst));
    EXPECT_EQ(buffer.recordCount, 2u);
    EXPECT_EQ(buffer.facts.offsets.at(0).ticks, -36'000'000'000);
    EXPECT_EQ(buffer.facts.statuses.at(0).text, "(0)Success.");
    ASSERT_TRUE(reader.next(buffer));
    EXPECT_THAT(buffer.records, ElementsAreArray(kSecond));
    EXPECT_EQ(buffer.facts.lostReads, 3u);
    EXPECT_EQ(buffer.facts.created.at(0).image, u"a.exe");
    EXPECT_FALSE(reader.next(buffer));
    EXPECT_FALSE(reader.isCut());
    EXPECT_EQ(reader.end().records, 4u);
}

TEST(CaptureFile, IsTheSameHoweverManyBlocksGoOutAtOnce)
{
    std::set<std::size_t> ends;
    const std::string file = sample(ends);
    for (std::size_t gathered = 1; gathered < 2 * file.size(); gathered += 7) {
        EXPECT_EQ(sample(ends, gathered), file) << gathered;
    }
}

TEST(CaptureFile, HasWhatWasGatheredBeforeAFailureAndOnlyOnce)
{
    const auto recorded = [](std::size_t room) {
        std::string file;
        const auto sink = [&file, room](std::string_view bytes) {
            file += bytes.substr(0, room);
            if (bytes.size() > room) {
                throw CaptureException("the disk is full");
            }
        };
        {
            CaptureWriter writer(sink, 1'000'000);
            writer.write(CaptureStart());
            writer.write(BufferFacts{.offsets = {{13'222'310'400, 0}}, .statuses = {{0, ""}}}, kFirst);
            EXPECT_THROW(writer.write(BufferFacts(), {kFirst.data(), file.max_size()}), std::length_error);
            EXPECT_EQ(file, "");
            if (room == 50) {
                EXPECT_THROW(writer.flush(), CaptureException);
            }
        }
        return file;
    };
    const std::string file = recorded(1'000'000);
    CaptureReader reader(sourceOf(file));
    EXPECT_EQ(countBuffers(reader), 1u);
    EXPECT_TRUE(reader.isCut());
    EXPECT_EQ(recorded(50), file.substr(0, 50));
}

TEST(CaptureFile, IsReadUpToItsLastWholeBlockWhereverItIsCut)
{
    std::set<std::size_t> ends;
    const std::string file = sample(ends);
    for (std::size_t length = 0; length < file.size(); ++length) {
        CaptureReader reader(sourceOf(std::string_view(file).substr(0, length)));
        const auto blocks = static_cast<std::size_t>(std::distance(ends.begin(), ends.upper_bound(length)));
        EXPECT_EQ(countBuffers(reader), blocks == 0 ? 0 : blocks - 1) << length;
        EXPECT_TRUE(reader.isCut()) << length;
    }
}

TEST(CaptureFile, SaysSoWhicheverByteIsDamaged)
{
    std::set<std::size_t> ends;
    std::string file = sample(ends);
    const auto readAll = [&file] {
        CaptureReader reader(sourceOf(file));
        countBuffers(reader);
    };
    for (char &byte : file) {
        byte ^= 0x20;
        EXPECT_THROW(readAll(), CaptureException) << &byte - file.data();
        byte ^= 0x20;
    }
    file += '\0';
    EXPECT_THROW(readAll(), CaptureException);
}

// The sums are right, and what they stand for is not.
TEST(CaptureFile, BelievesNoSizeOfARecord)
{
    const auto resized = [](std::uint32_t nameBytes, std::uint32_t dataBytes) {
        testbed::Bytes bytes = kFirst;
        std::memcpy(bytes.data() + 36, &nameBytes, sizeof nameBytes);
        std::memcpy(bytes.data() + 40, &dataBytes, sizeof dataBytes);
        return bytes;
    };
    const testbed::Bytes wrong[] = {
        resized(0xFFFFFFFF, 47),     // comes to a whole record in 32 bits
        resized(0, 0xFFFFFFFF - 45), // to none, for ever
        resized(2, 1'000'000),       // reaches beyond the buffer
        {kFirst.begin(), kFirst.end() - 1},
        {kFirst.begin(), kFirst.begin() + 45},
        kSecond, // a process of which nothing is told
    };
    for (const testbed::Bytes &records : wrong) {
        std::string file;
        CaptureWriter writer([&file](std::string_view bytes) { file += bytes; });
        writer.write(CaptureStart());
        writer.write(BufferFacts(), records);
        CaptureReader reader(sourceOf(file));
        CapturedBuffer buffer;
        EXPECT_THROW(reader.next(buffer), CaptureException) << records.size();
    }
}

TEST(CaptureFile, HasWhatItsRecordsNeedAndCountsThem)
{
    const std::vector<CapturedOffset> offsets = {{13'222'310'400, 0}};
    const std::vector<CapturedStatus> statuses = {{0, "(0)Success."}};
    const struct
    {
        BufferFacts facts;
        std::uint64_t records;
        bool isSound;
    } rows[] = {{{.offsets = offsets, .statuses = statuses}, 2, true},
                {{.offsets = offsets, .statuses = statuses}, 3, false},
                {{.offsets = {{13'222'310'401, 0}}, .statuses = statuses}, 2, false},
                {{.statuses = statuses}, 2, false},
                {{.offsets = offsets, .statuses = {{1, "(1)"}}}, 2, false}};
    for (const auto &row : rows) {
        std::string file;
        CaptureWriter writer([&file](std::string_view bytes) { file += bytes; });
        writer.write(CaptureStart());
        writer.write(row.facts, kFirst);
        writer.write({.records = row.records});
        CaptureReader reader(sourceOf(file));
        if (row.isSound) {
            EXPECT_EQ(countBuffers(reader), 1u);
        } else {
            EXPECT_THROW(countBuffers(reader), CaptureException) << &row - rows;
        }
    }
}

} // namespace
} // namespace velmox
