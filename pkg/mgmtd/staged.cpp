#include "staged.h"

#include "common/strict_load.h"
#include "common/tree_diff.h"
#include "common/tree_line.h"
#include "http_path.h"
#include "json.h"
#include "stats.h"
#include "util/conf_key.h"
#include "util/date.h"
#include "util/set_mask.h"
#include "util/set_text.h"
#include "util/set_value.h"

#include <algorithm>
#include <utility>

namespace mgmtd
{

using kutil::common::Problem;
using kutil::common::Secret;
using kutil::common::value_leaf;

namespace
{

void free_tree(set **tree)
{
    while (*tree && set_free(tree)) {
    }
}

constexpr size_t kMaxListing = 16 * 1024 * 1024;

// The place of the last "/" between names of a normal path; npos without one.
size_t last_slash(View path)
{
    for (size_t i = path.size(); i-- > 0;) {
        size_t slashes = 0;
        while (slashes < i && path[i - 1 - slashes] == '\\')
            slashes++;
        if (path[i] == '/' && slashes % 2 == 0)
            return i;
    }
    return View::npos;
}

// How long the lines of a tree are, each with `front` bytes before it.
size_t listed_size(set **tree, size_t front)
{
    struct {
        size_t bytes;
        size_t front;
    } sum = {0, front};
    kutil::common::tree_list(
        tree,
        [](void *context, const char *, size_t length) {
            auto *const self = static_cast<decltype(sum) *>(context);
            self->bytes += self->front + length + 1;
        },
        &sum);
    return sum.bytes;
}

void append_line(void *context, const char *line, size_t length)
{
    TextBuilder *out = static_cast<TextBuilder *>(context);
    out->append(View(line, length));
    out->append('\n');
}

// Lines of a difference, as somebody may see them.
struct DiffFilter {
    TextBuilder *out;
    const PathList *secrets;
    const PathList *hidden;
};

void filter_line(void *context, const char *line, size_t length)
{
    DiffFilter *filter = static_cast<DiffFilter *>(context);
    kutil::common::TreeLine parts;
    size_t offset;
    if (kutil::common::tree_line_read(line + 2, length - 2, &parts, &offset))
        return;
    const HeapText path(normal_path(parts.path));
    if (!path || filter->hidden->covers(path.get()))
        return;
    const int secret = filter->secrets->covering(path.get());
    if (secret < 0 || (!parts.value && filter->secrets->find(path.get()) >= 0)) {
        append_line(filter->out, line, length);
        return;
    }
    // The names below a secret are a part of it.
    kutil::common::TreeLineWriter writer(append_line, filter->out);
    writer.start(View(line, 2));
    for_each_name(
        filter->secrets->path(static_cast<size_t>(secret)),
        [](void *to, View name) {
            static_cast<kutil::common::TreeLineWriter *>(to)->add_name(
                HeapText(kutil::copy_text(name)).get());
        },
        &writer);
    writer.emit_value(kMask.data());
}

} // namespace

Staged::~Staged()
{
    free_tree(&candidate_);
    free_tree(&running_);
}

void Staged::load(set *tree, bool dos)
{
    const auto ignore = [](void *, const char *, size_t) {};
    running_changed_ =
        running_changed_ || (candidate_ && kutil::common::tree_diff(&running_, &tree, ignore, nullptr) > 0);
    free_tree(&running_);
    running_ = tree;
    dos_ = dos;
    set_clear_changed(running_);
    zel_conf_crypt_key_load(&running_);
    secrets_known_ = changes_known_ = false;
}

const PathList &Staged::secrets()
{
    if (secrets_known_)
        return secrets_;
    secrets_.clear();
    add_secrets(&running_, &secrets_);
    if (candidate_)
        add_secrets(&candidate_, &secrets_);
    secrets_known_ = true;
    return secrets_;
}

size_t Staged::compare(kutil::common::LineSink sink, void *context)
{
    const auto marks = running_changed_ ? kutil::common::Marks::ignored : kutil::common::Marks::trusted;
    return candidate_ ? kutil::common::tree_diff(&running_, &candidate_, sink, context, marks) : 0;
}

size_t Staged::changes()
{
    if (!changes_known_)
        changes_ = compare([](void *, const char *, size_t) {}, nullptr);
    changes_known_ = true;
    return changes_;
}

bool Staged::get(const Who &who, bool candidate, View path, Format format, Outcome *out)
{
    if (!who.rights->read)
        return out->fail(403, "your role may not read");
    set *copy = copy_shown(candidate ? current() : &running_, path, secrets(), who.rights->hidden);
    if (!copy)
        return out->fail(404, "there is no such key");
    if (format == Format::json) {
        write_json(copy, &out->text);
        out->text.append('\n');
    } else if (format == Format::lines) {
        // The lines' paths start at the top of the configuration, so the copy is put under its parents again.
        set *top = set_alloc("top");
        if (path.empty()) {
            kutil::common::tree_list(&copy, append_line, &out->text);
        } else {
            const HeapText place(kutil::copy_text(path));
            set **node = set_set(&top, place.get());
            set_replace(node, &copy);
            kutil::common::tree_list(&top, append_line, &out->text);
        }
        free_tree(&top);
    } else if (format == Format::value) {
        const set *leaf = path.empty() ? nullptr : value_leaf(copy);
        if (leaf)
            out->text.append(leaf->value);
        else
            out->fail(404, "the key holds no value");
    } else {
        const HeapText text(set_write_alloc(&copy));
        out->text.append(kutil::view(text.get()));
    }
    free_tree(&copy);
    return out->status == 200;
}

bool Staged::diff(const Who &who, Outcome *out)
{
    if (!who.rights->read)
        return out->fail(403, "your role may not read");
    DiffFilter filter = {&out->text, &secrets(), &who.rights->hidden};
    compare(filter_line, &filter);
    return true;
}

// --- Whether an edit may be.

bool Staged::check_change(const Who &who, Outcome *out) const
{
    if (read_only_)
        return out->fail(403, "the daemon was started with --readonly");
    if (!who.rights->write)
        return out->fail(403, "your role may not change anything");
    return true;
}

bool Staged::check_path(const Who &who, View path, Access access, Outcome *out)
{
    const PathList &hidden = who.rights->hidden;
    if (hidden.covers(path) || (access == Access::whole && hidden.reaches_below(path)))
        return out->fail(403, "your role may not change this key");
    const int secret = secrets().find(path);
    if (secrets().covers(path) && (secret < 0 || access == Access::whole))
        return secret < 0 ? out->fail(404, "there is no such key") : true;
    if (secret >= 0 && secrets().kind(static_cast<size_t>(secret)) == Secret::key)
        return out->fail(403, "the configuration's keys are not changed here");
    return true;
}

bool Staged::check_owner(const Who &who, bool force, Outcome *out) const
{
    if (!candidate_ || force || View(owner_user_.get()) == who.user)
        return true;
    return out->fail(409, "%s is changing the configuration, from %s since %s; force=1 takes over",
                     shown(owner_user_.get()), owner_address_.get(), date_time2sql(owner_since_, 1));
}

// What is put at `path` may not turn a value above it into a key.
bool Staged::check_place(const char *path, Outcome *out)
{
    const View whole(path);
    HeapText above(kutil::copy_text(whole));
    for (size_t end; (end = last_slash(above.get())) != View::npos;) {
        above.get()[end] = '\0';
        set **node = set_get(current(), above.get());
        if (node && value_leaf(*node))
            return out->fail(422, "%s holds a value, so it takes no keys", shown(above.get()));
    }
    return true;
}

void Staged::begin(const Who &who)
{
    if (!candidate_) {
        candidate_ = set_dup(&running_); // so the secrets of both are the same
        set_clear_changed(candidate_);
        owner_since_ = time(nullptr);
        running_changed_ = false;
    }
    if (!owner_user_ || View(owner_user_.get()) != who.user) {
        owner_user_.reset(kutil::copy_text(who.user));
        owner_address_.reset(kutil::copy_text(who.address));
        owner_since_ = time(nullptr);
    }
    changes_known_ = false;
}

void Staged::say_changes(Outcome *out)
{
    out->print("%zu change%s not committed\n", changes(), changes() == 1 ? "" : "s");
}

void Staged::drop_candidate()
{
    free_tree(&candidate_);
    owner_user_.reset();
    owner_address_.reset();
    running_changed_ = false;
    changes_known_ = secrets_known_ = false;
}

void Staged::forget(set *kept) { free_tree(&kept); }

void Staged::roll_back(set *kept)
{
    if (!kept) {
        drop_candidate();
        return;
    }
    std::swap(candidate_, kept);
    forget(kept);
    changes_known_ = secrets_known_ = false;
}

// --- Edits.

// Stores a value where a secret is kept obscured.
bool Staged::store(const char *path, View value, Outcome *out)
{
    const HeapText text(kutil::copy_text(value));
    const int secret = secrets().find(path);
    if (secret < 0) {
        set_set_path_str(&candidate_, path, text.get());
        return true;
    }
    if (value == kMask)
        return true;
    if (secrets().kind(static_cast<size_t>(secret)) == Secret::text) {
        if (set_set_path_obscured(&candidate_, path, text.get()) != 0)
            return out->fail(507, "there is no key to obscure the secret with");
        return true;
    }
    const size_t length = value.size() / 2;
    const HeapText bytes(kutil::new_text(length));
    for (size_t i = 0; i < length; i++)
        bytes.get()[i] =
            static_cast<char>(kutil::xdigit_value(value[2 * i]) * 16 + kutil::xdigit_value(value[2 * i + 1]));
    set_set_path_bin_obscured(&candidate_, path, static_cast<int>(length), bytes.get());
    return true;
}

bool Staged::edit_value(const Who &who, View path, View value, bool force, Outcome *out)
{
    const HeapText place(kutil::copy_text(path));
    if (path.empty())
        return out->fail(422, "the configuration itself takes no value");
    if (value.find('\0') != View::npos)
        return out->fail(400, "a value has no NUL");
    if (!check_change(who, out) || !check_path(who, path, Access::value, out) ||
        !check_owner(who, force, out) || !check_place(place.get(), out))
        return false;
    set **node = find_key(current(), place.get());
    if (node && (*node)->sons && !value_leaf(*node))
        return out->fail(422, "%s holds keys, which a value would replace", shown(path));
    const int secret = secrets().find(path);
    if (secret >= 0 && secrets().kind(static_cast<size_t>(secret)) == Secret::bytes && value != kMask &&
        (value.size() % 2 != 0 || !std::ranges::all_of(value, kutil::is_xdigit)))
        return out->fail(422, "%s holds bytes: two hexadecimal digits each", shown(path));
    begin(who);
    if (!store(place.get(), value, out))
        return false;
    if (is_at_or_below(path, "encryption"))
        secrets_known_ = false;
    return true;
}

bool Staged::set_value(const Who &who, View path, View value, bool force, Outcome *out)
{
    const bool done = edit_value(who, path, value, force, out);
    if (done)
        say_changes(out);
    return done;
}

// The secrets of a tree that is to replace the key at `top`: those that stand masked get what is stored, the
// others are obscured.
bool Staged::merge_secrets(set **tree, View top, Outcome *out)
{
    PathList list;
    add_secrets(&running_, &list);
    add_secrets(current(), &list);
    if (top.empty())
        add_secrets(tree, &list);
    for (size_t i = 0; i < list.count(); i++) {
        if (!is_at_or_below(list.path(i), top))
            continue;
        const char *rest = list.c_path(i) + top.size();
        set **node = set_get(tree, rest);
        const set *leaf = node ? value_leaf(*node) : nullptr;
        const char *stored = set_get_path_str(current(), list.c_path(i));
        const bool keep = list.kind(i) == Secret::key || (leaf && kMask == leaf->value);
        NodeList nodes; // a repeated name is of the same path
        nodes.find(*tree, path_below(list.path(i), top));
        if (nodes.count() > 1 || (node && (*node)->sons && !leaf))
            return out->fail(422, "%s is a secret and holds one value", shown(list.path(i)));
        if (keep && stored && (node || list.kind(i) == Secret::key)) {
            set_set_path_str(tree, rest, stored);
        } else if (keep && node) {
            set_free_sons(node);
        } else if (leaf && list.kind(i) == Secret::text) {
            const HeapText value(kutil::copy_text(leaf->value));
            if (set_set_path_obscured(tree, rest, value.get()) != 0)
                return out->fail(507, "there is no key to obscure the secret with");
        } else if (leaf) {
            return out->fail(422, "%s holds secret bytes: set it by itself", shown(list.path(i)));
        }
    }
    return true;
}

bool Staged::set_tree(const Who &who, View path, View text, bool force, Outcome *out)
{
    const HeapText place(kutil::copy_text(path));
    if (!check_change(who, out) || !check_path(who, path, Access::whole, out) ||
        !check_owner(who, force, out) || !check_place(place.get(), out))
        return false;
    Problem problem;
    const HeapText body(kutil::copy_text(text)); // reading needs its NUL
    set *tree = kutil::common::strict_read("the body", View(body.get(), text.size()), &problem);
    if (!tree)
        return out->fail(400, "%s", problem.text());
    TextBuilder name;
    const size_t slash = last_slash(path);
    append_tree_name(&name, tree->value);
    const View wanted = path.empty() ? View(running_->value) : kutil::sub(path, slash + 1);
    bool fits = path.empty() ? wanted == tree->value : wanted == name.text();
    if (!fits)
        out->fail(400, "the top node of the text does not have the name of the key");
    // Long names above many keys make a short text a long listing.
    if (fits && listed_size(current(), 0) + listed_size(&tree, path.size()) > kMaxListing)
        fits = out->fail(422, "the configuration's lines would be longer than 16 MB together");
    fits = fits && merge_secrets(&tree, path, out);
    if (fits) {
        begin(who);
        if (path.empty()) {
            std::swap(candidate_, tree);
        } else {
            set_set(&candidate_, place.get());
            set_replace(set_get(&candidate_, place.get()), &tree);
        }
        secrets_known_ = false;
        say_changes(out);
    }
    free_tree(&tree);
    return fits;
}

bool Staged::remove(const Who &who, View path, bool force, Outcome *out)
{
    const HeapText place(kutil::copy_text(path));
    if (path.empty())
        return out->fail(422, "the configuration itself cannot be deleted");
    if (!check_change(who, out) || !check_path(who, path, Access::whole, out) ||
        !check_owner(who, force, out))
        return false;
    if (is_at_or_below("manufacturer/zel_conf", path) || is_at_or_below(path, "manufacturer/zel_conf"))
        return out->fail(403, "the configuration's keys are not changed here");
    if (!find_key(current(), place.get()))
        return out->fail(404, "there is no such key");
    begin(who);
    set_free(set_get(&candidate_, place.get()));
    secrets_known_ = false;
    say_changes(out);
    return true;
}

bool Staged::add_entry(const Who &who, View path, bool force, Outcome *out)
{
    const HeapText place(kutil::copy_text(path));
    if (path.empty())
        return out->fail(422, "the configuration itself is no list");
    if (!check_change(who, out) || !check_path(who, path, Access::value, out) ||
        !check_owner(who, force, out) || !check_place(place.get(), out))
        return false;
    set **list = find_key(current(), place.get());
    for (set **son = list ? set_get_son(list, 0) : nullptr; son; son = set_get_next(son)) {
        const View name = (*son)->value;
        if (name.size() > 9 || name.empty() || !std::ranges::all_of(name, kutil::is_digit) ||
            value_leaf(*list) == *son)
            return out->fail(422, "%s is no list: it holds other things than numbered entries", shown(path));
    }
    begin(who);
    set **entry = set_index_add(set_set(&candidate_, place.get()), -1);
    if (!entry)
        return out->fail(422, "the list takes no more entries");
    out->status = 201;
    const HeapText made(kutil::common::tree_path_write(entry));
    out->print("%s\n", made.get());
    changes_known_ = secrets_known_ = false;
    return true;
}

// --- Commit and revert.

bool Staged::save(set **tree, Problem *problem)
{
    const HeapText text(dos_ ? set_write_alloc_dos(tree) : set_write_alloc(tree));
    size_t fault = 0;
    if (!text || set_read_check(text.get(), strlen(text.get()), &fault) != 0)
        return problem->set("the configuration has too many levels or is too large");
    const double begun_ms = monotonic_ms();
    const bool saved = save_(save_context_, text.get(), problem);
    last_save_ms_ = monotonic_ms() - begun_ms;
    longest_save_ms_ = std::max(longest_save_ms_, last_save_ms_);
    return saved;
}

bool Staged::commit(const Who &who, bool force, Outcome *out)
{
    if (!check_change(who, out))
        return false;
    if (!who.rights->commit)
        return out->fail(403, "your role may not commit");
    if (!check_owner(who, force, out))
        return false;
    if (changes() == 0) {
        drop_candidate();
        out->print("nothing to commit\n");
        return true;
    }
    if (running_changed_ && !force)
        return out->fail(409, "running changed since the candidate was made; force=1 commits it as it is");
    const size_t count = changes();
    Problem problem;
    if (!save(&candidate_, &problem))
        return out->fail(507, "not saved: %s", problem.text());
    set_switch_sets(&running_, &candidate_);
    set_clear_changed(running_);
    drop_candidate();
    zel_conf_crypt_key_load(&running_);
    commits_++;
    out->print("committed %zu change%s\n", count, count == 1 ? "" : "s");
    return true;
}

bool Staged::revert(const Who &who, bool force, Outcome *out)
{
    if (!check_change(who, out) || !check_owner(who, force, out))
        return false;
    const size_t count = changes();
    drop_candidate();
    out->print("reverted %zu change%s\n", count, count == 1 ? "" : "s");
    return true;
}

} // namespace mgmtd
