#include "routes.h"

#include "html.h"
#include "http_path.h"
#include "page.h"
#include "site_check.h"

#include <algorithm>

namespace mgmtd
{

namespace
{

constexpr const char kJson[] = "application/json";

// A request taken apart.
struct Call {
    const Context *context;
    const Request *request;
    const Who *who;
    const PathPieces *pieces;
    const Form *query;
    Reply *reply;

    Outcome *out() const { return &reply->outcome; }
    bool flag(View name) const
    {
        const char *value = query->find(name);
        return value && View(value) != "0";
    }
    bool is_get() const { return is_safe(request->method); }
    void refuse_method(const char *allowed) const
    {
        reply->outcome.fail(405, "this takes %s", allowed);
        reply->allow = allowed;
    }
};

bool read_format(const Call &call, Format *format)
{
    const View name = kutil::view(call.query->find("format"));
    if (name == "text")
        *format = Format::text;
    else if (name == "lines")
        *format = Format::lines;
    else if (name == "json")
        *format = Format::json;
    else if (name == "value")
        *format = Format::value;
    else if (!name.empty())
        return call.out()->fail(400, "the format is none of text, lines, json, value");
    return true;
}

void get_conf(const Call &call, View path)
{
    Format format = Format::text;
    if (!read_format(call, &format))
        return;
    if (call.context->staged->get(*call.who, call.flag("candidate"), path, format, call.out()) &&
        format == Format::json)
        call.reply->type = kJson;
}

void put_conf(const Call &call, View path)
{
    Format format = Format::value;
    if (!read_format(call, &format))
        return;
    if (format == Format::text)
        call.context->staged->set_tree(*call.who, path, call.request->body, call.flag("force"), call.out());
    else if (format == Format::value)
        call.context->staged->set_value(*call.who, path, call.request->body, call.flag("force"), call.out());
    else
        call.out()->fail(400, "what is put is a value, or with format=text a tree");
}

void post_fields(const Call &call, View path)
{
    Form form;
    const char *fault = form.read(call.request->body);
    if (fault) {
        call.out()->fail(400, "%s", fault);
        return;
    }
    Staged *staged = call.context->staged;
    set *const kept = staged->keep();
    for (size_t i = 0; i < form.count(); i++) {
        const HeapText below(normal_path(form.name(i)));
        TextBuilder full;
        full.append(path);
        if (!path.empty())
            full.append('/');
        full.append(below ? View(below.get()) : View());
        if ((below && *below)
                ? staged->edit_value(*call.who, full.text(), form.value(i), call.flag("force"), call.out())
                : call.out()->fail(400, "a field without a name"))
            continue;
        if (call.out()->status != 409)
            staged->roll_back(kept);
        else
            Staged::forget(kept);
        return;
    }
    Staged::forget(kept);
    if (form.count() > 0)
        staged->say_changes(call.out());
    else
        call.out()->fail(400, "no field");
}

void post_conf(const Call &call, View path)
{
    if (!call.query->find("index")) {
        post_fields(call, path);
        return;
    }
    if (!call.context->staged->add_entry(*call.who, path, call.flag("force"), call.out()))
        return;
    const View line = call.out()->text.text();
    const View name = kutil::sub(line, line.rfind('/') + 1, line.size() - line.rfind('/') - 2);
    TextBuilder location;
    location.append("/conf/");
    append_url_path(&location, path);
    location.append('/');
    location.append(name);
    call.reply->location.reset(location.release());
}

void serve_conf(const Call &call)
{
    const HeapText path(call.pieces->tree_path(1));
    switch (call.request->method) {
    case Method::get:
    case Method::head:
        return get_conf(call, path.get());
    case Method::put:
        return put_conf(call, path.get());
    case Method::post:
        return post_conf(call, path.get());
    case Method::del:
        call.context->staged->remove(*call.who, path.get(), call.flag("force"), call.out());
    }
}

void serve_commit(const Call &call)
{
    call.context->staged->commit(*call.who, call.flag("force"), call.out());
}

void serve_revert(const Call &call)
{
    call.context->staged->revert(*call.who, call.flag("force"), call.out());
}

void serve_diff(const Call &call) { call.context->staged->diff(*call.who, call.out()); }

void serve_log(const Call &call)
{
    if (call.who->rights->read)
        call.context->log->write(&call.out()->text);
    else
        call.out()->fail(403, "your role may not read");
}

void serve_stats(const Call &call)
{
    write_stats(*call.context->stats, *call.context->staged, &call.out()->text);
}

void serve_style(const Call &call)
{
    call.out()->text.append(kStyle);
    call.reply->type = "text/css; charset=utf-8";
}

void serve_ui(const Call &call)
{
    respond_page(*call.context, *call.request, *call.pieces, *call.query, *call.who, call.reply);
}

enum Takes { kGet, kPost, kAll };
struct Route {
    View name; // the first piece of the path
    Takes takes;
    bool alone; // nothing follows it
    void (*serve)(const Call &call);
};
constexpr Route kRoutes[] = {
    {"conf", kAll, false, serve_conf},
    {"ui", kAll, false, serve_ui},
    {"commit", kPost, true, serve_commit},
    {"revert", kPost, true, serve_revert},
    {"diff", kGet, true, serve_diff},
    {"log", kGet, true, serve_log},
    {"stats", kGet, true, serve_stats},
    {"style.css", kGet, true, serve_style},
    {"", kGet, true, serve_ui},
};

} // namespace

bool is_public(const Request &request)
{
    return is_safe(request.method) &&
           (request.path == "/style.css" || (request.path == "/" && !request.has_authorization));
}

void respond(const Context &context, const Request &request, const Who &who, Reply *reply)
{
    PathPieces pieces;
    Form query;
    const char *fault = pieces.read(request.path);
    if (!fault)
        fault = query.read(request.query);
    if (fault) {
        reply->outcome.fail(400, "%s", fault);
        return;
    }
    const Call call = {&context, &request, &who, &pieces, &query, reply};
    const auto *route = std::ranges::find(kRoutes, pieces.piece(0), &Route::name);
    if (route == std::end(kRoutes) || (route->alone && pieces.count() > 1)) {
        reply->outcome.fail(404, "there is nothing here");
        return;
    }
    if (route->takes == kGet && !call.is_get())
        return call.refuse_method("GET, HEAD");
    if (route->takes == kPost && request.method != Method::post)
        return call.refuse_method("POST");
    route->serve(call);
}

} // namespace mgmtd
