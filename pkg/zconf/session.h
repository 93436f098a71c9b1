#ifndef ZCONF_SESSION_H
#define ZCONF_SESSION_H

#include "common/file_lock.h"
#include "common/strict_load.h"

#include <cstdio>

namespace zconf
{

using kutil::HeapText;
using kutil::View;
using kutil::common::Problem;

enum Exit : int {
    kDone = 0,
    kNo = 1,      // not there, different, or in conflict
    kMisuse = 2,  // a wrong call, or a file that cannot be read
    kUnsaved = 3, // the result could not be saved or written
};

struct Settings {
    const char *file = nullptr;   // "-": standard input to standard output
    const char *create = nullptr; // the name of the top node when the file is missing
    bool force = false;
};

// One file being worked on: locked when it may change, loaded, and saved at the end when it did change.
// Messages go to standard error; complain() returns its first argument, so that a command can return the
// call.
class Session
{
public:
    explicit Session(const Settings &settings) : settings_(settings) {}
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // Loads the tree. With `to_change` the file's lock is held from before that until the end.
    Exit open(bool to_change);
    // Saves what changed, unless `result` is a failure. Returns `result` or why it could not be saved.
    Exit close(Exit result);

    set **tree() { return &tree_; }
    const char *file_name() const { return is_stream() ? "standard input" : settings_.file; }
    bool force() const { return settings_.force; }
    // Where results go: not into the tree that a changing command writes to standard output.
    FILE *out() const { return is_stream() && to_change_ ? stderr : stdout; }

    // The file is written anew also when the tree is the same, with these line ends.
    void rewrite(bool dos)
    {
        rewrite_ = true;
        dos_ = dos;
    }
    // What was changed is saved although the command fails.
    void save_anyway(bool on) { save_anyway_ = on; }

    // Standard input can be read once: returns false, with a complaint, when it has been.
    bool claim_stdin();
    // Whether it can be: the same without claiming, for a terminal, which can be asked again.
    bool check_stdin();
    // Loads another tree; "-" is standard input. NULL after a complaint.
    set *load_other(const char *path);

    Exit complain(Exit result, const char *format, ...) KUTIL_PRINTF(3, 4);

    // The line of a script that is being run, for messages; NULL: none.
    void set_place(const char *script, size_t line)
    {
        script_ = script;
        line_ = line;
        column_ = 1;
    }
    void set_column(size_t column) { column_ = column; }

private:
    bool is_stream() const { return View(settings_.file) == "-"; }
    Exit lock();
    Exit load();
    Exit write_out(View text);
    Exit save(View text);

    Settings settings_;
    set *tree_ = nullptr;
    HeapText resolved_;
    kutil::common::FileLock lock_;
    kutil::common::FileText loaded_;
    bool to_change_ = false;
    bool created_ = false;
    bool rewrite_ = false;
    bool dos_ = false;
    bool save_anyway_ = false;
    bool stdin_claimed_ = false;
    const char *script_ = nullptr;
    size_t line_ = 0;
    size_t column_ = 1;
};

} // namespace zconf

#endif
