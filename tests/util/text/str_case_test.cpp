#include "util/text/code_point.h"

#include <fstream>

namespace velmox {
namespace {

Str utf8(unsigned long c)
{
    Str text;
    appendCharacter(text, static_cast<char32_t>(c));
    return text;
}

TEST(StrCase, FoldsEveryCharacterAsTheDatabaseSays)
{
    std::ifstream database(VELMOX_UNICODE_DATA);
    unsigned long c = 0;
    int count = 0;
    for (std::string line; std::getline(database, line); ++count) {
        StrVector fields;
        StrSegment(std::string_view(line)).splitInto(fields, ";", Str::kNoLimit);
        c = std::stoul(fields[0].c_str(), nullptr, 16);
        if (c >= 0xD800 && c < 0xE000) {
            continue;
        }
        const auto mapped = [&](std::size_t field) {
            return utf8(fields[field].empty() ? c : std::stoul(fields[field].c_str(), nullptr, 16));
        };
        // The title-case digraphs have a mapping either way; one row has room for one, and the lower case is
        // kept.
        const bool isDigraph = c == 0x1C5 || c == 0x1C8 || c == 0x1CB || c == 0x1F2;
        const Str text = utf8(c);
        ASSERT_EQ(text.lowered(), mapped(13)) << line;
        ASSERT_EQ(text.uppered(), isDigraph ? text : mapped(12)) << line;
        ASSERT_EQ(text.compareCaseless(mapped(13)), 0) << line;
    }
    EXPECT_GT(count, 30000) << VELMOX_UNICODE_DATA;
    for (const unsigned long unassigned : {0x378, 0x530, 0x2FE0, 0xFFFF, 0x1FFFF, 0x10FFFF}) {
        EXPECT_EQ(utf8(unassigned).lowered(), utf8(unassigned));
        EXPECT_EQ(utf8(unassigned).uppered(), utf8(unassigned));
    }
}

TEST(StrCase, FoldsTextOfMixedLengths)
{
    const std::tuple<Str, const char *, const char *> cases[] = {
        {"@AZ[`az{", "@az[`az{", "@AZ[`AZ{"},
        {"\\REGISTRY\\Machine\\Software\\0123456789", "\\registry\\machine\\software\\0123456789",
         "\\REGISTRY\\MACHINE\\SOFTWARE\\0123456789"},
        // One character folds to one, so the sharp s has no upper case.
        {"Straße ÄÖÜ x ÉA", "straße äöü x éa", "STRAßE ÄÖÜ X ÉA"},
        // The kelvin and ohm signs shrink, a letter with stroke grows.
        {"K\u212A\u2126\u023AZ", "kkω\u2C65z", "K\u212A\u2126\u023AZ"},
        // Ill-formed bytes stay, and so do the letters behind them.
        {"\xFF\x41\xC3\x42\x80\x80\x80\x80\x80\x80\x43\xE4",
         "\xFF\x61\xC3\x62\x80\x80\x80\x80\x80\x80\x63\xE4",
         "\xFF\x41\xC3\x42\x80\x80\x80\x80\x80\x80\x43\xE4"}};
    for (const auto &[text, lower, upper] : cases) {
        EXPECT_EQ(text.lowered(), lower);
        EXPECT_EQ(text.uppered(), upper);
    }
    for (std::size_t lead = 0; lead < 20; ++lead) { // every alignment, with a NUL byte behind
        const Str text = Str::concat(Str(lead, 'Q'), Str("Ä\0Z", 4));
        const Str folded = Str::concat(Str(lead, 'q'), Str("ä\0z", 4));
        EXPECT_EQ(text.lowered(), folded);
        EXPECT_EQ(folded.uppered(), text);
        EXPECT_EQ(text.compareCaseless(folded), 0);
    }
}

TEST(StrCase, ComparesInOrderOfFoldedCharacters)
{
    // Each line sorts before the next; the texts in one line are equal.
    const std::vector<StrVector> lines = {{""},
                                          {"A", "a"},
                                          {"ab", "AB", "aB"},
                                          {"ABCDEFGHIJK", "abcdefghijk"},
                                          {"b"},
                                          {"k", "K", "\u212A"},
                                          {"STRASSE", "strasse"},
                                          {"straße", "STRAßE", "STRA\u1E9EE"},
                                          {"\xC3\x61"},
                                          {"\xFF"},
                                          {"\xFF\xFF"},
                                          {"ä", "Ä"},
                                          {"\u0101", "\u0100"},
                                          {"σ", "Σ"},
                                          {"\U00010428", "\U00010400"}};
    for (std::size_t i = 0; i < lines.size(); ++i) {
        for (std::size_t j = 0; j < lines.size(); ++j) {
            for (const Str &a : lines[i]) {
                for (const Str &b : lines[j]) {
                    EXPECT_EQ(a.compareCaseless(b), i < j ? -1 : i > j) << a.c_str() << " and " << b.c_str();
                }
            }
        }
    }
}

} // namespace
} // namespace velmox
