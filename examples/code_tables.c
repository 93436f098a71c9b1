/* Lists the words of an enumeration whose name is given, and shows how a program uses one that it knows. */
#include "util/code_tables.h"

#include <stdio.h>

int main(int argc, char **argv)
{
    const char *name = argc > 1 ? argv[1] : "qos_prio_t_str";
    const code_names *table = code_names_find(name);
    if (!table) {
        fprintf(stderr, "%s: no such table\n", name);
        return 1;
    }
    for (int i = code2str_ex_iter_next(table, -1); table[i].code != -1; i = code2str_ex_iter_next(table, i)) {
        printf("%5d", table[i].code);
        for (const char *const *word = table[i].names; *word; word++)
            printf(" \"%s\"", *word);
        printf("\n");
    }

    const fw_level_t level = (fw_level_t)str2code_ex(fw_level_t_str, "medium");
    if (level == ZEL_FW_LEVEL_NO_CODE)
        return 1;
    printf("firewall: %s\n", code2str_ex(fw_level_t_str, level));
    return 0;
}
