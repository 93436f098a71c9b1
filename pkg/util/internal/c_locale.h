#ifndef KUTIL_INTERNAL_C_LOCALE_H
#define KUTIL_INTERNAL_C_LOCALE_H

#include <clocale>
#include <locale.h>

namespace kutil
{

// Numbers are written and read with a decimal point inside the scope, whatever locale the process has set.
class CLocale
{
public:
    CLocale()
    {
        static locale_t kept;
        if (!kept)
            kept = newlocale(LC_ALL_MASK, "C", nullptr);
        previous_ = kept ? uselocale(kept) : nullptr;
    }
    ~CLocale()
    {
        if (previous_)
            uselocale(previous_);
    }
    CLocale(const CLocale &) = delete;
    CLocale &operator=(const CLocale &) = delete;

private:
    locale_t previous_;
};

} // namespace kutil

#endif
