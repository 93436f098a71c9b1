// The commands that change the tree.

#include "commands.h"
#include "common/tree_line.h"
#include "common/tree_list.h"
#include "util/internal/number.h"
#include "util/internal/walk_stack.h"
#include "util/set_mask.h"

#include <cstdlib>

namespace zconf
{

using kutil::common::value_leaf;

namespace
{

Exit refuse_value(Session &session, const Args &args, const ValueType &type)
{
    kutil::TextBuilder known;
    for (const code_names *row = type.words(); row && row->code != -1; row++) {
        if (row->hidden || !row->names || !row->names[0])
            continue;
        known.append(known.empty() ? ": " : ", ");
        known.append(row->names[0]);
    }
    if (args.columns)
        session.set_column(args.columns[1]);
    return session.complain(kMisuse, "%s: not %s%s", typed(args.word(1)).get(), type.description(),
                            known.c_str());
}

} // namespace

Exit run_set(Session &session, const Args &args)
{
    const HeapText path = read_path(session, args, 0);
    if (!path)
        return kMisuse;
    if (is_top_path(path.get()))
        return session.complain(kMisuse, "\"%s\" names no key", typed(args.word(0)).get());
    ValueType type;
    if (const Exit read = args.type ? read_type(session, args.type, &type) : kDone; read != kDone)
        return read;
    if (const Exit lost = check_no_keys_lost(session, path.get()); lost != kDone)
        return lost;
    if (const Exit above = check_no_value_above(session, path.get()); above != kDone)
        return above;
    if (args.type && type.is_secret())
        return set_secret(session, args, path.get(), type);
    const HeapText value(args.type ? type.to_stored(args.word(1)) : HeapText(kutil::copy_text(args.word(1))));
    if (!value)
        return refuse_value(session, args, type);
    const Exit clear = check_not_in_clear(session, path.get(), value.get());
    if (clear == kDone)
        set_set_path_str(session.tree(), path.get(), value.get());
    return clear;
}

Exit run_del(Session &session, const Args &args)
{
    const HeapText path = read_path(session, args, 0);
    if (!path)
        return kMisuse;
    if (is_top_path(path.get()))
        return session.complain(kMisuse, "\"%s\" names no key", typed(args.word(0)).get());
    set **key = set_get(session.tree(), path.get());
    if (!key)
        return session.complain(kNo, "%s: no such key", shown(path.get()).get());
    set_free(key);
    return kDone;
}

namespace
{

// The number that a list entry's name is, -1 when it is none in the form that the tree writes.
int32_t entry_number(const char *name)
{
    const char *end = nullptr;
    const int32_t number = kutil::parse_i32(name, &end);
    const bool plain = kutil::is_digit(*name) && !*end && (*name != '0' || !name[1]);
    return plain && number < INT32_MAX ? number : -1; // the greatest has no successor
}

// The number for a new last entry, -1 when not every son is an entry.
int32_t next_number(set **list)
{
    int32_t next = 0;
    for (set **son = set_get_son(list, 0); son; son = set_get_next(son)) {
        const int32_t number = entry_number((*son)->value);
        if (number < 0)
            return -1;
        next = number >= next ? number + 1 : next;
    }
    return next;
}

} // namespace

Exit run_add(Session &session, const Args &args)
{
    const HeapText path = read_path(session, args, 0);
    if (!path)
        return kMisuse;
    if (const Exit above = check_no_value_above(session, path.get()); above != kDone)
        return above;
    set **list = set_get(session.tree(), path.get());
    const int32_t number = list ? next_number(list) : 0;
    if (number < 0)
        return session.complain(kNo, "%s: not a list, since not all its names are numbers",
                                shown(path.get()).get());
    // A list with one entry that is still empty looks like a key that holds a number.
    const set *value = list ? value_leaf(*list) : nullptr;
    if (value && strcmp(value->value, "0") != 0 && !session.force())
        return session.complain(kNo, "%s: holds the value %s (--force takes that as an entry)",
                                shown(path.get()).get(), shown(value->value).get());
    list = set_set(session.tree(), path.get());
    set **entry = set_index_add(list, number);
    const HeapText entry_path(kutil::common::tree_path_write(entry));
    fprintf(session.out(), "%s\n", entry_path.get());
    return kDone;
}

namespace
{

// Two nodes that a merge joins.
struct Pair {
    set *to;
    set *from;
};

// Complains about every key that holds a value in one tree and keys in the other. A merge passes those over.
size_t complain_of_conflicts(Session &session, const Pair &top, const char *source)
{
    size_t conflicts = 0;
    kutil::WalkStack<Pair> pairs; // all of them, those above first
    pairs.push(top);
    for (size_t i = 0; i < pairs.size(); i++) {
        Pair pair = pairs[i];
        if (!pair.to->sons || !pair.from->sons)
            continue;
        const bool is_value = value_leaf(pair.to) != nullptr;
        const bool gets_value = value_leaf(pair.from) != nullptr;
        if (is_value != gets_value) {
            const HeapText path(kutil::common::tree_path_write(&pair.to));
            session.complain(kNo, "conflict: %s: holds %s here and %s in %s", path.get(),
                             is_value ? "a value" : "keys", gets_value ? "a value" : "keys", source);
            conflicts++;
        } else if (!is_value) {
            for (set **son = set_get_son(&pair.from, 0); son; son = set_get_next(son)) {
                for (set **other = set_get_son(&pair.to, 0); other; other = set_get_next(other)) {
                    if (strcmp((*other)->value, (*son)->value) == 0) {
                        pairs.push({*other, *son});
                        break;
                    }
                }
            }
        }
    }
    return conflicts;
}

// Another tree, and what of both is to be brought together.
class Source
{
public:
    ~Source() { set_free(&tree_); }

    // Loads the tree that word 0 names and finds in it what word 1 names.
    Exit open(Session &session, const Args &args)
    {
        tree_ = session.load_other(args.word(0));
        path_ = tree_ ? read_path(session, args, 1) : nullptr;
        if (!path_)
            return kMisuse;
        place = set_get(&tree_, path_.get());
        if (!place)
            return session.complain(kNo, "%s: %s: no such key", args.word(0), shown(path_.get()).get());
        const bool same = strcmp((*session.tree())->value, tree_->value) == 0;
        if (!same && !session.force())
            return session.complain(kNo, "the top node is %s here and %s in %s (--force passes over that)",
                                    shown((*session.tree())->value).get(), shown(tree_->value).get(),
                                    args.word(0));
        return check_no_value_above(session, path_.get());
    }
    // The place in the session's tree, made where it is missing.
    set **target(Session &session) const { return set_set(session.tree(), path_.get()); }

    set **place = nullptr;

private:
    set *tree_ = nullptr;
    HeapText path_;
};

} // namespace

Exit run_merge(Session &session, const Args &args)
{
    Source source;
    if (const Exit opened = source.open(session, args); opened != kDone)
        return opened;
    set **target = source.target(session);
    const size_t conflicts = complain_of_conflicts(session, {*target, *source.place}, args.word(0));
    if (conflicts > 0 && !session.force())
        return session.complain(kNo, "nothing was merged (--force merges the rest)");
    const int merged = set_merge(target, source.place);
    if (merged == 0 && conflicts == 0)
        return kDone;
    session.save_anyway(true);
    return session.complain(kNo, "the rest was merged");
}

Exit run_replace(Session &session, const Args &args)
{
    Source source;
    if (const Exit opened = source.open(session, args); opened != kDone)
        return opened;
    set_replace(source.target(session), source.place);
    return kDone;
}

Exit run_format(Session &session, const Args &args)
{
    session.rewrite(args.dos);
    return kDone;
}

} // namespace zconf
