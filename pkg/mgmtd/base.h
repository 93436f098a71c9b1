#ifndef MGMTD_BASE_H
#define MGMTD_BASE_H

// What every file of the daemon speaks with.

#include "util/internal/chars.h"
#include "util/internal/heap.h"
#include "util/internal/report.h"
#include "util/internal/text.h"
#include "util/internal/text_builder.h"

namespace mgmtd
{

using kutil::HeapText;
using kutil::TextBuilder;
using kutil::View;

// The entity of the daemon's own reports.
inline constexpr int kEntity = 30;
inline constexpr uint32_t kErr = kutil::kErr;
inline constexpr uint32_t kWarn = kutil::kWarn;
inline constexpr uint32_t kNotice = kutil::kNotice;
inline constexpr uint32_t kInfo = kutil::kInfo;

// What stands for a secret wherever one would be shown, and keeps the stored one where it is written back.
inline constexpr View kMask = "********";

// Appends a number in decimal.
void append_number(TextBuilder *out, uint64_t number);

// A text from outside as it may stand in a report: bytes below 32, from 127 up and & as &xx;, at most 200
// characters of it. The result is a static buffer, valid until the next call.
const char *shown(View text);

} // namespace mgmtd

#endif
