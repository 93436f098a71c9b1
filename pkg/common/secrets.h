#ifndef KUTIL_COMMON_SECRETS_H
#define KUTIL_COMMON_SECRETS_H

// Which keys of a configuration are secrets, and what they hold in the clear. "encryption/obscured_params"
// lists them: each son names one by its path in "name" and its kind in "type". The keys that secrets are
// obscured with are secrets too, listed or not.

#include "util/internal/heap.h"
#include "util/set_node.h"

#include <cstring>

namespace kutil::common
{

inline constexpr const char *kDeviceKeyPath = "manufacturer/zel_conf/key";
inline constexpr const char *kFactoryKeyPath = "manufacturer/zel_conf/factory_key";

enum class Secret {
    none,
    text,  // obscured under the current key
    bytes, // obscured without a key
    key    // the text of a configuration key, always obscured under the built-in one
};

// Owns text in the clear, which is overwritten before it is freed.
class ClearText
{
public:
    explicit ClearText(char *text) : text_(text) {}
    ~ClearText()
    {
        if (text_)
            explicit_bzero(text_, strlen(text_));
        free(text_);
    }
    ClearText(const ClearText &) = delete;
    ClearText &operator=(const ClearText &) = delete;
    char *get() const { return text_; }

private:
    char *text_;
};

// normal_path returns the path with one "/" between its names and a backslash before "/" and "\" only: two
// paths lead to the same key when these are equal. A new text; NULL when the path ends in a backslash that
// takes nothing.
char *normal_path(const char *path);

// Calls visit(context, path, kind) for the configuration's own keys and for each secret that the tree lists,
// with the normal path. An entry of a kind that is not known counts as bytes, one without a usable path for
// none; a path that is listed twice comes twice, and the first time counts.
void for_each_secret(set **tree, void (*visit)(void *context, const char *path, Secret kind), void *context);

// The kind of the key at `path`, which need not be there.
Secret secret_at(set **tree, const char *path);

// The text could be what is stored for a secret of this kind: digits for whole bytes, and whole blocks of
// them where it is encrypted. An empty one is no secret yet.
bool looks_obscured(View text, Secret kind);

// secret_read returns what the key at `path` holds in the clear, bytes as their hexadecimal digits, under the
// current configuration key (a key's text under the built-in one). A new text for a ClearText; NULL when what
// is stored was not obscured so.
char *secret_read(set **tree, const char *path, Secret kind);

// secret_write obscures `clear`, bytes given as their hexadecimal digits, and stores it. Returns false, with
// nothing stored, for a text that is no such digits, and for a key that is not 64 digits.
bool secret_write(set **tree, const char *path, Secret kind, const char *clear);

} // namespace kutil::common

#endif
