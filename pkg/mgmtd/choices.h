#ifndef MGMTD_CHOICES_H
#define MGMTD_CHOICES_H

#include "base.h"
#include "util/code2str.h"

namespace mgmtd
{

// The values that a key takes: the words of an enumeration, or on and off.
struct Choices {
    const code_names *table = nullptr; // one of the library's,
    View words;                        // or words with a blank between them,
    bool flag = false;                 // or "1" and "0"

    bool any() const { return table || !words.empty() || flag; }
    // Calls use(context, word) with each value, in the order in which they are offered.
    void for_each(void (*use)(void *context, View word), void *context) const;
};

// The choices of the key at the normal `path`.
Choices choices_of(View path);

} // namespace mgmtd

#endif
