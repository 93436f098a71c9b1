// The commands that change nothing.

#include "batch.h"
#include "commands.h"
#include "common/tree_diff.h"
#include "common/tree_line.h"
#include "outline.h"

namespace zconf
{

namespace
{

// Finds the node that word `i` names. NULL after a complaint, with *result set.
set **find_node(Session &session, const Args &args, int i, Exit *result)
{
    *result = kMisuse;
    const HeapText path = read_path(session, args, i);
    if (!path)
        return nullptr;
    *result = kNo;
    set **node = set_get(session.tree(), path.get());
    if (!node)
        session.complain(kNo, "%s: no such key", shown(path.get()).get());
    return node;
}

void print_line(void *out, const char *line, size_t length)
{
    fwrite(line, 1, length, static_cast<FILE *>(out));
    putc('\n', static_cast<FILE *>(out));
}

// A leading slash adds nothing to a path, and keeps a line from being taken as a command when it is read
// back.
void print_listed_line(void *out, const char *line, size_t length)
{
    if (!is_listed_line(View(line, length)))
        putc('/', static_cast<FILE *>(out));
    print_line(out, line, length);
}

} // namespace

Exit run_get(Session &session, const Args &args)
{
    ValueType type;
    if (const Exit read = args.type ? read_type(session, args.type, &type) : kDone; read != kDone)
        return read;
    if (args.unmask && args.type && !type.is_secret())
        return session.complain(kMisuse, "--unmask: only --type secret and bin-secret go with it");
    Exit result;
    set **key = find_node(session, args, 0, &result);
    if (!key)
        return result;
    const set *leaf = kutil::common::value_leaf(*key);
    if (!leaf && set_get_nsons(key) > 0)
        return session.complain(kNo, "%s: holds %s and no value", typed(args.word(0)).get(),
                                KeyCount(key).text);
    if (!leaf)
        return session.complain(kNo, "%s: holds no value", typed(args.word(0)).get());
    if (args.unmask)
        return print_unmasked(session, read_path(session, args, 0).get(), args.type ? &type : nullptr);
    const HeapText text(args.type ? type.to_shown(leaf->value) : nullptr);
    if (args.type && !text)
        return session.complain(kNo, "%s: its value is not %s", typed(args.word(0)).get(),
                                type.description());
    const char *value = text ? text.get() : leaf->value;
    print_line(session.out(), value, strlen(value));
    return kDone;
}

Exit run_list(Session &session, const Args &args)
{
    Exit result;
    set **node = find_node(session, args, 0, &result);
    if (!node)
        return result;
    if (!kutil::common::tree_list(node, print_listed_line, session.out()))
        session.complain(
            kDone,
            "%s: some names are empty or stand twice among their brothers: these lines do not read "
            "back as the same tree",
            session.file_name());
    return kDone;
}

Exit run_print(Session &session, const Args &args)
{
    Exit result;
    set **node = find_node(session, args, 0, &result);
    if (!node)
        return result;
    print_outline(session.out(), node, args.depth);
    return kDone;
}

Exit run_diff(Session &session, const Args &args)
{
    set *other = session.load_other(args.word(0));
    if (!other)
        return kMisuse;
    const bool same_name = strcmp((*session.tree())->value, other->value) == 0;
    if (!same_name)
        session.complain(kNo, "the top node is %s here and %s in %s", shown((*session.tree())->value).get(),
                         shown(other->value).get(), args.word(0));
    const size_t lines = kutil::common::tree_diff(session.tree(), &other, print_line, session.out());
    set_free(&other);
    return lines == 0 && same_name ? kDone : kNo;
}

Exit run_validate(Session &session, const Args &)
{
    const bool unique = kutil::common::tree_list(
        session.tree(), [](void *, const char *, size_t) {}, nullptr);
    fprintf(session.out(), "%s: valid, %s\n", session.file_name(), KeyCount(session.tree()).text);
    if (!unique)
        session.complain(kDone,
                         "%s: some names are empty or stand twice among their brothers: paths do not reach "
                         "every key",
                         session.file_name());
    return kDone;
}

} // namespace zconf
