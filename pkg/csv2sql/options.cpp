#include "options.h"

#include "common/bad_option.h"
#include "util/csv.h"

#include <cstdarg>
#include <cstdio>
#include <getopt.h>

namespace csv2sql
{

namespace
{

enum Option : int {
    kExtra = 256,
    kTable,
    kDialect,
    kType,
    kSort,
    kSelect,
    kColumns,
    kMerge,
    kKey,
    kSpreadsheet,
    kCheck,
    kStats,
};

constexpr struct option kOptions[] = {
    {"input", required_argument, nullptr, 'i'},
    {"output", required_argument, nullptr, 'o'},
    {"extra", required_argument, nullptr, kExtra},
    {"table", required_argument, nullptr, kTable},
    {"dialect", required_argument, nullptr, kDialect},
    {"type", required_argument, nullptr, kType},
    {"sort", required_argument, nullptr, kSort},
    {"select", required_argument, nullptr, kSelect},
    {"columns", required_argument, nullptr, kColumns},
    {"merge", required_argument, nullptr, kMerge},
    {"key", required_argument, nullptr, kKey},
    {"spreadsheet", no_argument, nullptr, kSpreadsheet},
    {"check", no_argument, nullptr, kCheck},
    {"stats", no_argument, nullptr, kStats},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

constexpr const char kUsage[] = "usage: csv2sql [OPTION]... [-i IN] [-o OUT] FROM TO\n";

constexpr const char kHelp[] =
    "\n"
    "Reads a table and writes it in the same form, normalised, or in another one.\n"
    "FROM is csv or tab, TO is csv, tab or sql.\n"
    "\n"
    "  -i, --input IN              the table; - (the default) is standard input\n"
    "  -o, --output OUT            the result; - (the default) is standard output. It may be IN: a file is\n"
    "                              replaced at once, when all went well\n"
    "      --extra drop|widen      what becomes of a line with more cells than the header: the extra cells "
    "are\n"
    "                              dropped, or the header is widened. Otherwise the line is refused\n"
    "      --type FIELD=TYPE       int, float, date or text: how the field is compared, quoted and stored\n"
    "      --select FIELD=VALUE    only the lines with this value; may be given again\n"
    "      --sort FIELD[:desc],... sorts; lines with equal values keep their order\n"
    "      --columns FIELD,...     only these fields, in this order\n"
    "      --merge FILE            fills empty cells from the lines of FILE that have the same value...\n"
    "      --key FIELD             ...in this field, and adds FILE's other fields\n"
    "      --spreadsheet           puts an apostrophe before every value, so that none is taken for a "
    "formula\n"
    "      --table NAME            sql: the table's name; without it the file's\n"
    "      --dialect NAME          sql: sqlite (the default) or mariadb\n"
    "      --check                 only reports; nothing is written\n"
    "      --stats                 prints lines and peak memory to standard error\n"
    "  -h, --help                  prints this text\n"
    "  -V, --version               prints the version\n"
    "\n"
    "In the names of --type, --select, --sort and --columns a backslash stands before , = : and backslash.\n"
    "\n"
    "Exit status: 0 done; 1 the content is refused; 2 misuse or an unreadable file; 3 not written.\n";

struct Word {
    const char *name;
    int value;
};

constexpr Word kForms[] = {{"csv", static_cast<int>(Form::csv)},
                           {"tab", static_cast<int>(Form::tab)},
                           {"sql", static_cast<int>(Form::sql)}};
constexpr Word kExtras[] = {{"drop", static_cast<int>(Extra::drop)},
                            {"widen", static_cast<int>(Extra::widen)}};
constexpr Word kDialects[] = {{"sqlite", static_cast<int>(Dialect::sqlite)},
                              {"mariadb", static_cast<int>(Dialect::mariadb)}};
constexpr Word kTypes[] = {
    {"int", CSV_TYPE_INT}, {"float", CSV_TYPE_FLOAT}, {"date", CSV_TYPE_DATE}, {"text", CSV_TYPE_TEXT}};

template <class T, size_t N>
bool take_word(const Word (&words)[N], const char *text, T *value)
{
    for (const Word &word : words) {
        if (View(word.name) != View(text))
            continue;
        *value = static_cast<T>(word.value);
        return true;
    }
    return false;
}

Exit misuse(const char *what, const char *word = "")
{
    fprintf(stderr, "csv2sql: %s%s%s\n%sTry csv2sql --help.\n", what, *word ? ": " : "", word, kUsage);
    return kMisuse;
}

// Cuts the name at the start of *rest off, up to one of `ends` that no backslash takes, in place. *end gets
// that character, or NUL at the end of the text.
char *take_name(char **rest, const char *ends, char *end)
{
    char *name = *rest;
    char *to = name;
    char *from = name;
    for (; *from && !strchr(ends, *from); from++) {
        if (*from == '\\' && from[1])
            from++;
        *to++ = *from;
    }
    *end = *from;
    *rest = *from ? from + 1 : from;
    *to = '\0';
    return name;
}

bool take_type(char *text, Settings *settings)
{
    char end;
    TypeOption option = {take_name(&text, "=", &end), 0};
    if (end != '=' || !take_word(kTypes, text, &option.type))
        return false;
    settings->types.add(option);
    return true;
}

bool take_select(char *text, Settings *settings)
{
    char end;
    const char *name = take_name(&text, "=", &end);
    if (end == '=')
        settings->selects.add({name, text});
    return end == '=';
}

bool take_sort(char *text, Settings *settings)
{
    char end = ',';
    while (end == ',') {
        SortOption option = {take_name(&text, ",:", &end), false};
        if (end == ':') {
            const View order = take_name(&text, ",", &end);
            if (order != "desc" && order != "asc")
                return false;
            option.descending = order == "desc";
        }
        settings->sorts.add(option);
    }
    return true;
}

bool take_columns(char *text, Settings *settings)
{
    char end = ',';
    while (end == ',')
        settings->columns.add(take_name(&text, ",", &end));
    return true;
}

// Returns false when the option's argument makes no sense.
bool take_argument(int option, char *text, Settings *settings)
{
    switch (option) {
    case 'i':
        settings->in = text;
        return *text;
    case 'o':
        settings->out = text;
        return *text;
    case kExtra:
        return take_word(kExtras, text, &settings->extra);
    case kTable:
        settings->table = text;
        return *text;
    case kDialect:
        return take_word(kDialects, text, &settings->dialect);
    case kType:
        return take_type(text, settings);
    case kSort:
        return take_sort(text, settings);
    case kSelect:
        return take_select(text, settings);
    case kColumns:
        return take_columns(text, settings);
    case kMerge:
        settings->merge = text;
        return *text;
    case kKey:
        settings->key = text;
        return true;
    case kSpreadsheet:
        return settings->spreadsheet = true;
    case kCheck:
        return settings->check = true;
    default:
        return settings->stats = true;
    }
}

// What take_argument wants of the option.
const char *wanted_argument(int option)
{
    switch (option) {
    case kExtra:
        return "--extra takes drop or widen";
    case kTable:
        return "--table takes a name";
    case kDialect:
        return "--dialect takes sqlite or mariadb";
    case kType:
        return "--type takes FIELD=int, FIELD=float, FIELD=date or FIELD=text";
    case kSort:
        return "--sort takes FIELD or FIELD:desc, and more of them behind commas";
    case kSelect:
        return "--select takes FIELD=VALUE";
    default:
        return "-i, -o and --merge take the name of a file";
    }
}

Exit check_settings(const Settings &settings)
{
    if (settings.from == Form::sql)
        return misuse("sql cannot be read, only written");
    if (!settings.merge != !settings.key)
        return misuse("--merge and --key belong together");
    if (settings.merge && View(settings.merge) == "-" && View(settings.in) == "-")
        return misuse("standard input cannot be both the table and what is merged");
    if (settings.spreadsheet && settings.to == Form::sql)
        return misuse("--spreadsheet is for csv and tab");
    return kDone;
}

} // namespace

Exit read_options(int argc, char **argv, Settings *settings, bool *done)
{
    *done = true;
    opterr = 0;
    for (int option; (option = getopt_long(argc, argv, ":i:o:hV", kOptions, nullptr)) != -1;) {
        if (option == 'h')
            return printf("%s%s", kUsage, kHelp) < 0 ? kUnwritten : kDone;
        if (option == 'V')
            return puts("csv2sql " KUTIL_VERSION) < 0 ? kUnwritten : kDone;
        if (option == ':')
            return misuse("the option needs an argument", kutil::common::bare_option(argv));
        if (option == '?')
            return misuse("no such option", kutil::common::bad_option(argv));
        const HeapText argument(kutil::copy_text(kutil::view(optarg)));
        if (!take_argument(option, optarg, settings))
            return misuse(wanted_argument(option), argument.get());
    }
    if (argc - optind != 2)
        return misuse("two forms are needed: what is read and what is written");
    if (!take_word(kForms, argv[optind], &settings->from))
        return misuse("no such form", argv[optind]);
    if (!take_word(kForms, argv[optind + 1], &settings->to))
        return misuse("no such form", argv[optind + 1]);
    const Exit result = check_settings(*settings);
    *done = result != kDone;
    return result;
}

Exit complain(Exit result, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    fputs("csv2sql: ", stderr);
    vfprintf(stderr, format, ap);
    fputc('\n', stderr);
    va_end(ap);
    return result;
}

} // namespace csv2sql
