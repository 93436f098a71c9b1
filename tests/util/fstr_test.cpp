#include "util/fstr.h"

#include "support.h"

#include <climits>
#include <cstring>
#include <cwchar>

namespace
{
struct Fstr : fstr {
    explicit Fstr(int block_size) { EXPECT_EQ(fstr_init(this, block_size), this); }
    ~Fstr() { fstr_free(this); }
    Fstr(const Fstr &) = delete;
    Fstr &operator=(const Fstr &) = delete;
    std::string text() { return fstr_to_str(this); }
};
} // namespace

TEST(Fstr, GrowsByWholeBlocks)
{
    struct {
        int block;
        size_t first, second;
        int size;
    } const rows[] = {{16, 0, 0, 16}, {16, 15, 0, 16}, {16, 15, 1, 32}, {16, 16, 0, 32}, {16, 14, 1, 16},
                      {1, 0, 0, 1},   {1, 5, 5, 11},   {7, 6, 1, 14},   {7, 13, 0, 14},  {100, 250, 50, 400}};
    for (const auto &row : rows) {
        SCOPED_TRACE(std::to_string(row.block) + ": " + std::to_string(row.first) + " + " +
                     std::to_string(row.second));
        const std::string bytes(300, 'x');
        Fstr f(row.block);
        EXPECT_EQ(fstr_ncat(&f, bytes.data(), row.first), &f);
        EXPECT_EQ(fstr_ncat(&f, bytes.data(), row.second), &f);
        EXPECT_EQ(f.size, row.size);
        EXPECT_EQ(f.text(), bytes.substr(0, row.first + row.second));
        fstr_cpy(&f, "");
        EXPECT_EQ(f.size, row.size) << "it never shrinks";
    }
}

TEST(Fstr, PiecesMayLieInTheText)
{
    Fstr f(4);
    fstr_cat(fstr_cpy(&f, "abc"), "de");
    EXPECT_EQ(f.text(), "abcde");
    EXPECT_EQ(fstr_strlen(&f), 5);
    fstr_ncat(&f, f.data + 1, 4);
    EXPECT_EQ(f.text(), "abcdebcde");
    fstr_cat(&f, fstr_to_str(&f));
    EXPECT_EQ(f.text(), "abcdebcdeabcdebcde");
    fstr_cpy(&f, fstr_to_str(&f) + 14);
    EXPECT_EQ(f.text(), "bcde");
    EXPECT_EQ(fstr_catprintf(&f, "<%s>", fstr_to_str(&f)), 6);
    EXPECT_STREQ(f.data, "bcde<bcde>") << "formatting leaves the NUL behind the text";
    EXPECT_EQ(fstr_printf(&f, "[%s]", f.data), 12);
    EXPECT_STREQ(f.data, "[bcde<bcde>]");
    const std::string longer(1000, 'y');
    EXPECT_EQ(fstr_catprintf(&f, "%s%s", longer.c_str(), f.data), 1012);
    EXPECT_EQ(f.text(), "[bcde<bcde>]" + longer + "[bcde<bcde>]");
    EXPECT_EQ(f.size, 1028);
    fstr_ncpy(&f, "a\0b", 3);
    EXPECT_EQ(f.len, 3);
    EXPECT_EQ(memcmp(f.data, "a\0b", 3), 0);
}

TEST(Fstr, NothingIsAnEmptyPiece)
{
    Fstr f(8);
    fstr_cpy(&f, "abc");
    fstr_cat(&f, nullptr);
    fstr_ncat(&f, nullptr, 5);
    fstr_ncat(&f, "xyz", 0);
    EXPECT_EQ(fstr_catprintf(&f, nullptr), 0);
    EXPECT_EQ(f.text(), "abc");
    fstr_ncpy(&f, nullptr, 0);
    EXPECT_EQ(f.text(), "");
    fstr_cpy(&f, "abc");
    fstr_cpy(&f, nullptr);
    EXPECT_EQ(f.text(), "");
    fstr *const none = nullptr;
    for (fstr *const result : {fstr_init(none, 8), fstr_free(none), fstr_cpy(none, "a"), fstr_cat(none, "a"),
                               fstr_ncpy(none, "a", 1), fstr_ncat(none, "a", 1)})
        EXPECT_EQ(result, nullptr);
    EXPECT_EQ(fstr_printf(none, "a"), 0);
    EXPECT_EQ(fstr_catprintf(none, "a"), 0);
    EXPECT_EQ(fstr_to_str(none), nullptr);
    EXPECT_EQ(fstr_strlen(none), 0);
}

TEST(Fstr, ARefusedFormatLeavesTheTextAtTheOffset)
{
    const char *const wide = "x%lc";
    Fstr f(8);
    fstr_cpy(&f, "abc");
    EXPECT_EQ(fstr_catprintf(&f, wide, static_cast<wint_t>(0x20ac)), -1);
    EXPECT_STREQ(f.data, "abc");
    EXPECT_EQ(fstr_printf(&f, wide, static_cast<wint_t>(0x20ac)), -1);
    EXPECT_STREQ(f.data, "");
    EXPECT_EQ(f.len, 0);
}

TEST(Fstr, WhatNoBlockCanHoldEndsTheProcess)
{
    Fstr f(8);
    fstr_cpy(&f, "abc");
    EXPECT_EQ(fstr_free(&f), &f);
    EXPECT_EQ(fstr_to_str(&f), nullptr);
    EXPECT_EQ(fstr_strlen(&f), 0);
    EXPECT_EQ(f.block, 0);
    expect_fatal("fstr: block of 0 bytes", [&] { fstr_cat(&f, "x"); });
    expect_fatal("fstr: block of 0 bytes", [&] { fstr_printf(&f, "x"); });
    expect_fatal("fstr: block of -1 bytes", [&] { fstr_init(&f, -1); });
    fstr_init(&f, 8);
    expect_fatal("realloc_e(-1): failed", [&] {
        f.len = INT_MAX - 1;
        fstr_cat(&f, "xy");
    });
    expect_fatal("realloc_e(-1): failed", [&] { fstr_ncpy(&f, "xy", SIZE_MAX); });
}
