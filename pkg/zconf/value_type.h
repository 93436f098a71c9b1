#ifndef ZCONF_VALUE_TYPE_H
#define ZCONF_VALUE_TYPE_H

#include "util/code2str.h"
#include "util/internal/heap.h"

namespace zconf
{

struct TypeRow;

// How a value is meant, as --type names it.
class ValueType
{
public:
    // False when `name` is no type. "enum:NAME" is one when there is a table NAME or NAME_str.
    bool read(kutil::View name);

    bool is_secret() const;
    bool is_bytes() const;
    // What its values look like, for messages.
    const char *description() const;
    // The words of an enumeration, else NULL.
    const code_names *words() const { return words_; }

    // The text as the programs of the gateway store a value of this type. A new text; NULL when it is none,
    // or when more would be stored than was said, or less. Not for secrets.
    kutil::HeapText to_stored(const char *text) const;
    // What the programs of the gateway read from a stored text, as a new text; NULL when it is no value of
    // this type. A secret stays as it is stored.
    kutil::HeapText to_shown(const char *stored) const;

private:
    const TypeRow *row_ = nullptr;
    const code_names *words_ = nullptr;
};

} // namespace zconf

#endif
