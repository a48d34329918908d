#include "util/str.h"
#include "util/unicode_table.h"

#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

namespace velmox {
namespace {

/// The simple case mappings as the database tells them, read here without the help of the generated table.
struct Mapping
{
    std::u32string lower;
    std::u32string upper;
};

Str utf8(char32_t c)
{
    Str text;
    if (c < 0x10000) {
        const auto unit = static_cast<char16_t>(c);
        text.appendUtf16(&unit, 1);
    } else {
        const char16_t units[] = {static_cast<char16_t>(0xD7C0 + (c >> 10)),
                                  static_cast<char16_t>(0xDC00 | (c & 0x3FF))};
        text.appendUtf16(units, 2);
    }
    return text;
}

std::map<char32_t, Mapping> readDatabase()
{
    std::map<char32_t, Mapping> mappings;
    std::ifstream database(VELMOX_UNICODE_DATA);
    for (std::string line; std::getline(database, line);) {
        std::vector<std::string> fields;
        std::istringstream stream(line);
        for (std::string field; std::getline(stream, field, ';');) {
            fields.push_back(field);
        }
        fields.resize(15);
        const auto mapping = [&](std::size_t at) {
            return fields[at].empty()
                       ? std::u32string()
                       : std::u32string(1, static_cast<char32_t>(std::stoul(fields[at], nullptr, 16)));
        };
        mappings[mapping(0).front()] = {mapping(13), mapping(12)};
    }
    return mappings;
}

Str orSame(const std::u32string &mapped, char32_t c)
{
    return utf8(mapped.empty() ? c : mapped.front());
}

// The title-case digraphs have a mapping either way; one row has room for one, and the lower case is kept.
bool isTitleDigraph(char32_t c)
{
    return c == 0x1C5 || c == 0x1C8 || c == 0x1CB || c == 0x1F2;
}

TEST(StrCase, foldsEveryCharacterAsTheDatabaseSays)
{
    const std::map<char32_t, Mapping> mappings = readDatabase();
    ASSERT_GT(mappings.size(), 30000u) << VELMOX_UNICODE_DATA;
    for (const auto &[c, mapping] : mappings) {
        if (c >= 0xD800 && c < 0xE000) {
            continue;
        }
        const Str text = utf8(c);
        ASSERT_EQ(text.lowered(), orSame(mapping.lower, c)) << std::hex << static_cast<unsigned>(c);
        ASSERT_EQ(text.uppered(), isTitleDigraph(c) ? text : orSame(mapping.upper, c))
            << std::hex << static_cast<unsigned>(c);
        ASSERT_EQ(text.compareCaseless(orSame(mapping.lower, c)), 0) << std::hex << static_cast<unsigned>(c);
    }
}

TEST(StrCase, leavesUnassignedCharactersAlone)
{
    for (char32_t c : {0x378, 0x530, 0x2FE0, 0xFFFF, 0x1FFFF, 0x10FFFF}) {
        EXPECT_EQ(utf8(c).lowered(), utf8(c));
        EXPECT_EQ(utf8(c).uppered(), utf8(c));
    }
}

TEST(StrCase, foldsTextOfMixedLengths)
{
    struct Case
    {
        const char *text;
        const char *lower;
        const char *upper;
    };
    const Case cases[] = {
        {"", "", ""},
        {"@AZ[`az{", "@az[`az{", "@AZ[`AZ{"},
        {"\\REGISTRY\\Machine\\Software\\0123456789", "\\registry\\machine\\software\\0123456789",
         "\\REGISTRY\\MACHINE\\SOFTWARE\\0123456789"},
        // One character folds to one, so the sharp s has no upper case.
        {"Straße ÄÖÜ x ÉA", "straße äöü x éa", "STRAßE ÄÖÜ X ÉA"},
        // The kelvin and ohm signs shrink, a letter with stroke grows.
        {"K\u212A\u2126\u023AZ", "kkω\u2C65z", "K\u212A\u2126\u023AZ"},
        // Ill-formed bytes stay, and so do the letters behind them.
        {"\xFF"
         "A\xC3"
         "B\x80\x80\x80\x80\x80\x80"
         "C\xE4",
         "\xFF"
         "a\xC3"
         "b\x80\x80\x80\x80\x80\x80"
         "c\xE4",
         "\xFF"
         "A\xC3"
         "B\x80\x80\x80\x80\x80\x80"
         "C\xE4"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(Str(c.text).lowered(), c.lower);
        EXPECT_EQ(Str(c.text).uppered(), c.upper);
    }
}

TEST(StrCase, foldsAtEveryAlignmentAndKeepsNulBytes)
{
    for (std::size_t lead = 0; lead < 20; ++lead) {
        const Str text = Str::concat(Str(lead, 'Q'), Str("Ä\0Z", 4));
        const Str folded = Str::concat(Str(lead, 'q'), Str("ä\0z", 4));
        EXPECT_EQ(text.lowered(), folded);
        EXPECT_EQ(folded.uppered(), text);
        EXPECT_EQ(text.compareCaseless(folded), 0);
    }
}

TEST(StrCase, appendsBehindWhatStands)
{
    Str out("Kept ");
    Str("ABC").toLower(out);
    Str("def").toUpper(out);
    EXPECT_EQ(out, "Kept abcDEF");
}

TEST(StrCase, comparesInOrderOfFoldedCharacters)
{
    // Each line sorts before the next; the texts in one line are equal.
    const std::vector<std::vector<Str>> lines = {
        {""},
        {"A", "a"},
        {"ab", "AB", "aB"},
        {"ABCDEFGHIJK", "abcdefghijk"},
        {"abcdefghijL", "ABCDEFGHIJl"},
        {"b"},
        {"k", "K", "\u212A"},
        {"STRASSE", "strasse"},
        {"straße", "STRAßE", "STRA\u1E9EE"},
        {"\x80"},
        {"\xC3"
         "a"},
        {"\xFF"},
        {"\xFF\xFF"},
        {"ä", "Ä"},
        {"\u0101", "\u0100"},
        {"\u010F", "\u010E"},
        {"σ", "Σ"},
        {"\U00010428", "\U00010400"},
    };
    const auto sign = [](std::size_t a, std::size_t b) { return a < b ? -1 : a > b ? 1 : 0; };
    for (std::size_t i = 0; i < lines.size(); ++i) {
        for (std::size_t j = 0; j < lines.size(); ++j) {
            for (const Str &a : lines[i]) {
                for (const Str &b : lines[j]) {
                    EXPECT_EQ(a.compareCaseless(b), sign(i, j)) << a.c_str() << " and " << b.c_str();
                }
            }
        }
    }
}

TEST(UnicodeTable, hasTheDocumentedForm)
{
    const std::span<const UnicodeRow> rows = unicodeRows();
    EXPECT_EQ(rows.front().first, 0xC280u);
    EXPECT_EQ(rows.back().first, 0xFFFFFFFFu);
    EXPECT_EQ(lowerCaseKey(0xF0908080), 0xF0908080u) << "Linear B has no case";
    EXPECT_EQ(lowerCaseKey(0xF0909080), 0xF09090A8u);
    EXPECT_EQ(upperCaseKey(0xC2B5), 0xCE9Cu);
    EXPECT_EQ(lowerCaseKey(0xC2B5), 0xC2B5u);
}

} // namespace
} // namespace velmox
