#include "privacy.h"

#include "common/tree_line.h"
#include "http_path.h"
#include "util/set_value.h"

#include <algorithm>

namespace mgmtd
{

using kutil::sub;

void PathList::clear()
{
    for (size_t i = 0; i < count_; i++)
        free(items_.get()[i].path);
    items_.reset();
    count_ = capacity_ = 0;
}

void PathList::add(char *path, Kind kind)
{
    if (!path || find(path) >= 0) {
        free(path);
        return;
    }
    if (count_ == capacity_) {
        capacity_ = capacity_ ? capacity_ * 2 : 16;
        items_.reset(kutil::grow_array(items_.release(), capacity_));
    }
    items_.get()[count_++] = {path, kind};
}

int PathList::find(View path) const
{
    for (size_t i = 0; i < count_; i++) {
        if (path == items_.get()[i].path)
            return static_cast<int>(i);
    }
    return -1;
}

int PathList::covering(View path) const
{
    for (size_t i = 0; i < count_; i++) {
        if (is_at_or_below(path, this->path(i)))
            return static_cast<int>(i);
    }
    return -1;
}

bool PathList::reaches_below(View path) const
{
    for (size_t i = 0; i < count_; i++) {
        if (is_at_or_below(this->path(i), path) && this->path(i).size() > path.size())
            return true;
    }
    return false;
}

void add_secrets(set **tree, PathList *list)
{
    const auto add = [](void *context, const char *path, PathList::Kind kind) {
        static_cast<PathList *>(context)->add(kutil::copy_text(path), kind);
    };
    kutil::common::for_each_secret(tree, add, list);
}

set **find_user(set **tree, const char *user)
{
    set **users = set_get(tree, "admin/user");
    for (set **entry = set_get_son(users, 0); entry; entry = set_get_next(entry)) {
        if (View(user) == set_get_path_strz(entry, "username") && *user)
            return set_get_path_flag(entry, "enabled") ? entry : nullptr;
    }
    return nullptr;
}

char *read_password(set **tree, const char *user)
{
    set **entry = find_user(tree, user);
    if (!entry || !set_get_path_str(entry, "password"))
        return nullptr;
    HeapText password(set_get_path_unobscured(entry, "password"));
    return password && *password ? password.release() : nullptr;
}

void read_rights(set **tree, const char *user, Rights *rights)
{
    set **entry = find_user(tree, user);
    const char *role = set_get_path_strz(entry, "role");
    set **roles = set_get(tree, "admin/role");
    for (set **son = set_get_son(roles, 0); son && *role; son = set_get_next(son)) {
        if (View(role) != set_get_value(son))
            continue;
        rights->read = set_get_path_flag(son, "read") != 0;
        rights->write = rights->read && set_get_path_flag(son, "write") != 0;
        rights->commit = rights->write && set_get_path_flag(son, "commit") != 0;
        View names = set_get_path_strz(son, "hide");
        while (!(names = kutil::trim_left(names)).empty()) {
            const size_t end = std::min(names.find(' '), names.size());
            const HeapText name(kutil::copy_text(sub(names, 0, end)));
            rights->hidden.add(normal_path(name.get()));
            names = sub(names, end);
        }
        return;
    }
}

const char *read_realm(set **tree)
{
    const char *realm = set_get_path_strz(tree, "admin/realm");
    const auto is_bad = [](char c) { return !kutil::is_print(c) || c == '"' || c == '\\'; };
    return *realm && std::ranges::none_of(View(realm), is_bad) ? realm : "Gateway";
}

set **find_key(set **tree, const char *path)
{
    set **handle = set_get(tree, path);
    if (!handle)
        return nullptr;
    set *const node = *handle;
    if (!node->parent || !node->parent->parent)
        return handle;
    return kutil::common::value_leaf(node->parent) == node ? nullptr : handle;
}

namespace
{

// The handle of a node that has a parent.
set **handle_of(set *node)
{
    set **handle = &node->parent->sons;
    while (*handle != node)
        handle = &(*handle)->next;
    return handle;
}

} // namespace

void NodeList::add(set *node)
{
    if (count_ == capacity_) {
        capacity_ = capacity_ ? capacity_ * 2 : 4;
        nodes_.reset(kutil::grow_array(nodes_.release(), capacity_));
    }
    nodes_.get()[count_++] = node;
}

void NodeList::find(set *top, View path)
{
    count_ = 0;
    add(top);
    for_each_name(
        path,
        [](void *context, View name) {
            NodeList *self = static_cast<NodeList *>(context);
            NodeList below;
            for (size_t i = 0; i < self->count_; i++) {
                for (set *son = self->node(i)->sons; son; son = son->next) {
                    if (name == son->value)
                        below.add(son);
                }
            }
            std::swap(self->nodes_, below.nodes_);
            self->count_ = below.count_;
            self->capacity_ = below.capacity_;
        },
        this);
}

set *copy_shown(set **tree, View path, const PathList &secrets, const PathList &hidden)
{
    if (hidden.covers(path) || (secrets.covers(path) && secrets.find(path) < 0))
        return nullptr;
    const HeapText top(kutil::copy_text(path));
    set *copy = set_dup(find_key(tree, top.get()));
    if (!copy)
        return nullptr;
    NodeList nodes;
    const auto find = [&](const PathList &list, size_t i) {
        const bool below = is_at_or_below(list.path(i), path);
        if (below)
            nodes.find(copy, path_below(list.path(i), path));
        return below;
    };
    for (size_t i = 0; i < hidden.count(); i++) {
        for (size_t n = find(hidden, i) ? nodes.count() : 0; n-- > 0;) {
            if (nodes.node(n) != copy)
                set_free(handle_of(nodes.node(n)));
        }
    }
    for (size_t i = 0; i < secrets.count(); i++) {
        for (size_t n = find(secrets, i) ? nodes.count() : 0; n-- > 0;) {
            set *node = nodes.node(n);
            if (node->sons)
                set_set_path_str(&node, "", kMask.data());
        }
    }
    return copy;
}

} // namespace mgmtd
