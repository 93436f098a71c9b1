/* Writes a temporary file, reads it back and removes it. */
#include "util/file.h"

#include <stdlib.h>

int main(void)
{
    char *path = file_tmp_create("example_");
    FILE *fp = path ? file_open(path, "w") : NULL;
    if (!fp) {
        free(path);
        return 1;
    }
    fputs("lan0 up\n", fp);
    fclose(fp);

    int length = 0;
    char *content = file_read_bin(path, &length);
    if (content)
        printf("%d bytes: %s", length, content);
    free(content);
    remove(path);
    free(path);
    return 0;
}
