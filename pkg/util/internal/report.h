#ifndef KUTIL_INTERNAL_REPORT_H
#define KUTIL_INTERNAL_REPORT_H

#include "../zel_error.h"

namespace kutil
{

// What the library reports with: zel_error_full(kEntity, kErr, "...") and its like. Each returns -1, so that
// an error path returns the report.
inline constexpr int kEntity = 10;
inline constexpr uint32_t kErr = 4;
inline constexpr uint32_t kWarn = 5;
inline constexpr uint32_t kNotice = 6;
inline constexpr uint32_t kInfo = 7;
inline constexpr uint32_t kDebug = 8;
inline constexpr uint32_t kFatalEmerg = 0x301;
inline constexpr uint32_t kFatal = 0x303;

} // namespace kutil

#endif
