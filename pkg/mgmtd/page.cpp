#include "page.h"

#include "choices.h"
#include "common/tree_line.h"
#include "html.h"
#include "http_path.h"
#include "util/date.h"

#include <algorithm>
#include <cstring>

namespace mgmtd
{

using kutil::sub;
using kutil::common::value_leaf;

namespace
{

constexpr size_t kMaxHits = 200;
constexpr int kMaxInline = 24; // values that a card shows of a key below

void free_tree(set **tree)
{
    while (*tree && set_free(tree)) {
    }
}

// Appends "/ui/tree/" and the path.
void append_link(TextBuilder *out, View path)
{
    out->append("/ui/tree/");
    append_url_path(out, path);
}

HeapText join(View path, View name)
{
    TextBuilder joined;
    joined.append(path);
    if (!path.empty())
        joined.append('/');
    append_tree_name(&joined, name);
    return HeapText(joined.release());
}

size_t count_values(set *node)
{
    size_t lines = 0;
    kutil::common::tree_list(
        &node, [](void *context, const char *, size_t) { ++*static_cast<size_t *>(context); }, &lines);
    return lines;
}

void append_count(TextBuilder *out, size_t count, View one, View many)
{
    append_number(out, count);
    out->append(' ');
    out->append(count == 1 ? one : many);
}

// --- The frame around every page.

void open_frame(const PageContext &page, View title)
{
    TextBuilder *out = page.out;
    out->append("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
                "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\"><title>");
    append_html(out, title);
    out->append("</title><link rel=\"stylesheet\" href=\"/style.css\"></head><body>"
                "<a class=\"skip\" href=\"#main\">To the content</a><header>"
                "<a class=\"brand\" href=\"/ui/tree/\">");
    const char *name = read_realm(page.staged->running());
    append_html(out, name);
    out->append("</a><nav aria-label=\"Pages\"><a href=\"/ui/tree/\">Configuration</a>"
                "<a href=\"/ui/diff\">Changes</a><a href=\"/ui/log\">Log</a>"
                "<a class=\"narrow\" href=\"#sections\">Sections</a></nav>"
                "<form action=\"/ui/search\" role=\"search\"><input type=\"search\" name=\"q\" "
                "aria-label=\"Search names and values\" placeholder=\"Search\">"
                "<button>Search</button></form></header>\n");
}

// What is not committed, and what can be done about it.
void append_bar(const PageContext &page)
{
    TextBuilder *out = page.out;
    Staged *staged = page.staged;
    const size_t changes = staged->changes();
    out->append(changes ? View("<div class=\"bar pending\" role=\"status\"><strong>")
                        : View("<div class=\"bar\" role=\"status\"><span>"));
    append_count(out, changes, "change not committed", "changes not committed");
    if (changes == 0) {
        out->append("</span></div>\n");
        return;
    }
    out->append("</strong>");
    if (View(staged->owner_user()) != page.who->user) {
        out->append("<span>by ");
        append_html(out, staged->owner_user());
        out->append(" from ");
        append_html(out, staged->owner_address());
        out->append("</span>");
    }
    out->append("<a href=\"/ui/diff\">Show</a>");
    if (page.may_edit())
        out->append("<a href=\"/ui/diff#commit\">Commit</a><a href=\"/ui/diff#revert\">Revert</a>");
    out->append("</div>\n");
}

void append_sections(const PageContext &page, View path)
{
    TextBuilder *out = page.out;
    out->append("<nav class=\"side\" id=\"sections\" aria-label=\"Sections\"><h2>Sections</h2><ul>");
    const View section = sub(path, 0, path.find('/'));
    set **top = page.staged->current();
    for (set **son = set_get_son(top, 0); son; son = set_get_next(son)) {
        const HeapText name = join("", (*son)->value);
        if (page.who->rights->hidden.covers(name.get()))
            continue;
        out->append("<li><a href=\"");
        append_link(out, name.get());
        out->append(section == name.get() ? View("\" aria-current=\"page\">") : View("\">"));
        append_html(out, (*son)->value);
        out->append("</a></li>");
    }
    out->append("</ul></nav>");
}

void open_page(const PageContext &page, View title)
{
    open_frame(page, title);
    append_bar(page);
    page.out->append("<div class=\"page two\">");
    page.out->append("<main id=\"main\">");
    if (!page.message.empty()) {
        page.out->append("<p class=\"msg\" role=\"alert\">");
        append_html(page.out, page.message);
        page.out->append("</p>");
    }
}

// The sections stand behind the content: on a narrow screen they are below it.
void close_page(const PageContext &page, View path = "")
{
    page.out->append("</main>");
    append_sections(page, path);
    page.out->append("</div></body></html>\n");
}

void append_title(const PageContext &page, View title)
{
    page.out->append("<h1>");
    append_html(page.out, title);
    page.out->append("</h1>");
}

// The way to the key, each name a link, and the last one as the title, with what an entry calls itself.
void append_crumbs(const PageContext &page, View path, View entry = "")
{
    struct Walk {
        const PageContext *page;
        TextBuilder way;
        HeapText last;
    } walk = {&page, {}, HeapText()};
    page.out->append("<nav class=\"crumbs\" aria-label=\"Path\"><a href=\"/ui/tree/\">Configuration</a>");
    for_each_name(
        path,
        [](void *context, View name) {
            Walk *w = static_cast<Walk *>(context);
            if (!w->way.empty())
                w->way.append('/');
            append_tree_name(&w->way, name);
            w->page->out->append(" / <a href=\"");
            append_link(w->page->out, w->way.text());
            w->page->out->append("\">");
            append_html(w->page->out, name);
            w->page->out->append("</a>");
            w->last.reset(kutil::copy_text(name));
        },
        &walk);
    page.out->append("</nav>");
    TextBuilder title;
    title.append(walk.last ? View(walk.last.get()) : View("Configuration"));
    if (!entry.empty()) {
        title.append(": ");
        title.append(entry);
    }
    append_title(page, title.text());
}

// --- Values.

void append_option(TextBuilder *out, View value, View label, bool selected)
{
    out->append("<option value=\"");
    append_html(out, value);
    out->append(selected ? View("\" selected>") : View("\">"));
    append_html(out, label);
    out->append("</option>");
}

void append_select(TextBuilder *out, const Choices &choices, View value)
{
    struct Options {
        TextBuilder *out;
        View value;
        bool flag;
        bool listed;
    } options = {out, value, choices.flag, false};
    const auto add = [](void *context, View word) {
        Options *self = static_cast<Options *>(context);
        const View label = self->flag ? View(word == "1" ? "on" : "off") : word;
        append_option(self->out, word, label, word == self->value);
        self->listed = self->listed || word == self->value;
    };
    choices.for_each(add, &options);
    // A value outside the table stays what it is until another one is chosen.
    if (!options.listed)
        append_option(out, value, value, true);
}

// One value as a row of a form. `relative` is its path from the page's key, the name of the field.
void append_value_row(const PageContext &page, View path, View relative, View label, View value)
{
    TextBuilder *out = page.out;
    const bool secret = page.staged->secrets().find(path) >= 0;
    const auto open = [&](View tag) {
        out->append('<');
        out->append(tag);
        out->append(" id=\"f/");
        append_html(out, relative);
        out->append("\" name=\"/");
        append_html(out, relative);
        out->append(page.may_edit() ? View("\"") : View("\" disabled"));
    };
    out->append("<div class=\"row\"><label for=\"f/");
    append_html(out, relative);
    out->append("\">");
    append_html(out, label);
    out->append("</label>");
    const Choices choices = choices_of(path);
    if (!fits_field(value)) {
        TextBuilder printable;
        kutil::common::append_printable(&printable, value);
        out->append("<code>");
        append_html(out, printable.text());
        out->append("</code>");
    } else if (secret) {
        open("input");
        out->append(" type=\"password\" autocomplete=\"new-password\" value=\"");
        append_html(out, value);
        out->append("\">");
    } else if (choices.any()) {
        open("select");
        out->append('>');
        append_select(out, choices, value);
        out->append("</select>");
    } else if (value.find('\n') != View::npos) {
        open("textarea");
        out->append(" rows=\"4\">\n");
        append_html(out, value);
        out->append("</textarea>");
    } else {
        open("input");
        out->append(" value=\"");
        append_html(out, value);
        out->append("\">");
    }
    out->append("</div>");
}

// The rows of the values right below `node`. Returns how many.
int append_values(const PageContext &page, set *node, View path, View relative)
{
    int rows = 0;
    for (set **son = set_get_son(&node, 0); son; son = set_get_next(son)) {
        const set *leaf = value_leaf(*son);
        if (!leaf && (*son)->sons)
            continue;
        const HeapText full = join(path, (*son)->value);
        const HeapText name = join(relative, (*son)->value);
        append_value_row(page, full.get(), name.get(), (*son)->value, leaf ? View(leaf->value) : View(""));
        rows++;
    }
    return rows;
}

int count_direct(set *node)
{
    int count = 0;
    for (set **son = set_get_son(&node, 0); son; son = set_get_next(son))
        count += value_leaf(*son) || !(*son)->sons ? 1 : 0;
    return count;
}

// What an entry of a list calls itself.
View entry_title(set *node)
{
    for (const char *name : {"name", "username", "hostname", "description", "comment"}) {
        set **key = set_get(&node, name);
        const set *leaf = key ? value_leaf(*key) : nullptr;
        if (leaf)
            return leaf->value;
    }
    return "";
}

// "<a href>" and what the entry is called.
void open_entry_link(TextBuilder *out, set *node, View path)
{
    out->append("<a href=\"");
    append_link(out, path);
    out->append("\">");
    append_html(out, node->value);
    const View title = entry_title(node);
    if (!title.empty()) {
        out->append(": ");
        append_html(out, title);
    }
}

void append_branch_links(const PageContext &page, set *node, View path)
{
    TextBuilder *out = page.out;
    bool opened = false;
    for (set **son = set_get_son(&node, 0); son; son = set_get_next(son)) {
        if (value_leaf(*son) || !(*son)->sons)
            continue;
        if (!opened)
            out->append("<div class=\"grid\">");
        opened = true;
        const HeapText full = join(path, (*son)->value);
        open_entry_link(out, *son, full.get());
        out->append("<small>");
        append_count(out, count_values(*son), "value", "values");
        out->append("</small></a>");
    }
    if (opened)
        out->append("</div>");
}

// The keys right below that are small enough to be edited here; the others are links.
void append_cards(const PageContext &page, set *node, View path)
{
    TextBuilder *out = page.out;
    for (set **son = set_get_son(&node, 0); son; son = set_get_next(son)) {
        if (value_leaf(*son) || !(*son)->sons)
            continue;
        const HeapText full = join(path, (*son)->value);
        const HeapText relative = join("", (*son)->value);
        out->append("<section class=\"card\"><h2>");
        open_entry_link(out, *son, full.get());
        out->append("</a></h2>");
        append_values(page, *son, full.get(), relative.get());
        append_branch_links(page, *son, full.get());
        out->append("</section>");
    }
}

bool is_list(set *node)
{
    set **son = set_get_son(&node, 0);
    for (; son; son = set_get_next(son)) {
        if (!std::ranges::all_of(View((*son)->value), kutil::is_digit))
            return false;
    }
    return set_get_nsons(&node) > 0 && !value_leaf(node);
}

void append_tools(const PageContext &page, set *node, View path)
{
    TextBuilder *out = page.out;
    const auto form = [&](View query) {
        out->append("<form method=\"post\" action=\"");
        append_link(out, path);
        out->append(query);
        out->append("\">");
    };
    out->append("<section class=\"card\"><h2>This key</h2>");
    if (is_list(node)) {
        form("?index");
        out->append("<button>Add an entry</button></form>");
    }
    form("");
    out->append("<div class=\"row\"><label for=\"n\">New value below it: name</label>"
                "<input id=\"n\" name=\"name\" required></div>"
                "<div class=\"row\"><label for=\"v\">Value</label><input id=\"v\" name=\"value\"></div>"
                "<div class=\"acts\"><button class=\"plain\">Add the value</button>");
    if (!path.empty()) {
        out->append("<a href=\"");
        append_link(out, path);
        out->append("?ask=delete\">Delete this key</a>");
    }
    out->append("</div></form></section>");
}

// --- Search.

struct Search {
    const PageContext *page;
    TextBuilder wanted; // in lower case
    size_t hits;
};

void append_lower(TextBuilder *out, View text)
{
    for (const char c : text)
        out->append(kutil::to_lower(c));
}

bool contains(View text, const TextBuilder &wanted)
{
    TextBuilder lower;
    append_lower(&lower, text);
    // Its time grows with the text alone, whatever is looked for.
    return memmem(lower.text().data(), lower.size(), wanted.text().data(), wanted.size()) != nullptr;
}

void find_line(void *context, const char *line, size_t length)
{
    Search *search = static_cast<Search *>(context);
    kutil::common::TreeLine parts;
    size_t offset;
    if (search->hits > kMaxHits || kutil::common::tree_line_read(line, length, &parts, &offset))
        return;
    const HeapText path(normal_path(parts.path));
    if (!path ||
        !(contains(path.get(), search->wanted) || contains(kutil::view(parts.value), search->wanted)))
        return;
    if (search->hits++ == kMaxHits)
        return;
    TextBuilder *out = search->page->out;
    const View whole = path.get();
    const size_t slash = whole.rfind('/');
    out->append("<div class=\"row\"><a href=\"");
    append_link(out, slash == View::npos ? whole : sub(whole, 0, slash));
    out->append("\">");
    append_html(out, whole);
    out->append("</a><code>");
    append_html(out, kutil::view(parts.value));
    out->append("</code></div>");
}

} // namespace

// --- The pages.

void write_welcome(TextBuilder *out)
{
    out->append("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
                "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\">"
                "<title>Gateway</title><link rel=\"stylesheet\" href=\"/style.css\"></head><body>"
                "<div class=\"page\"><main><h1>Gateway</h1><section class=\"card\">"
                "<p>The configuration of this gateway. It asks for a user name and a password.</p>"
                "<p><a href=\"/ui/tree/\">Log in</a></p></section></main></div></body></html>\n");
}

bool write_node_page(const PageContext &page, View path)
{
    set *copy = copy_shown(page.staged->current(), path, page.staged->secrets(), page.who->rights->hidden);
    if (!copy)
        return false;
    TextBuilder *out = page.out;
    open_page(page, path.empty() ? View("Configuration") : path);
    append_crumbs(page, path, path.empty() ? View() : entry_title(copy));
    const set *own = path.empty() ? nullptr : value_leaf(copy);
    const bool small = count_direct(copy) > 0 || set_get_nsons(&copy) <= kMaxInline;
    if (path.empty()) {
        append_branch_links(page, copy, path);
    } else {
        out->append("<form method=\"post\" action=\"");
        append_link(out, path);
        out->append("\">");
        if (own || count_direct(copy) > 0) {
            out->append("<section class=\"card\">");
            if (own)
                append_value_row(page, path, "", "value", own->value);
            else
                append_values(page, copy, path, "");
            out->append("</section>");
        }
        if (!own && small)
            append_cards(page, copy, path);
        if (page.may_edit() && (own || small))
            out->append("<div class=\"acts\"><button>Save</button>"
                        "<span class=\"note\">Saved values wait until they are committed.</span></div>");
        out->append("</form><p></p>");
        if (!own && !small)
            append_branch_links(page, copy, path);
        if (page.may_edit() && !own)
            append_tools(page, copy, path);
    }
    close_page(page, path);
    free_tree(&copy);
    return true;
}

void write_search_page(const PageContext &page, View wanted)
{
    open_page(page, "Search");
    append_title(page, "Search");
    page.out->append("<form action=\"/ui/search\" class=\"card\"><div class=\"row\">"
                     "<label for=\"q\">Part of a name or value</label><input id=\"q\" name=\"q\" value=\"");
    append_html(page.out, wanted);
    page.out->append("\"></div><div class=\"acts\"><button>Search</button></div></form>"
                     "<section class=\"card\">");
    Search search = {&page, {}, 0};
    append_lower(&search.wanted, wanted);
    set *copy = copy_shown(page.staged->current(), "", page.staged->secrets(), page.who->rights->hidden);
    if (!wanted.empty())
        kutil::common::tree_list(&copy, find_line, &search);
    free_tree(&copy);
    page.out->append("<p class=\"note\">");
    if (search.hits > kMaxHits)
        page.out->append("Only the first 200 are shown.");
    else
        append_count(page.out, search.hits, "hit", "hits");
    page.out->append("</p></section>");
    close_page(page);
}

void write_diff_page(const PageContext &page)
{
    TextBuilder *out = page.out;
    open_page(page, "Changes");
    append_title(page, "Changes that are not committed");
    Outcome diff;
    page.staged->diff(*page.who, &diff);
    out->append("<section class=\"card\"><pre>");
    for (View rest = diff.text.text(); !rest.empty();) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        const char mark = rest.front();
        out->append(mark == '+'   ? View("<span class=\"a\">")
                    : mark == '-' ? View("<span class=\"d\">")
                                  : View("<span class=\"m\">"));
        append_html(out, sub(rest, 0, end));
        out->append("</span>");
        rest = sub(rest, end + 1);
    }
    out->append("</pre>");
    if (diff.text.empty())
        out->append("<p class=\"note\">There are none.</p>");
    else
        out->append("<p class=\"note\">+ added, - removed, ~ changed to</p>");
    out->append("</section>");
    if (page.staged->changes() > 0 && page.may_edit()) {
        out->append("<div class=\"acts\">");
        if (page.who->rights->commit)
            out->append("<form method=\"post\" action=\"/ui/commit\" id=\"commit\">"
                        "<button>Commit these changes</button></form>");
        out->append("<form method=\"post\" action=\"/ui/revert\" id=\"revert\">"
                    "<button class=\"plain\">Revert them</button></form></div>");
    }
    close_page(page);
}

void write_log_page(const PageContext &page, const LogRing &log)
{
    open_page(page, "Log");
    append_title(page, "Log");
    TextBuilder lines;
    log.write(&lines);
    page.out->append("<section class=\"card\"><pre>");
    append_html(page.out, lines.text());
    page.out->append("</pre></section>");
    close_page(page);
}

void write_delete_page(const PageContext &page, View path)
{
    TextBuilder *out = page.out;
    open_page(page, "Delete");
    append_crumbs(page, path);
    out->append("<section class=\"card\"><p>Delete this key and everything below it? It is gone once the "
                "changes are committed.</p><form method=\"post\" action=\"");
    append_link(out, path);
    out->append("?delete\"><div class=\"acts\"><button>Delete</button><a href=\"");
    append_link(out, path);
    out->append("\">Keep it</a></div></form></section>");
    close_page(page, path);
}

void write_message_page(const PageContext &page, View title, View text)
{
    open_page(page, title);
    append_title(page, title);
    page.out->append("<p class=\"msg\" role=\"alert\">");
    append_html(page.out, text);
    page.out->append("</p><p><a href=\"/ui/tree/\">Back to the configuration</a></p>");
    close_page(page);
}

void write_conflict_page(const PageContext &page, View text, View action, View fields)
{
    TextBuilder *out = page.out;
    open_page(page, "Conflict");
    append_title(page, "Not done");
    out->append("<p class=\"msg\" role=\"alert\">");
    append_html(out, text);
    out->append("</p><form method=\"post\" action=\"");
    append_html(out, action);
    out->append("\">");
    out->append(fields);
    out->append("<div class=\"acts\"><button>Do it all the same</button>"
                "<a href=\"/ui/diff\">Show the changes</a></div></form>");
    close_page(page);
}

} // namespace mgmtd
