#ifndef MGMTD_STAGED_H
#define MGMTD_STAGED_H

// Staged editing: the running configuration, and at most one candidate, a tree of its own, that is edited and
// then committed or reverted whole. docs/adr has why they are two trees. No handle into a tree outlives a
// call here. All paths are normal (http_path.h).

#include "common/durable_save.h"
#include "common/tree_list.h"
#include "outcome.h"
#include "privacy.h"

#include <ctime>

namespace mgmtd
{

// Who asks. The texts are the caller's.
struct Who {
    const char *user = "";
    const char *address = "";
    const Rights *rights = nullptr;
};

// Saves a text where the configuration lives; false with a problem when that fails, and the old text stays.
using SaveText = bool (*)(void *context, View text, kutil::common::Problem *problem);

enum class Format { text, lines, json, value };

class Staged
{
public:
    Staged(SaveText save_text, void *context) : save_(save_text), save_context_(context) {}
    ~Staged();
    Staged(const Staged &) = delete;
    Staged &operator=(const Staged &) = delete;

    // Takes over the tree that was loaded, with the line ends that it is saved with. A candidate stays, and
    // its commit is refused once unless the trees are the same.
    void load(set *tree, bool dos);
    // Refuses every change.
    void set_read_only(bool on) { read_only_ = on; }
    bool read_only() const { return read_only_; }

    set **running() { return &running_; }
    bool has_candidate() const { return candidate_ != nullptr; }
    // The candidate, or the running tree when there is none.
    set **current() { return candidate_ ? &candidate_ : &running_; }
    const PathList &secrets();
    const char *owner_user() const { return owner_user_.get(); }
    const char *owner_address() const { return owner_address_.get(); }
    time_t owner_since() const { return owner_since_; }
    // The number of lines that the candidate's difference has.
    size_t changes();

    // Writes the key at `path` as `who` may see it.
    bool get(const Who &who, bool candidate, View path, Format format, Outcome *out);
    // The lines of tree_diff.h from running to candidate, secrets masked.
    bool diff(const Who &who, Outcome *out);

    // --- Edits, of the candidate, which the first one makes. Each says in a line what came of it. Refused
    // when somebody else's candidate is there, unless `force`, which takes it over.

    bool set_value(const Who &who, View path, View value, bool force, Outcome *out);
    // The same without a word about what came of it: of several, the last is followed by say_changes.
    bool edit_value(const Who &who, View path, View value, bool force, Outcome *out);
    void say_changes(Outcome *out);
    // Replaces the key, or makes it, by the tree of `text`, whose top node has the key's name.
    bool set_tree(const Who &who, View path, View text, bool force, Outcome *out);
    bool remove(const Who &who, View path, bool force, Outcome *out);
    // Adds an entry to an index list, and writes its path, with a line end, to out.
    bool add_entry(const Who &who, View path, bool force, Outcome *out);

    // What several edits are made between: the candidate as it is, NULL without one; roll_back takes it over
    // and makes it the candidate again, forget frees it.
    set *keep() { return candidate_ ? set_dup(&candidate_) : nullptr; }
    void roll_back(set *kept);
    static void forget(set *kept);

    bool commit(const Who &who, bool force, Outcome *out);
    bool revert(const Who &who, bool force, Outcome *out);

    // Saves a tree, with the line ends that the file had.
    bool save(set **tree, kutil::common::Problem *problem);
    // How long the last and the longest save took.
    double last_save_ms() const { return last_save_ms_; }
    double longest_save_ms() const { return longest_save_ms_; }
    unsigned commits() const { return commits_; }

private:
    enum class Access { value, whole };

    bool check_change(const Who &who, Outcome *out) const;
    bool check_path(const Who &who, View path, Access access, Outcome *out);
    bool check_owner(const Who &who, bool force, Outcome *out) const;
    bool check_place(const char *path, Outcome *out);
    void begin(const Who &who);
    size_t compare(kutil::common::LineSink sink, void *context);
    void drop_candidate();
    bool store(const char *path, View value, Outcome *out);
    bool merge_secrets(set **tree, View top, Outcome *out);

    set *running_ = nullptr;
    set *candidate_ = nullptr;
    PathList secrets_;
    bool secrets_known_ = false;
    HeapText owner_user_;
    HeapText owner_address_;
    time_t owner_since_ = 0;
    bool running_changed_ = false; // since the candidate was made, by other means than a commit
    bool changes_known_ = false;
    size_t changes_ = 0;
    bool dos_ = false;
    bool read_only_ = false;
    double last_save_ms_ = 0;
    double longest_save_ms_ = 0;
    unsigned commits_ = 0;
    SaveText save_;
    void *save_context_;
};

} // namespace mgmtd

#endif
