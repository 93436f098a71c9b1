#ifndef KUTIL_TESTS_SUPPORT_TEXT_H
#define KUTIL_TESTS_SUPPORT_TEXT_H

#include <cstdlib>
#include <cstring>

// A string variable of the library that frees itself.
struct Str {
    explicit Str(const char *text = nullptr) : p(text ? strdup(text) : nullptr) {}
    ~Str() { free(p); }
    Str(const Str &) = delete;
    Str &operator=(const Str &) = delete;
    operator char **() { return &p; }
    char *p;
};

// A text for messages: NULL is visible.
inline const char *shown(const char *text) { return text ? text : "(NULL)"; }

#endif
