/* A table of users: read, a field added, sorted by number, written.
 *
 *     example_csv users.csv */

#include "util/csv.h"
#include "util/zel_error.h"

int main(int argc, char **argv)
{
    zel_error_init_default(6);
    zel_error_set_mt_id();
    csv *users = argc > 1 ? csv_open(argv[1], 0) : csv_alloc_with_hdr("name", "logins", NULL);
    if (!users)
        return 1; /* what is malformed was reported */
    if (argc == 1) {
        csv_line_add_fields_set(users, "name", "Ada, Countess", "logins", "10", NULL);
        csv_line_add_fields_set(users, "name", "Grace", "logins", "9", NULL);
    }

    csv_field_add(users, "seen");
    for (csv_line *line = users->lines; line; line = line->next)
        csv_field_set_printf(users, line, "seen", "%d", line->line_number);
    if (csv_get_field_idx(users, "logins") >= 0) {
        csv_type_set(users, "logins", CSV_TYPE_INT, NULL);
        csv_sort(users, "logins", (int)CSV_KEY_DESC, NULL);
    }
    int result = csv_write_fp(users, stdout);
    csv_close(users);
    return result == 0 ? 0 : 1;
}
