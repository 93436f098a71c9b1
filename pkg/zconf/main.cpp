// zconf: looks into a configuration tree's file and changes it.

#include "commands.h"
#include "common/bad_option.h"
#include "util/zel_error.h"

#include <cerrno>
#include <cstdlib>
#include <getopt.h>
#include <unistd.h>

namespace zconf
{

namespace
{

constexpr struct option kOptions[] = {
    {"file", required_argument, nullptr, 'f'}, {"create", required_argument, nullptr, 'c'},
    {"force", no_argument, nullptr, 'F'},      {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},    {nullptr, 0, nullptr, 0},
};

constexpr const char kUsage[] = "usage: zconf [-f FILE] [-c NAME] [--force] COMMAND ARG...\n";

constexpr const char kHelpOptions[] =
    "\n"
    "Options:\n"
    "  -f, --file FILE    the file; - reads standard input and writes what is changed to standard output.\n"
    "                     Without -f it is the file that the variable ZCONF_FILE names.\n"
    "  -c, --create NAME  make the file when it is missing, with a top node of that name\n"
    "      --force        do what is refused otherwise: replace keys by a value, put keys below a value,\n"
    "                     merge past conflicts, save though the file's owner cannot be kept\n"
    "  -h, --help         print this text\n"
    "  -V, --version      print the version\n"
    "\n"
    "PATH is names joined by /, with a backslash before / \\ and = in a name, and &xx; for the byte of two\n"
    "hexadecimal digits; & itself is &26;. VALUE is taken, and printed by get, as it is.\n"
    "SRC and OTHER are files, - is standard input.\n"
    "\n"
    "TYPE is int, u32, u64, hex, float, flag, time, ip, mac, bin, enum:NAME, secret or bin-secret. A secret "
    "is\n"
    "stored obscured, and read from standard input, without echo, when VALUE is -. Whatever prints shows it "
    "as it\n"
    "is stored; get --unmask shows it in the clear, escaped as in a listing.\n"
    "\n"
    "A change is saved at once and whole, or not at all. While a file is being changed, others who want to "
    "change\n"
    "it are refused.\n"
    "\n"
    "Exit status: 0 done; 1 not there, different, or in conflict; 2 misuse or an unreadable file; 3 not "
    "saved.\n";

void print_help()
{
    printf("%s\nCommands:\n", kUsage);
    for (const Command *command = kCommands; command->name; command++) {
        char call[48];
        snprintf(call, sizeof(call), "%s %s", command->name, command->usage);
        printf("  %-34s %s\n", call, command->help);
    }
    fputs(kHelpOptions, stdout);
}

// A call that cannot be understood, and the word at which that shows.
Exit misuse(const char *what, const char *word = "")
{
    fprintf(stderr, "zconf: %s%s%s\n%sTry zconf --help.\n", what, *word ? ": " : "", word, kUsage);
    return kMisuse;
}

// What has to be known before a file is opened: done is set when the call ends here.
Exit read_settings(int argc, char **argv, Settings *settings, bool *done)
{
    *done = true;
    opterr = 0;
    for (int option; (option = getopt_long(argc, argv, "+:f:c:hV", kOptions, nullptr)) != -1;) {
        switch (option) {
        case 'f':
            settings->file = optarg;
            break;
        case 'c':
            settings->create = optarg;
            break;
        case 'F':
            settings->force = true;
            break;
        case 'h':
            print_help();
            return kDone;
        case 'V':
            puts("zconf " KUTIL_VERSION);
            return kDone;
        case ':':
            return misuse("the option needs an argument", kutil::common::bare_option(argv));
        default:
            return misuse("no such option", kutil::common::bad_option(argv));
        }
    }
    *done = false;
    return kDone;
}

bool has_no_name(const char *text) { return !text || !*text; }

Exit run(int argc, char **argv)
{
    Settings settings;
    bool done;
    const Exit read = read_settings(argc, argv, &settings, &done);
    if (done)
        return read;
    if (optind >= argc)
        return misuse("no command");
    const Command *command = find_command(argv[optind]);
    if (!command)
        return misuse("no such command", argv[optind]);
    if (has_no_name(settings.file))
        settings.file = getenv("ZCONF_FILE");
    if (has_no_name(settings.file))
        return misuse("no file: name it by -f FILE or in the variable ZCONF_FILE; - is standard input");
    if (settings.create && !*settings.create)
        return misuse("-c needs a name for the top node");
    Session session(settings);
    Args args;
    const int first = optind;
    const Exit parsed = parse_words(session, *command, argv + first, nullptr, argc - first, &args);
    if (parsed != kDone)
        return parsed;
    const Exit opened = session.open(command->changes);
    return opened == kDone ? session.close(command->run(session, args)) : opened;
}

} // namespace

} // namespace zconf

int main(int argc, char **argv)
{
    // Running out of memory is the only report that can come, and ends the process without saving.
    zel_error_init_default(4);
    zel_error_set_mt_id();
    zel_error_exit_func_set([] { _exit(zconf::kUnsaved); });
    const zconf::Exit result = zconf::run(argc, argv);
    if (fflush(stdout) == 0 && !ferror(stdout))
        return result;
    fprintf(stderr, "zconf: standard output: %s\n", strerror(errno));
    return zconf::kUnsaved;
}
