#ifndef MGMTD_ROUTES_H
#define MGMTD_ROUTES_H

// What each request does.

#include "http_scan.h"
#include "log_ring.h"
#include "reply.h"
#include "staged.h"
#include "stats.h"

namespace mgmtd
{

struct Context {
    Staged *staged;
    const LogRing *log;
    const Stats *stats;
};

// The request needs no login: the welcome page for whoever sends no login along, and the style sheet.
bool is_public(const Request &request);

// Answers a request that passed every check, from `who`.
void respond(const Context &context, const Request &request, const Who &who, Reply *reply);

// The pages below /ui, for respond().
void respond_page(const Context &context, const Request &request, const class PathPieces &pieces,
                  const class Form &query, const Who &who, Reply *reply);

} // namespace mgmtd

#endif
