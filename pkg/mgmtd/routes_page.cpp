#include "html.h"
#include "http_path.h"
#include "page.h"
#include "routes.h"
#include "site_check.h"

#include "common/tree_line.h"

#include <algorithm>

namespace mgmtd
{

using kutil::sub;

namespace
{

struct Visit {
    const Context *context;
    const Request *request;
    const Form *query;
    Reply *reply;
    PageContext page;
    Form fields; // of a body

    Outcome *out() const { return &reply->outcome; }
    Staged *staged() const { return context->staged; }
    const Who &who() const { return *page.who; }
    bool force() const { return fields.find(":force") != nullptr; }
};

void redirect(const Visit &visit, View path)
{
    TextBuilder location;
    location.append(path);
    visit.out()->fail(303, "go to %s", location.c_str());
    visit.reply->location.reset(location.release());
}

void redirect_to_key(const Visit &visit, View path)
{
    TextBuilder location;
    location.append("/ui/tree/");
    append_url_path(&location, path);
    redirect(visit, location.text());
}

// The page that tells why a change was not done, with the status that says so.
void show_failure(const Visit &visit, Outcome &failed)
{
    TextBuilder page;
    PageContext context = visit.page;
    context.out = &page;
    if (failed.status == 409) {
        TextBuilder fields;
        fields.append("<input type=\"hidden\" name=\":force\" value=\"1\">");
        for (size_t i = 0; i < visit.fields.count(); i++) {
            fields.append("<input type=\"hidden\" name=\"");
            append_html(&fields, visit.fields.name(i));
            fields.append("\" value=\"");
            append_html(&fields, visit.fields.value(i));
            fields.append("\">");
        }
        write_conflict_page(context, failed.text.text(), visit.request->target, fields.text());
    } else {
        write_message_page(context, "Not done", failed.text.text());
    }
    visit.out()->status = failed.status;
    visit.out()->text.clear();
    visit.out()->text.append(page.text());
}

// A browser sends line ends of a field as CR LF.
HeapText without_cr(const char *value)
{
    HeapText text(kutil::copy_text(value));
    char *end = text.get();
    for (const char *p = value; *p; p++) {
        if (!(p[0] == '\r' && p[1] == '\n'))
            *end++ = *p;
    }
    *end = '\0';
    return text;
}

// The value that the page showed for the key, as it came out of copy_shown.
bool is_shown_value(const Visit &visit, View path, View value)
{
    if (visit.staged()->secrets().find(path) >= 0 && value == kMask)
        return true;
    const HeapText place(kutil::copy_text(path));
    set **key = find_key(visit.staged()->current(), place.get());
    const set *leaf = key ? kutil::common::value_leaf(*key) : nullptr;
    return leaf ? value == leaf->value : key && !(*key)->sons && value.empty();
}

// Sets what the fields of a key's page changed: "/NAME" is the value below it, "name" and "value" add one.
bool save_fields(const Visit &visit, View path, Outcome *failed)
{
    const auto full_path = [&](const char *below) {
        TextBuilder full;
        full.append(path);
        const HeapText normal(normal_path(below));
        if (!path.empty() && normal && *normal)
            full.append('/');
        full.append(normal ? View(normal.get()) : View());
        return HeapText(full.release());
    };
    for (size_t i = 0; i < visit.fields.count(); i++) {
        const char *name = visit.fields.name(i);
        if (*name != '/')
            continue;
        const HeapText full = full_path(name + 1);
        const HeapText value = without_cr(visit.fields.value(i));
        if (!is_shown_value(visit, full.get(), value.get()) &&
            !visit.staged()->edit_value(visit.who(), full.get(), value.get(), visit.force(), failed))
            return false;
    }
    const char *name = visit.fields.find("name");
    if (!name)
        return true;
    TextBuilder escaped;
    append_tree_name(&escaped, name);
    const HeapText full = full_path(escaped.c_str());
    if (!*name)
        return failed->fail(422, "the new value needs a name");
    return visit.staged()->edit_value(visit.who(), full.get(), kutil::view(visit.fields.find("value")),
                                      visit.force(), failed);
}

void post_key(const Visit &visit, View path)
{
    Outcome done;
    if (visit.query->find("index")) {
        if (!visit.staged()->add_entry(visit.who(), path, visit.force(), &done))
            return show_failure(visit, done);
        const View line = done.text.text();
        const View name = sub(line, line.rfind('/') + 1, line.size() - line.rfind('/') - 2);
        TextBuilder entry;
        entry.append(path);
        entry.append('/');
        entry.append(name);
        return redirect_to_key(visit, entry.text());
    }
    if (visit.query->find("delete")) {
        if (!visit.staged()->remove(visit.who(), path, visit.force(), &done))
            return show_failure(visit, done);
        const size_t slash = path.rfind('/');
        return redirect_to_key(visit, slash == View::npos ? View() : sub(path, 0, slash));
    }
    set *const kept = visit.staged()->keep();
    const bool saved = save_fields(visit, path, &done);
    if (!saved && done.status != 409)
        visit.staged()->roll_back(kept);
    else
        Staged::forget(kept);
    if (!saved)
        return show_failure(visit, done);
    redirect_to_key(visit, path);
}

void serve_tree(const Visit &visit, View path)
{
    if (!is_safe(visit.request->method))
        return post_key(visit, path);
    if (visit.query->find("ask")) {
        write_delete_page(visit.page, path);
        return;
    }
    if (!write_node_page(visit.page, path)) {
        visit.out()->status = 404;
        write_message_page(visit.page, "Not there", "There is no such key.");
    }
}

void serve_tree_root(const Visit &visit) { serve_tree(visit, ""); }

void serve_changes(const Visit &visit) { write_diff_page(visit.page); }
void serve_log(const Visit &visit) { write_log_page(visit.page, *visit.context->log); }
void serve_search(const Visit &visit) { write_search_page(visit.page, kutil::view(visit.query->find("q"))); }

void serve_commit(const Visit &visit)
{
    Outcome done;
    if (visit.staged()->commit(visit.who(), visit.force(), &done))
        redirect(visit, "/ui/tree/");
    else
        show_failure(visit, done);
}

void serve_revert(const Visit &visit)
{
    Outcome done;
    if (visit.staged()->revert(visit.who(), visit.force(), &done))
        redirect(visit, "/ui/tree/");
    else
        show_failure(visit, done);
}

struct PageRoute {
    View name; // the piece behind "ui"
    bool posts;
    void (*serve)(const Visit &visit);
};
constexpr PageRoute kPages[] = {
    {"", false, serve_tree_root},    {"diff", false, serve_changes}, {"log", false, serve_log},
    {"search", false, serve_search}, {"commit", true, serve_commit}, {"revert", true, serve_revert},
};

} // namespace

void respond_page(const Context &context, const Request &request, const PathPieces &pieces, const Form &query,
                  const Who &who, Reply *reply)
{
    reply->type = "text/html; charset=utf-8";
    if (is_public(request))
        return write_welcome(&reply->outcome.text);
    Visit visit = {&context, &request, &query, reply, {context.staged, &who, &reply->outcome.text}, {}};
    const char *fault = is_safe(request.method) ? nullptr : visit.fields.read(request.body);
    if (fault) {
        reply->outcome.fail(400, "%s", fault);
        reply->type = "text/plain; charset=utf-8";
        return;
    }
    const bool posts = request.method == Method::post;
    const auto *page = std::ranges::find(kPages, pieces.piece(1), &PageRoute::name);
    const bool tree = pieces.piece(1) == "tree";
    if (!who.rights->read) {
        reply->outcome.status = 403;
        return write_message_page(visit.page, "Not allowed", "Your role may not read the configuration.");
    }
    if ((!tree && page == std::end(kPages)) || (!tree && pieces.count() > 2)) {
        reply->outcome.status = 404;
        return write_message_page(visit.page, "Not there", "There is no such page.");
    }
    if (tree ? !(is_safe(request.method) || posts)
             : posts != page->posts || !(is_safe(request.method) || posts)) {
        reply->allow = tree ? "GET, HEAD, POST" : page->posts ? "POST" : "GET, HEAD";
        reply->outcome.fail(405, "this takes %s", reply->allow);
        reply->type = "text/plain; charset=utf-8";
        return;
    }
    if (!tree)
        return page->serve(visit);
    const HeapText path(pieces.tree_path(2));
    serve_tree(visit, path.get());
}

} // namespace mgmtd
