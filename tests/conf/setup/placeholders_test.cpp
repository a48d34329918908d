#include "conf/setup/placeholders.h"

#include <gtest/gtest.h>

namespace velmox {
namespace {

const PlaceholderVariables kVariables = {
    {"apps-base", R"(C:\etc\apps)"},
    {"app", "search"},
    {"empty", ""},
    {"nested", "<$app$>"},
    {"dollar", placeholderLiteral("a$app$b")},
    {"host.1", "one"},
    {"host.2", "two"},
    {"host.x", "three"},
    {"loop", "$pool$"},
    {"pool", "$loop$"},
};

struct Case
{
    const char *text;
    const char *expected;
};

TEST(Placeholders, FillsInVariables)
{
    const Case cases[] = {
        {"", ""},
        {"plain", "plain"},
        {"$app$", "search"},
        {"$apps-base$/$app$/local", R"(C:\etc\apps/search/local)"},
        {"$nested$", "<search>"},
        {"$nested{recurse=no}$", "<$app$>"},
        {"$dollar$ and $dollar{recurse=no}$", "a$app$b and a$$app$$b"},
        {"[$unknown$][$empty$]", "[][]"},
        {"$unknown{default=*}$ $app{default=*}$ [$empty{default=*}$]", "* search []"},
        {"$unknown{default=\"a,b\", required=no}$", "a,b"},
        {"$$app$$", "$app$"},
        {"$app", "$app"},
        {"5$", "5$"},
        // The dollar signs between two placeholders that touch are doubled.
        {"$app$$app$", "$app$app$"},
        {"$app$-$app$", "search-search"},
    };
    for (const Case &each : cases) {
        EXPECT_EQ(expandPlaceholders(each.text, kVariables), each.expected) << each.text;
    }
}

TEST(Placeholders, ListsTheVariablesThatMatch)
{
    const Case cases[] = {
        {"$host.*$", "host.1=one,host.2=two,host.x=three"},
        {"$host.#$", "host.1=one,host.2=two"},
        {"$host.*{delim=\", \",format=$VAL@$KEY,key_regex=.*[^1]}$", "two@host.2, three@host.x"},
        {"$app{key_regex=.*}$", "app=search"},
        {"$none*{default=nothing}$", "nothing"},
    };
    for (const Case &each : cases) {
        EXPECT_EQ(expandPlaceholders(each.text, kVariables), each.expected) << each.text;
    }
}

TEST(Placeholders, RefusesWhatCannotBeFilledIn)
{
    const Case cases[] = {
        {"x $gone{required=yes}$",
         "Error while replacing variable name='gone'. Could not find variable in the argument map."},
        {"$loop$", "Error while replacing variable name='loop'. The variable refers to itself."},
        {"$app{color=red}$", "Error while replacing variable name='app'. Unknown option: color"},
    };
    for (const Case &each : cases) {
        try {
            expandPlaceholders(each.text, kVariables);
            ADD_FAILURE() << each.text;
        } catch (const PlaceholderException &exception) {
            EXPECT_EQ(exception.message(), each.expected);
        }
    }
    EXPECT_THROW(expandPlaceholders("$app{key_regex=(}$", kVariables), PlaceholderException);
}

} // namespace
} // namespace velmox
