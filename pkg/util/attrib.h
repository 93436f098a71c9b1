#ifndef KUTIL_UTIL_ATTRIB_H
#define KUTIL_UTIL_ATTRIB_H

/* attrib.h: ordered lists of names and values, for headers, form fields and small settings.
 *
 * A list is a variable of type attrib * that is NULL or holds the first entry. Operations take its address,
 * keep the order of insertion and return the address. Names are compared ignoring the case of ASCII letters;
 * several entries may have one name, and every operation says whether it means the first, the last or all of
 * them.
 *
 * A value is a block of bytes with a NUL behind it. Its length is kept as the caller gave it; any negative
 * length is stored as -1 and means a text, which its NUL ends. A NULL value is the text "", whatever length
 * came with it; an entry with a NULL name is not added, and a NULL name is found nowhere.
 *
 * Entries, names and values are owned by the list; release it with attrib_free. What a look-up returns points
 * into the list and is valid until that entry is set again, deleted or freed. Every text and list argument
 * may be part of the list that is being changed. A NULL address of a list is an empty list to read; changing
 * it does nothing and returns NULL.
 *
 * `next` is the first field of an entry and the variable holds the first entry's address, so the variable's
 * address can stand for an entry in front of the first one. The operations that return "the entry in front"
 * return that pseudo entry for the first one: only its `next` may be touched.
 *
 * All walks are linear, so setting n different names costs n * n / 2 comparisons; a list is for dozens of
 * entries, or is built by appending. Running out of memory ends the process. */

#include "api.h"

#include <stdarg.h>
#include <stdint.h>

KUTIL_BEGIN_DECLS

typedef struct attrib {
    struct attrib *next;
    char *name;
    char *value; /* len bytes and a NUL; the caller may change it as a string of its own while len is -1 */
    int32_t len; /* -1: a text */
    uintptr_t user[2]; /* the callers'; kept when an entry is copied, 0 in new ones */
} attrib;

/* Looking up */

/* attrib_get_p returns the entry in front of the first one named `name`; without one, the last entry, whose
 * next is NULL. */
KUTIL_API attrib *attrib_get_p(attrib **list, const char *name);

/* attrib_get returns the value of the first entry named `name`, "" when there is none. */
KUTIL_API const char *attrib_get(attrib **list, const char *name);

/* attrib_get_null is attrib_get with NULL when there is none. */
KUTIL_API const char *attrib_get_null(attrib **list, const char *name);

/* attrib_get_default is attrib_get with `fallback` when there is none. */
KUTIL_API const char *attrib_get_default(attrib **list, const char *name, const char *fallback);

/* attrib_get_len_null is attrib_get_null that also stores the entry's length, or 0, in *len unless len is
 * NULL. */
KUTIL_API const char *attrib_get_len_null(attrib **list, const char *name, int32_t *len);

/* attrib_get_int returns the number at the start of attrib_get as atoi reads it, kept within 32 bits. */
KUTIL_API int attrib_get_int(attrib **list, const char *name);

/* attrib_exist returns 1 when an entry has `name`, else 0. */
KUTIL_API int attrib_exist(attrib **list, const char *name);

/* attrib_get_val_p returns the address of the value of the first entry named `name`, as a string variable to
 * change; without one, an entry with the value "" is appended first. NULL for a NULL name. */
KUTIL_API char **attrib_get_val_p(attrib **list, const char *name);

/* attrib_get_p_last returns the entry in front of the last one named `name`, or NULL. */
KUTIL_API attrib *attrib_get_p_last(attrib **list, const char *name);

/* attrib_get_last returns the value of the last entry named `name`, "" when there is none. */
KUTIL_API const char *attrib_get_last(attrib **list, const char *name);

/* attrib_get_p_after returns the last entry named `name`, behind which a further one of that name goes; the
 * pseudo entry when there is none. */
KUTIL_API attrib *attrib_get_p_after(attrib **list, const char *name);

/* attrib_get_multi returns a new array of lines.h, for the caller to free with lines_free, with the values of
 * all entries named `name`, in order and as texts. */
KUTIL_API char **attrib_get_multi(attrib **list, const char *name);

/* attrib_get_name_by_regex returns the name of the first entry whose name matches `pattern` as str_re of
 * str.h says, "" when none does. */
KUTIL_API const char *attrib_get_name_by_regex(attrib **list, const char *pattern);

/* attrib_get_p_end returns the last entry, the pseudo entry of an empty list. */
KUTIL_API attrib *attrib_get_p_end(attrib **list);

/* attrib_get_next returns the entry behind `entry`, NULL at the end and for NULL. */
KUTIL_API attrib *attrib_get_next(attrib *entry);

/* attrib_get_name returns the name of the entry that the variable `place` holds, NULL when it holds none. */
KUTIL_API const char *attrib_get_name(attrib **place);

/* Adding and setting */

/* attrib_add appends a copy of `entry`, its length and user words included. NULL adds nothing. */
KUTIL_API attrib **attrib_add(attrib **list, const attrib *entry);

/* attrib_addset_len appends an entry with copies of `name` and of `len` bytes of `value`. */
KUTIL_API attrib **attrib_addset_len(attrib **list, const char *name, const char *value, int len);

/* attrib_addset is attrib_addset_len for a text. */
KUTIL_API attrib **attrib_addset(attrib **list, const char *name, const char *value);

/* attrib_set_len gives the first entry named `name` a copy of `len` bytes of `value`, and leaves later
 * entries of the name; without one it appends as attrib_addset_len. A NULL value deletes all entries of the
 * name. */
KUTIL_API attrib **attrib_set_len(attrib **list, const char *name, const char *value, int len);

/* attrib_set is attrib_set_len for a text. */
KUTIL_API attrib **attrib_set(attrib **list, const char *name, const char *value);

/* attrib_set_int sets the decimal text of `n`. */
KUTIL_API attrib **attrib_set_int(attrib **list, const char *name, int n);

/* attrib_set_printf sets the text that printf makes of `format` and what follows; a NULL format makes "". */
KUTIL_API attrib **attrib_set_printf(attrib **list, const char *name, const char *format, ...)
    KUTIL_PRINTF(3, 4);

/* attrib_set_vprintf is attrib_set_printf with its values in a va_list, which is used up. */
KUTIL_API attrib **attrib_set_vprintf(attrib **list, const char *name, const char *format, va_list ap)
    KUTIL_PRINTF(3, 0);

/* attrib_set_multi sets pairs of names and values (const char *) in order, up to a NULL name; a NULL value
 * deletes. */
KUTIL_API attrib **attrib_set_multi(attrib **list, ...) KUTIL_SENTINEL;

/* attrib_set_multi_ap is attrib_set_multi with its pairs in a va_list, which is used up. */
KUTIL_API attrib **attrib_set_multi_ap(attrib **list, va_list ap);

/* attrib_set_lines sets `lines` joined with line feeds, none behind the last one. */
KUTIL_API attrib **attrib_set_lines(attrib **list, const char *name, char *const *lines);

/* attrib_add_lines splits the first value of `name` at line feeds, appends `lines` and sets the result as
 * attrib_set_lines does. */
KUTIL_API attrib **attrib_add_lines(attrib **list, const char *name, char *const *lines);

/* Removing */

/* attrib_del frees every entry named `name`. */
KUTIL_API attrib **attrib_del(attrib **list, const char *name);

/* attrib_del_byname frees every entry that has one of the names that follow, up to a NULL. */
KUTIL_API attrib **attrib_del_byname(attrib **list, ...) KUTIL_SENTINEL;

/* attrib_del_byname_ap is attrib_del_byname with its names in a va_list, which is used up. */
KUTIL_API attrib **attrib_del_byname_ap(attrib **list, va_list ap);

/* attrib_free frees every entry and leaves the list empty. */
KUTIL_API attrib **attrib_free(attrib **list);

/* Whole lists */

/* attrib_merge moves the entries of *other to the end of *list, without copying, and leaves *other empty.
 * When both are the same list nothing changes. */
KUTIL_API attrib **attrib_merge(attrib **list, attrib **other);

/* attrib_cat appends copies of the entries of `other`; attrib_cat(list, list) doubles the list. */
KUTIL_API attrib **attrib_cat(attrib **list, attrib **other);

/* attrib_cpy makes *list a copy of `other`. */
KUTIL_API attrib **attrib_cpy(attrib **list, attrib **other);

/* attrib_cat_byname appends, for each entry of `other` in order, one copy for every one of the names that
 * follow, up to a NULL, that is the entry's: a name given twice copies twice. */
KUTIL_API attrib **attrib_cat_byname(attrib **list, attrib **other, ...) KUTIL_SENTINEL;

/* attrib_setcpy sets each entry of `other`, in order, into *list as attrib_set_len does. */
KUTIL_API attrib **attrib_setcpy(attrib **list, attrib **other);

/* attrib_setcpy_byname sets the first entry of `other` of each of the names that follow, up to a NULL, into
 * *list as attrib_set_len does. Names that `other` lacks or has with the length 0 are skipped. */
KUTIL_API attrib **attrib_setcpy_byname(attrib **list, attrib **other, ...) KUTIL_SENTINEL;

/* attrib_setcpy_byname_ap is attrib_setcpy_byname with its names in a va_list, which is used up. */
KUTIL_API attrib **attrib_setcpy_byname_ap(attrib **list, attrib **other, va_list ap);

/* lines_to_attrib replaces *list by the entries in `lines`, an array of lines.h: in each line that has
 * `separator` behind its first character, the text before the first one is the name and the text behind it,
 * up to the first character of `terminators` (NULL: none), the value; a name seen again replaces the earlier
 * value. Other lines are skipped. The lines are cut in place at these two characters. */
KUTIL_API attrib **lines_to_attrib(attrib **list, char **lines, char separator, const char *terminators);

KUTIL_END_DECLS

#endif
