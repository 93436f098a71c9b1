// Apart from the tables: this source names every table, and so does a program that uses it.
#include "code_tables.h"

#include "internal/text.h"

// Tables that a schema has beyond the declared ones.
#define SCHEMA(name)
#define ROW(constant, code, ...)
#define HIDDEN_ROW(constant, code, ...)
#define TABLE(type, table, no_code, ...) extern "C" const code_names table[];
#include KUTIL_CODE_TABLES
#undef TABLE

namespace kutil
{
namespace
{

struct NamedTable {
    const char *name;
    const code_names *table;
};

#define TABLE(type, table, no_code, ...) {#table, table},
constexpr NamedTable kTables[] = {
#include KUTIL_CODE_TABLES
};

} // namespace
} // namespace kutil

using namespace kutil;

const code_names *code_names_find(const char *name)
{
    const View wanted = view(name);
    for (const NamedTable &named : kTables) {
        if (wanted == named.name)
            return named.table;
    }
    return nullptr;
}
