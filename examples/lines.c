/* Reads words from standard input and prints each once, sorted, as one line and as a list. */
#include "util/lines.h"

#include <stdio.h>
#include <stdlib.h>

int main(void)
{
    char *text = file_read_fp(stdin);
    char **words = NULL;
    lines_str_split_ws(&words, text);
    lines_unique(&words);
    if (lines_search(words, "wan0"))
        lines_add_printf(&words, "(%d words, wan0 among them)", lines_count(words));

    char *joined = NULL;
    str_join_lines(&joined, words, ", ", 0);
    printf("%s\n", joined);
    lines_print(words);

    char *last = lines_pop(&words);
    printf("last: %s\n", last ? last : "none");
    free(last);
    free(joined);
    free(text);
    lines_free(&words);
    return 0;
}
