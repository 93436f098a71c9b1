/* Prints its arguments as base64 text and back: base64 user:secret */
#include "util/base64.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(int argc, char **argv)
{
    for (int i = 1; i < argc; i++) {
        const int size = (int)strlen(argv[i]);
        char *text = malloc(4 * (((size_t)size + 2) / 3) + 1);
        if (!text)
            return 1;
        base64_enc(text, argv[i], size);
        printf("%s ", text);
        const int back = base64_dec(text, text);
        printf("%.*s\n", back < 0 ? 0 : back, text);
        free(text);
    }
    return 0;
}
