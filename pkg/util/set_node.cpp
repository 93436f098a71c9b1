#include "set_node.h"

#include "internal/c_locale.h"
#include "internal/number.h"
#include "internal/report.h"
#include "internal/set_node.h"
#include "internal/son_finder.h"

#include <charconv>
#include <cstddef>

using namespace kutil;

static_assert(offsetof(set, value) == 0 && offsetof(set, layers) == sizeof(char *));
static_assert(offsetof(set, next) < offsetof(set, sons) && offsetof(set, sons) < offsetof(set, parent));
static_assert(offsetof(set, parent) < offsetof(set, changed));
static_assert(sizeof(void *) != 4 || sizeof(set) == 24); // a gateway has thousands
static_assert(offsetof(set_mask_entry, get) < offsetof(set_mask_entry, set));

namespace
{

struct CopyLevel {
    const set *next; // of the source's sons, the one to look at
    set *copy;       // the node that gets them
    set **end;       // where its next son goes
};

struct JoinLevel {
    set *target;
    set *next;      // of the source's sons, the one to look at
    SonFinder sons; // of the target
};

// The node behind `at` when a chain and everything below it is visited, parents first; `later` has the
// brothers to come back to.
set *next_in_walk(WalkStack<set *> &later, set *at, bool with_sons)
{
    if (with_sons && at->sons) {
        if (at->next)
            later.push(at->next);
        return at->sons;
    }
    if (at->next)
        return at->next;
    return later.empty() ? nullptr : later.pop();
}

bool chain_contains(set *first, const set *node)
{
    WalkStack<set *> later;
    for (set *at = first; at; at = next_in_walk(later, at, true)) {
        if (at == node)
            return true;
    }
    return false;
}

bool is_at_or_above(const set *node, const set *at)
{
    while (at && at != node)
        at = at->parent;
    return at != nullptr;
}

// The end of freeing a node from `mask`, its sons being done: true when it went.
bool leave_layers(set **place, uint32_t mask)
{
    set *node = *place;
    node->layers &= ~mask;
    node->changed = 1;
    if (node->layers)
        return false;
    *place = node->next;
    free_chain(node->sons);
    free_node(node);
    return true;
}

// Frees the sons from `mask`. Each node on the way is marked; the marks above `top` are the caller's.
void free_sons_below(set *top, uint32_t mask)
{
    WalkStack<set **> open; // nodes whose sons are being freed
    set **place = &top->sons;
    for (;;) {
        set **found = first_visible(place, mask);
        if (found && (*found)->sons) {
            open.push(found);
            place = &(*found)->sons;
            continue;
        }
        if (!found) {
            if (open.empty())
                return;
            found = open.pop();
        }
        place = leave_layers(found, mask) ? found : &(*found)->next;
    }
}

// Marks what stands on the way down to the innermost target, and the ancestors of the outermost.
void mark_targets(WalkStack<JoinLevel> &levels)
{
    for (size_t level = levels.size() - 1; level > 0; level--) {
        set *target = levels[level].target;
        if (target->changed)
            return;
        target->changed = 1;
    }
    mark_changed(levels[0].target);
}

set **rename_root(set **place, uint32_t mask, const char *text)
{
    set *node = *place;
    if (node->layers != mask) {
        report_second_root();
        return nullptr;
    }
    replace_text(&node->value, copy_text(text));
    mark_changed(node);
    return place;
}

} // namespace

namespace kutil
{

constinit MaskStack mask_stack = {{nullptr, 1, 1}, &mask_stack.bottom};

set *new_node_use(char *text, uint32_t layers, set *parent)
{
    auto *node = new_record<set>();
    node->value = text;
    node->layers = layers;
    node->parent = parent;
    node->changed = 1;
    return node;
}

set *new_node(View text, uint32_t layers, set *parent)
{
    return new_node_use(copy_text(text), layers, parent);
}

void free_node(set *node)
{
    free(node->value);
    free(node);
}

void mark_changed(set *node)
{
    node->changed = 1;
    for (set *above = node->parent; above && !above->changed; above = above->parent)
        above->changed = 1;
}

void add_layers_upward(set *node, uint32_t bits)
{
    for (; node && (node->layers & bits) != bits; node = node->parent)
        node->layers |= bits;
}

void give_layers(set *node, uint32_t bits)
{
    if ((node->layers & bits) == bits)
        return;
    mark_changed(node);
    node->layers |= bits;
}

set **find_son(set *parent, const char *name)
{
    set **place = &parent->sons;
    while (*place && !same_text((*place)->value, name))
        place = &(*place)->next;
    return place;
}

set **find_or_add_son(set *parent, const char *name, uint32_t mask)
{
    set **place = find_son(parent, name);
    if (!*place)
        *place = new_node(name, 0, parent);
    give_layers(*place, mask);
    return place;
}

void free_chain(set *node)
{
    while (node) {
        // The sons come before the brothers into the one list that is freed: nothing is allocated, no depth
        // matters.
        if (node->sons) {
            set *last = node->sons;
            while (last->next)
                last = last->next;
            last->next = node->next;
            node->next = node->sons;
        }
        set *next = node->next;
        free_node(node);
        node = next;
    }
}

bool tree_contains(set *top, const set *node) { return top == node || chain_contains(top->sons, node); }

bool tree_has_place(set *top, set **place)
{
    if (place == &top->next || place == &top->sons)
        return true;
    WalkStack<set *> later;
    later.push(top->sons);
    while (!later.empty()) {
        set *at = later.pop();
        if (!at)
            continue;
        if (place == &at->next || place == &at->sons)
            return true;
        later.push(at->next);
        later.push(at->sons);
    }
    return false;
}

void tree_join(set *target, set *source, uint32_t mask)
{
    const uint32_t top_bits = source->layers & mask;
    if (!(target->layers & top_bits))
        give_layers(target, top_bits);
    WalkStack<JoinLevel> levels;
    const auto enter = [&levels](set *to, set *from) {
        JoinLevel level = {to, from->sons, {}};
        level.sons.open(to, 0, count_brothers(from->sons));
        levels.push(level);
    };
    enter(target, source);
    while (!levels.empty()) {
        JoinLevel &level = levels.top();
        set *from = level.next;
        if (!from) {
            levels.pop().sons.close();
            continue;
        }
        level.next = from->next;
        if (!(from->layers & mask))
            continue;
        set *to = level.sons.find(from->value);
        if (!to)
            to = level.sons.add(from->value);
        const uint32_t bits = from->layers & mask;
        if ((to->layers & bits) != bits) {
            to->changed = 1;
            to->layers |= bits;
            mark_targets(levels);
        }
        if (from->sons)
            enter(to, from);
    }
}

set *value_son(set *node, uint32_t mask)
{
    set *best = nullptr;
    for (set *son = node->sons; son; son = son->next) {
        if ((son->layers & mask) && (!best || son->layers > best->layers))
            best = son;
    }
    return best;
}

int tree_free(set **place, uint32_t mask)
{
    set *node = visible_at(place, mask);
    if (!node)
        return 0;
    free_sons_below(node, mask);
    mark_changed(node);
    return leave_layers(place, mask);
}

void tree_free_sons(set **place, uint32_t mask)
{
    set *node = node_at(place);
    if (!node || !first_visible(&node->sons, mask))
        return;
    free_sons_below(node, mask);
    mark_changed(node);
}

set *tree_dup(set **place, uint32_t mask)
{
    const set *source = visible_at(place, mask);
    if (!source)
        return nullptr;
    set *root = new_node(source->value, source->layers & mask, nullptr);
    WalkStack<CopyLevel> levels;
    levels.push({source->sons, root, &root->sons});
    while (!levels.empty()) {
        CopyLevel &level = levels.top();
        const set *from = level.next;
        if (!from) {
            levels.pop();
            continue;
        }
        level.next = from->next;
        if (!(from->layers & mask))
            continue;
        set *copy = new_node(from->value, from->layers & mask, level.copy);
        *level.end = copy;
        level.end = &copy->next;
        if (from->sons)
            levels.push({from->sons, copy, &copy->sons});
    }
    return root;
}

set **tree_get_son(set **place, uint32_t mask, int n)
{
    set *node = visible_at(place, mask);
    if (!node || n < 0)
        return nullptr;
    set **son = first_visible(&node->sons, mask);
    for (; son && n > 0; n--)
        son = first_visible(&(*son)->next, mask);
    return son;
}

set **tree_get_next(set **place, uint32_t mask)
{
    set *node = visible_at(place, mask);
    return node ? first_visible(&node->next, mask) : nullptr;
}

int tree_get_nsons(set **place, uint32_t mask)
{
    const set *node = visible_at(place, mask);
    int count = 0;
    for (const set *son = node ? node->sons : nullptr; son; son = son->next)
        count += in_mask(son, mask);
    return count;
}

char *tree_get_value(set **place, uint32_t mask)
{
    set *node = visible_at(place, mask);
    return node ? node->value : nullptr;
}

char *tree_son_get_str(set **place, uint32_t mask)
{
    set *node = visible_at(place, mask);
    set *son = node ? value_son(node, mask) : nullptr;
    return son ? son->value : nullptr;
}

set **tree_rename(set **place, uint32_t mask, const char *text)
{
    set *node = visible_at(place, mask);
    if (!node || !text)
        return nullptr;
    if (same_text(node->value, text))
        return place;
    if (!node->parent)
        return rename_root(place, mask, text);
    set **target_place = find_son(node->parent, text);
    if (!*target_place) {
        target_place = &node->next;
        insert_node(target_place, new_node(text, 0, node->parent));
    }
    set *target = *target_place;
    give_layers(target, mask);
    add_layers_upward(target->parent, mask);
    tree_join(target, node, mask);
    const bool is_next = node->next == target; // then target_place is in the node that may go
    return tree_free(place, mask) && is_next ? place : target_place;
}

set **tree_rename_int(set **place, uint32_t mask, int n)
{
    char text[16];
    *std::to_chars(text, text + sizeof(text) - 1, n).ptr = '\0';
    return tree_rename(place, mask, text);
}

void report_second_root() { zel_error_full(kEntity, kFatalEmerg, "Set cannot have more than one root"); }

} // namespace kutil

set *set_alloc(const char *name) { return name ? new_node(name, writing_mask(), nullptr) : nullptr; }

int set_free(set **handle) { return tree_free(handle, writing_mask()); }

void set_free_sons(set **handle) { tree_free_sons(handle, writing_mask()); }

set **set_use(set **handle, set *node)
{
    if (!handle || *handle == node)
        return handle;
    if (node && (*handle ? tree_contains(*handle, node) || is_at_or_above(node, *handle)
                         : tree_has_place(node, handle)))
        return nullptr;
    set_free(handle);
    *handle = node;
    return handle;
}

set *set_dup(set **handle) { return tree_dup(handle, reading_mask()); }

set **set_link(set **handle, set *node, int where)
{
    set *at = node_at(handle);
    if (!at || !node || (where != 0 && where != 1))
        return nullptr;
    set **place = where == 0 ? &at->sons : &at->next;
    if (is_at_or_above(node, at) || chain_contains(*place, node))
        return nullptr;
    free_chain(*place);
    *place = node;
    node->parent = where == 0 ? at : at->parent;
    mark_changed(node);
    add_layers_upward(node->parent, node->layers);
    return place;
}

set **set_get_son(set **handle, int n) { return tree_get_son(handle, reading_mask(), n); }

set **set_get_next(set **handle) { return tree_get_next(handle, reading_mask()); }

int set_get_nsons(set **handle) { return tree_get_nsons(handle, reading_mask()); }

char *set_get_value(set **handle) { return tree_get_value(handle, reading_mask()); }

int set_get_int(set **handle) { return parse_i32(text_or_empty(set_get_value(handle))); }

char *set_son_get_str(set **handle) { return tree_son_get_str(handle, reading_mask()); }

char *set_son_get_strz(set **handle)
{
    static char empty[1]; // read again for a caller who wrote to it
    char *text = set_son_get_str(handle);
    empty[0] = '\0';
    return text ? text : empty;
}

int set_son_get_int(set **handle) { return parse_i32(set_son_get_strz(handle)); }

uint32_t set_son_get_u32(set **handle) { return parse_u32(set_son_get_strz(handle)); }

uint64_t set_son_get_u64(set **handle) { return parse_u64(set_son_get_strz(handle)); }

int set_son_get_hex(set **handle)
{
    return static_cast<int32_t>(parse_u32(set_son_get_strz(handle), nullptr, 16));
}

double set_son_get_float(set **handle)
{
    const CLocale scope;
    return atof(set_son_get_strz(handle));
}

set **set_set_str(set **handle, const char *text) { return tree_rename(handle, writing_mask(), text); }

set **set_set_int(set **handle, int n) { return tree_rename_int(handle, writing_mask(), n); }

void set_clear_changed(set *node)
{
    if (!node || !node->changed)
        return;
    node->changed = 0;
    WalkStack<set *> later;
    for (set *at = node->sons; at;) {
        const bool was_changed = at->changed != 0;
        at->changed = 0;
        at = next_in_walk(later, at, was_changed);
    }
}

int set_changed_check(set *node) { return node ? static_cast<int>(node->changed) : 1; }

int set_comp_changed(set **previous, set **current)
{
    return node_at(current) ? set_changed_check(*current) : node_at(previous) != nullptr;
}
