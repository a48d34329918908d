#pragma once

#include "conf/tree/properties_map.h"
#include "testbed/record_builder.h"

#include <random>

namespace velmox::testing {

/// Records and stanzas that meet often enough. The same seed gives the same ones.
class RandomInput
{
public:
    /// `knownPid` is one of the six processes.
    explicit RandomInput(unsigned seed, std::uint32_t knownPid = kFirstPid) : dice_(seed), knownPid_(knownPid)
    {
    }

    unsigned below(unsigned count) { return static_cast<unsigned>(dice_() % count); }

    Stanzas stanzas()
    {
        Stanzas all;
        for (unsigned left = 1 + below(4); left > 0; --left) {
            PropertiesMap &stanza = all[Str::fromFormat("WinRegMon://s%u", left)];
            stanza.set("hive", pick({".*", R"(HKLM\\Software\\.*)", R"(HKCU\\.*)", R"(HKLM\\System\\x)",
                                     R"(HKLM\\System\\CurrentControlSet\\.*)", R"(.*\\run\\?.*)"}));
            stanza.set("proc", pick({".*", ".*", R"(c:\\.*)", R"(.*\\p[0-4]\.exe)", "^$"}));
            stanza.set("type",
                       pick({"", "set", "set|delete|create", "query|open|close|unknown", "SET|open"}));
            if (below(2) == 0) {
                stanza.set("index", pick({"main", "a&b"}));
            }
        }
        return all;
    }

    /// One buffer, of records whose times go on from buffer to buffer.
    testbed::Bytes buffer()
    {
        testbed::Bytes bytes;
        for (unsigned left = 1 + below(12); left > 0; --left) {
            testbed::appendRecord(bytes, record());
        }
        return bytes;
    }

private:
    const char *pick(std::initializer_list<const char *> from)
    {
        return from.begin()[below(static_cast<unsigned>(from.size()))];
    }

    testbed::RecordFields record()
    {
        constexpr std::u16string_view kNames[] = {u"\\REGISTRY\\MACHINE\\SOFTWARE\\Run\\v",
                                                  u"\\REGISTRY\\MACHINE\\System\\ControlSet002\\Services\\x",
                                                  u"\\registry\\machine\\SYSTEM\\ControlSet001\\x",
                                                  u"\\REGISTRY\\USER\\S-1-5-21-7\\Run",
                                                  u"\\REGISTRY\\MACHINERY\\\xD800<\x416>",
                                                  u"\\Device\\HarddiskVolume1\\Dir\\p3.EXE",
                                                  u""};
        testbed::RecordFields fields;
        constexpr std::uint32_t kClasses[] = {1, 1, 1, 1, 1, 2, 2, 3, 4};
        fields.recordClass = kClasses[below(std::size(kClasses))];
        fields.operation = fields.recordClass == 2 ? below(3) : below(34);
        constexpr std::uint32_t kStatuses[] = {0, 0, 0, 0xC0000022, 0xC0000034, 0x40000000};
        fields.status = kStatuses[below(std::size(kStatuses))];
        const unsigned process = below(6);
        fields.pid = process == 0 ? knownPid_ : kFirstPid + 4 * process;
        fields.dataType = below(13);
        fields.name = kNames[below(std::size(kNames))];
        fields.data.resize(below(24));
        for (unsigned char &byte : fields.data) {
            byte = static_cast<unsigned char>(below(4) == 0 ? '\n' : below(3) * 'a');
        }
        fields.timestamp = nextTime();
        return fields;
    }

    // Mostly later than the last, by up to two seconds; some earlier, in another half of the year, no date.
    std::uint64_t nextTime()
    {
        switch (below(20)) {
        case 0:
            return time_ - 30'000'000;
        case 1:
            return below(3) == 0 ? ~time_ : time_;
        case 2:
            time_ += 157'680'000'000'000;
            break;
        default:
            time_ += below(2) == 0 ? below(9000) : below(20'000'000);
        }
        return time_;
    }

    static constexpr std::uint32_t kFirstPid = 1'000'001;

    std::mt19937 dice_;
    std::uint32_t knownPid_;
    std::uint64_t time_ = 132'223'104'000'000'000;
};

} // namespace velmox::testing
