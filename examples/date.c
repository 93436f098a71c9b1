/* A date in each of its forms, and what a year, a month and a day later is.
 *
 *     example_date "15-Nov-2026 12:30:00" */

#include "util/date.h"
#include "util/zel_error.h"

#include <stdio.h>

int main(int argc, char **argv)
{
    zel_error_init_default(6);
    zel_error_set_mt_id();
    time_t t = argc > 1 ? date_atoi(argv[1], 0) : time(NULL);
    if (t == 0)
        return 1; /* a bad date was reported */

    printf("seconds  %lld\n", (long long)t);
    printf("display  %s\n", date_itoa(t, 0));
    printf("SQL      %s\n", date_time2sql(t, 0));
    printf("XML      %s\n", date_itoa_fmt(t, "%Y-%m-%dT%H:%M:%SZ", 0));
    printf("HTTP     %s\n", arpa_date_get(t));

    static const struct {
        const char *name;
        int unit;
    } units[] = {{"year", DATE_UNIT_YEAR}, {"month", DATE_UNIT_MONTH}, {"day", DATE_UNIT_DAY}};
    change_tz("UTC0"); /* months and years are put together in local time */
    for (int i = 0; i < 3; i++)
        printf("a %s later is %s\n", units[i].name, date_itoa(time_offset_add(t, 1, units[i].unit), 0));
    return 0;
}
