#include "str.h"

#include "internal/formatted.h"
#include "internal/heap.h"
#include "internal/report.h"
#include "internal/spare.h"
#include "internal/text.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstring>

namespace kutil
{
namespace
{

// The block of *s with room for `needed` bytes and more to come.
char *grow_for_append(char **s, size_t needed)
{
    return *s = static_cast<char *>(grow_with_spare(*s, needed));
}

// Puts `piece` and a NUL at `length` of *s. The piece may lie in *s.
void append_at(char **s, size_t length, View piece)
{
    const uintptr_t begin = reinterpret_cast<uintptr_t>(*s);
    const uintptr_t from = reinterpret_cast<uintptr_t>(piece.data());
    const bool own = *s && from >= begin && from - begin <= length;
    char *text = grow_for_append(s, add_sizes(length, piece.size(), 1));
    if (!piece.empty())
        memmove(text + length, own ? text + (from - begin) : piece.data(), piece.size());
    text[length + piece.size()] = '\0';
}

// A NULL string becomes "". Returns whether it was NULL, in which case most editing is done.
bool became_empty(char **s)
{
    if (*s)
        return false;
    *s = copy_text("");
    return true;
}

bool became_empty_quietly(char **s)
{
    if (*s)
        return false;
    *s = str_init();
    return true;
}

// The editors of one text in place, shared by the owned and the plain forms.
void left_trim(char *s)
{
    const View rest = trim_left(view(s));
    memmove(s, rest.data(), rest.size() + 1);
}

void right_trim(char *s) { s[trim_right(view(s)).size()] = '\0'; }

void both_trim(char *s)
{
    right_trim(s);
    left_trim(s);
}

template <class Edit>
char **edit_string(char **s, Edit edit)
{
    if (s && !became_empty(s))
        edit(*s);
    return s;
}

template <class Edit>
char *edit_buffer(char *s, Edit edit)
{
    if (s)
        edit(s);
    return s;
}

char *replaced(View text, View from, View to, size_t hits)
{
    HeapText result(new_text(add_sizes(text.size() - hits * from.size(), mul_sizes(hits, to.size()))));
    char *out = result.get();
    for (; hits; hits--) {
        const size_t before = static_cast<size_t>(find(text, from) - text.data());
        out = put(put(out, sub(text, 0, before)), to);
        text.remove_prefix(before + from.size());
    }
    *put(out, text) = '\0';
    return result.release();
}

// The end of a terminal escape sequence that starts at `s`, or `s` when none does.
const char *behind_ansi_sequence(const char *s)
{
    if (s[0] != 27 || s[1] != '[')
        return s;
    constexpr CharSet parameters("0123456789=?#;");
    s += 2;
    while (parameters.contains(*s))
        s++;
    return *s ? s + 1 : s;
}

void fail_when_refused(const Formatted &formatted, const char *format)
{
    if (formatted.failed_late())
        zel_error_full(kEntity, kFatal, "Failed vnsprintf");
    if (formatted.failed())
        zel_error_full(kEntity, kFatal, "Error in printf format (%s)", text_or_empty(format));
}

} // namespace
} // namespace kutil

using namespace kutil;

char *str_init(void) { return try_copy(""); }

char **str_alloc(char **s)
{
    if (!s)
        return s;
    if (char *empty = str_init())
        replace_text(s, empty);
    return s;
}

char **str_free(char **s)
{
    if (s)
        replace_text(s, nullptr);
    return s;
}

char **str_use(char **s, char *text)
{
    if (s && (!text || text != *s))
        replace_text(s, text ? text : copy_text(""));
    return s;
}

char **str_cpy(char **s, const char *src)
{
    if (s)
        replace_text(s, copy_text(view(src)));
    return s;
}

char **str_ncpy(char **s, const char *src, size_t n)
{
    if (s)
        replace_text(s, strndup_null(src, n));
    return s;
}

char **str_cpy_truncate(char **s, const char *src, size_t n)
{
    if (!s)
        return s;
    const size_t length = str_nlen(src, n);
    if (length < n || !src || !src[length])
        return str_cpy(s, src);
    char *cut = new_text(add_sizes(length, 3));
    *put(put(cut, View(src, length)), "...") = '\0';
    replace_text(s, cut);
    return s;
}

char **str_cpytok(char **s, const char *src, const char *delims)
{
    if (!s)
        return s;
    char *copy = copy_text(view(src));
    strtok(copy, text_or_empty(delims));
    replace_text(s, copy);
    return s;
}

char *strndup_null(const char *src, size_t n)
{
    return copy_text(View(text_or_empty(src), str_nlen(src, n)));
}

char **str_cat(char **s, const char *add)
{
    if (!s)
        return s;
    if (*s)
        append_at(s, strlen(*s), view(add));
    else
        *s = try_copy(view(add));
    return s;
}

char **str_ncat(char **s, const char *buf, size_t n)
{
    if (s)
        append_at(s, view(*s).size(), buf ? View(buf, n) : View("", 0));
    return s;
}

char **str_catfast(char **s, const char *add, uint32_t *len)
{
    if (!s || !len)
        return nullptr;
    if (became_empty(s))
        *len = 0;
    if (!add)
        return s;
    const View piece = view(add);
    if (piece.size() > UINT32_MAX - *len)
        realloc_e(nullptr, SIZE_MAX);
    append_at(s, *len, piece);
    *len += static_cast<uint32_t>(piece.size());
    return s;
}

char **str_insert(char **s, size_t pos, size_t del, const char *text)
{
    if (!s)
        return s;
    const View old = view(*s);
    const View head = sub(old, 0, pos);
    const View tail = sub(sub(old, head.size()), std::min(del, old.size() - head.size()));
    const View middle = view(text);
    char *result = new_text(add_sizes(head.size(), middle.size(), tail.size()));
    *put(put(put(result, head), middle), tail) = '\0';
    replace_text(s, result);
    return s;
}

char **str_replace(char **s, const char *from, const char *to)
{
    if (!s || became_empty(s) || !from || !*from)
        return s;
    if (const size_t hits = str_count_str(*s, from))
        replace_text(s, replaced(view(*s), view(from), view(to), hits));
    return s;
}

char **str_left(char **s, size_t n)
{
    return edit_string(s, [n](char *text) { text[str_nlen(text, n)] = '\0'; });
}

char **str_right(char **s, size_t n)
{
    return edit_string(s, [n](char *text) {
        const size_t length = strlen(text);
        const size_t kept = std::min(n, length);
        memmove(text, text + (length - kept), kept + 1);
    });
}

// Deliberate: the count is not looked at.
char **str_mid(char **s, size_t start, size_t)
{
    return edit_string(s, [start](char *text) {
        const View kept = sub(view(text), start);
        memmove(text, kept.data(), kept.size() + 1);
    });
}

char **str_ltrim(char **s) { return edit_string(s, left_trim); }
char **str_rtrim(char **s) { return edit_string(s, right_trim); }
char **str_trim(char **s) { return edit_string(s, both_trim); }
char **str_chomp(char **s) { return str_rtrim(s); }

char *strltrim(char *s) { return edit_buffer(s, left_trim); }
char *strrtrim(char *s) { return edit_buffer(s, right_trim); }
char *strtrim(char *s) { return edit_buffer(s, both_trim); }
char *strchomp(char *s) { return strrtrim(s); }

char *strtoupper(char *s)
{
    return edit_buffer(s, [](char *text) {
        for (; *text; text++)
            *text = to_upper(*text);
    });
}

char **str_toupper(char **s)
{
    return edit_string(s, [](char *text) {
        for (; *text; text++)
            *text = static_cast<char>(toupper(static_cast<unsigned char>(*text)));
    });
}

char **str_tolower(char **s)
{
    return edit_string(s, [](char *text) {
        for (; *text; text++)
            *text = static_cast<char>(tolower(static_cast<unsigned char>(*text)));
    });
}

char **str_strip(char **s, const char *chars, int remove)
{
    if (!s || became_empty(s))
        return s;
    const View old = view(*s);
    const CharSet members(view(chars));
    const auto kept = [&members, remove](char c) { return members.contains(c) != (remove != 0); };
    char *result = new_text(static_cast<size_t>(std::count_if(old.begin(), old.end(), kept)));
    *std::copy_if(old.begin(), old.end(), result, kept) = '\0';
    replace_text(s, result);
    return s;
}

char **str_strip_non_digit(char **s) { return str_strip(s, "0123456789", 0); }

char **str_strip_ansi(char **s)
{
    if (!s || became_empty_quietly(s))
        return s;
    char *out = *s;
    for (const char *in = *s; *in;) {
        const char *behind = behind_ansi_sequence(in);
        if (behind == in)
            *out++ = *behind++;
        in = behind;
    }
    *out = '\0';
    return s;
}

// Deliberate: the text is ended with a blank, not with a line feed.
char **str_valid_terminate_nl(char **s)
{
    if (!s || became_empty(s))
        return s;
    const View text = view(*s);
    return text.empty() || text.back() == '\n' ? s : str_insert(s, text.size(), 0, " ");
}

char **str_vprintf_full(char **s, uint32_t flags, const char *format, va_list ap)
{
    if (!s)
        return s;
    Formatted formatted(format, ap);
    fail_when_refused(formatted, format);
    if ((flags & STR_F_APPEND) && *s && **s)
        append_at(s, strlen(*s), formatted.text());
    else
        replace_text(s, formatted.release());
    return s;
}

char **str_vprintf(char **s, const char *format, va_list ap) { return str_vprintf_full(s, 0, format, ap); }

char **str_printf(char **s, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    str_vprintf_full(s, 0, format, ap);
    va_end(ap);
    return s;
}

char **str_catprintf(char **s, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    str_vprintf_full(s, STR_F_APPEND, format, ap);
    va_end(ap);
    return s;
}

char *strcat_printf(char *buf, const char *format, ...)
{
    if (!buf)
        return buf;
    va_list ap;
    va_start(ap, format);
    const Formatted formatted(format, ap);
    va_end(ap);
    fail_when_refused(formatted, format);
    *put(buf + strlen(buf), formatted.text()) = '\0';
    return buf;
}

size_t str2buf(char *dst, const char *format, ...)
{
    if (!dst)
        return 0;
    va_list ap;
    va_start(ap, format);
    const Formatted formatted(format, ap);
    va_end(ap);
    fail_when_refused(formatted, format);
    put(dst, formatted.text());
    return formatted.text().size();
}

void buf2str(char *dst, const char *src, size_t n)
{
    if (!dst)
        return;
    if (!src)
        n = 0;
    if (n)
        memmove(dst, src, n);
    dst[n] = '\0';
}

void strncpyz(char *dst, const char *src, size_t n)
{
    if (!dst)
        return;
    const size_t length = str_nlen(src, n);
    if (length)
        memmove(dst, src, length);
    memset(dst + length, 0, n - length + 1);
}

int str_buf_fastcat(str_buf *buf, const char *s1, const char *s2)
{
    if (!buf)
        return 0;
    const uintptr_t begin = reinterpret_cast<uintptr_t>(buf->data);
    const auto place = [begin, buf](const char *text) {
        const uintptr_t from = reinterpret_cast<uintptr_t>(text);
        return begin && from >= begin && from - begin <= static_cast<size_t>(buf->len) ? from - begin
                                                                                       : SIZE_MAX;
    };
    View pieces[] = {view(s1), view(s2)};
    const size_t places[] = {place(s1), place(s2)};
    const size_t added = add_sizes(pieces[0].size(), pieces[1].size());
    if (added >= static_cast<size_t>(std::max(buf->size - buf->len, 0))) {
        const size_t size = mul_sizes(add_sizes(added, static_cast<size_t>(buf->size)), 2);
        buf->data =
            static_cast<char *>(realloc_e(buf->data, size > INT_MAX ? SIZE_MAX : std::max<size_t>(size, 1)));
        buf->size = static_cast<int>(size);
    }
    char *out = buf->data + buf->len;
    for (size_t i = 0; i < 2; i++)
        out = put(out, places[i] == SIZE_MAX ? pieces[i] : View(buf->data + places[i], pieces[i].size()));
    *out = '\0';
    buf->len += static_cast<int>(added);
    return buf->len;
}
