#ifndef KUTIL_INTERNAL_SET_NODE_H
#define KUTIL_INTERNAL_SET_NODE_H

// What the sources of the tree share. Who has what:
// - set_node.cpp: the mask stack's state (here, because every plain function reads it; set_mask.cpp pushes
// and pops), the
//   node record, layers and marks, visible sons, freeing, copying, joining, renaming. set_path.cpp: paths,
//   and what is found or made by them. Both define the plain functions of set_node.h, which pass
//   reading_mask() or writing_mask() to the tree_* workers below.
// - set_mask.cpp: push and pop, the layer registry (its own state), every public *_mask function
// (set_get_mask is
//   tree_get, and so on) and the whole-tree operations. set_text.cpp: set_print_tree_mask.
//
// A place is the address that holds a node: a handle without the promise that it is not NULL. Walks go down
// with a WalkStack, never by recursion, and do not climb by `parent`: brothers that came along in set_link
// have another one.

#include "../set_node.h"
#include "text.h"
#include "walk_stack.h"

#include <cstdarg>

namespace kutil
{

// Constant-initialised: top is &bottom, whose masks are both 1.
struct MaskStack {
    set_mask_entry bottom;
    set_mask_entry *top;
};
extern MaskStack mask_stack;

inline uint32_t reading_mask() { return mask_stack.top->get; }
inline uint32_t writing_mask() { return mask_stack.top->set; }

// --- One node.

// The only place where nodes come from: a node with this text (taken over, malloc memory, or copied), layers
// and parent, marked changed, linked to nothing. free_node frees it and its text, and looks at no link.
set *new_node_use(char *text, uint32_t layers, set *parent);
set *new_node(View text, uint32_t layers, set *parent);
void free_node(set *node);

// Inlined up to the first character: brothers mostly differ there.
inline bool same_text(const char *a, const char *b) { return *a == *b && strcmp(a, b) == 0; }

inline set *node_at(set **place) { return place ? *place : nullptr; }
inline bool in_mask(const set *node, uint32_t mask) { return node && (node->layers & mask) != 0; }
// The node at `place` when it is visible in `mask`, else NULL.
inline set *visible_at(set **place, uint32_t mask)
{
    set *node = node_at(place);
    return in_mask(node, mask) ? node : nullptr;
}

// Marks the node and its ancestors, up to the first that is marked already.
void mark_changed(set *node);
// Adds the bits to the node and its ancestors, up to the first that has them all. Marks nothing. NULL:
// nothing.
void add_layers_upward(set *node, uint32_t bits);
// Adds the bits to the node alone; when it lacked any of them it is marked, with its ancestors.
void give_layers(set *node, uint32_t bits);

// --- Lists of brothers.

// The place, from `place` on along the brothers, of the first node in `mask`; NULL when there is none.
inline set **first_visible(set **place, uint32_t mask)
{
    while (*place && !((*place)->layers & mask))
        place = &(*place)->next;
    return *place ? place : nullptr;
}
// The place of the first son of any layer with this name, or the empty place at the end of the sons.
set **find_son(set *parent, const char *name);
// Puts `node` in front of what stands at `place`.
inline void insert_node(set **place, set *node)
{
    node->next = *place;
    *place = node;
}
// Takes the node out of the list and returns it, with its `next` cleared; its parent and sons stay.
inline set *unlink_node(set **place)
{
    set *node = *place;
    *place = node->next;
    node->next = nullptr;
    return node;
}
// The place of the son of that name, found in any layer or appended, and given `mask` (give_layers).
set **find_or_add_son(set *parent, const char *name, uint32_t mask);

// --- Subtrees.

// Frees the nodes of the chain (brothers too) and everything below, whatever their layers.
void free_chain(set *node);
// Whether `node` is `top` or stands below it.
bool tree_contains(set *top, const set *node);
// Whether the place is in `top` or in a node below it; `next` of `top` counts.
bool tree_has_place(set *top, set **place);
// Gives `target` the subtree of `source` as far as it is in `mask`, each node in the layers that it has
// within `mask`. When the target has none of these it gets them (it alone: the caller has added them to its
// ancestors); sons are found by name in any layer or appended, and get what they lack. The two must not be
// one inside the other.
void tree_join(set *target, set *source, uint32_t mask);
// The visible son that holds the value of the node: the greatest layers word, then the first. NULL: none.
set *value_son(set *node, uint32_t mask);

// --- The workers of the public functions; a place may be NULL or empty.

int tree_free(set **place, uint32_t mask);
void tree_free_sons(set **place, uint32_t mask);
set *tree_dup(set **place, uint32_t mask);
set **tree_get(set **place, uint32_t mask, const char *path);
set **tree_get_son(set **place, uint32_t mask, int n);
set **tree_get_next(set **place, uint32_t mask);
int tree_get_nsons(set **place, uint32_t mask);
char *tree_get_value(set **place, uint32_t mask);
char *tree_son_get_str(set **place, uint32_t mask);
set **tree_set(set **place, uint32_t mask, const char *path);
set **tree_rename(set **place, uint32_t mask, const char *text);
set **tree_rename_int(set **place, uint32_t mask, int n);
// set_index_add_mask with the index -1, for the list whose last visible son stands at `last`: no walk to it.
set **tree_index_add_behind(set **last, uint32_t mask);
// set_path_create with the values behind `first`, up to a NULL, in a va_list.
char *join_path(const char *first, va_list ap);

// "Set cannot have more than one root": ends the process.
void report_second_root();

} // namespace kutil

#endif
