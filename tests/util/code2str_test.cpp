#include "util/code2str.h"

#include <gtest/gtest.h>

namespace
{

char *chosen = nullptr;
char chosen_text[] = "chosen";

const code_str colours[] = {{1, "scarlet", nullptr, 1}, {1, "red", nullptr, 0},
                            {2, "green", nullptr, 0},   {2, "lime", nullptr, 0},
                            {3, "blue", &chosen, 0},    {4, nullptr, nullptr, 0},
                            {5, "late", nullptr, 0},    {-1, "no colour", nullptr, 0}};

const char *const hidden_words[] = {"old", nullptr};
const char *const up_words[] = {"up", "running", nullptr};
const char *const down_words[] = {"down", nullptr};
const code_names states[] = {{0, hidden_words, 1}, {0, up_words, 0},     {1, nullptr, 0},
                             {2, hidden_words, 1}, {3, hidden_words, 1}, {4, down_words, 0},
                             {5, down_words, 1},   {-1, nullptr, 0}};

TEST(Code2str, FirstVisibleRowElseTheTerminator)
{
    chosen = chosen_text;
    EXPECT_STREQ(code2str(colours, 1), "red");
    EXPECT_STREQ(code2str(colours, 2), "green");
    EXPECT_STREQ(code2str(colours, 3), "chosen");
    EXPECT_EQ(code2str(colours, 4), nullptr);
    for (const int unknown : {-1, 6, -2147483647 - 1})
        EXPECT_STREQ(code2str(colours, unknown), "no colour") << unknown;
    EXPECT_EQ(code2str(nullptr, 1), nullptr);
}

TEST(Code2str, WordsToCodes)
{
    const struct {
        const char *word;
        bool with_indirect;
        int code;
    } rows[] = {
        {"red", true, 1},      {"scarlet", true, 1}, {"lime", true, 2},
        {"chosen", true, 3},   {"blue", true, 4}, // the nameless row takes what the rows before it do not
        {"late", true, 4},     {"Red", true, 4},     {nullptr, true, 4},
        {"nothing", false, 3}, // an indirect text of NULL takes everything, too
        {"green", false, 2},
    };
    for (const auto &row : rows) {
        chosen = row.with_indirect ? chosen_text : nullptr;
        EXPECT_EQ(str2code(colours, row.word), row.code) << (row.word ? row.word : "NULL");
    }
    EXPECT_EQ(str2code(obscure_type_str, "bin"), 1);
    EXPECT_EQ(str2code(obscure_type_str, nullptr), -1);
    EXPECT_EQ(str2code(nullptr, "x"), -1);
}

TEST(Code2str, CountedWordsIgnoreHiddenRowsAndStopAtANamelessOne)
{
    EXPECT_EQ(strn2code(colours, "redder", 3), 1);
    EXPECT_EQ(strn2code(colours, "re", 9), 4);
    EXPECT_EQ(strn2code(colours, "red", 9), 4); // a name has all n characters
    EXPECT_EQ(strn2code(colours, "redder", 6), 4);
    EXPECT_EQ(strn2code(colours, "scarlet", 7), 4);
    EXPECT_EQ(strn2code(colours, "blue", 4), 3); // the name, not the indirect text
    const code_str nameless_hidden[] = {
        {7, nullptr, nullptr, 1}, {8, "x", nullptr, 0}, {-1, nullptr, nullptr, 0}};
    EXPECT_EQ(strn2code(nameless_hidden, "x", 1), 7);
    EXPECT_EQ(strn2code(obscure_type_str, nullptr, 3), -1);
    EXPECT_EQ(strn2code(obscure_type_str, "binary", 4), -1);
}

TEST(CodeNames, LookUpsSkipHiddenRows)
{
    EXPECT_STREQ(code2str_ex(states, 0), "up");
    EXPECT_STREQ(code2str_ex_idx(states, 0, 1), "running");
    for (const int past : {2, 3, 1000, -1})
        EXPECT_EQ(code2str_ex_idx(states, 0, past), nullptr) << past;
    for (const int wordless : {1, 2, 99, -1})
        EXPECT_EQ(code2str_ex(states, wordless), nullptr) << wordless;
    EXPECT_EQ(str2code_ex(states, "running"), 0);
    EXPECT_EQ(str2code_ex(states, "down"), 4);
    EXPECT_EQ(str2code_ex(states, "old"), -1);
    EXPECT_EQ(str2code_ex(states, nullptr), -1);
    EXPECT_EQ(str2code_ex(nullptr, "up"), -1);
}

TEST(CodeNames, IterationEndsOnTheTerminatorAndStaysThere)
{
    int i = -1;
    for (const int expected : {1, 2, 5, 7, 7}) {
        i = code2str_ex_iter_next(states, i);
        EXPECT_EQ(i, expected);
    }
    EXPECT_EQ(code2str_ex_iter_next(nullptr, -1), 0);
}

TEST(CodeCode, ValuesPairsAndLists)
{
    int target = 0;
    const code_code table[] = {{1, 10}, {1, 11}, {2, reinterpret_cast<intptr_t>(&target)}, {3, 10}, {-1, 77}};
    EXPECT_EQ(code2code(table, 1), 10);
    EXPECT_EQ(code2code(table, 9), 77);
    EXPECT_EQ(code2ptr(table, 2), &target);
    EXPECT_EQ(code2code_back(table, 11), 1);
    EXPECT_EQ(code2code_back(table, 77), -1);
    EXPECT_EQ(code2code(nullptr, 1), 0);

    const code_pair pairs[] = {{1, 2, 3}, {-1, 8, 9}};
    int first = 0;
    int second = 0;
    EXPECT_EQ(code2pair(pairs, 1, &first, &second), 3);
    EXPECT_EQ(first * 10 + second, 23);
    EXPECT_EQ(code2pair(pairs, 5, &first, nullptr), 9);
    EXPECT_EQ(first, 8);
    EXPECT_EQ(code2pair(nullptr, 5, nullptr, nullptr), 0);

    const int list[] = {4, 0, 6, -1, 9};
    EXPECT_EQ(code_in_list(0, list), 1);
    EXPECT_EQ(code_in_list(6, list), 1);
    for (const int out : {5, 9, -1})
        EXPECT_EQ(code_in_list(out, list), 0) << out;
    EXPECT_EQ(code_in_list(4, nullptr), 0);
}

TEST(StrStr, KeysExactAndIgnoringCase)
{
    chosen = chosen_text;
    const str_str table[] = {{"en", "English", nullptr, 1},
                             {"EN", "shout", nullptr, 2},
                             {"", "empty", nullptr, 3},
                             {"cur", "no", &chosen, 4},
                             {nullptr, "default", nullptr, 9}};
    EXPECT_STREQ(str2str(table, "EN"), "shout");
    EXPECT_STREQ(strcase2str(table, "EN"), "English");
    EXPECT_STREQ(str2str(table, "cur"), "chosen");
    EXPECT_STREQ(str2str(table, nullptr), "empty");
    EXPECT_STREQ(str2str(table, "En"), "default");
    EXPECT_STREQ(strcase2str(table, "e"), "default");
    EXPECT_EQ(str2lang(table, "EN"), 2);
    EXPECT_EQ(str2lang(table, "x"), 9);
    EXPECT_EQ(str2str(nullptr, "en"), nullptr);
    EXPECT_EQ(str2lang(nullptr, "en"), 0);
}

TEST(Code2strTables, LevelsStatusesAndTheirDefaults)
{
    EXPECT_STREQ(code2str(zel_error2str, 3), "Critical");
    EXPECT_STREQ(code2str(zel_error2str, 9), "None");
    for (int level = 1; level <= 8; level++) {
        EXPECT_EQ(code2code(zel_error2syslog, level), level - 1);
        EXPECT_EQ(code2code(pri2syslog, level), level - 1);
    }
    EXPECT_EQ(code2code(pri2syslog, 0), 0);
    EXPECT_STREQ(code2str(http_status_str, 411), "Content Length Required");
    EXPECT_STREQ(code2str(http_status_str, 418), "Unknown Status");
    EXPECT_EQ(http_status_str[4].code, 207);
    EXPECT_EQ(http_status_str[5].code, 206);
}

} // namespace
