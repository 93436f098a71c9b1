#include "set_mask.h"

#include "internal/heap.h"
#include "internal/report.h"
#include "internal/set_node.h"
#include "internal/value_like.h"

using namespace kutil;

namespace
{

// The layers that set_layer_register has handed out.
constinit uint32_t assigned_layers = 0;
constexpr uint32_t kLayers = 0xf;

// Brothers of one tree that are still to be looked at.
using Brothers = WalkStack<set *>;

// The value that `from` sees becomes the value in `to`.
void merge_value(set *key, uint32_t to, uint32_t from)
{
    const set *source = value_son(key, from);
    if (!source)
        return;
    const HeapText text(copy_text(source->value)); // `to` may share layers with `from`
    tree_free_sons(&key, to);
    find_or_add_son(key, text.get(), to);
}

} // namespace

set_mask_entry *set_mask_push(uint32_t get_mask, uint32_t set_mask)
{
    auto *entry = new_record<set_mask_entry>();
    *entry = {mask_stack.top, get_mask, set_mask};
    return mask_stack.top = entry;
}

void set_mask_pop(void)
{
    set_mask_entry *entry = mask_stack.top;
    if (entry == &mask_stack.bottom) {
        zel_error_full(kEntity, kFatalEmerg, "Cannot pop set mask stack beyond the default entry");
        return;
    }
    mask_stack.top = entry->prev;
    free(entry);
}

uint32_t set_layer_register(void)
{
    const uint32_t unassigned = kLayers & ~assigned_layers;
    const uint32_t lowest = unassigned & (~unassigned + 1);
    if (!lowest)
        zel_error_full(kEntity, kFatalEmerg, "Too many assigned set layers");
    // Deliberate: the first is 1, the layer of the default masks. Callers rely on registering that one first.
    assigned_layers |= lowest;
    return lowest;
}

void set_layer_unregister(uint32_t bits) { assigned_layers &= ~bits; }

set *set_alloc_mask(const char *name, uint32_t mask)
{
    return name ? new_node(name, mask, nullptr) : nullptr;
}

int set_free_mask(set **handle, uint32_t mask) { return tree_free(handle, mask); }

set *set_dup_mask(set **handle, uint32_t mask) { return tree_dup(handle, mask); }

set **set_get_mask(set **handle, uint32_t mask, const char *path) { return tree_get(handle, mask, path); }

char *set_get_value_mask(set **handle, uint32_t mask) { return tree_get_value(handle, mask); }

set **set_get_next_mask(set **handle, uint32_t mask) { return tree_get_next(handle, mask); }

set **set_get_son_mask(set **handle, uint32_t mask, int n) { return tree_get_son(handle, mask, n); }

int set_get_nsons_mask(set **handle, uint32_t mask) { return tree_get_nsons(handle, mask); }

char *set_son_get_str_mask(set **handle, uint32_t mask) { return tree_son_get_str(handle, mask); }

set **set_set_mask(set **handle, uint32_t mask, const char *path) { return tree_set(handle, mask, path); }

set **set_set_str_mask(set **handle, uint32_t mask, const char *text)
{
    return tree_rename(handle, mask, text);
}

set **set_get_path_create_mask(set **handle, uint32_t mask, const char *first, ...)
{
    va_list ap;
    va_start(ap, first);
    const char *path = join_path(first, ap);
    va_end(ap);
    return tree_get(handle, mask, path);
}

set **set_set_path_create_mask(set **handle, uint32_t mask, const char *first, ...)
{
    va_list ap;
    va_start(ap, first);
    const char *path = join_path(first, ap);
    va_end(ap);
    return tree_set(handle, mask, path);
}

int set_compare_mask(set **h, uint32_t m1, uint32_t m2)
{
    const set *top = node_at(h);
    if (!top || !in_mask(top, m1 | m2))
        return 0;
    if (!in_mask(top, m1) || !in_mask(top, m2))
        return -1;
    // The same nodes in both: none below a common one is in one of the two alone.
    Brothers later;
    later.push(top->sons);
    while (!later.empty()) {
        const set *node = later.pop();
        if (!node)
            continue;
        later.push(node->next);
        if (in_mask(node, m1) != in_mask(node, m2))
            return -1;
        if (in_mask(node, m1))
            later.push(node->sons);
    }
    return 0;
}

void set_merge_mask(set **h, uint32_t to, uint32_t from)
{
    set *top = node_at(h);
    if (!top)
        return;
    const auto merge_node = [&](set *node, Brothers *later) {
        give_layers(node, to);
        if (is_value_like(node))
            merge_value(node, to, from);
        else
            later->push(node->sons);
    };
    Brothers later;
    if (in_mask(top, from))
        merge_node(top, &later);
    while (!later.empty()) {
        set *node = later.pop();
        if (!node)
            continue;
        later.push(node->next);
        if (in_mask(node, from))
            merge_node(node, &later);
    }
    if (in_mask(top, to))
        add_layers_upward(top->parent, top->layers & to);
}

set **set_replace_mask(set **h, uint32_t to, uint32_t from)
{
    if (!tree_free(h, to & ~from)) // else its brother stands there
        set_merge_mask(h, to, from);
    return h;
}

int set_validate_zel_set_root(set **h, set **conf, set **ram, const char *file, int line)
{
    const set *root = node_at(h);
    if (!root)
        return 1;
    while (root->parent)
        root = root->parent;
    const bool known = root == node_at(ram) || (node_at(conf) && root == (*conf)->parent);
    if (!known)
        zel_error_full(kEntity, kErr, "%s:%d set ancestor is not zel_conf/ram, value=\"%s\"",
                       text_or_empty(file), line, root->value);
    return 1;
}
