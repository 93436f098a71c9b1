#include "options.h"

#include "common/bad_option.h"

#include <cstdio>
#include <getopt.h>

namespace mgmtd
{

namespace
{

enum Letter : int { kHttp = 256, kLine, kReadOnly, kPidFile, kForeground, kDaemon, kSetPassword };

constexpr struct option kOptions[] = {
    {"config", required_argument, nullptr, 'c'},
    {"http", required_argument, nullptr, kHttp},
    {"line", required_argument, nullptr, kLine},
    {"readonly", no_argument, nullptr, kReadOnly},
    {"pidfile", required_argument, nullptr, kPidFile},
    {"foreground", no_argument, nullptr, kForeground},
    {"daemon", no_argument, nullptr, kDaemon},
    {"set-password", required_argument, nullptr, kSetPassword},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

constexpr const char kUsage[] =
    "usage: mgmtd -c FILE [--http ADDR:PORT] [--line ADDR:PORT] [--readonly] [--pidfile FILE]\n"
    "             [--foreground|--daemon]\n"
    "       mgmtd -c FILE --set-password USER\n";

constexpr const char kHelp[] =
    "\n"
    "Serves the configuration in FILE: as pages and by HTTP requests, and by a line protocol.\n"
    "\n"
    "  -c, --config FILE       the configuration\n"
    "      --http ADDR:PORT    listen there for HTTP, up to 8 times; off: not at all.\n"
    "                          Default 127.0.0.1:8080 and [::1]:8080\n"
    "      --line ADDR:PORT    listen there for the line protocol. Default 127.0.0.1:8081\n"
    "      --readonly          refuse every change\n"
    "      --pidfile FILE      keep the process id in FILE\n"
    "      --foreground        stay in the foreground and report to standard error, too (the default)\n"
    "      --daemon            go to the background once everything is open\n"
    "      --set-password USER store the first line of standard input as the user's password, and end\n"
    "  -h, --help              print this text\n"
    "  -V, --version           print the version\n"
    "\n"
    "An IPv6 address stands in brackets; port 0 lets the system choose. SIGHUP reloads FILE, SIGINT and\n"
    "SIGTERM end the process.\n"
    "\n"
    "Exit status: 0 done; 1 it could not start or save; 2 misuse.\n";

Exit misuse(const char *what, const char *word = "")
{
    fprintf(stderr, "mgmtd: %s%s%s\n%sTry mgmtd --help.\n", what, *word ? ": " : "", word, kUsage);
    return kMisuse;
}

bool add_endpoint(Endpoints *list, const char *text, const char *option, bool optional = false)
{
    Endpoint endpoint = {{}, optional, option};
    if (View(text) == "off")
        return true;
    if (list->count == kMaxEndpoints || !kutil::common::read_endpoint(text, &endpoint))
        return false;
    list->items[list->count++] = endpoint;
    return true;
}

Exit read_word(int letter, char **argv, Options *options, bool *help)
{
    switch (letter) {
    case 'c':
        options->file = optarg;
        break;
    case kHttp:
        options->http_given = true;
        if (!add_endpoint(&options->http, optarg, "--http"))
            return misuse("--http takes ADDR:PORT, at most 8 times", optarg);
        break;
    case kLine:
        options->line_given = true;
        if (!add_endpoint(&options->line, optarg, "--line"))
            return misuse("--line takes ADDR:PORT, at most 8 times", optarg);
        break;
    case kReadOnly:
        options->read_only = true;
        break;
    case kPidFile:
        options->pid_file = optarg;
        break;
    case kForeground:
        options->foreground = true;
        break;
    case kDaemon:
        options->foreground = false;
        break;
    case kSetPassword:
        options->password_user = optarg;
        break;
    case 'h':
        printf("%s%s", kUsage, kHelp);
        *help = true;
        break;
    case 'V':
        puts("mgmtd " KUTIL_VERSION);
        *help = true;
        break;
    case ':':
        return misuse("the option needs an argument", kutil::common::bare_option(argv));
    default:
        return misuse("no such option", kutil::common::bad_option(argv));
    }
    return kDone;
}

} // namespace

Exit read_options(int argc, char **argv, Options *options, bool *done)
{
    opterr = 0;
    *done = false;
    for (int letter; !*done && (letter = getopt_long(argc, argv, ":c:hV", kOptions, nullptr)) != -1;) {
        const Exit result = read_word(letter, argv, options, done);
        *done = *done || result != kDone;
        if (*done)
            return result;
    }
    *done = true;
    if (optind < argc)
        return misuse("a word too many", argv[optind]);
    if (!options->file || !*options->file)
        return misuse("no configuration: name it by -c FILE");
    *done = false;
    if (!options->http_given) {
        add_endpoint(&options->http, "127.0.0.1:8080", "--http");
        add_endpoint(&options->http, "[::1]:8080", "--http", true);
    }
    if (!options->line_given)
        add_endpoint(&options->line, "127.0.0.1:8081", "--line");
    return kDone;
}

} // namespace mgmtd
