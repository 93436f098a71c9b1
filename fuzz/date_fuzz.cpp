// The readers of dates on any bytes: what they accept comes back from what is printed of it.

#include "util/date.h"
#include "util/zel_error.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{

void require(bool holds)
{
    if (!holds)
        abort();
}

// The years whose two digits read back.
bool prints_unambiguously(time_t t) { return t > 0 && t < 3155760000; }

void fuzz_text(const char *text)
{
    const time_t t = date_atoi(text, 0);
    require(!prints_unambiguously(t) || date_atoi(date_itoa(t, 0), 0) == t);
    const time_t sql = date_sql2time(text);
    require(!prints_unambiguously(sql) || date_sql2time(date_time2sql(sql, 0)) == sql);
    const time_t xml = date_xml2time(text);
    if (prints_unambiguously(xml))
        require(date_xml2time(date_itoa_fmt(xml, "%Y-%m-%dT%H:%M:%SZ", 0)) == xml);
    const char *converted = date_k2sql(text);
    require(!converted || strlen(converted) < 32);
    require(strlen(date_sql2k(text)) < 32);
    date_atoi(text, 1);
}

void fuzz_fields(const uint8_t *data, size_t size)
{
    tm fields = {};
    memcpy(&fields, data, size < sizeof(int) * 6 ? size : sizeof(int) * 6);
    date_tm2sql(&fields);
    date_tm2k(&fields);
    const bool sound = check_date_time(&fields, 1, 1);
    tm normal = fields;
    const time_t t = kmktime(&normal, 0);
    if (t == -1)
        return;
    tm again = normal;
    require(kmktime(&again, 0) == t && check_date_time(&again, 1, 1));
    require(!sound || (normal.tm_mday == fields.tm_mday && normal.tm_sec == fields.tm_sec));
    require(date_round_day(t, 0) <= t && t - date_round_day(t, 0) < 86400);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool initialized = (zel_error_init_nodefault(), zel_error_set_mt_id(), true);
    (void)initialized;
    fuzz_text(std::string(reinterpret_cast<const char *>(data), size).c_str());
    fuzz_fields(data, size);
    return 0;
}
