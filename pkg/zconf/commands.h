#ifndef ZCONF_COMMANDS_H
#define ZCONF_COMMANDS_H

#include "session.h"
#include "value_type.h"

namespace zconf
{

// The words behind a command's name, and its options.
struct Args {
    char **words = nullptr;
    const size_t *columns = nullptr; // where the words stand in the line of a script, or NULL
    int count = 0;
    long depth = -1; // below 0: all
    bool dos = false;
    const char *type = nullptr;
    bool unmask = false;

    const char *word(int i) const { return i < count ? words[i] : nullptr; }
};

// The options that a command takes besides the general ones.
enum CommandOption : unsigned {
    kNoOption = 0,
    kDepthOption = 1,
    kDosOption = 2,
    kTypeOption = 4,
    kUnmaskOption = 8
};

struct Command {
    const char *name;
    const char *usage; // what follows the name
    const char *help;
    int min_words;
    int max_words;
    unsigned options;
    bool changes;  // the file, so it needs the lock
    bool in_batch; // may stand in a script
    Exit (*run)(Session &session, const Args &args);
};

// Every command, in the order of the help text; ended by a row without a name.
extern const Command kCommands[];

// The command of this name, or NULL.
const Command *find_command(View name);

// Runs words[0], a command's name, with the words behind it, in an open session. With `columns` the words
// come from a script.
Exit run_words(Session &session, const Command &command, char **words, const size_t *columns, int count);

// Takes the options directly behind words[0], and checks how many other words there are.
Exit parse_words(Session &session, const Command &command, char **words, const size_t *columns, int count,
                 Args *args);

// --- What commands share.

// Word `i` as a path of the tree: a new text. NULL after a complaint. A missing word gives "".
HeapText read_path(Session &session, const Args &args, int i);

// A path or name for a message: printable, whatever bytes it has.
HeapText shown(View path);

// A word for a message: just as it was typed, as long as that is printable.
HeapText typed(View word);

// Whether the path has no name in it, so that it means the top node.
bool is_top_path(const char *path);

// How many lines list prints for the node, as "1 key" or "N keys".
struct KeyCount {
    explicit KeyCount(set **node);
    char text[32];
};

// Complains and returns kNo when the key at `path` must not be given a value: it holds keys, which would be
// lost.
Exit check_no_keys_lost(Session &session, const char *path);

// Complains and returns kNo when a key above `path` holds a value: what is made below would turn it into a
// key.
Exit check_no_value_above(Session &session, const char *path);

// Reads the name behind --type. Returns kDone or complains.
Exit read_type(Session &session, const char *name, ValueType *type);

// Loads the configuration keys from the tree, so that secrets can be read and written.
void load_keys(Session &session);

// Stores the secret that word 1 is, or that standard input has when it is "-", at `path`.
Exit set_secret(Session &session, const Args &args, const char *path, const ValueType &type);

// Prints the secret at `path`, which holds a value, in the clear. A NULL type: the kind that the tree lists.
Exit print_unmasked(Session &session, const char *path, const ValueType *type);

// Complains and returns kNo when the key at `path` is listed as a secret and `value` is not obscured.
Exit check_not_in_clear(Session &session, const char *path, View value);

// --- The commands.

Exit run_get(Session &session, const Args &args);
Exit run_set(Session &session, const Args &args);
Exit run_del(Session &session, const Args &args);
Exit run_list(Session &session, const Args &args);
Exit run_print(Session &session, const Args &args);
Exit run_add(Session &session, const Args &args);
Exit run_diff(Session &session, const Args &args);
Exit run_merge(Session &session, const Args &args);
Exit run_replace(Session &session, const Args &args);
Exit run_reobscure(Session &session, const Args &args);
Exit run_validate(Session &session, const Args &args);
Exit run_format(Session &session, const Args &args);
Exit run_batch(Session &session, const Args &args);

} // namespace zconf

#endif
