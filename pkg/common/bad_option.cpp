#include "bad_option.h"

#include "util/internal/text.h"

#include <climits>
#include <cstring>
#include <getopt.h>

namespace kutil::common
{

const char *bad_option(char **argv)
{
    static char letter[] = "-?";
    // Behind a letter with others behind it optind has not moved on: the word before it says nothing then.
    const char *passed = argv[optind - 1];
    if (optopt == 0 || optopt > UCHAR_MAX || (starts_with(passed, "--") && strchr(passed, '=')))
        return passed;
    letter[1] = static_cast<char>(optopt);
    return letter;
}

const char *bare_option(char **argv)
{
    // Some C libraries count the word that is missing as passed.
    return argv[optind - 1] ? argv[optind - 1] : argv[optind - 2];
}

} // namespace kutil::common
