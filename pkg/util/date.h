#ifndef KUTIL_UTIL_DATE_H
#define KUTIL_UTIL_DATE_H

/* date.h: times as seconds since the epoch, as struct tm, and as text.
 *
 * The text forms: SQL ("2026-11-15 12:30:00"), display ("15-Nov-26 12:30", years before 1970 with four
 * digits), XML ("2026-11-15T12:30:00Z") and HTTP ("Sun, 15 Nov 2026 12:30:00 GMT"). A time of exactly
 * midnight is left out of the SQL and display forms. Years run from 1900 to 2069 where they are read; two
 * digits 00 to 69 mean 2000 to 2069. Month and day names are English, whatever the locale.
 *
 * An empty date is a struct tm that is NULL, or all zero but for a year of 0 or 100 and a month of 0 or -1.
 * It prints as "" and is what a blank text reads as; as a time it is 0, so the first second of 1970 prints as
 * "" too.
 *
 * `local` chooses the zone: not 0 is the process's local time, 0 is UTC, which is own arithmetic and never
 * looks at TZ. Times that struct tm cannot hold print as "".
 *
 * Each function that returns a text has its own static buffer, valid until its next call. What strftime makes
 * has room for 255 characters (79 in the HTTP form); a longer text is not cut but given as "". Only change_tz
 * allocates. */

#include "api.h"

#include <stdint.h>
#include <sys/time.h>
#include <time.h>

KUTIL_64_BIT_TIME;

KUTIL_BEGIN_DECLS

/* The units of time_offset_add. */
typedef enum date_unit {
    DATE_UNIT_SECOND = 0,
    DATE_UNIT_MINUTE = 1,
    DATE_UNIT_HOUR = 2,
    DATE_UNIT_DAY = 3,
    DATE_UNIT_WEEK = 4,
    DATE_UNIT_MONTH = 5,
    DATE_UNIT_YEAR = 6
} date_unit;

/* ---- Reading ---- */

/* str_ptime reads `text` by `format` into *out and returns text, or NULL with *out clear. The format holds %H
 * %M %S %d %m %y (two characters), %Y (four), %b (three letters, an English month in any case) and plain
 * characters; any other conversion is the fatal report "Invalid date format %%%c". It reads as sscanf does:
 * blanks before a number are skipped, a sign is taken and counts as one of its characters, a blank in the
 * format stands for any white space, and reading stops at the first thing that does not fit. Three
 * conversions are enough, so a date without its time has the time 0. NULL comes back for fewer than three,
 * for an unknown month name and for a year outside 1900..2069 (0 to 69 are 2000 to 2069, 70 to 169 are 1970
 * to 2069). Without %b and %m the month is -1. An empty date leaves *out clear and returns text. Nothing is
 * checked beyond that: 31-Feb is what mktime makes of it. NULL text or format: NULL. */
KUTIL_API const char *str_ptime(const char *text, const char *format, struct tm *out);

/* date_atoi reads the display form, else the SQL form. Returns the time, 0 for blank, NULL or an empty date,
 * and 0 with the report "date_atoi: invalid date format '%s'" at warn for anything else. */
KUTIL_API time_t date_atoi(const char *text, int local);

/* date_sql2time reads the SQL form as UTC. Returns the time, 0 for anything else. */
KUTIL_API time_t date_sql2time(const char *text);

/* date_xml2time reads the XML form. Returns the time, -1 for anything else, an empty date and a day or time
 * that the calendar does not have. */
KUTIL_API time_t date_xml2time(const char *text);

/* date_sql2tm reads the SQL form into *out and returns out; blank, empty and NULL texts clear it. Anything
 * else: *out clear, the report "date_sql2tm: invalid date format '%s'" at warn, NULL. A NULL out: NULL. */
KUTIL_API struct tm *date_sql2tm(const char *text, struct tm *out);

/* date_k2tm is date_sql2tm that reads the display form, else the SQL form, and reports under its own name. */
KUTIL_API struct tm *date_k2tm(const char *text, struct tm *out);

/* ---- Printing ---- */

/* date_tm2sql returns "%Y-%m-%d %H:%M:%S" of *tm, without the time at midnight, "" of an empty date. */
KUTIL_API char *date_tm2sql(const struct tm *tm);

/* date_tm2k returns "%d-%b-%y %H:%M:%S" of *tm, without ":%S" at second 0, without the time at midnight, ""
 * of an empty date. Deliberate: the year has two digits from 1970 on and four before, where two would be read
 * as another century. */
KUTIL_API char *date_tm2k(const struct tm *tm);

/* date_sql2k prints like date_tm2k what date_sql2tm reads; "" of a bad text, with date_sql2tm's report. */
KUTIL_API char *date_sql2k(const char *text);

/* date_k2sql prints like date_tm2sql what date_k2tm reads; NULL of a bad text, with date_k2tm's report. */
KUTIL_API char *date_k2sql(const char *text);

/* date_time2sql and date_itoa print the time `t` like date_tm2sql and date_tm2k; "" of 0. */
KUTIL_API char *date_time2sql(time_t t, int local);
KUTIL_API char *date_itoa(time_t t, int local);

/* date_itoa_fmt returns strftime of POSIX with `format` for the time `t`, its names in English; "" of a NULL
 * format. */
KUTIL_API char *date_itoa_fmt(time_t t, const char *format, int local);

/* date_us_itoa_fmt returns date_itoa_fmt of the seconds, then "." and the microseconds with six digits; "" of
 * NULL. */
KUTIL_API char *date_us_itoa_fmt(const struct timeval *tv, const char *format, int local);

/* date_get_fmt returns date_itoa_fmt of now. */
KUTIL_API char *date_get_fmt(const char *format, int local);

/* date_get returns "%d-%b-%y" of now in UTC. */
KUTIL_API char *date_get(void);

/* arpa_date_get returns "%a, %d %b %Y %H:%M:%S GMT" of the time `t`. Source: IMF-fixdate of RFC 9110, 5.6.7.
 */
KUTIL_API char *arpa_date_get(time_t t);

/* kavri_time returns the local time of day "%H:%M:%S", with `with_ms` followed by "." and the milliseconds.
 */
KUTIL_API char *kavri_time(int with_ms);

/* ---- Arithmetic ---- */

/* kmktime returns the time of *tm, whose fields may be outside their ranges, and stores the normalised
 * fields. UTC ignores tm_isdst. Local time is mktime of POSIX, done again with tm_isdst 1 when daylight
 * saving turns out to be in effect. -1: the time cannot be held, *tm as it was, or NULL; it is also the last
 * second of 1969. */
KUTIL_API time_t kmktime(struct tm *tm, int local);

/* change_tz sets the environment variable TZ (NULL: removes it), calls tzset and returns the value before,
 * NULL when there was none. The result stays valid for the life of the process: each value is kept once.
 * Running out of memory ends the process. */
KUTIL_API const char *change_tz(const char *tz);

/* check_date_time tells whether *tm names a day (with `check_date`) and a time (with `check_time`) that the
 * calendar and the clock have, that is whether normalising leaves those fields as they are. NULL: 0. */
KUTIL_API int check_date_time(const struct tm *tm, int check_date, int check_time);

/* date_round_day returns the start of the day of `t`. */
KUTIL_API time_t date_round_day(time_t t, int local);

/* time_offset_add returns `t` moved by `n` units (a date_unit; any other: t). Months and years keep the day
 * of the month where the month has it and run into the next month where it does not. Deliberate: they are
 * taken from UTC and put together as local time, so the result is off by the zone's offset where that is not
 * 0. */
KUTIL_API time_t time_offset_add(time_t t, int n, int unit);

/* sec_to_days_hours_minutes splits a number of seconds; each output may be NULL. Days saturate at int; a
 * negative number gives parts of 0 or less. */
KUTIL_API void sec_to_days_hours_minutes(int64_t seconds, int *days, int *hours, int *minutes);

/* ms2tv stores milliseconds as seconds and microseconds, truncated toward zero. What a timeval cannot hold is
 * clamped, not a number is 0. */
KUTIL_API void ms2tv(struct timeval *out, double ms);

/* date_microseconds returns the time as seconds with a fraction, NULL as 0. Deliberate: seconds, despite its
 * name. */
KUTIL_API double date_microseconds(const struct timeval *tv);

/* date_now_micro is date_microseconds of now. */
KUTIL_API double date_now_micro(void);

/* time_diff returns a - b in seconds with a fraction. */
KUTIL_API float time_diff(int64_t a_sec, int64_t a_usec, int64_t b_sec, int64_t b_usec);

KUTIL_END_DECLS

#endif
