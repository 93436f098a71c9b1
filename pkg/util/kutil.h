#ifndef KUTIL_UTIL_KUTIL_H
#define KUTIL_UTIL_KUTIL_H

/* kutil.h: every family of the library at once. */

#include "alloc.h"
#include "array.h"
#include "attrib.h"
#include "attrib_text.h"
#include "base64.h"
#include "code2str.h"
#include "code_tables.h"
#include "conf_crypt.h"
#include "conf_key.h"
#include "csv.h"
#include "date.h"
#include "erecv.h"
#include "eserver.h"
#include "estream.h"
#include "event.h"
#include "file.h"
#include "fstr.h"
#include "hex.h"
#include "http_auth.h"
#include "iaddr.h"
#include "lines.h"
#include "mac.h"
#include "set.h"
#include "sock.h"
#include "str.h"
#include "str_escape.h"
#include "sys.h"
#include "timer_heap.h"
#include "url.h"
#include "zel_error.h"

#endif
