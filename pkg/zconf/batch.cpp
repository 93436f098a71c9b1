#include "batch.h"

#include "commands.h"
#include "common/tree_list.h"
#include "shell_words.h"

#include <unistd.h>

namespace zconf
{

namespace
{

enum class LineKind { skipped, command, listed };

View without_indent(View line)
{
    while (!line.empty() && kutil::is_blank(line.front()))
        line.remove_prefix(1);
    return line;
}

LineKind kind_of(View line)
{
    const View text = without_indent(line);
    if (text.empty() || text.front() == '#')
        return LineKind::skipped;
    size_t end = 0;
    while (end < text.size() && !kutil::is_blank(text[end]))
        end++;
    return find_command(kutil::sub(text, 0, end)) ? LineKind::command : LineKind::listed;
}

Exit complain_at(Session &session, size_t offset, const char *fault)
{
    session.set_column(offset + 1);
    return session.complain(kMisuse, "%s", fault);
}

Exit run_command_line(Session &session, View line)
{
    ShellWords words;
    size_t offset = 0;
    if (const char *fault = words.split(line, &offset))
        return complain_at(session, offset, fault);
    session.set_column(words.columns()[0]);
    const Command *command = find_command(words.words()[0]);
    if (!command->in_batch)
        return session.complain(kMisuse, "%s: not possible in a script", command->name);
    return run_words(session, *command, words.words(), words.columns(), words.count());
}

Exit run_listed_line(Session &session, View line)
{
    const View text = without_indent(line);
    const size_t indent = line.size() - text.size();
    kutil::common::TreeLine key;
    size_t offset = 0;
    if (const char *fault = tree_line_read(text.data(), text.size(), &key, &offset))
        return complain_at(session, indent + offset,
                           offset == text.size() ? "neither a command nor PATH=VALUE nor PATH/" : fault);
    session.set_column(indent + 1);
    if (!key.value) {
        set_set(session.tree(), key.path);
        return kDone;
    }
    const Exit lost = check_no_keys_lost(session, key.path);
    if (lost == kDone)
        set_set_path_str(session.tree(), key.path, key.value);
    return lost;
}

// A script that came from another system may have CR LF; a CR of a value is escaped in listed lines.
Exit run_line(Session &session, View line)
{
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    switch (kind_of(line)) {
    case LineKind::command:
        return run_command_line(session, line);
    case LineKind::listed:
        return run_listed_line(session, line);
    case LineKind::skipped:
        break;
    }
    return kDone;
}

Exit read_script(Session &session, const char *path, kutil::common::FileText *script)
{
    Problem problem;
    if (path && View(path) != "-") {
        if (file_text_load(path, script, &problem) == kutil::common::Load::done)
            return kDone;
    } else {
        if (!session.claim_stdin())
            return kMisuse;
        if (file_text_read(STDIN_FILENO, "standard input", script, &problem))
            return kDone;
    }
    return session.complain(kMisuse, "%s", problem.text());
}

} // namespace

bool is_listed_line(View line)
{
    return kind_of(line) == LineKind::listed && (line.empty() || !kutil::is_blank(line.front()));
}

Exit run_batch(Session &session, const Args &args)
{
    const char *path = args.word(0);
    kutil::common::FileText script;
    if (const Exit read = read_script(session, path, &script); read != kDone)
        return read;
    const char *name = path && View(path) != "-" ? path : "standard input";
    Exit result = kDone;
    View rest = script.view();
    for (size_t number = 1; !rest.empty() && result == kDone; number++) {
        const size_t end = rest.find('\n');
        session.set_place(name, number);
        result = run_line(session, kutil::sub(rest, 0, end));
        rest.remove_prefix(end == View::npos ? rest.size() : end + 1);
    }
    session.set_place(nullptr, 0);
    if (result != kDone)
        session.save_anyway(false); // all of the script or nothing
    return result;
}

} // namespace zconf
