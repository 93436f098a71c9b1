#include "session.h"

#include "common/durable_save.h"
#include "util/set_text.h"

#include <cerrno>
#include <cstdarg>
#include <unistd.h>

namespace zconf
{

using kutil::common::Load;

namespace
{

// All top nodes of a text that was read.
void free_trees(set **tree)
{
    while (*tree && set_free(tree)) {
    }
}

} // namespace

Session::~Session() { free_trees(&tree_); }

Exit Session::complain(Exit result, const char *format, ...)
{
    fflush(stdout); // results and complaints keep their order where both go to one place
    fputs("zconf: ", stderr);
    if (script_)
        fprintf(stderr, "%s:%zu:%zu: ", script_, line_, column_);
    va_list ap;
    va_start(ap, format);
    vfprintf(stderr, format, ap);
    va_end(ap);
    fputc('\n', stderr);
    return result;
}

bool Session::check_stdin()
{
    if (stdin_claimed_)
        complain(kMisuse, "standard input can be read only once");
    return !stdin_claimed_;
}

bool Session::claim_stdin() { return check_stdin() && (stdin_claimed_ = true); }

Exit Session::lock()
{
    Problem problem;
    if (!settings_.create && access(settings_.file, F_OK) != 0 && errno == ENOENT)
        return kDone; // loading says so; there is nothing to lock
    resolved_.reset(kutil::common::resolve_file(settings_.file, &problem));
    if (!resolved_)
        return complain(kMisuse, "%s", problem.text());
    if (!lock_.take(resolved_.get(), &problem))
        return complain(kUnsaved, "%s", problem.text());
    return kDone;
}

Exit Session::load()
{
    Problem problem;
    Load loaded;
    if (is_stream()) {
        claim_stdin();
        loaded = file_text_read(STDIN_FILENO, file_name(), &loaded_, &problem) ? Load::done : Load::failed;
    } else {
        loaded = file_text_load(resolved_ ? resolved_.get() : settings_.file, &loaded_, &problem);
    }
    if (loaded == Load::missing && settings_.create) {
        created_ = true;
        tree_ = set_alloc(settings_.create);
        return kDone;
    }
    if (loaded == Load::missing)
        return complain(kMisuse, "%s (-c NAME makes a new one whose top node is NAME)", problem.text());
    if (loaded == Load::done)
        tree_ = strict_read(file_name(), loaded_.view(), &problem);
    if (!tree_)
        return complain(kMisuse, "%s", problem.text());
    dos_ = kutil::common::has_dos_line_ends(loaded_.view());
    set_clear_changed(tree_);
    return kDone;
}

Exit Session::open(bool to_change)
{
    to_change_ = to_change;
    const Exit locked = to_change && !is_stream() ? lock() : kDone;
    return locked == kDone ? load() : locked;
}

Exit Session::write_out(View text)
{
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0)
        return complain(kUnsaved, "standard output: %s", strerror(errno));
    return kDone;
}

Exit Session::save(View text)
{
    size_t fault = 0;
    if (set_read_check(text.data(), text.size(), &fault) != 0)
        return complain(
            kUnsaved, "%s: not saved: the tree would have more than 256 levels, or keys below an empty name",
            file_name());
    if (is_stream())
        return write_out(text);
    if (rewrite_ && !created_ && !set_changed_check(tree_) && text == loaded_.view())
        return kDone;
    Problem problem;
    const auto owner = force() ? kutil::common::Owner::may_change : kutil::common::Owner::must_keep;
    if (!durable_save(resolved_.get(), text, owner, &problem))
        return complain(kUnsaved, "%s", problem.text());
    return kDone;
}

Exit Session::close(Exit result)
{
    if (!to_change_ || (result != kDone && !save_anyway_))
        return result;
    if (!is_stream() && !created_ && !rewrite_ && !set_changed_check(tree_))
        return result;
    const HeapText text(dos_ ? set_write_alloc_dos(&tree_) : set_write_alloc(&tree_));
    if (!text)
        return complain(kUnsaved, "%s: not saved: the tree is too large", file_name());
    const Exit saved = save(text.get());
    return saved == kDone ? result : saved;
}

set *Session::load_other(const char *path)
{
    set *tree = nullptr;
    kutil::common::FileText text;
    Problem problem;
    if (View(path) == "-") {
        if (!claim_stdin())
            return nullptr;
        if (file_text_read(STDIN_FILENO, "standard input", &text, &problem))
            tree = strict_read("standard input", text.view(), &problem);
    } else if (strict_load(path, &tree, &text, &problem) != Load::done) {
        tree = nullptr;
    }
    if (!tree)
        complain(kMisuse, "%s", problem.text());
    return tree;
}

} // namespace zconf
