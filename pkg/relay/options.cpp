#include "options.h"

#include "common/bad_option.h"
#include "util/internal/number.h"

#include <climits>
#include <cstdio>
#include <getopt.h>

namespace relay
{

namespace
{

enum Letter : int { kHighWater = 256, kIdle, kMax, kDrain };

constexpr struct option kOptions[] = {
    {"high-water", required_argument, nullptr, kHighWater},
    {"idle", required_argument, nullptr, kIdle},
    {"max", required_argument, nullptr, kMax},
    {"drain", required_argument, nullptr, kDrain},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

constexpr const char kUsage[] = "usage: relay [OPTION...] LISTEN CONNECT [LISTEN CONNECT ...]\n";

constexpr const char kHelp[] =
    "\n"
    "Takes TCP connections at each LISTEN and joins them with connections of its own to the CONNECT behind\n"
    "it. Both are ADDRESS:PORT, numeric, an IPv6 address in brackets. LISTEN port 0 lets the system choose.\n"
    "\n"
    "      --high-water BYTES  stop reading from one side while more than this waits for the other.\n"
    "                          Default 65536\n"
    "      --idle SECONDS      close connections on which nothing moved for so long. Default 0: never\n"
    "      --max N             connections at once; further ones are closed when they come. Default: what\n"
    "                          the limit of open files allows\n"
    "      --drain SECONDS     how long SIGTERM waits for connections to end. Default 10\n"
    "  -h, --help              print this text\n"
    "  -V, --version           print the version\n"
    "\n"
    "SIGTERM and SIGINT end it: no more connections are taken, and what is open may finish; a second one\n"
    "ends it at once. SIGUSR1 reports the counters.\n"
    "\n"
    "Exit status: 0 all connections finished; 1 some were cut off at the end; 2 misuse; 3 it could not\n"
    "listen.\n";

Exit misuse(const char *what, const char *word = "")
{
    fprintf(stderr, "relay: %s%s%s\n%sTry relay --help.\n", what, *word ? ": " : "", word, kUsage);
    return kMisuse;
}

Exit read_number(int *value, int least, int most)
{
    int32_t number;
    if (!kutil::whole_i32(optarg, &number) || number < least || number > most)
        return misuse("not a number that the option takes", optarg);
    *value = number;
    return kDone;
}

Exit read_word(int letter, char **argv, Options *options, bool *done)
{
    constexpr int kMostSeconds = INT_MAX / 1000;
    switch (letter) {
    case kHighWater:
        return read_number(&options->high_water, 0, INT_MAX / 2);
    case kIdle:
        return read_number(&options->idle_s, 0, kMostSeconds);
    case kMax:
        return read_number(&options->max, 1, INT_MAX);
    case kDrain:
        return read_number(&options->drain_s, 0, kMostSeconds);
    case 'h':
        printf("%s%s", kUsage, kHelp);
        *done = true;
        return kDone;
    case 'V':
        puts("relay " KUTIL_VERSION);
        *done = true;
        return kDone;
    case ':':
        return misuse("the option needs an argument", kutil::common::bare_option(argv));
    default:
        return misuse("no such option", kutil::common::bad_option(argv));
    }
}

} // namespace

Exit read_options(int argc, char **argv, Options *options, bool *done)
{
    opterr = 0;
    *done = false;
    for (int letter; (letter = getopt_long(argc, argv, ":hV", kOptions, nullptr)) != -1;) {
        const Exit result = read_word(letter, argv, options, done);
        *done = *done || result != kDone;
        if (*done)
            return result;
    }
    *done = true;
    options->words = argv + optind;
    options->word_count = argc - optind;
    if (options->word_count == 0 || options->word_count % 2 != 0)
        return misuse("LISTEN and CONNECT come in pairs");
    for (int i = 0; i < options->word_count; i++) {
        Endpoint endpoint;
        if (!kutil::common::read_endpoint(options->words[i], &endpoint))
            return misuse("not ADDRESS:PORT", options->words[i]);
        if (i % 2 != 0 && endpoint.port == 0)
            return misuse("no port to connect to", options->words[i]);
    }
    *done = false;
    return kDone;
}

} // namespace relay
