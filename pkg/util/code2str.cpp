#include "code2str.h"

#include "internal/text.h"

namespace kutil
{
namespace
{

const char *text_of(const code_str &row) { return row.indirect ? *row.indirect : row.name; }
const char *text_of(const str_str &row) { return row.indirect ? *row.indirect : row.value; }

bool is_hidden(const code_str &row) { return row.hidden != 0; }
bool is_hidden(const code_names &row) { return row.hidden != 0; }
bool is_hidden(const code_code &) { return false; }
bool is_hidden(const code_pair &) { return false; }

// The first visible row with the code, else the terminator. -1 is no row's code, so it finds the terminator.
template <class Row>
const Row *find_row(const Row *table, int code)
{
    const Row *row = table;
    while (row->code != -1 && (row->code != code || is_hidden(*row)))
        row++;
    return row;
}

template <class Same>
const str_str *find_key(const str_str *table, View key, Same same)
{
    const str_str *row = table;
    while (row->key && !same(View(row->key), key))
        row++;
    return row;
}

bool lists_word(const code_names &row, View word)
{
    for (const char *const *name = row.names; name && *name; name++) {
        if (word == *name)
            return true;
    }
    return false;
}

} // namespace
} // namespace kutil

using namespace kutil;

const char *code2str(const code_str *table, int code)
{
    return table ? text_of(*find_row(table, code)) : nullptr;
}

int str2code(const code_str *table, const char *s)
{
    const View word = view(s);
    for (const code_str *row = table; row && row->code != -1; row++) {
        const char *text = text_of(*row);
        // Deliberate: a row without a text takes everything.
        if (!text || word == text)
            return row->code;
    }
    return -1;
}

int strn2code(const code_str *table, const char *s, size_t n)
{
    const View word(text_or_empty(s), strnlen(text_or_empty(s), n));
    for (const code_str *row = table; row && row->code != -1; row++) {
        // Deliberate: judged before the hidden flag, so a nameless row ends the walk whatever else it is.
        if (!row->name)
            return row->code;
        if (!row->hidden && word.size() == n && word == row->name)
            return row->code;
    }
    return -1;
}

const char *code2str_ex(const code_names *table, int code) { return code2str_ex_idx(table, code, 0); }

const char *code2str_ex_idx(const code_names *table, int code, int i)
{
    const char *const *names = table ? find_row(table, code)->names : nullptr;
    if (!names || i < 0)
        return nullptr;
    while (*names && i > 0) {
        names++;
        i--;
    }
    return *names;
}

int str2code_ex(const code_names *table, const char *word)
{
    const View wanted = view(word);
    for (const code_names *row = table; row && row->code != -1; row++) {
        if (!row->hidden && lists_word(*row, wanted))
            return row->code;
    }
    return -1;
}

int code2str_ex_iter_next(const code_names *table, int i)
{
    if (!table)
        return 0;
    if (i >= 0 && table[i].code == -1)
        return i;
    int next = i < 0 ? 0 : i + 1;
    while (table[next].code != -1 && table[next].hidden)
        next++;
    return next;
}

int code2code(const code_code *table, int code)
{
    return table ? static_cast<int>(find_row(table, code)->value) : 0;
}

void *code2ptr(const code_code *table, int code)
{
    return table ? reinterpret_cast<void *>(find_row(table, code)->value) : nullptr;
}

int code2code_back(const code_code *table, intptr_t value)
{
    for (const code_code *row = table; row && row->code != -1; row++) {
        if (row->value == value)
            return row->code;
    }
    return -1;
}

int code2pair(const code_pair *table, int code, int *first, int *second)
{
    const code_pair none{};
    const code_pair &row = table ? *find_row(table, code) : none;
    if (first)
        *first = row.first;
    if (second)
        *second = row.second;
    return row.second;
}

int code_in_list(int code, const int *list)
{
    for (; list && *list != -1; list++) {
        if (*list == code)
            return 1;
    }
    return 0;
}

const char *str2str(const str_str *table, const char *key)
{
    if (!table)
        return nullptr;
    return text_of(*find_key(table, view(key), [](View a, View b) { return a == b; }));
}

const char *strcase2str(const str_str *table, const char *key)
{
    return table ? text_of(*find_key(table, view(key), equal_ignoring_case)) : nullptr;
}

int str2lang(const str_str *table, const char *key)
{
    return table ? find_key(table, view(key), [](View a, View b) { return a == b; })->lang : 0;
}

const code_str zel_error2str[] = {
    {0, "None", nullptr, 0},     {1, "Emergency", nullptr, 0},   {2, "Alert", nullptr, 0},
    {3, "Critical", nullptr, 0}, {4, "Error", nullptr, 0},       {5, "Warning", nullptr, 0},
    {6, "Notice", nullptr, 0},   {7, "Information", nullptr, 0}, {8, "Debug", nullptr, 0},
    {-1, "None", nullptr, 0},
};

// The priorities of syslog are protocol numbers, the same everywhere.
const code_code zel_error2syslog[] = {
    {1, 0}, {2, 1}, {3, 2}, {4, 3}, {5, 4}, {6, 5}, {7, 6}, {8, 7}, {-1, 0},
};

const code_code pri2syslog[] = {
    {1, 0}, {2, 1}, {3, 2}, {4, 3}, {5, 4}, {6, 5}, {7, 6}, {8, 7}, {-1, 0},
};

// Deliberate: 207 stands before 206; callers that list the table show this order.
const code_str http_status_str[] = {
    {100, "Continue", nullptr, 0},
    {200, "OK", nullptr, 0},
    {201, "Created", nullptr, 0},
    {204, "No Content", nullptr, 0},
    {207, "Multi-Status", nullptr, 0},
    {206, "Partial Content", nullptr, 0},
    {301, "Moved Permanently", nullptr, 0},
    {302, "Moved Temporarily", nullptr, 0},
    {304, "Not Modified", nullptr, 0},
    {400, "Bad Request", nullptr, 0},
    {401, "Unauthorized", nullptr, 0},
    {403, "Forbidden", nullptr, 0},
    {404, "Not Found", nullptr, 0},
    {405, "Method Not Allowed", nullptr, 0},
    {406, "Not Acceptable", nullptr, 0},
    {407, "Proxy Authentication Required", nullptr, 0},
    {408, "Request Timeout", nullptr, 0},
    {409, "Conflict", nullptr, 0},
    {410, "Gone", nullptr, 0},
    {411, "Content Length Required", nullptr, 0},
    {412, "Precondition Failed", nullptr, 0},
    {413, "Request Entity Too Large", nullptr, 0},
    {416, "Requested Range Not Satisfiable", nullptr, 0},
    {500, "Internal Server Error", nullptr, 0},
    {501, "Not Implemented", nullptr, 0},
    {502, "Bad Gateway", nullptr, 0},
    {503, "Service Temporarily Overloaded", nullptr, 0},
    {507, "Insufficient Storage", nullptr, 0},
    {-1, "Unknown Status", nullptr, 0},
};

const code_str obscure_type_str[] = {
    {0, "str", nullptr, 0},
    {1, "bin", nullptr, 0},
    {-1, nullptr, nullptr, 0},
};
