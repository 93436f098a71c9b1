// The reader on any bytes, in both modes: both ways of reading agree, and what comma mode writes reads back.

#include "util/csv.h"
#include "util/zel_error.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{

void require(bool holds)
{
    if (!holds)
        abort();
}

int next_of(void *ctx)
{
    auto *rest = static_cast<std::string_view *>(ctx);
    if (rest->empty())
        return -1;
    const char c = rest->front();
    rest->remove_prefix(1);
    return c;
}

void add_line(std::string &to, const csv_line *line)
{
    to += std::to_string(line->line_number);
    for (const csv_cell *cell = line->cells; cell; cell = cell->next)
        to += std::string(1, '\0') + cell->text;
    to += '\n';
}

std::string shown(const csv *table)
{
    std::string text;
    if (table->header)
        add_line(text, table->header);
    for (const csv_line *line = table->lines; line; line = line->next)
        add_line(text, line);
    return text;
}

bool can_be_written(const csv *table)
{
    if (!table->header)
        return false;
    // A line of one empty cell is an empty line. Escapes and quotes do not apply to a CR, which is dropped.
    for (const csv_line *line = table->header; line;
         line = line == table->header ? table->lines : line->next) {
        int cells = 0;
        for (const csv_cell *cell = line->cells; cell; cell = cell->next, cells++) {
            if (strchr(cell->text, '\r') || strchr(cell->text, '\xff'))
                return false;
        }
        if (cells != table->fields_count || (cells < 2 && (cells == 0 || !*line->cells->text)))
            return false;
    }
    return true;
}

void round_trip(csv *table)
{
    char *buffer = nullptr;
    size_t size = 0;
    FILE *fp = open_memstream(&buffer, &size);
    require(csv_write_fp(table, fp) == 0);
    fclose(fp);
    std::string_view rest(buffer, size);
    csv *again = csv_alloc();
    require(csv_read(again, next_of, &rest) == 0);
    const csv_line *a = table->header, *b = again->header;
    for (; a && b;
         a = a == table->header ? table->lines : a->next, b = b == again->header ? again->lines : b->next) {
        const csv_cell *x = a->cells, *y = b->cells;
        for (; x && y; x = x->next, y = y->next)
            require(strcmp(x->text, y->text) == 0);
        require(!x && !y);
    }
    require(!a && !b);
    csv_close(again);
    free(buffer);
}

void fuzz_mode(std::string_view text, bool tab)
{
    tab ? csv_delim_set_tab() : csv_delim_set_comma();
    csv *table = csv_alloc();
    std::string_view rest = text;
    const int result = csv_read(table, next_of, &rest);

    csv *head = csv_alloc();
    std::string lines;
    rest = text;
    const auto take = [](void *data, csv_line *line) {
        add_line(*static_cast<std::string *>(data), line);
        return 0;
    };
    require(csv_read_lines(head, next_of, &rest, take, &lines) == result);
    require(result != 0 || shown(head) + lines == shown(table));
    csv_close(head);

    csv_delim_set_comma();
    if (result == 0 && can_be_written(table))
        round_trip(table);
    csv_field_add(table, "added");
    csv_sort(table, "added", 0, NULL);
    csv_search(table, "added", "x", NULL);
    csv_close(table);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool initialized = (zel_error_init_nodefault(), zel_error_set_mt_id(), true);
    (void)initialized;
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    fuzz_mode(text, false);
    fuzz_mode(text, true);
    return 0;
}
