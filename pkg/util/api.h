#ifndef KUTIL_UTIL_API_H
#define KUTIL_UTIL_API_H

/* api.h: what every public header of the library opens with. It declares nothing of its own.
 *
 * KUTIL_API marks an exported declaration; a name without it is not part of the library. KUTIL_PRINTF(f, a)
 * lets the compiler check a printf-style call whose format is argument f and whose first value is argument a
 * (0: a va_list). KUTIL_SENTINEL lets it check that a variadic list ends with NULL. KUTIL_BEGIN_DECLS and
 * KUTIL_END_DECLS give C linkage to what stands between them. KUTIL_64_BIT_TIME stands in headers with times,
 * which are 64-bit everywhere: a 32-bit C library that has both is told so by -D_TIME_BITS=64
 * -D_FILE_OFFSET_BITS=64, which the installed package files carry.
 *
 * There is no nonnull attribute anywhere: NULL is a legal argument of every function, and the compiler would
 * delete the checks. */

#ifndef KUTIL_API
#define KUTIL_API __attribute__((visibility("default")))
#endif

#define KUTIL_PRINTF(format_index, first_value) __attribute__((format(printf, format_index, first_value)))
#define KUTIL_SENTINEL __attribute__((sentinel))

#ifdef __cplusplus
#define KUTIL_BEGIN_DECLS extern "C" {
#define KUTIL_END_DECLS }
#define KUTIL_STATIC_ASSERT static_assert
#else
#define KUTIL_BEGIN_DECLS
#define KUTIL_END_DECLS
#define KUTIL_STATIC_ASSERT _Static_assert
#endif

#define KUTIL_64_BIT_TIME                                                                                    \
    KUTIL_STATIC_ASSERT(sizeof(time_t) == 8, "compile with -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64")

#endif
