/* Prints a table of squares that is built as one text, in blocks of 256 bytes. */

#include "util/fstr.h"

#include <stdio.h>

int main(void)
{
    fstr table;
    fstr_init(&table, 256);
    for (int n = 1; n <= 20; n++) {
        int width = fstr_catprintf(&table, "%d", n);
        fstr_ncat(&table, "        ", (size_t)(8 - width));
        fstr_catprintf(&table, "%d\n", n * n);
    }
    fputs(fstr_to_str(&table), stdout);
    printf("%d characters in %d bytes\n", fstr_strlen(&table), table.size);
    fstr_free(&table);
    return 0;
}
