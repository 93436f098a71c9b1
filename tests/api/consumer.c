/* A user's program, built against the installed library by a C compiler alone. It leans on one call of each
 * kind: a variable, a variadic function, an inline wrapper, a record. */
#include "util/kutil.h"

#include <stdio.h>
#include <string.h>

static int seen;

static int count_reports(void *data, const char *message, uint32_t flags)
{
    (void)flags;
    return seen += strcmp(message, data) == 0;
}

int main(void)
{
    int *numbers = NULL;
    array_desc desc;

    zel_error_init_nodefault();
    zel_error_set_mt_id();
    zel_error_register_level(0, 8, count_reports, "3 of 5");
    zel_error_full(1, 7, "%d of %s", 3, "5");

    _array_init(&desc, sizeof(*numbers), &numbers, ARRAY_F_DOUBLE);
    array_grow(&desc, 5);
    numbers[4] = seen;

    char *copy = malloc_e(8);
    strcpy(copy, zel_error_level_str[4]);
    printf("%s %d %d\n", copy, numbers[4], desc.allocated);
    _zfree(&copy);
    array_free(&desc);
    return copy != NULL || numbers != NULL;
}
