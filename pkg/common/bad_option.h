#ifndef KUTIL_COMMON_BAD_OPTION_H
#define KUTIL_COMMON_BAD_OPTION_H

namespace kutil::common
{

// The option that getopt_long has just refused with '?', as it was typed: the long one, with its "=VALUE"
// when it takes none, or "-" and the letter. The letters of long options without one are above 255. A word of
// argv, or a static buffer that the next call changes.
const char *bad_option(char **argv);

// The option that getopt_long has just returned ':' for, as it was typed: it lacks its argument.
const char *bare_option(char **argv);

} // namespace kutil::common

#endif
