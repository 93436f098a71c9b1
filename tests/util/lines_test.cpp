#include "util/file.h"
#include "util/lines.h"

#include "support.h"

#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <sys/resource.h>
#include <sys/time.h>

namespace
{

// A list and how it reads: "NULL", or every element in angle brackets, so that "" is an array without
// elements.
struct List {
    List() = default;
    explicit List(const char *text)
    {
        if (text)
            fill(text);
    }
    List(const List &) = delete;
    List &operator=(const List &) = delete;
    ~List() { lines_free(&l); }

    void fill(const std::string &text)
    {
        lines_free(&l);
        l = static_cast<char **>(calloc(text.size() + 1, sizeof(char *)));
        size_t count = 0;
        for (size_t at = 0; at < text.size();) {
            const size_t end = text.find('>', at);
            l[count++] = strdup(text.substr(at + 1, end - at - 1).c_str());
            at = end + 1;
        }
    }

    char **l = nullptr;
};

std::string show(char *const *l)
{
    std::string text = l ? "" : "NULL";
    for (; l && *l; l++)
        text += "<" + std::string(*l) + ">";
    return text;
}

std::string take(char *text)
{
    const std::string copy = text ? text : "NULL";
    free(text);
    return copy;
}

int longer_than(const char *text, void *data)
{
    return strlen(text) > (data ? *static_cast<size_t *>(data) : 1);
}
int by_length(const void *a, const void *b)
{
    const size_t x = strlen(*static_cast<char *const *>(a)), y = strlen(*static_cast<char *const *>(b));
    return x < y ? -1 : x > y;
}

using Change = char ***(*)(char ***);
#define CHANGE(call) [](char ***l) { return call; }

// The temporary file of a test, removed at its end.
struct TempFile {
    ~TempFile()
    {
        unlink(path);
        free(path);
    }
    void fill(const std::string &text)
    {
        FILE *fp = fopen(path, "w");
        ASSERT_NE(fp, nullptr);
        EXPECT_EQ(fwrite(text.data(), 1, text.size(), fp), text.size());
        fclose(fp);
    }
    std::string content() { return take(str_read_file(nullptr, path)); }
    char *const path = file_tmp_create("lines_test_");
};

} // namespace

TEST(Lines, ChangesTurnNullIntoAnEmptyArrayAndRefuseANullAddress)
{
    const Change changes[] = {
        CHANGE(lines_alloc(l)),
        CHANGE(lines_use(l, nullptr)),
        CHANGE(lines_cpy(l, nullptr)),
        CHANGE(lines_ncpy(l, nullptr, 3)),
        CHANGE(lines_set(l, NULL)),
        CHANGE(lines_add(l, nullptr)),
        CHANGE(lines_add_multi(l, NULL)),
        CHANGE(lines_add_unique(l, nullptr)),
        CHANGE(lines_add_printf(l, nullptr)),
        CHANGE(lines_add_fast(l, nullptr, nullptr)),
        CHANGE(lines_add_index(l, nullptr, 1)),
        CHANGE(lines_add_index_printf(l, 1, nullptr)),
        CHANGE(lines_cat(l, nullptr)),
        CHANGE(lines_ninsert(l, 1, 2, nullptr)),
        CHANGE(lines_insert_empty(l, 0, -1)),
        CHANGE(lines_merge(l, nullptr)),
        CHANGE(lines_delete(l, 0, 1)),
        CHANGE(lines_delete_ptr(l, nullptr)),
        CHANGE(lines_filter(l, nullptr)),
        CHANGE(lines_filterout_lines(l, nullptr)),
        CHANGE(lines_nonempty(l)),
        CHANGE(lines_sort_func(l, nullptr)),
        CHANGE(lines_unique_func(l, nullptr)),
        CHANGE(lines_str_split(l, nullptr, nullptr, 0)),
        CHANGE(lines_str_split_crlf(l, "")),
        CHANGE(lines_str_extract_words(l, nullptr)),
    };
    for (const Change &change : changes) {
        SCOPED_TRACE(&change - changes);
        List list;
        EXPECT_EQ(change(&list.l), &list.l);
        EXPECT_EQ(show(list.l), "");
        EXPECT_EQ(change(nullptr), nullptr);
    }
    List list;
    EXPECT_EQ(lines_pop(&list.l), nullptr);
    EXPECT_EQ(lines_pop(nullptr), nullptr);
    EXPECT_EQ(lines_free(&list.l), &list.l);
    EXPECT_EQ(lines_free(nullptr), nullptr);
    EXPECT_EQ(list.l, nullptr);
    EXPECT_EQ(lines_count(nullptr), 0);
}

TEST(Lines, Changes)
{
    struct Row {
        const char *start, *want;
        Change change;
    };
    static char x[] = "x\0y\0z";
    static char *const xyz[] = {x, x + 2, x + 4, nullptr};
    const Row rows[] = {
        {"<a>", "", CHANGE(lines_alloc(l))},
        {"<a>", "<x><y><z>", CHANGE(lines_cpy(l, xyz))},
        {"<a>", "<x><y>", CHANGE(lines_ncpy(l, xyz, 2))},
        {"<a>", "", CHANGE(lines_ncpy(l, xyz, -1))},
        {"<a>", "<p><><q>", CHANGE(lines_set(l, "p", x + 1, "q", NULL))},
        {"<a>", "<a><>", CHANGE(lines_add(l, x + 1))},
        {"<a>", "<a><p><a>", CHANGE(lines_add_multi(l, "p", "a", NULL))},
        {"<a><b>", "<a><b>", CHANGE(lines_add_unique(l, "b"))},
        {"<a><b>", "<a><b><B>", CHANGE(lines_add_unique(l, "B"))},
        {"<a>", "<a><7-%>", CHANGE(lines_add_printf(l, "%d-%s", 7, "%"))},
        {"<a><b>", "<p><a><b>", CHANGE(lines_add_index(l, "p", INT_MIN))},
        {"<a><b>", "<a><p><b>", CHANGE(lines_add_index(l, "p", 1))},
        {"<a><b>", "<a><b><p>", CHANGE(lines_add_index(l, "p", INT_MAX))},
        {"<a><b>", "<a><0x1f><b>", CHANGE(lines_add_index_printf(l, 1, "%#x", 31U))},
        {"<a><b>", "<a><x><y><b>", CHANGE(lines_ninsert(l, 1, 2, xyz))},
        {"<a><b>", "<x><y><z><a><b>", CHANGE(lines_ninsert(l, 0, -1, xyz))},
        {"<a><b>", "<a><b>", CHANGE(lines_ninsert(l, 0, -2, xyz))},
        {"<a><b>", "<a><b><x><y><z>", CHANGE(lines_ninsert(l, 9, 9, xyz))},
        {"<a><b>", "<a><x><y><z><b>", CHANGE(lines_insert(l, 1, xyz))},
        {"<a><b>", "<a><><><b>", CHANGE(lines_insert_empty(l, 1, 2))},
        {"<a><b><c>", "<a><c>", CHANGE(lines_delete(l, 1, 1))},
        {"<a><b><c>", "<a>", CHANGE(lines_delete(l, 1, INT_MAX))},
        {"<a><b><c>", "<c>", CHANGE(lines_delete(l, -5, 2))},
        {"<a><b><c>", "<a><b><c>", CHANGE(lines_delete(l, 3, 1))},
        {"<a><b><c>", "<a><c>", CHANGE(lines_delete_ptr(l, *l + 1))},
        {"<a><b><c>", "<a><b>", CHANGE(lines_delete_ptr(l, *l + 2))},
        {"<a><b><c>", "<a><b><c>", CHANGE(lines_delete_ptr(l, const_cast<char **>(xyz)))},
        {"<a><b><c>", "<a><b><c>", CHANGE(lines_delete_ptr(l, *l + 3))},
        {"<a><bb><ccc>", "<bb><ccc>", CHANGE(lines_filter(l, longer_than))},
        {"<a><bb><ccc>", "<a>", CHANGE(lines_filterout(l, longer_than))},
        {"<a><bb>", "<a><bb>", CHANGE(lines_filterout(l, nullptr))},
        {"<z><q><Y><y><q>", "<z><y>", CHANGE(lines_filter_lines(l, xyz))},
        {"<z><q><Y><y><q>", "<z><Y><y>", CHANGE(lines_filter_caselines(l, xyz))},
        {"<z><q><Y><y><q>", "<q><Y><q>", CHANGE(lines_filterout_lines(l, xyz))},
        {"<z><q><Y><y><q>", "<q><q>", CHANGE(lines_filterout_caselines(l, xyz))},
        {"<a>", "", CHANGE(lines_filter_lines(l, nullptr))},
        {"<><a>< ><>", "<a>< >", CHANGE(lines_nonempty(l))},
        {"<><a>< \t\r\n\v\f>< b ><\xa0>", "<a>< b ><\xa0>", CHANGE(lines_nonspace(l))},
        {"<b><\xe4><B><a><>", "<><B><a><b><\xe4>", CHANGE(lines_sort(l))},
        {"<c><_><B><A>", "<_><A><B><c>", CHANGE(lines_casesort(l))},
        {"<ccc><a><bb>", "<a><bb><ccc>", CHANGE(lines_sort_func(l, by_length))},
        {"<b><a>", "<b><a>", CHANGE(lines_unique_func(l, nullptr))},
        {"<b><a><b><><a><b>", "<><a><b>", CHANGE(lines_unique(l))},
        {"<bb><a><aa><b>", "<1><2>",
         [](char ***l) { // of equal elements any may stay
             lines_unique_func(l, by_length);
             for (char **slot = *l; *slot; slot++)
                 strcpy(*slot, strlen(*slot) == 1 ? "1" : "2");
             return l;
         }},
        // Arguments that are part of the list.
        {"<aa><b><c>", "<aa><b><c>", CHANGE(lines_use(l, *l))},
        {"<aa><b><c>", "<aa><b><c>", CHANGE(lines_cpy(l, *l))},
        {"<aa><b><c>", "<b><c>", CHANGE(lines_cpy(l, *l + 1))},
        {"<aa><b><c>", "<aa><b>", CHANGE(lines_ncpy(l, *l, 2))},
        {"<aa><b><c>", "<c><aa>", CHANGE(lines_set(l, (*l)[2], (*l)[0], NULL))},
        {"<aa><b><c>", "<aa><b><c><b>", CHANGE(lines_add(l, (*l)[1]))},
        {"<aa><b><c>", "<aa><b><c><a>", CHANGE(lines_add(l, (*l)[0] + 1))},
        {"<aa><b><c>", "<aa><b><c><c><aa>", CHANGE(lines_add_multi(l, (*l)[2], (*l)[0], NULL))},
        {"<aa><b><c>", "<aa><b><c><aab>", CHANGE(lines_add_printf(l, "%s%s", (*l)[0], (*l)[1]))},
        {"<aa><b><c>", "<c><aa><b><c>", CHANGE(lines_add_index(l, (*l)[2], 0))},
        {"<aa><b><c>", "<aa><b><c><aa><b><c>", CHANGE(lines_cat(l, *l))},
        {"<aa><b><c>", "<aa><b><b><c><c>", CHANGE(lines_insert(l, 2, *l + 1))},
        {"<aa><b><c>", "<aa><b><c>", CHANGE(lines_merge(l, l))},
        {"<aa><b><c>", "<aa><b><c>", CHANGE(lines_filter_lines(l, *l))},
        {"<aa><b><c>", "", CHANGE(lines_filterout_lines(l, *l))},
        {"<aa><b><c>", "<aa>", CHANGE(lines_filterout_lines(l, *l + 1))},
        {"<aa><b><c>", "<><>", CHANGE(lines_str_split(l, (*l)[0], (*l)[0], 0))},
        {"<aa><b><c>", "<>", CHANGE(lines_str_extract_words(l, (*l)[0]))},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows << ", from " << row.start);
        List list(row.start);
        EXPECT_EQ(row.change(&list.l), &list.l);
        EXPECT_EQ(show(list.l), row.want);
    }
    const std::string long_text(600, 'q');
    List list("<a>");
    lines_add(&list.l, long_text.c_str());
    lines_add_index_printf(&list.l, 0, "%s.", list.l[1]);
    EXPECT_EQ(show(list.l), "<" + long_text + ".><a><" + long_text + ">") << "longer than any first buffer";
}

TEST(Lines, OwnershipMoves)
{
    List list("<a><b>"), other("<c><d>");
    char *const kept[] = {list.l[0], list.l[1], other.l[0], other.l[1]};
    lines_merge(&list.l, &other.l);
    EXPECT_EQ(other.l, nullptr);
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(list.l[i], kept[i]) << "merging moves, it does not copy";
    lines_merge(&list.l, &other.l);
    EXPECT_EQ(show(list.l), "<a><b><c><d>");
    char *popped = lines_pop(&list.l);
    EXPECT_EQ(popped, kept[3]);
    free(popped);
    char **array = list.l;
    list.l = nullptr;
    EXPECT_EQ(lines_use(&other.l, array), &other.l);
    EXPECT_EQ(other.l, array);
    lines_use(&other.l, nullptr);
    EXPECT_EQ(show(other.l), "");
    array = other.l;
    EXPECT_EQ(lines_alloc(&other.l), &other.l);
    EXPECT_EQ(other.l, array) << "an empty array is kept";
    lines_add(&other.l, "only");
    EXPECT_EQ(take(lines_pop(&other.l)), "only");
    EXPECT_EQ(show(other.l), "");
    EXPECT_EQ(lines_pop(&other.l), nullptr);
}

TEST(Lines, AppendingManyKeepsElementsAndCounts)
{
    List fast, walked;
    int count = 99; // of a NULL list it does not matter
    lines_add_fast(&fast.l, nullptr, &count);
    EXPECT_EQ(count, 0) << "the list is an empty array now";
    char *first = nullptr;
    for (int i = 0; i < 30000; i++) {
        const std::string text = std::to_string(i);
        lines_add_fast(&fast.l, text.c_str(), &count);
        ASSERT_EQ(count, i + 1);
        if (i < 2000)
            lines_add_printf(&walked.l, "%d", i);
        if (i == 0)
            first = fast.l[0];
    }
    EXPECT_EQ(fast.l[0], first);
    ASSERT_EQ(lines_count(fast.l), 30000);
    ASSERT_EQ(lines_count(walked.l), 2000);
    EXPECT_STREQ(fast.l[29999], "29999");
    lines_delete(&fast.l, 2000, 28000);
    EXPECT_EQ(lines_cmp(fast.l, walked.l), 0);
    count = 2000;
    lines_add_fast(&fast.l, nullptr, &count);
    EXPECT_EQ(count, 2000);
    lines_add_fast(&fast.l, "by walking", nullptr);
    EXPECT_STREQ(fast.l[2000], "by walking");
}

TEST(Lines, CallbacksGetTheDataAndSeeTheWholeList)
{
    List list("<a><bb><ccc><dd>");
    size_t limit = 2;
    EXPECT_EQ(lines_search_func_ex(list.l, longer_than, &limit), list.l + 2);
    EXPECT_EQ(lines_search_func(list.l, longer_than), list.l + 1);
    EXPECT_EQ(lines_search_func(list.l, nullptr), nullptr);
    EXPECT_EQ(lines_search_func(nullptr, longer_than), nullptr);
    lines_filterout_ex(
        &list.l, [](const char *, void *l) { return lines_count(*static_cast<char ***>(l)) != 4 ? 0 : 1; },
        &list.l);
    EXPECT_EQ(show(list.l), "") << "what goes is freed after the last test";
    list.fill("<a><bb><ccc>");
    lines_filter_ex(&list.l, longer_than, &limit);
    EXPECT_EQ(show(list.l), "<ccc>");
}

TEST(Lines, SearchAndComparison)
{
    List list("<a><B><b><b>");
    EXPECT_EQ(lines_search(list.l, "b"), list.l + 2);
    EXPECT_EQ(lines_casesearch(list.l, "b"), list.l + 1);
    for (const char *absent : {"", "c", "bb", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(lines_search(list.l, absent), nullptr);
        EXPECT_EQ(lines_casesearch(list.l, absent), nullptr);
    }
    EXPECT_EQ(lines_search(nullptr, "a"), nullptr);

    struct Row {
        const char *a, *b;
        int exact, folded; // signs
    };
    const Row rows[] = {
        {nullptr, nullptr, 0, 0},  {nullptr, "", 0, 0},          {"<a>", "<a><b>", -1, -1},
        {"<a><b>", "<a>", 1, 1},   {nullptr, "<>", -1, -1},      {"<a><B>", "<a><b>", -1, 0},
        {"<b>", "<B><c>", 1, -1},  {"<b><a>", "<a><b>", 1, 1},   {"<_>", "<A>", 1, -1},
        {"<z>", "<\xc4>", -1, -1}, {"<\xc4>", "<\xe4>", -1, -1},
    };
    const auto sign = [](int n) { return n < 0 ? -1 : n > 0; };
    for (const Row &row : rows) {
        SCOPED_TRACE(&row - rows);
        const List a(row.a), b(row.b);
        EXPECT_EQ(sign(lines_cmp(a.l, b.l)), row.exact);
        EXPECT_EQ(sign(lines_cmp(b.l, a.l)), -row.exact);
        EXPECT_EQ(sign(lines_casecmp(a.l, b.l)), row.folded);
        EXPECT_EQ(sign(lines_casecmp(b.l, a.l)), -row.folded);
    }
    const List one("<x>"), two("<a><b>");
    EXPECT_EQ(lines_cmp_func(two.l, one.l, nullptr), 1);
    EXPECT_EQ(lines_cmp_func(one.l, two.l, [](const void *, const void *) { return 42; }), 42);
    EXPECT_EQ(lines_cmp_func(one.l, two.l, nullptr), -1);
    EXPECT_LT(strcmp_qsort(nullptr, one.l), 0);
    EXPECT_GT(strcasecmp_qsort(one.l, nullptr), 0);
}

TEST(Lines, CommonPrefix)
{
    struct Row {
        const char *list, *want;
    };
    const Row rows[] = {
        {"<abc><abd><ab>", "ab"}, {"<abc>", "abc"},   {"<abc><>", ""}, {"", ""},
        {"<a><b>", ""},           {"<aa><aa>", "aa"},
    };
    for (const Row &row : rows) {
        const List list(row.list);
        char *s = strdup("old");
        EXPECT_EQ(lines_get_common_prefix(list.l, &s), &s);
        EXPECT_EQ(take(s), row.want) << row.list;
    }
    char *s = strdup("old");
    EXPECT_EQ(lines_get_common_prefix(nullptr, &s), nullptr);
    EXPECT_EQ(take(s), "old");
    List list("<abc><abd>");
    lines_get_common_prefix(list.l, &list.l[0]);
    EXPECT_EQ(show(list.l), "<ab><abd>") << "the target may be an element";
    EXPECT_EQ(lines_get_common_prefix(list.l, nullptr), nullptr);
}

TEST(LinesText, Splitting)
{
    struct Row {
        const char *text, *delims, *all, *filled;
    };
    const Row rows[] = {
        {nullptr, ",", "", ""},
        {"", ",", "", ""},
        {",a", ",", "<><a>", "<a>"},
        {"a,", ",", "<a>", "<a>"},
        {",", ",", "<>", ""},
        {",,", ",", "<><>", ""},
        {"a,;b;c", ";,", "<a><><b><c>", "<a><b><c>"},
        {"a,b", "", "<a,b>", "<a,b>"},
        {"a,b", nullptr, "<a,b>", "<a,b>"},
        {"x\xffy\x80", "\xff\x80", "<x><y>", "<x><y>"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(&row - rows);
        List list("<old>");
        EXPECT_EQ(show(*lines_str_split(&list.l, row.text, row.delims, 0)), row.all);
        EXPECT_EQ(show(*lines_str_split(&list.l, row.text, row.delims, 1)), row.filled);
    }

    struct FormRow {
        char ***(*split)(char ***, const char *);
        const char *text, *want;
    };
    const FormRow forms[] = {
        {lines_str_split_ws, "  a  b ", "<a><b>"},
        {lines_str_split_ws, "\t\r\n a\vb\n", "<a\vb>"},
        {lines_str_split_nl, "a\n\nb\n", "<a><><b>"},
        {lines_str_split_nl, "a\r\n", "<a\r>"},
        {lines_str_split_crlf, "x\r\ny\r\n", "<x><y>"},
        {lines_str_split_crlf, "\r\r\n\r\nx\ry\nz\r", "<\r><><x\ry><z>"},
        {lines_str_extract_words, "ab cd", "<ab><>"},
        {lines_str_extract_words, "ab cd.", "<ab><cd>"},
        {lines_str_extract_words, "--a_1-B\xe4z-", "<a_1><B><z>"},
        {lines_str_extract_words, "ab", "<>"},
        {lines_str_extract_words, "-", ""},
    };
    for (const FormRow &row : forms) {
        List list("<old>");
        EXPECT_EQ(show(*row.split(&list.l, row.text)), row.want) << row.text;
        EXPECT_EQ(row.split(nullptr, row.text), nullptr);
    }
}

TEST(LinesText, Joining)
{
    struct Row {
        const char *list, *sep;
        int trailing;
        const char *want;
    };
    const Row rows[] = {
        {"<a><b>", ", ", 0, "a, b"}, {"<a><b>", ", ", 1, "a, b, "}, {"<a>", ",", 0, "a"},
        {"<><>", ",", 0, ","},       {"<a><b>", nullptr, 1, "ab"},  {"", ",", 1, ""},
        {nullptr, ",", 1, ""},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(&row - rows);
        const List list(row.list);
        char *s = strdup("old");
        EXPECT_EQ(str_join_lines(&s, list.l, row.sep, row.trailing), &s);
        EXPECT_EQ(take(s), row.want);
    }
    List list("<a><b>");
    char *s = nullptr;
    EXPECT_STREQ(*str_join_lines_nl(&s, list.l), "a\nb\n");
    EXPECT_STREQ(*str_join_lines_crlf(&s, list.l), "a\r\nb\r\n");
    EXPECT_STREQ(*str_join_lines_ws(&s, list.l), "a b");
    EXPECT_STREQ(*str_join_lines(&s, list.l, s, 0), "aa bb") << "the separator may be the old text";
    str_join_lines(&list.l[1], list.l, list.l[0], 0);
    EXPECT_EQ(show(list.l), "<a><aab>") << "the target may be an element";
    EXPECT_EQ(str_join_lines(nullptr, list.l, ",", 0), nullptr);
    free(s);
}

TEST(LinesText, UniqueWords)
{
    struct Row {
        char **(*unique)(char **);
        const char *text, *want;
    };
    const Row rows[] = {
        {str_unique, "b a b", "a b"},
        {str_unique, nullptr, ""},
        {str_unique, "b  a\n\ra", " a b"}, // empty pieces are one of the words
        {str_unique, "b A a", "A a b"},
        {str_unique, "a\tb a\tb", "a\tb"},
        {str_caseunique, "b B b", nullptr}, // which spelling stays is open
        {[](char **s) { return str_unique_delim(s, ",;", "+", 1); }, "c,a;c,b", "a+b+c+"},
        {[](char **s) { return str_caseunique_delim(s, s ? *s + 1 : "", s ? *s + 1 : "", 0); }, "b,", "b"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(&row - rows);
        char *s = row.text ? strdup(row.text) : nullptr;
        EXPECT_EQ(row.unique(&s), &s);
        const std::string got = take(s);
        if (row.want)
            EXPECT_EQ(got, row.want);
        else
            EXPECT_STRCASEEQ(got.c_str(), "b");
        EXPECT_EQ(row.unique(nullptr), nullptr);
    }
}

TEST(LinesText, SplittingAndJoiningAgreeOnRandomTexts)
{
    std::minstd_rand random(1);
    static const char kAlphabet[] = "ab,\n\r \xff";
    for (int round = 0; round < 500; round++) {
        std::string text;
        for (size_t length = random() % 40; length > 0; length--)
            text += kAlphabet[random() % (sizeof(kAlphabet) - 1)];
        List list;
        char *joined = nullptr;
        lines_str_split_nl(&list.l, text.c_str());
        str_join_lines(&joined, list.l, "\n", !text.empty() && text.back() == '\n');
        ASSERT_EQ(take(joined), text);
        FILE *fp = tmpfile();
        ASSERT_NE(fp, nullptr);
        EXPECT_EQ(lines_write_fp(list.l, fp), 0);
        rewind(fp);
        List read;
        read.l = lines_read_fp(fp);
        fclose(fp);
        ASSERT_EQ(lines_cmp(read.l, list.l), 0) << text;
    }
}

TEST(LinesFile, ReadingAndWritingFiles)
{
    TempFile file;
    const List list("<a><><b c>");
    for (const int bin : {0, 1}) {
        EXPECT_EQ(bin ? lines_write_file_bin(list.l, file.path) : lines_write_file(list.l, file.path), 0);
        EXPECT_EQ(file.content(), "a\n\nb c\n");
    }
    struct Row {
        std::string content;
        const char *lines, *words;
    };
    const Row rows[] = {
        {"a\n\nb c\n", "<a><><b c>", "<a><b><c>"},
        {"", "", ""},
        {"\n", "<>", ""},
        {"last", "<last>", "<last>"},
        {"a\r\nb", "<a\r><b>", "<a><b>"},
        {std::string("a\nb\0c\nd", 7), "<a><b>", "<a><b>"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(&row - rows);
        file.fill(row.content);
        for (const auto read :
             {lines_read_file, lines_read_file_bin, lines_read_file_e, lines_read_file_bin_e}) {
            List got;
            got.l = read(file.path);
            EXPECT_EQ(show(got.l), row.lines);
        }
        List words;
        words.l = lines_read_file_ws(file.path);
        EXPECT_EQ(show(words.l), row.words);
    }
    EXPECT_EQ(lines_write_file(nullptr, file.path), 0);
    EXPECT_EQ(file.content(), "") << "no list empties the file";
}

TEST(LinesFile, FilesThatCannotBeOpened)
{
    for (const char *path : {"/nonexistent/x", "", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(lines_read_file(path), nullptr);
        EXPECT_EQ(_lines_read_file(path, 1, 0), nullptr);
        EXPECT_EQ(lines_read_file_ws(path), nullptr);
        EXPECT_EQ(lines_write_file(nullptr, path), -1);
        EXPECT_EQ(str_read_file(strdup("old"), path), nullptr);
    }
    expect_fatal("crit: Failed opening /nonexistent/x\n", [] { lines_read_file_e("/nonexistent/x"); });
    expect_fatal("crit: Failed opening \n", [] { lines_read_file_bin_e(nullptr); });
    char *own_path = strdup("/nonexistent/x");
    EXPECT_EQ(str_read_file(own_path, own_path), nullptr);
}

TEST(LinesFile, StreamsAreReadToTheirEndAsTheyAre)
{
    for (const size_t size : {0U, 1U, 4095U, 4096U, 4097U, 100000U}) {
        std::string bytes(size, 'x');
        for (size_t i = 0; i < size; i++)
            bytes[i] = static_cast<char>(i * 7);
        FILE *fp = tmpfile();
        ASSERT_NE(fp, nullptr);
        ASSERT_EQ(fwrite(bytes.data(), 1, size, fp), size);
        rewind(fp);
        int length = -1;
        char *text = file_read_fp_bin(fp, &length);
        ASSERT_EQ(length, static_cast<int>(size));
        EXPECT_TRUE(bytes == std::string(text, size));
        EXPECT_EQ(text[size], '\0');
        free(text);
        EXPECT_EQ(take(file_read_fp(fp)), "") << "nothing is left";
        fseek(fp, -static_cast<long>(size / 2), SEEK_END);
        EXPECT_EQ(take(str_read_fp(strdup("old"), fp)), std::string(bytes.substr(size - size / 2).c_str()));
        fclose(fp);
    }
    int length = -1;
    EXPECT_EQ(file_read_fp_bin(nullptr, &length), nullptr);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(str_read_fp(strdup("old"), nullptr), nullptr);
    EXPECT_EQ(lines_read_fp(nullptr), nullptr);
    EXPECT_EQ(lines_write_fp(nullptr, nullptr), 1);
}

TEST(LinesFile, PrintingGoesToStandardOutput)
{
    const ChildResult result = run_in_child([] {
        const List list("<a><b>");
        lines_print(list.l);
        lines_print_fp(list.l, stdout);
        lines_print(nullptr);
    });
    EXPECT_EQ(result.output, "a\nb\na\nb\n");
}

// A writer that stops between its pieces: with `flags` the descriptor's reads come back empty-handed, and a
// timer interrupts those that block.
TEST(LinesFile, SlowStreamsAreWaitedForAndInterruptedReadsRepeated)
{
    for (const int flags : {O_NONBLOCK, 0}) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t pid = fork();
        if (pid == 0) {
            close(ends[0]);
            for (const char *piece : {"one\ntw", "o\n", "three"}) {
                usleep(30000);
                (void)!write(ends[1], piece, strlen(piece));
            }
            _exit(0);
        }
        close(ends[1]);
        fcntl(ends[0], F_SETFL, flags);
        struct sigaction action = {}, old_action;
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, &old_action);
        const itimerval often = {{0, 10000}, {0, 10000}}, never = {};
        setitimer(ITIMER_REAL, &often, nullptr);
        FILE *fp = fdopen(ends[0], "r");
        List list;
        list.l = lines_read_fp(fp);
        setitimer(ITIMER_REAL, &never, nullptr);
        sigaction(SIGALRM, &old_action, nullptr);
        EXPECT_EQ(show(list.l), "<one><two><three>") << "flags " << flags;
        fclose(fp);
        waitpid(pid, nullptr, 0);
    }
}

TEST(LinesFile, AStreamWithoutADescriptorIsAskedAgain)
{
    static int turn;
    const auto read_some = [](void *, char *to, size_t) -> ssize_t {
        const int number = turn++;
        errno = number == 1 ? EINTR : EAGAIN;
        *to = static_cast<char>('a' + number);
        return number > 4 ? 0 : number % 2 ? -1 : 1;
    };
    FILE *fp = fopencookie(nullptr, "r", {.read = read_some});
    EXPECT_EQ(take(file_read_fp(fp)), "ace");
    fclose(fp);
}

// Elsewhere the size alone fails, or the limit has no effect.
#if SIZE_MAX > UINT32_MAX && !defined(__SANITIZE_ADDRESS__)
TEST(Lines, AListThatCannotGrowInTheMiddleStaysAsItWas)
{
    const ChildResult result = run_in_child([] {
        const rlimit limit = {100 << 20, 100 << 20};
        setrlimit(RLIMIT_AS, &limit);
        List list("<a><b>");
        lines_insert_empty(&list.l, 1, INT_MAX); // no room for the array
        lines_insert_empty(&list.l, 1, 4000000); // no room for all of the elements
        puts(show(list.l).c_str());
    });
    EXPECT_EQ(result.output, "<a><b>\n");
    EXPECT_TRUE(result.exited_with(77)) << result.status;
}
#endif
