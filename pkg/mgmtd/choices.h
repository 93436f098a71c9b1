#ifndef MGMTD_CHOICES_H
#define MGMTD_CHOICES_H

#include "base.h"
#include "util/code2str.h"

namespace mgmtd
{

// The values that a key takes: words of an enumeration, or on and off.
struct Choices {
    const code_names *words = nullptr; // NULL: none
    bool flag = false;                 // "1" or "0"

    bool any() const { return words || flag; }
};

// The choices of the key at the normal `path`.
Choices choices_of(View path);

} // namespace mgmtd

#endif
