#include "util/attrib.h"
#include "util/lines.h"
#include "util/str.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace
{

// A list that frees itself.
struct List {
    attrib *first = nullptr;
    List() = default;
    List(const List &) = delete;
    List &operator=(const List &) = delete;
    ~List() { attrib_free(&first); }
    attrib **operator&() { return &first; }

    // "name=value;..." in order; byte values as "name=[len]".
    std::string text() const
    {
        std::string all;
        for (const attrib *entry = first; entry; entry = entry->next) {
            all += std::string(entry->name) + "=";
            all += entry->len < 0 ? std::string(entry->value) : "[" + std::to_string(entry->len) + "]";
            all += ";";
        }
        return all;
    }
};

// "a=1;b=2;" appended to a list.
void fill(attrib **list, const char *entries)
{
    for (const char *at = entries; *at; at = strchr(at, ';') + 1) {
        const char *equals = strchr(at, '='), *end = strchr(at, ';'); // some C libraries give a char *
        attrib_addset(list, std::string(at, equals).c_str(), std::string(equals + 1, end).c_str());
    }
}

TEST(Attrib, LookUpsMeanTheFirstTheLastOrAll)
{
    List l;
    fill(&l, "a=1;Content-Type=text;A=2;b=;a=3;");
    EXPECT_STREQ(attrib_get(&l, "content-type"), "text");
    EXPECT_STREQ(attrib_get(&l, "a"), "1");
    EXPECT_STREQ(attrib_get_last(&l, "a"), "3");
    EXPECT_STREQ(attrib_get_null(&l, "b"), "");
    EXPECT_STREQ(attrib_get_default(&l, "c", "fallback"), "fallback");
    EXPECT_EQ(attrib_get_int(&l, "A"), 1);
    EXPECT_EQ(attrib_exist(&l, "B"), 1);

    attrib *const front = reinterpret_cast<attrib *>(&l);
    EXPECT_EQ(attrib_get_p(&l, "a"), front);
    EXPECT_EQ(attrib_get_p(&l, "b")->next, attrib_get_p_after(&l, "b"));
    EXPECT_EQ(attrib_get_p(&l, "none"), attrib_get_p_end(&l));
    EXPECT_STREQ(attrib_get_p_last(&l, "a")->name, "b");
    EXPECT_STREQ(attrib_get_p_after(&l, "a")->value, "3");
    EXPECT_STREQ(attrib_get_name(&attrib_get_p_last(&l, "a")->next), "a");
    EXPECT_STREQ(attrib_get_next(l.first)->value, "text");

    char **values = attrib_get_multi(&l, "A");
    char *joined = nullptr;
    EXPECT_STREQ(*str_join_lines_ws(&joined, values), "1 2 3");
    lines_free(&values);
    str_free(&joined);

    EXPECT_STREQ(attrib_get_name_by_regex(&l, "^[Cc]on.*e$"), "Content-Type");
    for (const char *pattern : {"^con", "(", static_cast<const char *>(nullptr)})
        EXPECT_STREQ(attrib_get_name_by_regex(&l, pattern), "");
}

TEST(Attrib, NothingIsFoundInNothing)
{
    List l;
    for (attrib **list : {&l, static_cast<attrib **>(nullptr)}) {
        int32_t len = 7;
        EXPECT_STREQ(attrib_get(list, "a"), "");
        EXPECT_EQ(attrib_get_null(list, "a"), nullptr);
        EXPECT_EQ(attrib_get_len_null(list, "a", &len), nullptr);
        EXPECT_EQ(len, 0);
        EXPECT_STREQ(attrib_get_last(list, "a"), "");
        EXPECT_EQ(attrib_get_p_last(list, "a"), nullptr);
        EXPECT_EQ(attrib_get_p(list, "a"), reinterpret_cast<attrib *>(list));
        EXPECT_EQ(attrib_get_p_after(list, "a"), reinterpret_cast<attrib *>(list));
        EXPECT_EQ(attrib_get_p_end(list), reinterpret_cast<attrib *>(list));
        EXPECT_EQ(attrib_get_name(list), nullptr);
        char **values = attrib_get_multi(list, "a");
        EXPECT_EQ(lines_count(values), 0);
        lines_free(&values);
    }
    attrib_addset(&l, "", "empty");
    EXPECT_EQ(attrib_exist(&l, ""), 1);
    EXPECT_EQ(attrib_exist(&l, nullptr), 0);
    EXPECT_EQ(attrib_get_val_p(&l, nullptr), nullptr);
    EXPECT_EQ(attrib_get_next(nullptr), nullptr);
    attrib_set(attrib_addset(&l, nullptr, "x"), nullptr, "x");
    EXPECT_EQ(l.text(), "=empty;");
    EXPECT_EQ(attrib_set_multi(nullptr, "a", "1", nullptr), nullptr);
    EXPECT_EQ(attrib_cat(nullptr, &l), nullptr);
}

TEST(Attrib, SettingChangesTheFirstAndDeletingTakesAll)
{
    List l;
    fill(&l, "a=1;b=2;A=3;");
    EXPECT_EQ(attrib_set(&l, "A", "x"), &l);
    EXPECT_EQ(l.text(), "a=x;b=2;A=3;");
    attrib_set_int(&l, "n", -2147483647 - 1);
    attrib_set_printf(&l, "b", "%s-%d", attrib_get(&l, "b"), 5);
    EXPECT_EQ(l.text(), "a=x;b=2-5;A=3;n=-2147483648;");
    attrib_set(&l, "a", nullptr);
    EXPECT_EQ(l.text(), "b=2-5;n=-2147483648;");
    str_cat(attrib_get_val_p(&l, "B"), "!");
    str_cat(attrib_get_val_p(&l, "new"), "v");
    attrib_set_multi(&l, "n", nullptr, "c", "1", "C", "2", nullptr);
    EXPECT_EQ(l.text(), "b=2-5!;new=v;c=2;");
    fill(&l, "c=3;d=4;b=5;");
    attrib_del_byname(&l, "B", "none", "c", nullptr);
    EXPECT_EQ(l.text(), "new=v;d=4;");
    attrib_free(&l);
    EXPECT_EQ(l.first, nullptr);
}

TEST(Attrib, LengthsAreKept)
{
    List l;
    const char bytes[] = {'a', 0, 'b'};
    int32_t len = 0;
    attrib_set_len(&l, "bin", "old", -1);
    attrib_set_len(&l, "bin", bytes, 3);
    const char *value = attrib_get_len_null(&l, "bin", &len);
    EXPECT_EQ(len, 3);
    EXPECT_EQ(memcmp(value, "a\0b\0", 4), 0);
    attrib_addset_len(&l, "empty", "xyz", 0);
    attrib_addset_len(&l, "text", "xyz", -17);
    attrib_addset_len(&l, "null", nullptr, 5);
    EXPECT_EQ(l.text(), "bin=[3];empty=[0];text=xyz;null=;");

    List copy;
    l.first->user[0] = 11;
    l.first->user[1] = 12;
    attrib_add(attrib_cpy(&copy, &l), l.first);
    EXPECT_EQ(copy.text(), l.text() + "bin=[3];");
    EXPECT_EQ(attrib_get_p_end(&copy)->user[0] * 100 + copy.first->user[1], 1112U);
    EXPECT_EQ(memcmp(copy.first->value, "a\0b\0", 4), 0);

    List chosen;
    attrib_setcpy_byname(&chosen, &l, "empty", "none", "BIN", "null", nullptr);
    EXPECT_EQ(chosen.text(), "BIN=[3];null=;");
    EXPECT_EQ(chosen.first->user[0], 0U);
}

TEST(Attrib, WholeLists)
{
    List a;
    List b;
    fill(&a, "x=1;y=2;");
    fill(&b, "Y=3;z=4;y=5;");
    const attrib *moved = b.first;
    attrib_setcpy(&a, &b);
    EXPECT_EQ(a.text(), "x=1;y=5;z=4;");
    attrib_cat_byname(&a, &b, "y", "Z", "z", nullptr);
    EXPECT_EQ(a.text(), "x=1;y=5;z=4;Y=3;z=4;z=4;y=5;");
    attrib_cpy(&a, &b);
    attrib_merge(&a, &b);
    EXPECT_EQ(b.first, nullptr);
    EXPECT_EQ(a.text(), "Y=3;z=4;y=5;Y=3;z=4;y=5;");
    EXPECT_EQ(a.first->next->next->next, moved);
}

TEST(Attrib, ArgumentsMayLieInTheListThatChanges)
{
    List l;
    fill(&l, "a=b;b=1;c=2;");
    attrib_set(&l, "a", attrib_get(&l, "a"));
    attrib_set(&l, "a", attrib_get(&l, "a") + 1);
    EXPECT_EQ(l.text(), "a=;b=1;c=2;");
    attrib_set(&l, "a", "c");
    attrib_del_byname(&l, l.first->name, l.first->value, nullptr);
    EXPECT_EQ(l.text(), "b=1;");
    attrib_set_multi(&l, "b", "9", "d", attrib_get(&l, "b"), l.first->name, nullptr, nullptr);
    EXPECT_EQ(l.text(), "d=1;");
    attrib_del(&l, l.first->name);
    EXPECT_EQ(l.text(), "");

    fill(&l, "a=1;A=2;");
    attrib_cat(&l, &l);
    EXPECT_EQ(l.text(), "a=1;A=2;a=1;A=2;");
    attrib_merge(&l, &l);
    attrib_cpy(&l, &l);
    attrib_cat_byname(&l, &l, "a", nullptr);
    EXPECT_EQ(l.text(), "a=1;A=2;a=1;A=2;a=1;A=2;a=1;A=2;");
    attrib_setcpy(&l, &l);
    EXPECT_EQ(l.text(), "a=2;A=2;a=1;A=2;a=1;A=2;a=1;A=2;");
}

TEST(Attrib, LinesInAndOut)
{
    List l;
    char **lines = nullptr;
    lines_set(&lines, "a=1", "=x", "b", "a=2;3=4", "", "c==", "d=;", nullptr);
    fill(&l, "old=gone;");
    EXPECT_EQ(lines_to_attrib(&l, lines, '=', ";,"), &l);
    EXPECT_EQ(l.text(), "a=2;c==;d=;");
    EXPECT_STREQ(lines[3], "a");
    EXPECT_EQ(lines_to_attrib(nullptr, lines, '=', nullptr), nullptr);
    lines_set(&lines, "k:v;w", nullptr);
    lines_to_attrib(&l, lines, ':', nullptr);
    EXPECT_EQ(l.text(), "k=v;w;");
    lines_to_attrib(&l, nullptr, ':', nullptr);
    EXPECT_EQ(l.first, nullptr);

    lines_set(&lines, "one", "", "two", nullptr);
    attrib_set_lines(&l, "t", lines);
    EXPECT_STREQ(attrib_get(&l, "t"), "one\n\ntwo");
    attrib_add_lines(attrib_add_lines(&l, "t", lines), "u", lines);
    EXPECT_EQ(l.text(), "t=one\n\ntwo\none\n\ntwo;u=one\n\ntwo;");
    attrib_set_lines(&l, "u", nullptr);
    EXPECT_STREQ(attrib_get_null(&l, "u"), "");
    lines_free(&lines);
}

} // namespace
