#ifndef KUTIL_UTIL_SET_TEXT_H
#define KUTIL_UTIL_SET_TEXT_H

/* set_text.h: the configuration tree as text.
 *
 * A node is its escaped text in parentheses, with its sons behind the text: a key is "(mtu(1500))". A byte
 * below 32, from 127 up, or one of ( ) & ; ' " \ is written as "&xx;" with two lower-case hexadecimal digits.
 * Every node stands on its own line, two blanks further in than its parent, except the value of a key, which
 * follows the key at once. Layers are not written: the text is the tree as the get mask sees it.
 *
 * Reading is lenient: where something cannot be the next node, the list of nodes ends and the rest is
 * ignored. A program that will save what it loaded asks set_read_check first. Deliberate: a node with an
 * empty text and sons on lines of their own does not read back, since the line end right behind "(" belongs
 * to the nodes around it:
 * "(\n  (b)\n)\n" is "" with the brother b. Trees made by paths have no such nodes.
 *
 * Texts and trees of any size and depth are handled without recursion, in linear time. Running out of memory
 * ends the process. */

#include "set_node.h"

#include <stddef.h>

KUTIL_BEGIN_DECLS

/* set_write_alloc returns a new text, the caller's to free: the node and its subtree as far as the get mask
 * sees them, with LF as line end. NULL handle, an empty place, a node that is not visible, and a text that
 * would be longer than INT32_MAX give NULL. A line end follows every node but the value of a key. */
KUTIL_API char *set_write_alloc(set **handle);

/* set_write_alloc_dos is set_write_alloc with CR LF as line end. */
KUTIL_API char *set_write_alloc_dos(set **handle);

/* set_read returns a new tree, read from `text`, in the layers of the set mask; the caller stores it in a
 * variable and frees it with set_free. Several top nodes are brothers of the returned root: set_free until
 * the variable is NULL, under the same mask, frees them all. Whitespace behind a node and behind a line end
 * is skipped. NULL and "", a text that does not begin with "(", one with unequal numbers of "(" and ")", a
 * bad escape (as for set_read_special_chars_alloc) and a set mask of 0 give NULL. */
KUTIL_API set *set_read(const char *text);

/* set_read_check returns 0 when set_read makes a tree of the `len` bytes at `text` that lacks nothing of it
 * and is written as a text that reads back. Otherwise it returns -1 and stores in *offset (unless NULL) where
 * the first fault stands; `len` when the text ends too early. Faults are what set_read refuses, and: a second
 * top node, text behind the tree or behind a node, a NUL byte, an escape that is not "&", two hexadecimal
 * digits and ";", "&00;", more than 256 levels of nodes, and a node with an empty text whose sons are more
 * than one value. A NULL text is faulty at 0. */
KUTIL_API int set_read_check(const char *text, size_t len, size_t *offset);

/* set_write_special_chars writes the escaped form of `text` to `out`, without a NUL, and returns its length:
 * with a NULL `out` it only counts, for the caller to get the room. NULL counts as "". */
KUTIL_API size_t set_write_special_chars(const char *text, char *out);

/* set_read_special_chars_alloc returns a new text, the caller's to free: the first `len` bytes of `text` with
 * each escape replaced by its byte. An escape is "&", two characters that are read as strtoul in base 16
 * reads a text, of which the low 8 bits count, and any one byte: "&4z;" is the byte 4. One with fewer than
 * three bytes behind the "&" or with a negative number makes the result NULL, as does a NULL text. */
KUTIL_API char *set_read_special_chars_alloc(const char *text, size_t len);

/* set_print_tree draws the tree on standard output for debugging: "[ text <0xlayers> ]" for each node that
 * the mask sees, with its layers within the mask; the first son to the right of it, each other one on a line
 * below, and a line end behind the whole. It takes the get mask; set_print_tree_mask takes `mask`. Nothing is
 * printed for a node that is not visible. */
KUTIL_API void set_print_tree(set **handle);
KUTIL_API void set_print_tree_mask(set **handle, uint32_t mask);

KUTIL_END_DECLS

#endif
