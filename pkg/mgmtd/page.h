#ifndef MGMTD_PAGE_H
#define MGMTD_PAGE_H

// The pages for people: HTML that works without a script.

#include "log_ring.h"
#include "reply.h"
#include "staged.h"

namespace mgmtd
{

// What every page needs to know.
struct PageContext {
    Staged *staged;
    const Who *who;
    TextBuilder *out;
    View message = {}; // shown above the content

    bool may_edit() const { return who->rights->write && !staged->read_only(); }
};

// The page for whoever has not logged in: it says nothing about the gateway.
void write_welcome(TextBuilder *out);

// The key at `path`; false when it is not there.
bool write_node_page(const PageContext &page, View path);
void write_search_page(const PageContext &page, View wanted);
// The difference, with the buttons that commit or revert it.
void write_diff_page(const PageContext &page);
void write_log_page(const PageContext &page, const LogRing &log);
// Asks whether the key is to be deleted.
void write_delete_page(const PageContext &page, View path);
// A title and a text.
void write_message_page(const PageContext &page, View title, View text);
// Says why a change was refused; the form repeats it with force. `fields` has its fields as HTML.
void write_conflict_page(const PageContext &page, View text, View action, View fields);

} // namespace mgmtd

#endif
