#ifndef KUTIL_UTIL_CONF_KEY_H
#define KUTIL_UTIL_CONF_KEY_H

/* conf_key.h: configuration keys that live in the configuration itself.
 *
 * "manufacturer/zel_conf/key" holds the device's key and "manufacturer/zel_conf/factory_key" the factory's,
 * each as the text of 64 hexadecimal digits, obscured with the built-in key. Every other secret of the tree
 * is obscured with the device's key once there is one. "encryption/obscured_params" lists which values are
 * secrets: each son names one by its path in "name" and its kind in "type" (obscure_type_str). */

#include "set_node.h"

KUTIL_BEGIN_DECLS

/* zel_conf_crypt_key_load sets the factory and the device entry of the key table from the tree, clears an
 * entry whose stored text does not unobscure to 64 hexadecimal digits, and makes the device's key current.
 * Run it when the configuration has been read. Returns 0, for a NULL or empty tree too, which changes
 * nothing; -1 when there is no usable device key: the built-in key is current then. */
KUTIL_API int zel_conf_crypt_key_load(set **conf);

/* zel_conf_crypt_key_factory_set_new stores `hex` as the factory's key, obscured with the built-in key. The
 * current key stays, and so does the table. */
KUTIL_API void zel_conf_crypt_key_factory_set_new(set **conf, const char *hex);

/* zel_conf_crypt_key_factory_apply_new makes the stored factory key the stored device key and removes the
 * former. Returns 1, or 0 when none is stored. The table stays: zel_conf_crypt_key_load reads it. */
KUTIL_API int zel_conf_crypt_key_factory_apply_new(set **conf);

/* reobscure_zel_conf_params reads every listed secret under the built-in key and stores it obscured under the
 * current one; with a `prefix` only those whose path begins with it. It is for once, after a device got its
 * key. A value that is no hexadecimal text, or that the built-in key does not turn into a text with its NUL
 * and zero padding, was not obscured with it: it is left as it is, with a report at warn. Absent and empty
 * values are left alone. */
KUTIL_API void reobscure_zel_conf_params(set **conf, const char *prefix);

KUTIL_END_DECLS

#endif
