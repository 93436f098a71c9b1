#ifndef MGMTD_PRIVACY_H
#define MGMTD_PRIVACY_H

// Who may see and do what: secrets, the rights of a user's role, the keys that a role hides. All paths are
// normal (http_path.h).

#include "base.h"
#include "common/secrets.h"

namespace mgmtd
{

// Paths, owned.
class PathList
{
public:
    using Kind = kutil::common::Secret;
    PathList() = default;
    PathList(const PathList &) = delete;
    PathList &operator=(const PathList &) = delete;
    ~PathList() { clear(); }

    void clear();
    // Takes over `path`, unless it is in the list or NULL.
    void add(char *path, Kind kind = Kind::none);
    size_t count() const { return count_; }
    View path(size_t i) const { return items_.get()[i].path; }
    const char *c_path(size_t i) const { return items_.get()[i].path; }
    Kind kind(size_t i) const { return items_.get()[i].kind; }
    // The number of the path itself, or -1.
    int find(View path) const;
    // The number of a path that is `path` or leads to it, or -1.
    int covering(View path) const;
    bool covers(View path) const { return covering(path) >= 0; }
    // One of the paths is strictly below `path`.
    bool reaches_below(View path) const;

private:
    struct Item {
        char *path;
        Kind kind;
    };
    kutil::Heap<Item> items_;
    size_t count_ = 0;
    size_t capacity_ = 0;
};

// All the nodes at one path: a name may be repeated among brothers.
class NodeList
{
public:
    // Replaces what was there by the nodes at the normal path below `top`, which is at "".
    void find(set *top, View path);
    size_t count() const { return count_; }
    set *node(size_t i) const { return nodes_.get()[i]; }

private:
    void add(set *node);
    kutil::Heap<set *> nodes_;
    size_t count_ = 0;
    size_t capacity_ = 0;
};

// Adds the secrets of the tree: those that "encryption/obscured_params" lists and the configuration's keys.
void add_secrets(set **tree, PathList *list);

// What a user may do. The keys that the role hides are, for this user, not there.
struct Rights {
    bool read = false;
    bool write = false;
    bool commit = false;
    PathList hidden;
};

// The rights that the tree's "admin" gives the user: those of the role "admin/role/ROLE"; none for an unknown
// user and a role that is not there.
void read_rights(set **tree, const char *user, Rights *rights);

// The user's password, a new text to be cleared and freed; NULL for a user who is unknown, not enabled, or
// has none.
char *read_password(set **tree, const char *user);

// The handle of the user's key below "admin/user", or NULL.
set **find_user(set **tree, const char *user);

// The realm of logins, printable and without quotes.
const char *read_realm(set **tree);

// A copy of the node at `path` as it may be shown: secrets masked, what is hidden left out. For the caller to
// free. NULL when it is not there, hidden, or no key.
set *copy_shown(set **tree, View path, const PathList &secrets, const PathList &hidden);

// The node at `path` if it is a key: a value's node is none. NULL when it is not there.
set **find_key(set **tree, const char *path);

} // namespace mgmtd

#endif
