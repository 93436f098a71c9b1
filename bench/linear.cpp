// One operation at one size, once: linear NAME SIZE; without arguments it lists the names.
// scripts/check-linear counts the instructions that measured() takes at three sizes, each twice the one
// before.

#include "csv_source.h"
#include "util/kutil.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

// Everything inside is counted, nothing else.
__attribute__((noinline)) void measured(const std::function<void()> &work)
{
    work();
    asm volatile("" ::: "memory");
}

namespace
{

// --- What is worked on. `n` is about the number of bytes.

std::string repeated(const std::string &piece, size_t n)
{
    std::string text;
    while (text.size() < n)
        text += piece;
    return text;
}

std::string numbered(size_t n, const std::function<std::string(const std::string &)> &line)
{
    std::string text;
    for (int i = 0; text.size() < n; i++)
        text += line(std::to_string(i * 7919LL % 100003));
    return text;
}

// A gateway's shape: sections of 20 groups of 20 keys.
set *tree_of(size_t n)
{
    set *tree = set_alloc("conf");
    for (size_t i = 0; i < n / 32; i++) {
        char path[64];
        snprintf(path, sizeof(path), "s%zu/group%zu/key%zu", i / 400, i / 20 % 20, i % 20);
        set_set_path_str(&tree, path, "192.168.1.1");
    }
    return tree;
}

attrib *attribs_of(size_t n)
{
    attrib *list = nullptr;
    const std::string query = numbered(n, [](const std::string &i) { return "&field-" + i + "=a+%26+b"; });
    str_http_to_attrib(&list, query.c_str() + 1);
    return list;
}

std::string table_of(size_t n)
{
    return "id,name,price,note\n" + numbered(n, [](const std::string &i) {
               return i + ",user" + i + "," + i + ".25,\"a note, quoted\"\n";
           });
}

std::string page_of(size_t n)
{
    return repeated("The <b>fox</b> isn't 50% \"lazy\", but a/b & c_d; \\ \x01\xc3\xa9.\n", n);
}

// --- Operations.

template <char **(*change)(char **)>
void on_page(size_t n)
{
    char *text = nullptr;
    str_cpy(&text, page_of(n).c_str());
    measured([&] { change(&text); });
    str_free(&text);
}

char **replace_dots(char **s) { return str_replace(s, ".", "&#46;"), s; }
char **replace_nothing(char **s) { return str_replace(s, "o..", ""), s; }
char **strip(char **s) { return str_strip(s, ".,;", 1), s; }
char **sql_like(char **s) { return str_escape_sql(s, STR_SQL_LIKE); }
char **c_and_back(char **s) { return str_unescape_c(str_escape_c(s)); }
char **http_and_back(char **s) { return str_unescape_http(str_escape_http(s)); }

void append(size_t n)
{
    char *s = nullptr;
    uint32_t length = 0;
    measured([&] {
        while (length < n)
            str_catfast(&s, "name=value;index", &length);
    });
    str_free(&s);
}

void append_to_fstr(size_t n)
{
    fstr f;
    fstr_init(&f, 4096);
    measured([&] {
        while (fstr_strlen(&f) < static_cast<int>(n))
            fstr_cat(&f, "name=value;index");
    });
    fstr_free(&f);
}

void count_near_misses(size_t n)
{
    const std::string text(n, 'x');
    const std::string wanted = std::string(n / 2, 'x') + "y";
    measured([&] { str_count_str(text.c_str(), wanted.c_str()); });
}

void split_and_join(size_t n)
{
    const std::string text =
        numbered(n, [](const std::string &i) { return "lan" + i + ".address=192.168.1.1\n"; });
    char **list = nullptr;
    char *joined = nullptr;
    measured([&] {
        lines_str_split(&list, text.c_str(), ".=\n", 1);
        str_join_lines_nl(&joined, list);
    });
    str_free(&joined);
    lines_free(&list);
}

void add_lines(size_t n)
{
    char **list = nullptr;
    int count = 0;
    measured([&] {
        for (size_t i = 0; i < n / 16; i++)
            lines_add_fast(&list, "192.168.1.1", &count);
    });
    lines_free(&list);
}

void tree_write_and_read(size_t n)
{
    set *tree = tree_of(n);
    set *again = nullptr;
    measured([&] {
        char *text = set_write_alloc(&tree);
        set_read_check(text, strlen(text), nullptr);
        again = set_read(text);
        free(text);
    });
    set_free(&again);
    set_free(&tree);
}

void tree_copy_compare_and_free(size_t n)
{
    set *tree = tree_of(n);
    measured([&] {
        set *copy = set_dup(&tree);
        set_compare(&tree, &copy);
        set_free(&copy);
    });
    set_free(&tree);
}

void tree_merge(size_t n)
{
    set *tree = tree_of(n);
    set *into = set_alloc("conf");
    measured([&] {
        set_merge(&into, &tree);
        set_merge(&into, &tree);
    });
    set_free(&into);
    set_free(&tree);
}

void query_read_and_write(size_t n)
{
    attrib *list = attribs_of(n);
    char *query = nullptr;
    measured([&] {
        attrib_to_str_http(&query, &list);
        str_http_to_attrib(&list, query);
    });
    str_free(&query);
    attrib_free(&list);
}

void header_read_and_write(size_t n)
{
    attrib *list = attribs_of(n);
    measured([&] {
        char **lines = attrib_to_lines(&list, 0);
        attrib *again = attrib_hdr_lines_to_attrib("", lines, 0);
        attrib_free(&again);
        lines_free(&lines);
    });
    attrib_free(&list);
}

void table_read_and_write(size_t n)
{
    const std::string text = table_of(n);
    FILE *null = fopen("/dev/null", "w");
    measured([&] {
        csv *table = read_table(text);
        csv_write_fp(table, null);
        csv_close(table);
    });
    fclose(null);
}

void table_fields(size_t n)
{
    csv *table = read_table(table_of(n));
    measured([&] {
        csv_field_add(table, "new");
        csv_search(table, "name", "nobody", NULL);
        csv_delete_field(table, "new");
    });
    csv_close(table);
}

void table_sort(size_t n)
{
    csv *table = read_table(table_of(n));
    csv_type_set(table, "id", CSV_TYPE_INT, NULL);
    measured([&] { csv_sort(table, "id", 0, NULL); });
    csv_close(table);
}

void obscure(size_t n)
{
    const std::string text(n, 'x');
    measured([&] {
        int length = 0;
        unsigned char *bytes = obscure_str(text.c_str(), &length);
        free(unobscure_str(bytes, length));
        free(bytes);
    });
}

void unknown_login_parameters(size_t n)
{
    const std::string header = "Digest " + repeated("name=\"value\", realm=r, ", n);
    http_auth_request request = {"GET", "/", header.c_str()};
    measured([&] {
        http_check_auth(
            &request, [](void *, const char *) -> char * { return nullptr; }, nullptr);
    });
}

int end_at_line(estream *, char *line, int)
{
    if (line)
        event_loop_quit = 1;
    return 0;
}

struct Feed {
    size_t left;
    int fd;
    static void some(int fd, void *data)
    {
        Feed *feed = static_cast<Feed *>(data);
        feed->left--;
        if (write(fd, feed->left ? "x" : "\n", 1) != 1 || feed->left == 0)
            event_fd_clr(fd, EVENT_WRITE, some, data);
    }
};

// A line of n bytes that arrives byte by byte, as long as a line may be.
void line_byte_by_byte(size_t n)
{
    event_loop_init();
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
        return;
    estream *es = estream_connect_fd(ends[0], ESTREAM_OWN_FD | ESTREAM_CONNECTED, nullptr);
    estream_set_func(es, end_at_line);
    estream_read_line(es);
    Feed feed = {n, ends[1]};
    event_fd_set(feed.fd, EVENT_WRITE, Feed::some, &feed);
    measured([] { event_loop(); });
    estream_close(es);
    close(ends[1]);
    event_loop_uninit();
}

// n / 16 timers, each set anew and deleted: the depth of the heap grows, and nothing else.
void timers(size_t n)
{
    event_loop_init();
    const auto ignore = [](void *) {};
    void (*func)(void *) = ignore;
    measured([&] {
        for (size_t i = 0; i < n / 16; i++)
            event_timer_set(1e6 + static_cast<double>(i * 7919 % 1009), func, reinterpret_cast<void *>(i));
        for (size_t i = 0; i < n / 16; i++)
            event_timer_set(2e6, func, reinterpret_cast<void *>(i));
        for (size_t i = 0; i < n / 16; i++)
            event_timer_del(func, reinterpret_cast<void *>(i));
    });
    event_loop_uninit();
}

// Level 8 is delivered to nobody here.
void report_long_text(size_t n)
{
    const std::string text(n, 'x');
    measured([&] { zel_error_long_full(1, 8, text.c_str()); });
}

constexpr struct {
    const char *name;
    size_t size; // the smallest of the three
    void (*run)(size_t n);
} kCases[] = {
    {"str append", 16384, append},
    {"str replace, growing", 16384, on_page<replace_dots>},
    {"str replace, no hit", 16384, on_page<replace_nothing>},
    {"str strip", 16384, on_page<strip>},
    {"str count, near misses", 16384, count_near_misses},
    {"fstr append", 16384, append_to_fstr},
    {"lines split and join", 16384, split_and_join},
    {"lines add", 16384, add_lines},
    {"set write, check, read", 32768, tree_write_and_read},
    {"set copy, compare, free", 32768, tree_copy_compare_and_free},
    {"set merge", 32768, tree_merge},
    {"attrib query", 16384, query_read_and_write},
    {"attrib header", 16384, header_read_and_write},
    {"csv read and write", 32768, table_read_and_write},
    {"csv add and search a field", 32768, table_fields},
    {"csv sort", 32768, table_sort},
    {"escape xml", 16384, on_page<str_escape_xml>},
    {"escape html", 16384, on_page<str_escape_html_text>},
    {"escape textarea", 16384, on_page<str_escape_html_textarea>},
    {"escape uri", 16384, on_page<str_escape_uri>},
    {"escape shell", 16384, on_page<str_escape_shell>},
    {"escape csv", 16384, on_page<str_escape_csv>},
    {"escape sql", 16384, on_page<sql_like>},
    {"escape c and back", 16384, on_page<c_and_back>},
    {"escape query and back", 16384, on_page<http_and_back>},
    {"obscure and back", 16384, obscure},
    {"login, unknown parameters", 16384, unknown_login_parameters},
    {"line byte by byte", 2048, line_byte_by_byte},
    {"timers", 16384, timers},
    {"report of a long text", 131072, report_long_text},
};

} // namespace

int main(int argc, char **argv)
{
    zel_error_init_default(6);
    zel_error_set_mt_id();
    for (const auto &row : kCases) {
        if (argc < 3)
            printf("%s\t%zu\n", row.name, row.size);
        else if (strcmp(row.name, argv[1]) == 0)
            return row.run(strtoul(argv[2], nullptr, 10)), 0;
    }
    return argc < 3 ? 0 : 2;
}
