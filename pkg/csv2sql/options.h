#ifndef CSV2SQL_OPTIONS_H
#define CSV2SQL_OPTIONS_H

#include "list.h"

namespace csv2sql
{

enum Exit : int {
    kDone = 0,
    kRefused = 1,  // the content
    kMisuse = 2,   // a wrong call, or a file that cannot be read
    kUnwritten = 3 // the result could not be written
};

enum class Form { csv, tab, sql };
enum class Extra { refuse, drop, widen };
enum class Dialect { sqlite, mariadb };

struct TypeOption {
    const char *field;
    uint32_t type; // CSV_TYPE_*
};
struct SortOption {
    const char *field;
    bool descending;
};
struct SelectOption {
    const char *field;
    const char *value;
};

struct Settings {
    const char *in = "-";
    const char *out = "-";
    Form from = Form::csv;
    Form to = Form::csv;
    Extra extra = Extra::refuse;
    Dialect dialect = Dialect::sqlite;
    const char *table = nullptr;
    const char *merge = nullptr;
    const char *key = nullptr;
    List<TypeOption> types;
    List<SortOption> sorts;
    List<SelectOption> selects;
    List<const char *> columns; // empty: all
    bool spreadsheet = false;
    bool check = false;
    bool stats = false;
};

// Reads the words of the call, which it changes. `done` is set when the call ends here.
Exit read_options(int argc, char **argv, Settings *settings, bool *done);

// "csv2sql: TEXT" on standard error; returns its first argument.
Exit complain(Exit result, const char *format, ...) KUTIL_PRINTF(2, 3);

} // namespace csv2sql

#endif
