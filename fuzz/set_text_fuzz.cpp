// Any bytes as the text of a tree. What is read is written and read again; what the strict check lets pass
// must be read whole and keep its text.
#include "util/set.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace
{

void require(bool holds)
{
    if (!holds)
        abort();
}

void free_all(set *tree)
{
    while (tree)
        set_free(&tree);
}

size_t count(const char *text, size_t size, char c)
{
    size_t hits = 0;
    for (size_t i = 0; i < size; i++)
        hits += text[i] == c;
    return hits;
}

// Writing what was read of a written text gives that text.
void require_same_again(const char *text)
{
    set *tree = set_read(text);
    char *again = set_write_alloc(&tree);
    require(again && strcmp(again, text) == 0 && !tree->next);
    free(again);
    free_all(tree);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // Two exact blocks, so that a byte read too far is seen: one ends where the bytes end, one with a NUL.
    char *bytes = static_cast<char *>(malloc(size ? size : 1));
    char *text = static_cast<char *>(malloc(size + 1));
    if (size)
        memcpy(bytes, data, size);
    if (size)
        memcpy(text, data, size);
    text[size] = '\0';

    free(set_read_special_chars_alloc(bytes, size));
    size_t fault = SIZE_MAX;
    const bool good = set_read_check(bytes, size, &fault) == 0;
    require(good ? fault == SIZE_MAX : fault <= size);

    set *tree = set_read(text);
    require(!good || (tree && !tree->next));
    if (tree) {
        char *written = set_write_alloc(&tree);
        require(written);
        if (good) {
            require(set_read_check(written, strlen(written), nullptr) == 0);
            require(count(written, strlen(written), '(') == count(bytes, size, '('));
            require_same_again(written);
        }
        free(written);
        set *copy = set_dup(&tree);
        set_set_path_str(&copy, text, "value");
        set_get(&copy, text);
        free_all(copy);
    }
    free_all(tree);
    free(text);
    free(bytes);
    return 0;
}
