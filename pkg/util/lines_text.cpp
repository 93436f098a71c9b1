#include "lines.h"

#include "internal/list_builder.h"

using namespace kutil;

namespace
{

// The characters that end a piece; one alone is searched by the C library.
class Delimiters
{
public:
    explicit Delimiters(View chars)
        : set_(chars), first_(chars.empty() ? '\0' : chars[0]), count_(chars.size())
    {
    }
    // The length of the piece that `text` begins with: all of it when no delimiter ends it.
    size_t piece(View text) const
    {
        if (count_ == 1) {
            const void *hit = memchr(text.data(), first_, text.size());
            return hit ? static_cast<size_t>(static_cast<const char *>(hit) - text.data()) : text.size();
        }
        size_t length = 0;
        while (length < text.size() && !set_.contains(text[length]))
            length++;
        return length;
    }

private:
    CharSet set_;
    char first_;
    size_t count_;
};

enum class Pieces { kAll, kFilled, kWithoutReturn };

char ***split(char ***l, View text, View delims, Pieces which)
{
    if (!l)
        return nullptr;
    const Delimiters delimiters(delims);
    ListBuilder pieces;
    while (!text.empty()) {
        View piece = sub(text, 0, delimiters.piece(text));
        text = sub(text, piece.size() + 1);
        if (which == Pieces::kWithoutReturn && ends_with(piece, "\r"))
            piece.remove_suffix(1);
        if (which != Pieces::kFilled || !piece.empty())
            pieces.add(piece);
    }
    return lines_use(l, pieces.release());
}

constexpr bool is_word(char c) { return is_alnum(c) || c == '_'; }

char **unique_delim(char **s, const char *delims, const char *sep, int trailing, char ***(*unique)(char ***))
{
    if (!s)
        return nullptr;
    char **pieces = nullptr;
    lines_str_split(&pieces, *s, delims, 0);
    unique(&pieces);
    str_join_lines(s, pieces, sep, trailing);
    lines_free(&pieces);
    return s;
}

} // namespace

char ***lines_str_split(char ***l, const char *text, const char *delims, int skip_empty)
{
    return split(l, view(text), view(delims), skip_empty ? Pieces::kFilled : Pieces::kAll);
}

char ***lines_str_split_ws(char ***l, const char *text)
{
    return split(l, view(text), " \t\n\r", Pieces::kFilled);
}

char ***lines_str_split_nl(char ***l, const char *text) { return split(l, view(text), "\n", Pieces::kAll); }

char ***lines_str_split_crlf(char ***l, const char *text)
{
    return split(l, view(text), "\n", Pieces::kWithoutReturn);
}

char ***lines_str_extract_words(char ***l, const char *text)
{
    if (!l)
        return nullptr;
    ListBuilder words;
    for (const char *c = text_or_empty(text); *c;) {
        if (!is_word(*c)) {
            c++;
            continue;
        }
        const char *start = c;
        while (is_word(*c))
            c++;
        // Deliberate: the word that the end of the text ends is lost, and callers count on the empty string
        // instead.
        words.add(*c ? View(start, static_cast<size_t>(c - start)) : View(""));
    }
    return lines_use(l, words.release());
}

char **str_join_lines(char **s, char *const *l, const char *sep, int trailing)
{
    if (!s)
        return nullptr;
    const View between = view(sep);
    size_t length = 0;
    for (char *const *slot = l; slot && *slot; slot++) {
        const bool separated = slot[1] || trailing;
        length = add_sizes(length, strlen(*slot), separated ? between.size() : 0);
    }
    char *joined = new_text(length);
    char *end = joined;
    *end = '\0';
    for (char *const *slot = l; slot && *slot; slot++) {
        end = stpcpy(end, *slot);
        if (slot[1] || trailing)
            *(end = put(end, between)) = '\0';
    }
    replace_text(s, joined);
    return s;
}

char **str_join_lines_nl(char **s, char *const *l) { return str_join_lines(s, l, "\n", 1); }

char **str_join_lines_crlf(char **s, char *const *l) { return str_join_lines(s, l, "\r\n", 1); }

char **str_join_lines_ws(char **s, char *const *l) { return str_join_lines(s, l, " ", 0); }

char **str_unique_delim(char **s, const char *delims, const char *sep, int trailing)
{
    return unique_delim(s, delims, sep, trailing, lines_unique);
}

char **str_caseunique_delim(char **s, const char *delims, const char *sep, int trailing)
{
    return unique_delim(s, delims, sep, trailing, lines_caseunique);
}

char **str_unique(char **s) { return str_unique_delim(s, " \n\r", " ", 0); }

char **str_caseunique(char **s) { return str_caseunique_delim(s, " \n\r", " ", 0); }
