#ifndef KUTIL_UTIL_SET_NODE_H
#define KUTIL_UTIL_SET_NODE_H

/* set_node.h: the configuration tree: nodes, paths, creation, renaming, freeing and the changed marks.
 *
 * Every node carries one text. A key is a node, its value is the text of its single leaf son: the key wan/mtu
 * that holds 1500 is the chain of nodes wan, mtu, 1500. Each node records in which layers (bits of a mask) it
 * exists. A read sees the nodes of its mask and a write makes, renames and frees in its mask; the functions
 * here take the masks on top of the mask stack, its get mask to read and its set mask to write (set_mask.h
 * pushes them, and has the forms that take a mask). At the bottom both are 1. A node's layers are a subset of
 * its parent's.
 *
 * Almost everything takes and gives a handle: the address of a place that holds a node, which is the caller's
 * root variable, a node's `sons` or a brother's `next`. A handle that the tree gave is valid until the list
 * that it points into is changed. A NULL handle, and one whose place is empty, are accepted everywhere and
 * give the absent result: NULL, 0 or "". Texts and handles that are returned belong to the tree unless it
 * says "new".
 *
 * A path is names joined by "/". Leading and trailing slashes and runs of them add nothing, so "" and "//"
 * are the node itself; a backslash takes the next character as it is, and as the last character makes the
 * path invalid. Names are compared exactly. Reading finds the first visible son of a name; writing finds one
 * of any layer before it makes another, so a tree built by paths has unique names. Values are never taken as
 * paths.
 *
 * Changed marks: what is created, renamed, freed from a layer or given one is marked, with its ancestors,
 * until set_clear_changed. Running out of memory and a second root end the process. Trees of any depth are
 * walked without recursion. */

#include "api.h"

#include <stdint.h>

KUTIL_BEGIN_DECLS

/* A node. Callers may read the fields, and walk `next` and `sons` (then seeing every layer); only the
 * functions write them. */
typedef struct set set;
struct set {
    char *value;      /* the text: a key's name, an index, or a value */
    uint32_t layers;  /* the layers in which the node exists */
    set *next;        /* next brother, or NULL */
    set *sons;        /* first son, or NULL */
    set *parent;      /* parent, or NULL: a root */
    uint32_t changed; /* 1 when the node or something below it changed since set_clear_changed */
};

/* An entry of the mask stack: `get` has the layers that reads see, `set` those that writes write. */
typedef struct set_mask_entry set_mask_entry;
struct set_mask_entry {
    set_mask_entry *prev;
    uint32_t get;
    uint32_t set;
};

/* set_alloc returns a new root with a copy of `name` and the layers of the set mask. A NULL name gives NULL.
 * The caller stores it in a variable, uses that variable's address as the handle, and frees the tree with
 * set_free. */
KUTIL_API set *set_alloc(const char *name);

/* set_free takes the node and its subtree out of the layers of the set mask and frees what is then in no
 * layer; a node that goes takes all its sons along. Returns 1 when the node itself was freed: its place then
 * holds its next brother. Returns 0 when it stays in other layers or was in none of these. Freeing one root
 * of several leaves the next in the variable, so a text of several top nodes is freed by calling it until the
 * variable is NULL. */
KUTIL_API int set_free(set **handle);

/* set_free_sons does set_free on every son of the node, in order. */
KUTIL_API void set_free_sons(set **handle);

/* set_use does set_free(handle), puts `node` into the handle's place, and returns handle. Deliberate: no link
 * of `node` is touched and the place is overwritten, so what set_free left there (the node in other layers,
 * its brothers) is no longer reached through it. The node that stands there already changes nothing. A node
 * below it would be freed on the way, and one that has the place in it would come to stand in itself: NULL,
 * and nothing happens. */
KUTIL_API set **set_use(set **handle, set *node);

/* set_dup returns a new root, a deep copy of the node and everything below it that the get mask sees. A copy
 * has the layers of its source within the mask and is marked changed. A node that is not visible gives NULL.
 */
KUTIL_API set *set_dup(set **handle);

/* set_link attaches the root `node` of a separate tree, which belongs to the tree from then on: with `where`
 * 0 as the only son of the handle's node, with 1 as its only later brother. What stood there is freed in all
 * layers. The layers of `node` are added to its new ancestors. Returns the handle of the place of `node`. Any
 * other `where`, a NULL `node`, and one that is the handle's node, its ancestor or part of what would be
 * freed give NULL, and nothing happens. Brothers of `node` come along but keep their `parent`, so single
 * roots are what should be linked. */
KUTIL_API set **set_link(set **handle, set *node, int where);

/* set_get returns the handle of the node at `path` below the node, which must itself be visible, as must be
 * every node on the way (get mask). Absent, a NULL or an invalid path: NULL. */
KUTIL_API set **set_get(set **handle, const char *path);

/* set_get_son returns the handle of the visible son number `n`, counted from 0 (get mask); NULL past the end
 * and below 0. */
KUTIL_API set **set_get_son(set **handle, int n);

/* set_get_next returns the handle of the next visible brother, or NULL (get mask). */
KUTIL_API set **set_get_next(set **handle);

/* set_get_nsons returns the number of visible sons (get mask). */
KUTIL_API int set_get_nsons(set **handle);

/* set_get_value returns the node's own text, or NULL when it is not visible (get mask). */
KUTIL_API char *set_get_value(set **handle);

/* set_get_int returns the node's own text as atoi reads it, saturated to 32 bits; 0 when it is not visible.
 */
KUTIL_API int set_get_int(set **handle);

/* set_son_get_str returns the value that the node holds: the text of its visible son, of several the one
 * whose `layers` word is greatest, then the first (get mask). NULL when there is none. The text is valid
 * until the son is freed. */
KUTIL_API char *set_son_get_str(set **handle);

/* set_son_get_strz is set_son_get_str with "" for NULL; do not write to it. */
KUTIL_API char *set_son_get_strz(set **handle);

/* The value that the node holds as a number, 0 when there is none: as atoi (saturated to 32 bits), strtoul
 * and strtoull in base 10 (saturated; a minus sign negates modulo 2^32 or 2^64), strtoul in base 16 (wrapped
 * to int), atof in the C locale. Source: these functions of ISO C with the sizes of a 32-bit machine. */
KUTIL_API int set_son_get_int(set **handle);
KUTIL_API uint32_t set_son_get_u32(set **handle);
KUTIL_API uint64_t set_son_get_u64(set **handle);
KUTIL_API int set_son_get_hex(set **handle);
KUTIL_API double set_son_get_float(set **handle);

/* set_get_path returns a new text, the caller's to free: the names from below the root down to the node,
 * joined by "/" and not escaped, so that a name that holds a slash does not read back. NULL for a root and
 * for a node that is not visible (get mask). */
KUTIL_API char *set_get_path(set **handle);

/* set_get_byname returns the handle of the first visible son below which the path `field` holds exactly
 * `value` (get mask); set_get_case_byname ignores case as strcasecmp does. NULL when there is none, and for a
 * NULL or empty field or value: a son without the field never matches. */
KUTIL_API set **set_get_byname(set **handle, const char *field, const char *value);
KUTIL_API set **set_get_case_byname(set **handle, const char *field, const char *value);

/* set_get_byname_case_aware is set_get_byname when `case_sensitive` is not 0, else set_get_case_byname. */
KUTIL_API set **set_get_byname_case_aware(set **handle, const char *field, const char *value,
                                          int case_sensitive);

/* set_path_create returns `first` (NULL: "") and the texts behind it, up to a NULL, joined by "/". Nothing is
 * escaped. The result is static and valid until the next call that joins a path; it may itself be one of that
 * call's texts. */
KUTIL_API char *set_path_create(const char *first, ...) KUTIL_SENTINEL;

/* set_get_path_create is set_get with the path of set_path_create(first, ...): it creates the path text, not
 * a node. */
KUTIL_API set **set_get_path_create(set **handle, const char *first, ...) KUTIL_SENTINEL;

/* set_set_path_create is set_set with the path of set_path_create(first, ...). */
KUTIL_API set **set_set_path_create(set **handle, const char *first, ...) KUTIL_SENTINEL;

/* set_set creates what is missing of `path` below the node, puts all of it (and the node and its ancestors)
 * into the layers of the set mask, and returns the handle of the last node, which is the key and not its
 * value. New nodes are appended. A NULL or invalid path, and a set mask of 0: NULL, and nothing is made. */
KUTIL_API set **set_set(set **handle, const char *path);

/* set_set_path_str makes the key at `path` as set_set does, lets it hold `value`, and returns the handle of
 * the value's node. When the key holds just that already, in whatever layer, the node stays; otherwise the
 * key's sons are freed in the set mask first. `value` may lie in what is freed. A NULL value: NULL, and
 * nothing is made. */
KUTIL_API set **set_set_path_str(set **handle, const char *path, const char *value);

/* set_set_str renames the node to `text` in the layers of the set mask and returns the handle through which
 * the node is reached under it. With a brother of that name (of any layer), or when the node is also in other
 * layers, its subtree in these layers moves into that brother, else into a new one directly behind it. A node
 * that has the text already stays unmarked. A root is renamed when its layers are exactly the set mask;
 * otherwise it would become two, and "Set cannot have more than one root" ends the process. A NULL text, and
 * a node in none of these layers: NULL. */
KUTIL_API set **set_set_str(set **handle, const char *text);

/* set_set_int is set_set_str with the decimal text of `n`. */
KUTIL_API set **set_set_int(set **handle, int n);

/* set_clear_changed clears the marks of `node` (not a handle) and of everything below that is reached through
 * marked nodes. NULL: nothing happens. */
KUTIL_API void set_clear_changed(set *node);

/* set_changed_check returns the mark of `node` (not a handle), and 1 for NULL. */
KUTIL_API int set_changed_check(set *node);

/* set_comp_changed returns whether an entry changed between two states of a tree: the mark of the node of
 * `current`; when there is none, 1 if there is one at `previous` (it was removed), else 0. */
KUTIL_API int set_comp_changed(set **previous, set **current);

/* set_comp_changed_path does the same for the entry at `path` below the two nodes (get mask). Below an
 * unmarked node of `current` nothing changed: there it answers 0 without looking further. */
KUTIL_API int set_comp_changed_path(set **previous, set **current, const char *path);

KUTIL_END_DECLS

#endif
