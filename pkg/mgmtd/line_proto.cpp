#include "line_proto.h"

#include "common/tree_list.h"
#include "http_path.h"

#include <algorithm>

namespace mgmtd
{

using kutil::starts_with;
using kutil::sub;

namespace
{

constexpr int kMaxFailures = 3;

struct Line {
    const Context *context;
    LineSession *session;
    View rest; // behind the command's name
    TextBuilder *out;
    Outcome outcome;
    bool force = false;
    bool candidate = true;

    Staged *staged() const { return context->staged; }
    Who who() const { return {session->user.get(), session->address.get(), &session->rights}; }

    View word()
    {
        rest = kutil::trim_left(rest);
        const size_t end = std::min(rest.find(' '), rest.size());
        const View first = sub(rest, 0, end);
        rest = sub(rest, end + 1);
        return first;
    }
    // The next word as a normal path; NULL after an error.
    HeapText path()
    {
        const View text = word();
        size_t offset;
        const HeapText read(kutil::common::tree_path_read(text.data(), text.size(), &offset));
        HeapText normal(read ? normal_path(read.get()) : nullptr);
        if (!normal)
            outcome.fail(400, "a path that cannot be read");
        return normal;
    }
    void one_line(View status, View text)
    {
        out->append(status);
        text = kutil::trim_right(text);
        if (!text.empty())
            out->append(' ');
        for (const char c : text)
            out->append(c == '\n' ? ' ' : c);
        out->append('\n');
    }
    void lines(View text)
    {
        out->append("data\n");
        while (!text.empty()) {
            const size_t end = std::min(text.find('\n'), text.size());
            out->append(' ');
            out->append(sub(text, 0, end));
            out->append('\n');
            text = sub(text, end + 1);
        }
        out->append(".\n");
    }
    void finish()
    {
        char status[24];
        snprintf(status, sizeof(status), "error %d", outcome.status);
        one_line(outcome.status < 300 ? View("ok") : View(status), outcome.text.text());
    }
    void finish_lines()
    {
        if (outcome.status < 300)
            lines(outcome.text.text());
        else
            finish();
    }
};

LineAnswer run_auth(Line &line)
{
    const HeapText user(kutil::copy_text(line.word()));
    HeapText stored(read_password(line.staged()->running(), user.get()));
    const View given = line.rest;
    size_t differences = stored ? 0 : 1;
    const View known = kutil::view(stored.get());
    for (size_t i = 0; i < given.size(); i++)
        differences |= static_cast<unsigned char>(given[i] ^ (i < known.size() ? known[i] : 0));
    const bool right = differences == 0 && known.size() == given.size();
    if (stored)
        explicit_bzero(stored.get(), strlen(stored.get()));
    if (right) {
        line.session->logged_in = true;
        line.session->user.reset(kutil::copy_text(user.get()));
        line.one_line("ok", "logged in");
        return LineAnswer::done;
    }
    zel_error_full(kEntity, kWarn, "login failed: user %.100s from %s, line protocol", user.get(),
                   line.session->address.get());
    line.session->failures++;
    line.outcome.fail(401, "wrong user or password");
    line.finish();
    return line.session->failures >= kMaxFailures ? LineAnswer::close : LineAnswer::failed_login;
}

LineAnswer run_get(Line &line)
{
    const HeapText path = line.path();
    if (path && line.staged()->get(line.who(), line.candidate, path.get(), Format::value, &line.outcome) &&
        line.outcome.text.text().find('\n') != View::npos)
        line.finish_lines();
    else
        line.finish();
    return LineAnswer::done;
}

LineAnswer run_list(Line &line)
{
    const HeapText path = line.path();
    if (path)
        line.staged()->get(line.who(), line.candidate, path.get(), Format::lines, &line.outcome);
    line.finish_lines();
    return LineAnswer::done;
}

LineAnswer run_set(Line &line)
{
    const HeapText path = line.path();
    if (path)
        line.staged()->set_value(line.who(), path.get(), line.rest, line.force, &line.outcome);
    line.finish();
    return LineAnswer::done;
}

LineAnswer run_del(Line &line)
{
    const HeapText path = line.path();
    if (path)
        line.staged()->remove(line.who(), path.get(), line.force, &line.outcome);
    line.finish();
    return LineAnswer::done;
}

LineAnswer run_add(Line &line)
{
    const HeapText path = line.path();
    if (path)
        line.staged()->add_entry(line.who(), path.get(), line.force, &line.outcome);
    line.finish();
    return LineAnswer::done;
}

LineAnswer run_diff(Line &line)
{
    line.staged()->diff(line.who(), &line.outcome);
    line.finish_lines();
    return LineAnswer::done;
}

LineAnswer run_commit(Line &line)
{
    line.staged()->commit(line.who(), line.force, &line.outcome);
    line.finish();
    return LineAnswer::done;
}

LineAnswer run_revert(Line &line)
{
    line.staged()->revert(line.who(), line.force, &line.outcome);
    line.finish();
    return LineAnswer::done;
}

LineAnswer run_quit(Line &line)
{
    line.one_line("ok", "bye");
    return LineAnswer::close;
}

LineAnswer run_help(Line &line);

struct Command {
    View name;
    View usage;
    bool needs_login;
    LineAnswer (*run)(Line &line);
};
constexpr Command kCommands[] = {
    {"auth", "auth USER PASSWORD", false, run_auth},
    {"get", "get [-r] PATH", true, run_get},
    {"list", "list [-r] [PATH]", true, run_list},
    {"set", "set [-f] PATH VALUE", true, run_set},
    {"del", "del [-f] PATH", true, run_del},
    {"add", "add [-f] PATH", true, run_add},
    {"diff", "diff", true, run_diff},
    {"commit", "commit [-f]", true, run_commit},
    {"revert", "revert [-f]", true, run_revert},
    {"help", "help", false, run_help},
    {"quit", "quit", false, run_quit},
};

LineAnswer run_help(Line &line)
{
    TextBuilder text;
    for (const Command &command : kCommands) {
        text.append(command.usage);
        text.append('\n');
    }
    text.append("-f takes over somebody else's candidate, -r reads the running configuration\n");
    line.lines(text.text());
    return LineAnswer::done;
}

} // namespace

LineAnswer run_line(const Context &context, LineSession *session, View text, TextBuilder *out)
{
    Line line = {context.staged ? &context : nullptr, session, text, out, {}};
    const View name = line.word();
    const auto *command = std::ranges::find(kCommands, name, &Command::name);
    if (command == std::end(kCommands) || (command->needs_login && !session->logged_in)) {
        line.outcome.fail(session->logged_in ? 400 : 401, session->logged_in
                                                              ? "no such command; try help"
                                                              : "log in first: auth USER PASSWORD");
        line.finish();
        // Somebody who speaks another protocol, a browser's form above all, gets no second line.
        return session->logged_in ? LineAnswer::done : LineAnswer::close;
    }
    if (session->logged_in) {
        session->rights.~Rights();
        std::construct_at(&session->rights);
        read_rights(context.staged->running(), session->user.get(), &session->rights);
    }
    while (command->needs_login && (starts_with(line.rest, "-f ") || starts_with(line.rest, "-r ") ||
                                    line.rest == "-f" || line.rest == "-r")) {
        if (line.rest[1] == 'f')
            line.force = true;
        else
            line.candidate = false;
        line.rest = sub(line.rest, 3);
    }
    return command->run(line);
}

} // namespace mgmtd
