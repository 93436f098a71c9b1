#ifndef KUTIL_UTIL_SET_MASK_H
#define KUTIL_UTIL_SET_MASK_H

/* set_mask.h: masks and layers of the configuration tree, and the operations on whole trees: merge, replace,
 * join, compare, swap, index lists, sorting and searching among sons.
 *
 * One tree can hold several versions of itself, its layers: a node says in which bits of a mask it exists, a
 * reader chooses what it sees. The mask stack gives every function without a mask its get mask (reading) and
 * its set mask (writing); push a pair around work on other layers and pop it afterwards. At the bottom both
 * are 1. Handles, paths, marks and ownership are those of set_node.h; so is what NULL and empty handles give.
 *
 * What layers can do is less than it seems. A value in a higher layer covers that of a lower one, because
 * reading takes the son with the greatest layers word. But a layer cannot hide or delete a key of another
 * layer; a key that holds nothing does not cover one that holds a value; and index lists do not overlay,
 * because their sons are merged by number.
 *
 * A key is value-like when its sons are leaves and no two of them share a layer: it holds one value per
 * layer. A key with other sons is a structure. Deliberate: so a key whose only son is a childless key is
 * value-like too.
 *
 * Where two trees are given, one may stand inside the other, or be the same, unless it says otherwise.
 * Running out of memory ends the process, and so do the misuses said to. */

#include "set_node.h"

KUTIL_BEGIN_DECLS

/* --- The mask stack and the layer registry. */

/* set_mask_push puts an entry with these masks on top of the mask stack and returns it. It is the stack's and
 * ends with set_mask_pop. */
KUTIL_API set_mask_entry *set_mask_push(uint32_t get_mask, uint32_t set_mask);

/* set_mask_pop removes the top entry. With the bottom entry alone, "Cannot pop set mask stack beyond the
 * default entry" ends the process. */
KUTIL_API void set_mask_pop(void);

/* set_layer_register takes the lowest free one of the bits 1, 2, 4 and 8 and returns it, until
 * set_layer_unregister. Deliberate: the first is 1, the layer of the default masks; who wants one apart
 * registers the default's first. A fifth layer, "Too many assigned set layers", ends the process. */
KUTIL_API uint32_t set_layer_register(void);

/* set_layer_unregister gives the layers in `bits` back. Nodes in them stay. */
KUTIL_API void set_layer_unregister(uint32_t bits);

/* --- The functions of set_node.h with the mask as an argument: in set_alloc_mask, set_free_mask,
 * set_set_mask, set_set_str_mask and set_set_path_create_mask it is the set mask, in the others the get mask.
 */

/* set_alloc_mask is set_alloc in the layers of `mask`. */
KUTIL_API set *set_alloc_mask(const char *name, uint32_t mask);

/* set_free_mask is set_free for the layers of `mask`. */
KUTIL_API int set_free_mask(set **handle, uint32_t mask);

/* set_dup_mask is set_dup of what `mask` sees. */
KUTIL_API set *set_dup_mask(set **handle, uint32_t mask);

/* set_get_mask is set_get of what `mask` sees. */
KUTIL_API set **set_get_mask(set **handle, uint32_t mask, const char *path);

/* set_get_value_mask is set_get_value of what `mask` sees. */
KUTIL_API char *set_get_value_mask(set **handle, uint32_t mask);

/* set_get_next_mask is set_get_next of what `mask` sees. */
KUTIL_API set **set_get_next_mask(set **handle, uint32_t mask);

/* set_get_son_mask is set_get_son of what `mask` sees. */
KUTIL_API set **set_get_son_mask(set **handle, uint32_t mask, int n);

/* set_get_nsons_mask is set_get_nsons of what `mask` sees. */
KUTIL_API int set_get_nsons_mask(set **handle, uint32_t mask);

/* set_son_get_str_mask is set_son_get_str of what `mask` sees. */
KUTIL_API char *set_son_get_str_mask(set **handle, uint32_t mask);

/* set_set_mask is set_set in the layers of `mask`. */
KUTIL_API set **set_set_mask(set **handle, uint32_t mask, const char *path);

/* set_set_str_mask is set_set_str in the layers of `mask`. */
KUTIL_API set **set_set_str_mask(set **handle, uint32_t mask, const char *text);

/* set_get_path_create_mask is set_get_mask with the path of set_path_create(first, ...). */
KUTIL_API set **set_get_path_create_mask(set **handle, uint32_t mask, const char *first, ...) KUTIL_SENTINEL;

/* set_set_path_create_mask is set_set_mask with the path of set_path_create(first, ...). */
KUTIL_API set **set_set_path_create_mask(set **handle, uint32_t mask, const char *first, ...) KUTIL_SENTINEL;

/* --- Merge, replace, join. */

/* set_merge_sets_mask puts what `src_mask` sees at `src` into the node at `dst`, in the layers `dst_layers`:
 * keys that are missing are appended, values replace values. The names of the two nodes may differ; src
 * stays. Returns -1 when some key is a value on one side and a structure on the other: such a key stays as it
 * was and all others are merged. Else 0, also when there is nothing to do, as with dst_layers 0. */
KUTIL_API int set_merge_sets_mask(set **dst, uint32_t dst_layers, set **src, uint32_t src_mask);

/* set_merge is set_merge_sets_mask with the set mask for dst and the get mask for src. */
KUTIL_API int set_merge(set **dst, set **src);

/* set_replace_sets_mask frees the node at `dst` in the layers `dst_mask` and puts a copy of what `src_mask`
 * sees at `src` into its place, with src's name; src stays. What the old node still is in other layers is
 * joined with the copy when the names are the same, else stands behind it. An empty or unseen src only frees.
 * An empty dst should be a variable: in a tree it does not tell the parent, and the copy has none.
 * Deliberate: the copy has the layers of src within src_mask, not dst_mask. Returns dst, NULL when a handle
 * is NULL. When another root would stand beside the new one, "Set cannot have more than one root" ends the
 * process. */
KUTIL_API set **set_replace_sets_mask(set **dst, uint32_t dst_mask, set **src, uint32_t src_mask);

/* set_replace is set_replace_sets_mask with the set mask for dst and the get mask for src. */
KUTIL_API set **set_replace(set **dst, set **src);

/* Compares two names: below, at or above 0 as the first belongs before, beside or behind the second. */
typedef int (*set_order_func)(const char *name, const char *other);

/* set_join_ordered moves the tree at `src`, with its layers, among the sons of the node at `dst`. A son of
 * its name is replaced in these layers; otherwise it is put in front of the first son with order(son's name,
 * src's name) above 0, or at the end (also with a NULL order). Returns the handle of the joined son. src is
 * then freed in the set mask, which should therefore hold all its layers, and the variable that `src` points
 * to holds the joined son, which belongs to dst: do not free it there. src must be the variable of a tree of
 * its own. Empty handles, a src in no layer, and a node inside the other give NULL, and nothing happens. */
KUTIL_API set **set_join_ordered(set **dst, set **src, set_order_func order);

/* set_join is set_join_ordered with a NULL order. */
KUTIL_API set **set_join(set **dst, set **src);

/* set_merge_mask gives the tree at `h`, as the layers `from` hold it, to the layers `to` as well: values
 * replace those of `to`, and what only `to` has stays. */
KUTIL_API void set_merge_mask(set **h, uint32_t to, uint32_t from);

/* set_replace_mask makes the layers `to` of the tree at `h` the same as `from`: frees the node in those of
 * `to` that are not in `from`, then does set_merge_mask. Returns h. When the node was in no other layer it is
 * gone, and its brother may stand in its place. */
KUTIL_API set **set_replace_mask(set **h, uint32_t to, uint32_t from);

/* --- Compare. */

/* set_compare_sets_mask returns 0 when the trees at `a` and `b`, as their masks see them, are the same,
 * whatever the order of brothers, else -1. Two that are not visible are the same. Deliberate: a son of a is
 * compared with the first of its name in b; so when names repeat, the answer may depend on the order of the
 * two arguments. */
KUTIL_API int set_compare_sets_mask(set **a, uint32_t a_mask, set **b, uint32_t b_mask);

/* set_compare is set_compare_sets_mask with the get mask for both. */
KUTIL_API int set_compare(set **a, set **b);

/* set_compare_path is set_compare of the two nodes at `path`. */
KUTIL_API int set_compare_path(set **a, set **b, const char *path);

/* set_compare_mask returns 0 when the layers `m1` and `m2` of the tree at `h` consist of the same nodes, else
 * -1. */
KUTIL_API int set_compare_mask(set **h, uint32_t m1, uint32_t m2);

/* --- Swap. */

/* set_swap exchanges the nodes at two paths below h, names, layers and contents; the lists keep their order.
 * Both are looked for in all layers. A missing one, twice the same, and one inside the other: nothing
 * happens. Handles into the contents become invalid. */
KUTIL_API void set_swap(set **h, const char *path1, const char *path2);

/* set_swap_mask does the same with the contents alone, as far as they are in `mask`; the names stay. */
KUTIL_API void set_swap_mask(set **h, uint32_t mask, const char *path1, const char *path2);

/* set_switch_sets lets two places exchange their nodes, each with all below it; the brothers behind each
 * place stay. Nothing is marked and no layers change. Returns the node that is now at `a`. When one place is
 * in the node of the other or below it (a node and its next brother, too), nothing happens. An empty place
 * should be a variable: the node that it gets has no parent then. A NULL handle gives NULL. */
KUTIL_API set *set_switch_sets(set **a, set **b);

/* --- Index lists: sons named "0", "1", ... Names are read as atoi does (so other names are 0). An ordered
 * list stays ordered; nothing here sorts. Changing many numbers takes time with the square of the list's
 * length, since each is a renaming; lists are short. */

/* set_index_add_mask adds a son to the index list at `h`, in the layer `mask`, and returns the handle of its
 * place. `index` 0 and up: this number; where it is taken, the sons from there up to the first gap move up by
 * one. -1: one more than the last, 0 in an empty list. -3: the same, but 1 in an empty list. -2: the lowest
 * free number. -4: the lowest free number from 1 (Deliberate: when "0" is there it counts as "1", so that
 * "0", "1" gives "3"). A son of that number that is only in other layers and stands at the place is reused.
 * Any other index, a number above INT32_MAX, and mask 0 give NULL, and nothing is made. A mask of several
 * layers, "Cannot add index to more than one layer simultaneously", ends the process. */
KUTIL_API set **set_index_add_mask(set **h, uint32_t mask, int index);

/* set_index_add is set_index_add_mask with the set mask. */
KUTIL_API set **set_index_add(set **h, int index);

/* set_index_reindex_mask renames the sons of h that are in `mask` to 0, 1, 2, ... in the order of the list
 * and returns the last number, -1 when there are none. Deliberate: a son that gets a number which one behind
 * it still has is merged with that one, so an unordered list shrinks. A mask of several layers, "Cannot
 * reindex more than one layer simultaneously", ends the process. */
KUTIL_API int set_index_reindex_mask(set **h, uint32_t mask);

/* set_index_reindex is set_index_reindex_mask with the set mask. */
KUTIL_API int set_index_reindex(set **h);

/* set_index_swap_mask exchanges the contents of the sons named `i` and `j` as set_swap_mask does. */
KUTIL_API void set_index_swap_mask(set **h, uint32_t mask, int i, int j);

/* set_index_swap is set_index_swap_mask with the set mask. */
KUTIL_API void set_index_swap(set **h, int i, int j);

/* set_index_next returns the handle of the visible son of h with the smallest number above that of `current`
 * (NULL: above -1), of equal ones the first; NULL when there is none (get mask). */
KUTIL_API set **set_index_next(set **h, set **current);

/* --- Sorting and searching among sons (get mask). */

/* Compares two sons by the text at the path `field`: above 0 when the first belongs behind the second. */
typedef int (*set_sort_func)(set **son, set **other, const char *field);

/* set_sort_by_field returns a new array, the caller's to free with free(), of the handles of the visible
 * sons, sorted by `compare` (NULL: not sorted); equal ones keep their order. It has set_get_nsons(h) elements
 * and no end mark. The tree stays as it is; a change of its list makes the handles invalid. NULL when there
 * are no sons. */
KUTIL_API set ***set_sort_by_field(set **h, const char *field, set_sort_func compare);

/* set_sort is set_sort_by_field by the text at `field`, ignoring case as str_casecmp does; an absent one is
 * "". */
KUTIL_API set ***set_sort(set **h, const char *field);

/* set_sort_num is set_sort_by_field by the number at `field` as atoi reads it, 0 when it is absent. */
KUTIL_API set ***set_sort_num(set **h, const char *field);

/* set_sort_sons_by_value sorts the tree itself below h, the sons of every node by their text in byte order.
 * Deliberate: neighbours change places by set_swap with their texts as paths, so names with a slash or a
 * backslash, and repeated ones, are not sorted, and the time grows with the cube of the number of brothers.
 */
KUTIL_API void set_sort_sons_by_value(set **h);

/* set_get_max_int returns the greatest number at `field` of the visible sons, as atoi reads it, at least -1.
 */
KUTIL_API int set_get_max_int(set **h, const char *field);

/* set_lookfor_value returns the handle of the first visible son, other than the one whose handle is `skip`,
 * with the text `value` at the path `field`; with a NULL field, that itself holds `value`. An absent text is
 * "". NULL when there is none and for a NULL value. */
KUTIL_API set **set_lookfor_value(set **h, const char *field, const char *value, set **skip);

/* set_validate_zel_set_root checks that the root above h is the node at `ram` or the parent of the node at
 * `conf`. Otherwise it reports "%s:%d set ancestor is not zel_conf/ram, value=\"%s\"" with `file`, `line` and
 * the root's text, at level err. Always 1. */
KUTIL_API int set_validate_zel_set_root(set **h, set **conf, set **ram, const char *file, int line);

KUTIL_END_DECLS

#endif
