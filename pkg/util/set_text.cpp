#include "set_text.h"

#include "internal/set_node.h"

#include <array>
#include <cinttypes>
#include <cstdio>

using namespace kutil;

namespace
{

constexpr size_t kMaxText = INT32_MAX;
constexpr size_t kMaxLevels = 256;
constexpr size_t kIndent = 2;
constexpr size_t kEscapeSize = 4; // "&xx;"

constexpr bool needs_escape(char c) { return !is_print(c) || View("()&;'\"\\").find(c) != View::npos; }

// What ends the text of a node. The NUL is there for the end of the whole.
constexpr bool ends_name(char c) { return c == '\0' || c == '(' || c == ')' || c == '\n' || c == '\r'; }

constexpr bool is_line_end(char c) { return c == '\n' || c == '\r'; }

// One answer per byte, made at compile time.
template <bool (*Test)(char)>
constexpr auto kByte = [] {
    std::array<bool, 256> table = {};
    for (unsigned byte = 0; byte < table.size(); byte++)
        table[byte] = Test(static_cast<char>(byte));
    return table;
}();

template <bool (*Test)(char)>
bool test(char c)
{
    return kByte<Test>[static_cast<unsigned char>(c)];
}

// --- Writing. One walk, run twice: into a Counter for the size, then into a Filler.

struct Counter {
    uint64_t size = 0;

    void text(View text) { size += text.size(); }
    void blanks(size_t count) { size += count; }
    void escaped(const char *text) { size += set_write_special_chars(text, nullptr); }
    bool full() const { return size > kMaxText; }
};

struct Filler {
    char *to;

    void text(View text) { to = put(to, text); }
    void blanks(size_t count)
    {
        memset(to, ' ', count);
        to += count;
    }
    void escaped(const char *text) { to += set_write_special_chars(text, to); }
    static bool full() { return false; }
};

// Writes the node with its value, if it is a key, and its end; or only its beginning, and returns true, when
// its sons stand on lines of their own.
template <class Sink>
bool begin_node(Sink &out, const set *node, uint32_t mask, size_t level, View line_end)
{
    out.blanks(level * kIndent);
    out.text("(");
    out.escaped(node->value);
    const set *son = node->sons;
    const bool seen = in_mask(son, mask);
    if (son && (son->next || (seen && son->sons))) {
        out.text(line_end);
        return true;
    }
    if (seen) {
        out.text("(");
        out.escaped(son->value);
        out.text(")");
    }
    out.text(")");
    out.text(line_end);
    return false;
}

template <class Sink>
void write_tree(Sink &out, const set *top, uint32_t mask, View line_end)
{
    WalkStack<const set *> rest; // per open node, the son to look at
    if (begin_node(out, top, mask, 0, line_end))
        rest.push(top->sons);
    while (!rest.empty() && !out.full()) {
        const set *node = rest.top();
        if (!node) {
            rest.pop();
            out.blanks(rest.size() * kIndent);
            out.text(")");
            out.text(line_end);
            continue;
        }
        rest.top() = node->next;
        if (in_mask(node, mask) && begin_node(out, node, mask, rest.size(), line_end))
            rest.push(node->sons);
    }
}

char *write_alloc(set **handle, View line_end)
{
    const uint32_t mask = reading_mask();
    const set *top = visible_at(handle, mask);
    if (!top)
        return nullptr;
    Counter counter;
    write_tree(counter, top, mask, line_end);
    if (counter.full())
        return nullptr;
    char *text = new_text(static_cast<size_t>(counter.size));
    Filler filler = {text};
    write_tree(filler, top, mask, line_end);
    *filler.to = '\0';
    return text;
}

// --- Reading.

// The two characters of an escape as strtoul reads them in base 16; below 0 when that is negative.
int escape_value(char first, char second)
{
    const int high = xdigit_value(first);
    const int low = xdigit_value(second);
    if (high >= 0)
        return low >= 0 ? high * 16 + low : high;
    const bool sign_or_space = first == '-' || first == '+' || is_space(first);
    if (!sign_or_space || low < 0)
        return 0;
    return first == '-' ? -low : low;
}

// The length of `text` without its escapes, or SIZE_MAX when one is bad.
size_t unescaped_size(View text)
{
    size_t size = 0;
    for (;;) {
        const size_t plain = text.find('&');
        if (plain == View::npos)
            return size + text.size();
        text.remove_prefix(plain);
        if (text.size() < kEscapeSize || escape_value(text[1], text[2]) < 0)
            return SIZE_MAX;
        text.remove_prefix(kEscapeSize);
        size += plain + 1;
    }
}

char *unescape(View text)
{
    const size_t size = unescaped_size(text);
    if (size == SIZE_MAX)
        return nullptr;
    char *result = new_text(size);
    char *to = result;
    for (;;) {
        const size_t plain = text.find('&');
        to = put(to, sub(text, 0, plain));
        if (plain == View::npos)
            break;
        *to++ = static_cast<char>(escape_value(text[plain + 1], text[plain + 2]));
        text.remove_prefix(plain + kEscapeSize);
    }
    *to = '\0';
    return result;
}

bool is_balanced(const char *text)
{
    size_t open = 0;
    size_t closed = 0;
    for (; *text; text++) {
        open += *text == '(';
        closed += *text == ')';
    }
    return open == closed;
}

// The end of the name at `at`.
const char *skip_name(const char *at)
{
    while (!test<ends_name>(*at))
        at++;
    return at;
}

set *read_trees(const char *at, uint32_t layers)
{
    set *root = nullptr;
    set *parent = nullptr; // of the list that is being read
    set **end = &root;     // of that list
    for (;;) {
        if (*at == '(') {
            const char *name = at + 1;
            at = skip_name(name);
            const View escaped(name, static_cast<size_t>(at - name));
            char *text = unescape(escaped);
            if (!text) {
                free_chain(root);
                return nullptr;
            }
            // Deliberate: a line end right behind "(" is left standing, and ends the list of sons.
            if (!escaped.empty() && is_line_end(*at))
                at = skip_space(at);
            parent = *end = new_node_use(text, layers, parent);
            end = &parent->sons;
            continue;
        }
        if (*at == ')')
            at++;
        else if (!is_line_end(*at))
            return root;
        at = skip_space(at);
        if (!parent)
            return root;
        end = &parent->next;
        parent = parent->parent;
    }
}

// --- The strict check.

constexpr size_t kNoFault = SIZE_MAX;

// Where the first escape that is not exactly of the written form stands in `name`; a NUL is at its end, if
// there is one.
size_t bad_escape(View name)
{
    for (size_t at = name.find('&'); at != View::npos; at = name.find('&', at + kEscapeSize)) {
        const View escape = sub(name, at, kEscapeSize);
        if (escape.size() < kEscapeSize || escape[3] != ';' || !is_xdigit(escape[1]) ||
            !is_xdigit(escape[2]) || escape_value(escape[1], escape[2]) == 0)
            return at;
    }
    return kNoFault;
}

// Reads as read_trees does, without making anything, and stops at what that would pass over.
class Checker
{
public:
    explicit Checker(View text) : text_(text) {}

    // The offset of the first fault, or kNoFault.
    size_t run()
    {
        do {
            size_t fault = kNoFault;
            if (peek() == '(')
                fault = open_node();
            else if (peek() == ')' && levels_ > 0)
                close_node();
            else
                fault = at_;
            if (fault != kNoFault)
                return fault;
        } while (at_ < text_.size() || levels_ > 0);
        return kNoFault;
    }

private:
    struct Level {
        bool empty_text;
        bool has_son;
    };

    // NUL at the end, and where there is one: a fault both times.
    char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }

    bool may_have_node_here()
    {
        if (levels_ == 0)
            return at_ == 0;
        if (levels_ == kMaxLevels)
            return false;
        // A node with an empty text is written on one line, if at all, with a single value.
        Level &parent = level_[levels_ - 1];
        const bool in_unnamed = levels_ > 1 && level_[levels_ - 2].empty_text;
        if (in_unnamed || (parent.empty_text && parent.has_son))
            return false;
        parent.has_son = true;
        return true;
    }

    size_t open_node()
    {
        if (!may_have_node_here())
            return at_;
        const size_t begin = ++at_;
        while (!test<ends_name>(peek()))
            at_++;
        const View name = sub(text_, begin, at_ - begin);
        const size_t fault = bad_escape(name);
        if (fault != kNoFault)
            return begin + fault;
        if (is_line_end(peek())) {
            if (name.empty())
                return at_;
            skip_space();
        }
        level_[levels_++] = {name.empty(), false};
        return kNoFault;
    }

    void close_node()
    {
        at_++;
        levels_--;
        skip_space();
    }

    void skip_space()
    {
        while (is_space(peek()))
            at_++;
    }

    View text_;
    size_t at_ = 0;
    size_t levels_ = 0;
    Level level_[kMaxLevels] = {};
};

// --- Drawing.

struct DrawnLevel {
    set *next; // of the sons, the one to look at
    size_t column;
    bool drawn_one;
};

void print_blanks(size_t count)
{
    for (; count > 0; count--)
        putchar(' ');
}

// Draws one node and returns the column behind it.
size_t draw_node(const set *node, uint32_t mask, size_t column)
{
    const size_t size = set_write_special_chars(node->value, nullptr);
    const HeapText text(new_text(size));
    set_write_special_chars(node->value, text.get());
    fputs("[ ", stdout);
    fwrite(text.get(), 1, size, stdout);
    const int rest = printf(" <0x%" PRIx32 "> ]", node->layers & mask);
    column += 2 + size + static_cast<size_t>(rest > 0 ? rest : 0);
    if (!node->sons)
        return column;
    fputs("--", stdout);
    return column + 2;
}

void start_row(size_t column)
{
    putchar('\n');
    print_blanks(column + 2);
    fputs("|\n", stdout);
    print_blanks(column);
}

void draw_tree(set *top, uint32_t mask)
{
    WalkStack<DrawnLevel> levels;
    levels.push({top->sons, draw_node(top, mask, 0), false});
    while (!levels.empty()) {
        DrawnLevel &level = levels.top();
        set *node = level.next;
        if (!node) {
            levels.pop();
            continue;
        }
        level.next = node->next;
        if (!in_mask(node, mask))
            continue;
        if (level.drawn_one)
            start_row(level.column);
        level.drawn_one = true;
        levels.push({node->sons, draw_node(node, mask, level.column), false});
    }
    putchar('\n');
}

} // namespace

char *set_write_alloc(set **handle) { return write_alloc(handle, "\n"); }

char *set_write_alloc_dos(set **handle) { return write_alloc(handle, "\r\n"); }

set *set_read(const char *text)
{
    const uint32_t layers = writing_mask();
    return text && layers && is_balanced(text) ? read_trees(text, layers) : nullptr;
}

int set_read_check(const char *text, size_t len, size_t *offset)
{
    const size_t fault = text ? Checker(View(text, len)).run() : 0;
    if (fault == kNoFault)
        return 0;
    if (offset)
        *offset = fault;
    return -1;
}

size_t set_write_special_chars(const char *text, char *out)
{
    if (!text)
        return 0;
    size_t size = 0;
    for (;;) {
        const char *plain = text;
        while (!test<needs_escape>(*text))
            text++;
        const auto count = static_cast<size_t>(text - plain);
        if (out)
            out = put(out, View(plain, count));
        size += count;
        if (!*text)
            return size;
        if (out) {
            static constexpr char kDigits[] = "0123456789abcdef";
            const auto byte = static_cast<unsigned char>(*text);
            const char escape[kEscapeSize] = {'&', kDigits[byte >> 4], kDigits[byte & 15], ';'};
            out = put(out, View(escape, kEscapeSize));
        }
        size += kEscapeSize;
        text++;
    }
}

char *set_read_special_chars_alloc(const char *text, size_t len)
{
    return text ? unescape(View(text, len)) : nullptr;
}

void set_print_tree(set **handle) { set_print_tree_mask(handle, reading_mask()); }

void set_print_tree_mask(set **handle, uint32_t mask)
{
    if (set *top = visible_at(handle, mask))
        draw_tree(top, mask);
}
