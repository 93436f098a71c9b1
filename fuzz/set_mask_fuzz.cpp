// Bytes as a list of operations on two trees, at nodes anywhere in them, so also on places inside one
// another. After each the trees must be whole.
#include "util/set.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr int kMostNodes = 300;

void require(bool holds)
{
    if (!holds)
        abort();
}

class Machine
{
public:
    Machine(const uint8_t *data, size_t size) : at_(data), end_(data + size) {}
    ~Machine()
    {
        for (set *&tree : trees_)
            clear(&tree);
    }

    void run()
    {
        while (at_ < end_) {
            for (set *&tree : trees_) {
                if (!tree || check(tree, nullptr) > kMostNodes)
                    start(&tree);
            }
            step();
        }
        for (set *tree : trees_)
            check(tree, nullptr);
    }

private:
    unsigned next(unsigned below) { return at_ < end_ ? *at_++ % below : 0; }

    static void clear(set **tree)
    {
        while (*tree)
            set_free_mask(tree, UINT32_MAX);
    }

    void start(set **tree)
    {
        clear(tree);
        *tree = set_alloc_mask("r", next(7) + 1);
    }

    // The nodes of a chain, checked: parents, layers, and marks on the way up.
    static int check(const set *node, const set *parent)
    {
        int count = 0;
        for (; node; node = node->next) {
            require(node->parent == parent && node->layers && node->value);
            require(!node->changed || !parent || parent->changed);
            require(!parent || !(node->layers & ~parent->layers));
            count += 1 + check(node->sons, node);
        }
        return count;
    }

    static void settle(set *node)
    {
        for (; node; node = node->next) {
            settle(node->sons);
            node->changed = 0;
            for (const set *son = node->sons; son; son = son->next)
                node->layers |= son->layers;
        }
    }

    // Any place of one of the trees that holds a node.
    set **place()
    {
        set **at = &trees_[next(2)];
        for (unsigned steps = next(12); steps > 0; steps--) {
            set **to = next(3) ? &(*at)->sons : &(*at)->next;
            if (*to)
                at = to;
        }
        return at;
    }
    uint32_t mask() { return next(8); }
    uint32_t layer() { return 1U << next(3); }
    const char *name()
    {
        static const char *const kNames[] = {"0", "1", "2", "3", "a", "b", "r", "x/y"};
        return kNames[next(8)];
    }
    const char *path()
    {
        static const char *const kPaths[] = {"",    "0",   "1",     "2",  "a",   "b",     "a/b",   "0/a",
                                             "a/0", "b/1", "a/b/0", "10", "0/1", "x\\/y", "a/a/a", "\\"};
        return kPaths[next(16)];
    }
    // Whether writing a new name there makes no second root.
    static bool has_parent(set **at) { return (*at)->parent != nullptr; }

    void step();
    void read();

    const uint8_t *at_;
    const uint8_t *end_;
    set *trees_[2] = {};
};

void Machine::read()
{
    set_mask_push(mask(), 1);
    set **at = place();
    set **other = place();
    set_compare(at, other);
    set_compare_path(at, other, path());
    set_compare_mask(at, mask(), mask());
    set_index_next(at, other);
    set_get_max_int(at, path());
    set_lookfor_value(at, path(), name(), other);
    free(set_sort(at, path()));
    free(set_sort_num(at, path()));
    set_mask_pop();
}

void Machine::step()
{
    set **at = place();
    set **other = place();
    switch (next(20)) {
    case 0:
        set_merge_sets_mask(at, mask(), other, mask());
        break;
    case 1:
        if (has_parent(at))
            set_replace_sets_mask(at, mask(), other, mask());
        break;
    case 2:
        // The source must be a tree of its own; afterwards its variable holds what is not its.
        set_mask_push(UINT32_MAX, UINT32_MAX);
        if (set_join_ordered(at, &trees_[1], next(2) ? strcmp : nullptr))
            trees_[1] = nullptr;
        set_mask_pop();
        break;
    case 3:
        set_merge_mask(at, mask(), mask());
        break;
    case 4:
        set_replace_mask(at, mask(), mask());
        break;
    case 5:
        set_swap(at, path(), path());
        break;
    case 6:
        set_swap_mask(at, mask(), path(), path());
        break;
    case 7:
        set_switch_sets(at, other); // gives no marks and layers to the new parents
        for (set *tree : trees_)
            settle(tree);
        break;
    case 8:
    case 9:
        set_index_add_mask(at, layer(), static_cast<int>(next(10)) - 5);
        break;
    case 10:
        set_index_reindex_mask(at, layer());
        break;
    case 11:
        set_index_swap_mask(at, mask(), static_cast<int>(next(4)), static_cast<int>(next(4)));
        break;
    case 12:
        set_mask_push(mask(), 1);
        set_sort_sons_by_value(at);
        set_mask_pop();
        break;
    case 13:
        if (has_parent(at))
            set_set_str_mask(at, mask(), name());
        break;
    case 14:
        if (has_parent(at))
            set_free_mask(at, mask());
        break;
    case 15:
        set_mask_push(1, mask());
        set_set_path_str(at, path(), name());
        set_mask_pop();
        break;
    case 16:
        set_clear_changed(trees_[next(2)]);
        break;
    case 17:
        read();
        break;
    default:
        set_set_mask(at, mask(), path());
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Machine(data, size).run();
    return 0;
}
