// Any bytes as lines of a listing, set in two trees by turns. A listing that says so reads back, and the
// difference is empty when the trees are the same.
#include "common/tree_diff.h"
#include "util/set.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

using namespace kutil::common;

namespace
{

void require(bool holds)
{
    if (!holds)
        abort();
}

void set_line(void *tree, const char *text, size_t length)
{
    TreeLine line;
    size_t offset = SIZE_MAX;
    set **handle = static_cast<set **>(tree);
    if (tree_line_read(text, length, &line, &offset)) {
        require(offset <= length);
        return;
    }
    if (line.value)
        set_set_path_str(handle, line.path, line.value);
    else
        set_set(handle, line.path);
}

void ignore(void *, const char *line, size_t length) { require(strlen(line) == length && length >= 3); }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    set *trees[] = {set_alloc("r"), set_alloc("r")};
    const char *text = reinterpret_cast<const char *>(data);
    const char *const end = text + size;
    for (int turn = 0; text < end; turn = !turn) {
        const void *found = memchr(text, '\n', static_cast<size_t>(end - text));
        const char *line_end = found ? static_cast<const char *>(found) : end;
        set_line(&trees[turn], text, static_cast<size_t>(line_end - text));
        text = line_end + (found != nullptr);
    }
    for (set *&tree : trees) {
        set *again = set_alloc("r");
        if (tree_list(&tree, set_line, &again)) { // else an empty value stands beside other sons
            require(set_compare(&tree, &again) == 0);
            require(tree_diff(&tree, &again, ignore, nullptr) == 0);
        }
        set_free(&again);
    }
    const bool same = set_compare(&trees[0], &trees[1]) == 0;
    require(same == (tree_diff(&trees[0], &trees[1], ignore, nullptr) == 0));
    set_free(&trees[0]);
    set_free(&trees[1]);
    return 0;
}
