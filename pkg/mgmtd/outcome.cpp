#include "outcome.h"

#include "util/internal/formatted.h"

namespace mgmtd
{

bool Outcome::fail(int new_status, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const kutil::Formatted message(format, values);
    va_end(values);
    status = new_status;
    text.clear();
    text.append(message.text());
    text.append('\n');
    return false;
}

void Outcome::print(const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const kutil::Formatted message(format, values);
    va_end(values);
    text.append(message.text());
}

} // namespace mgmtd
