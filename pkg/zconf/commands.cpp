#include "commands.h"

#include "common/bad_option.h"
#include "common/tree_line.h"
#include "common/tree_list.h"
#include "util/internal/number.h"

#include <algorithm>
#include <cstdlib>
#include <getopt.h>

namespace zconf
{

using kutil::common::append_printable;
using kutil::common::tree_list;
using kutil::common::tree_path_read;

const Command kCommands[] = {
    {"get", "[--type TYPE] [--unmask] PATH", "print the value that a key holds", 1, 1,
     kTypeOption | kUnmaskOption, false, true, run_get},
    {"set", "[--type TYPE] PATH VALUE", "let a key hold a value; what is missing of its path is made", 2, 2,
     kTypeOption, true, true, run_set},
    {"del", "PATH", "delete a key with everything below it", 1, 1, kNoOption, true, true, run_del},
    {"list", "[PATH]", "print PATH=VALUE lines, which batch reads back", 0, 1, kNoOption, false, true,
     run_list},
    {"print", "[--depth N] [PATH]", "draw the tree; below depth N it only counts keys", 0, 1, kDepthOption,
     false, true, run_print},
    {"add", "PATH", "add a numbered entry to a list and print its path", 1, 1, kNoOption, true, true,
     run_add},
    {"diff", "OTHER", "print what OTHER adds (+), lacks (-) and changes (~)", 1, 1, kNoOption, false, true,
     run_diff},
    {"merge", "SRC [PATH]", "add the keys of SRC, all or below PATH; equal keys get SRC's value", 1, 2,
     kNoOption, true, true, run_merge},
    {"replace", "SRC [PATH]", "put what SRC has, all or at PATH, in place of what is here", 1, 2, kNoOption,
     true, true, run_replace},
    {"reobscure", "[PREFIX]", "obscure listed secrets anew, from the built-in key to the device's", 0, 1,
     kNoOption, true, true, run_reobscure},
    {"validate", "", "check that the file is whole and count its keys", 0, 0, kNoOption, false, false,
     run_validate},
    {"format", "[--dos]", "write the file anew in the usual layout", 0, 0, kDosOption, true, false,
     run_format},
    {"batch", "[SCRIPT]", "run the lines of SCRIPT or standard input; all or nothing", 0, 1, kNoOption, true,
     false, run_batch},
    {nullptr, nullptr, nullptr, 0, 0, kNoOption, false, false, nullptr},
};

const Command *find_command(View name)
{
    for (const Command *command = kCommands; command->name; command++) {
        if (name == command->name)
            return command;
    }
    return nullptr;
}

namespace
{

constexpr struct option kOptions[] = {
    {"depth", required_argument, nullptr, 'd'},
    {"dos", no_argument, nullptr, 'D'},
    {"type", required_argument, nullptr, 't'},
    {"unmask", no_argument, nullptr, 'u'},
    {nullptr, 0, nullptr, 0},
};

// A number from 0 up that fills the word, or -1.
long read_depth(const char *word)
{
    const char *end = nullptr;
    const int32_t depth = kutil::parse_i32(word, &end);
    return kutil::is_digit(*word) && !*end ? depth : -1;
}

Exit take_option(Session &session, const Command &command, char **words, int option, Args *args)
{
    if (option == 'd' && (command.options & kDepthOption)) {
        args->depth = read_depth(optarg);
        if (args->depth < 0)
            return session.complain(kMisuse, "--depth: not a number from 0 up: %s", optarg);
        return kDone;
    }
    if (option == 'D' && (command.options & kDosOption)) {
        args->dos = true;
        return kDone;
    }
    if (option == 't' && (command.options & kTypeOption)) {
        args->type = optarg;
        return kDone;
    }
    if (option == 'u' && (command.options & kUnmaskOption)) {
        args->unmask = true;
        return kDone;
    }
    if (option == ':')
        return session.complain(kMisuse, "%s: the last option needs an argument", command.name);
    const char *long_name = nullptr; // of an option that only other commands take
    for (const struct option &known : kOptions)
        long_name = known.name && known.val == option ? known.name : long_name;
    return session.complain(kMisuse, "%s: no such option: %s%s (general options stand before the command)",
                            command.name, long_name ? "--" : "",
                            typed(long_name ? long_name : kutil::common::bad_option(words)).get());
}

} // namespace

Exit parse_words(Session &session, const Command &command, char **words, const size_t *columns, int count,
                 Args *args)
{
    optind = 0; // starts anew, in every C library that has getopt_long
    opterr = 0;
    for (int option; (option = getopt_long(count, words, "+:", kOptions, nullptr)) != -1;) {
        const Exit taken = take_option(session, command, words, option, args);
        if (taken != kDone)
            return taken;
    }
    args->words = words + optind;
    args->columns = columns ? columns + optind : nullptr;
    args->count = count - optind;
    if (args->count < command.min_words || args->count > command.max_words)
        return session.complain(kMisuse, "usage: %s%s%s", command.name, *command.usage ? " " : "",
                                command.usage);
    return kDone;
}

Exit run_words(Session &session, const Command &command, char **words, const size_t *columns, int count)
{
    Args args;
    const Exit parsed = parse_words(session, command, words, columns, count, &args);
    return parsed == kDone ? command.run(session, args) : parsed;
}

HeapText read_path(Session &session, const Args &args, int i)
{
    const char *word = args.word(i);
    if (!word)
        return HeapText(kutil::copy_text(""));
    if (args.columns)
        session.set_column(args.columns[i]);
    size_t offset = 0;
    HeapText path(tree_path_read(word, strlen(word), &offset));
    if (!path) {
        session.complain(kMisuse, "%s: character %zu: %s", typed(word).get(), offset + 1,
                         word[offset] == '\\'
                             ? "a path does not end in a backslash"
                             : "not an escape of \"&\", two hexadecimal digits and \";\" (& itself is &26;)");
    }
    return path;
}

bool is_top_path(const char *path) { return path[strspn(path, "/")] == '\0'; }

HeapText shown(View path)
{
    kutil::TextBuilder text;
    append_printable(&text, path);
    return HeapText(text.release());
}

HeapText typed(View word)
{
    const bool printable = std::all_of(word.begin(), word.end(), kutil::is_print);
    return printable ? HeapText(kutil::copy_text(word)) : shown(word);
}

KeyCount::KeyCount(set **node)
{
    size_t count = 0;
    tree_list(
        node, [](void *context, const char *, size_t) { ++*static_cast<size_t *>(context); }, &count);
    snprintf(text, sizeof(text), count == 1 ? "%zu key" : "%zu keys", count);
}

Exit check_no_keys_lost(Session &session, const char *path)
{
    set **key = set_get(session.tree(), path);
    if (session.force() || !key || set_get_nsons(key) == 0 || kutil::common::value_leaf(*key))
        return kDone;
    return session.complain(kNo, "%s: holds %s, which a value would replace (--force does)",
                            shown(path).get(), KeyCount(key).text);
}

Exit check_no_value_above(Session &session, const char *path)
{
    if (session.force())
        return kDone;
    const HeapText above(kutil::copy_text(path));
    set **last = nullptr; // the lowest node on the way that is there; the top node may hold a value
    size_t last_end = 0;
    for (char *c = above.get() + strspn(path, "/"); *c; c++) {
        if (*c == '\\') {
            c++;
            continue;
        }
        if (*c != '/')
            continue;
        *c = '\0';
        set **node = set_get(session.tree(), above.get());
        *c = '/';
        if (!node)
            break;
        last = node;
        last_end = static_cast<size_t>(c - above.get());
    }
    if (!last || set_get(session.tree(), path) || !kutil::common::value_leaf(*last))
        return kDone;
    return session.complain(kNo,
                            "%s: holds a value, and a key below it would make that a key too (--force does)",
                            shown(View(path, last_end)).get());
}

} // namespace zconf
