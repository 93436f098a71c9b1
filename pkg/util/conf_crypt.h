#ifndef KUTIL_UTIL_CONF_CRYPT_H
#define KUTIL_UTIL_CONF_CRYPT_H

/* conf_crypt.h: obscuring of secret configuration values, and the keys it is done with.
 *
 * A secret is stored encrypted with AES-256 in CBC mode under a configuration key; the typed accessors of the
 * tree write the bytes as hexadecimal text. There are three keys: the built-in one, the device's own and the
 * factory's. One of them is current, the built-in one at first. The built-in key and the initialisation
 * vector of zeros are the same in every product, so this keeps a value from being read at a glance, and with
 * a device key from being read elsewhere; equal values under one key look equal, and nothing notices a
 * changed byte. Keys that hold more than that belong elsewhere.
 *
 * A lighter form works in place with a keystream of MD5 digests, without a key: md5_* for texts, *_bin for
 * bytes. Both directions depend on constants of the library that never change, since stored data does.
 *
 * Results are new memory of the caller's. Key bytes are cleared before they are freed. Running out of memory,
 * and a cryptographic library that lacks AES-256-CBC, SHA-1 or MD5, end the process. */

#include "api.h"

KUTIL_BEGIN_DECLS

/* The types of configuration keys. Any other number is ignored by what takes a type. */
#define CONF_KEY_DEFAULT 0 /* built in */
#define CONF_KEY_DEVICE 1
#define CONF_KEY_FACTORY 2

#define CONF_KEY_SIZE 32 /* bytes of a key */

/* encrypt_str returns `text`, its NUL and zero padding as new encrypted bytes, and stores their number in
 * *len_out (NULL: not stored). The number is the smallest multiple of 16 above the text's length plus one, so
 * a text of 15 characters takes 32 bytes. `key` has CONF_KEY_SIZE bytes. A NULL text or key, and a text
 * beyond what an int counts, give NULL and store nothing. */
KUTIL_API unsigned char *encrypt_str(const char *text, int *len_out, const unsigned char *key);

/* decrypt_str returns the `len` bytes at `buf` decrypted, as a new text that always ends with a NUL (an
 * earlier one ends it where encrypt_str put it). A length of 0 or less gives a new ""; NULL bytes or key and
 * a length that is no multiple of 16 give NULL. Bytes of another key give a text of other characters: nothing
 * tells. */
KUTIL_API char *decrypt_str(const void *buf, int len, const unsigned char *key);

/* obscure_str is encrypt_str with the current configuration key; NULL also when there is none. */
KUTIL_API unsigned char *obscure_str(const char *text, int *len_out);

/* unobscure_str is decrypt_str with the current configuration key; NULL also when there is none. */
KUTIL_API char *unobscure_str(const void *buf, int len);

/* aes_password_to_key returns a new key of CONF_KEY_SIZE bytes that is derived from `password` (NULL counts
 * as ""): EVP_BytesToKey with SHA-1, a fixed salt and 10 rounds. */
KUTIL_API unsigned char *aes_password_to_key(const char *password);

/* md5_obscure_str changes `text` in place, so that md5_unobscure_str changes it back. The result has no NUL
 * inside and the same length. Both return text; NULL stays NULL. */
KUTIL_API char *md5_obscure_str(char *text);
KUTIL_API char *md5_unobscure_str(char *text);

/* obscure_bin changes `len` bytes in place, and unobscure_bin changes them back; in fact they do the same. A
 * NULL buffer or a length of 0 or less: nothing happens. */
KUTIL_API void obscure_bin(void *buf, int len);
KUTIL_API void unobscure_bin(void *buf, int len);

/* zel_conf_crypt_key_get returns a new buffer with the CONF_KEY_SIZE bytes of the current key, for the caller
 * to clear and free. Missing digits of its text are zeros; digits behind the 64th are not used. NULL when the
 * current entry is clear, or its text is empty or no even number of hexadecimal digits. */
KUTIL_API unsigned char *zel_conf_crypt_key_get(void);

/* zel_conf_crypt_key_set replaces the entry of `type` by a copy of `hex`, normally 64 hexadecimal digits;
 * NULL clears it. */
KUTIL_API void zel_conf_crypt_key_set(int type, const char *hex);

/* zel_conf_crypt_key_clear empties the entry of `type`, which stays current if it is. */
KUTIL_API void zel_conf_crypt_key_clear(int type);

/* zel_conf_crypt_key_change makes `type` current when its entry is set; else nothing changes. */
KUTIL_API void zel_conf_crypt_key_change(int type);

/* zel_conf_crypt_key_get_curr_type returns the current type. */
KUTIL_API int zel_conf_crypt_key_get_curr_type(void);

/* zel_conf_crypt_key_select remembers the current type and changes to `type`; zel_conf_crypt_key_deselect
 * changes back. One type is remembered: a second select forgets the first. */
KUTIL_API void zel_conf_crypt_key_select(int type);
KUTIL_API void zel_conf_crypt_key_deselect(void);

/* zel_conf_crypt_key_factory_select is zel_conf_crypt_key_select(CONF_KEY_FACTORY), and
 * zel_conf_crypt_key_factory_deselect is zel_conf_crypt_key_deselect. */
KUTIL_API void zel_conf_crypt_key_factory_select(void);
KUTIL_API void zel_conf_crypt_key_factory_deselect(void);

KUTIL_END_DECLS

#endif
