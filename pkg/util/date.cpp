#include "date.h"

#include "internal/heap.h"
#include "internal/report.h"
#include "internal/text.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <locale.h>

using namespace kutil;

namespace
{

constexpr int kEpochYear = 1900; // of tm_year
constexpr size_t kTextSize = 256;
constexpr size_t kHttpSize = 80;
constexpr size_t kFieldsSize = 96; // six numbers of any size and their separators

constexpr const char *kSqlForm = "%Y-%m-%d %H:%M:%S";
constexpr const char *kDisplayForm = "%d-%b-%Y %H:%M:%S";
constexpr const char *kXmlForm = "%Y-%m-%dT%H:%M:%SZ";

constexpr View kMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// ---- Broken-down times ----

bool is_midnight(const tm &t) { return t.tm_hour == 0 && t.tm_min == 0 && t.tm_sec == 0; }

bool is_empty(const tm *t)
{
    return !t || ((t->tm_year == 0 || t->tm_year == 100) && (t->tm_mon == 0 || t->tm_mon == -1) &&
                  t->tm_mday == 0 && is_midnight(*t));
}

bool is_blank_text(const char *text) { return trim_left(view(text)).empty(); }

bool break_down(time_t t, bool local, tm &out)
{
    if (!local)
        return gmtime_r(&t, &out) != nullptr;
    tzset(); // localtime_r alone need not see a changed TZ
    return localtime_r(&t, &out) != nullptr;
}

// Days from 1970-01-01 to the first of month `month` (0 to 11) of `year`, of the Gregorian calendar without
// end. The year begins in March here, so that the leap day is its last.
constexpr int64_t days_to_month(int64_t year, int month)
{
    const int64_t march_year = month < 2 ? year - 1 : year;
    const int64_t era = (march_year >= 0 ? march_year : march_year - 399) / 400;
    const int64_t year_of_era = march_year - era * 400;
    const int64_t day_of_year = (153 * ((month + 10) % 12) + 2) / 5;
    return era * 146097 + year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year - 719468;
}
static_assert(days_to_month(1970, 0) == 0 && days_to_month(2000, 2) == 11017 &&
              days_to_month(1969, 11) == -31);

// The seconds of fields that may lie outside their ranges. int fields cannot overflow 64 bits here.
int64_t utc_seconds(const tm &t)
{
    const int carry = t.tm_mon / 12 - (t.tm_mon % 12 < 0 ? 1 : 0);
    const int month = static_cast<int>(t.tm_mon - int64_t{carry} * 12);
    const int64_t days = days_to_month(int64_t{t.tm_year} + kEpochYear + carry, month) + t.tm_mday - 1;
    return days * 86400 + int64_t{t.tm_hour} * 3600 + int64_t{t.tm_min} * 60 + t.tm_sec;
}

time_t make_utc(tm &t)
{
    const time_t seconds = utc_seconds(t);
    tm normal = {};
    if (!break_down(seconds, false, normal))
        return -1;
    t = normal;
    return seconds;
}

// mktime believes tm_isdst, so a summer time that says 0 comes out an hour late: the second try says 1.
time_t make_local(tm &t)
{
    tm normal = t;
    time_t seconds = mktime(&normal);
    if (normal.tm_isdst > 0) {
        normal = t;
        normal.tm_isdst = 1;
        seconds = mktime(&normal);
    }
    t = normal;
    return seconds;
}

// ---- Reading ----

// Reads as sscanf does, one conversion at a time.
class Scanner
{
public:
    explicit Scanner(View text) : rest_(text) {}

    void skip_blanks() { rest_ = trim_left(rest_); }

    bool literal(char c)
    {
        if (rest_.empty() || rest_.front() != c)
            return false;
        rest_.remove_prefix(1);
        return true;
    }

    // "%<width>u": a sign counts towards the width. Negative numbers, which sscanf wraps, stay negative.
    bool number(size_t width, int &out)
    {
        skip_blanks();
        const View field = sub(rest_, 0, width);
        const bool negative = starts_with(field, "-");
        const size_t first = negative || starts_with(field, "+") ? 1 : 0;
        size_t end = first;
        int value = 0;
        for (; end < field.size() && is_digit(field[end]); end++)
            value = value * 10 + (field[end] - '0');
        if (end == first)
            return false;
        rest_.remove_prefix(end);
        out = negative ? -value : value;
        return true;
    }

    // "%<width>s"
    bool word(size_t width, View &out)
    {
        skip_blanks();
        size_t end = 0;
        while (end < rest_.size() && end < width && !is_space(rest_[end]))
            end++;
        out = sub(rest_, 0, end);
        rest_.remove_prefix(end);
        return end > 0;
    }

private:
    View rest_;
};

struct Fields {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    View month_name;
    int conversions = 0;
};

int *number_of(Fields &fields, char conversion)
{
    switch (conversion) {
    case 'Y':
    case 'y':
        return &fields.year;
    case 'm':
        return &fields.month;
    case 'd':
        return &fields.day;
    case 'H':
        return &fields.hour;
    case 'M':
        return &fields.minute;
    case 'S':
        return &fields.second;
    default:
        return nullptr;
    }
}

// A wrong format is a programming error wherever the text would stop.
bool is_valid_format(View format)
{
    for (size_t i = 0; i < format.size(); i++) {
        if (format[i] != '%')
            continue;
        Fields fields;
        const char conversion = ++i < format.size() ? format[i] : '\0';
        if (conversion != 'b' && !number_of(fields, conversion)) {
            zel_error_full(kEntity, kFatal, "Invalid date format %%%c", conversion);
            return false;
        }
    }
    return true;
}

bool scan_conversion(Scanner &scanner, char conversion, Fields &fields)
{
    if (conversion == 'b')
        return scanner.word(3, fields.month_name);
    return scanner.number(conversion == 'Y' ? 4 : 2, *number_of(fields, conversion));
}

// As far as the text goes along with the format.
Fields scan(View text, View format)
{
    Fields fields;
    Scanner scanner(text);
    for (size_t i = 0; i < format.size(); i++) {
        const char c = format[i];
        if (is_space(c)) {
            scanner.skip_blanks();
        } else if (c == '%') {
            if (!scan_conversion(scanner, format[++i], fields))
                break;
            fields.conversions++;
        } else if (!scanner.literal(c)) {
            break;
        }
    }
    return fields;
}

// 0 to 11, or what the number says; -1 when the text has none.
bool month_of(const Fields &fields, int &month)
{
    month = fields.month - 1;
    if (fields.month_name.empty())
        return true;
    const auto *found = std::find_if(std::begin(kMonths), std::end(kMonths),
                                     [&](View name) { return equal_ignoring_case(name, fields.month_name); });
    month = static_cast<int>(found - kMonths);
    return found != std::end(kMonths);
}

// Years are those of 1900 to 2069 with four digits, of 1970 to 2069 with two.
bool year_of(const Fields &fields, int &year)
{
    year = fields.year;
    if (year < 0)
        return false;
    if (year < 70)
        year += 100;
    else if (year >= kEpochYear)
        year -= kEpochYear;
    return year < 170;
}

tm *read_date(const char *text, tm *out, const char *function, const char *first_form,
              const char *second_form)
{
    if (!out)
        return nullptr;
    if (is_blank_text(text)) {
        *out = {};
        return out;
    }
    if (str_ptime(text, first_form, out) || (second_form && str_ptime(text, second_form, out)))
        return out;
    zel_error_full(kEntity, kWarn, "%s: invalid date format '%s'", function, text);
    return nullptr;
}

// ---- Printing ----

// The C library's names of days and months in English, whatever the process's locale.
locale_t english()
{
    static locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return locale;
}

// strftime, with "" for what cannot be printed or does not fit.
size_t print_format(char *out, size_t size, time_t t, const char *format, bool local)
{
    char made[kTextSize]; // aside: the format may be the text that stands in `out`
    tm fields = {};
    size_t length = 0;
    if (format && break_down(t, local, fields))
        length = english() ? strftime_l(made, size, format, &fields, english())
                           : strftime(made, size, format, &fields);
    *put(out, View(made, length)) = '\0';
    return length;
}

char *print_sql(char (&out)[kFieldsSize], const tm *t)
{
    out[0] = '\0';
    if (is_empty(t))
        return out;
    const int length =
        snprintf(out, sizeof(out), "%04lld-%02lld-%02d", static_cast<long long>(t->tm_year) + kEpochYear,
                 static_cast<long long>(t->tm_mon) + 1, t->tm_mday);
    if (!is_midnight(*t))
        snprintf(out + length, sizeof(out) - static_cast<size_t>(length), " %02d:%02d:%02d", t->tm_hour,
                 t->tm_min, t->tm_sec);
    return out;
}

char *print_display(char (&out)[kFieldsSize], const tm *t)
{
    out[0] = '\0';
    if (is_empty(t))
        return out;
    const char *month = t->tm_mon >= 0 && t->tm_mon < 12 ? kMonths[t->tm_mon].data() : "?";
    const long long year = static_cast<long long>(t->tm_year) + kEpochYear;
    // Deliberate: two digits from 1970 on.
    const bool short_year = t->tm_year >= 70;
    int length = snprintf(out, sizeof(out), "%02d-%s-%0*lld", t->tm_mday, month, short_year ? 2 : 4,
                          short_year ? year % 100 : year);
    if (!is_midnight(*t))
        length += snprintf(out + length, sizeof(out) - static_cast<size_t>(length), " %02d:%02d", t->tm_hour,
                           t->tm_min);
    if (t->tm_sec != 0)
        snprintf(out + length, sizeof(out) - static_cast<size_t>(length), ":%02d", t->tm_sec);
    return out;
}

// The fields of a time for printing; 0 and what cannot be broken down are empty dates.
tm printable(time_t t, int local)
{
    tm fields = {};
    if (t == 0 || !break_down(t, local != 0, fields))
        return {};
    return fields;
}

timeval now()
{
    timeval tv = {};
    gettimeofday(&tv, nullptr);
    return tv;
}

// ---- The time zone ----

struct KeptZone {
    KeptZone *next;
    char *text;
};
constinit KeptZone *kept_zones = nullptr;

// Each zone that the process ever had, once: few, and callers hold them as long as they like.
const char *keep_zone(const char *zone)
{
    for (const KeptZone *kept = kept_zones; kept; kept = kept->next) {
        if (view(kept->text) == zone)
            return kept->text;
    }
    auto *kept = new_record<KeptZone>();
    kept->text = copy_text(zone);
    kept->next = kept_zones;
    kept_zones = kept;
    return kept->text;
}

// ---- Arithmetic ----

constexpr int64_t kUnitSeconds[] = {1, 60, 3600, 86400, 604800};

time_t add_saturating(time_t t, int64_t seconds)
{
    time_t sum = 0;
    if (!__builtin_add_overflow(t, seconds, &sum))
        return sum;
    return seconds < 0 ? std::numeric_limits<time_t>::min() : std::numeric_limits<time_t>::max();
}

// Deliberate: broken down as UTC, put together as local time.
time_t add_months(time_t t, int years, int months)
{
    tm fields = {};
    if (!break_down(t, false, fields) || __builtin_add_overflow(fields.tm_year, years, &fields.tm_year))
        return -1;
    fields.tm_mon += months;
    return mktime(&fields);
}

} // namespace

// ---- Reading ----

const char *str_ptime(const char *text, const char *format, tm *out)
{
    tm unwanted;
    tm &fields = out ? *out : unwanted;
    fields = {};
    if (!text || !format || !is_valid_format(format))
        return nullptr;
    const Fields read = scan(text, format);
    tm result = {};
    if (read.conversions < 3 || !month_of(read, result.tm_mon) || !year_of(read, result.tm_year))
        return nullptr;
    result.tm_mday = read.day;
    result.tm_hour = read.hour;
    result.tm_min = read.minute;
    result.tm_sec = read.second;
    if (!is_empty(&result))
        fields = result;
    return text;
}

time_t date_atoi(const char *text, int local)
{
    tm fields;
    if (!read_date(text, &fields, __func__, kDisplayForm, kSqlForm) || is_empty(&fields))
        return 0;
    return kmktime(&fields, local);
}

time_t date_sql2time(const char *text)
{
    tm fields;
    return str_ptime(text, kSqlForm, &fields) && !is_empty(&fields) ? kmktime(&fields, 0) : 0;
}

time_t date_xml2time(const char *text)
{
    tm fields;
    if (!str_ptime(text, kXmlForm, &fields) || is_empty(&fields) || !check_date_time(&fields, 1, 1))
        return -1;
    return kmktime(&fields, 0);
}

tm *date_sql2tm(const char *text, tm *out) { return read_date(text, out, __func__, kSqlForm, nullptr); }

tm *date_k2tm(const char *text, tm *out) { return read_date(text, out, __func__, kDisplayForm, kSqlForm); }

// ---- Printing ----

char *date_tm2sql(const tm *t)
{
    static char text[kFieldsSize];
    return print_sql(text, t);
}

char *date_tm2k(const tm *t)
{
    static char text[kFieldsSize];
    return print_display(text, t);
}

char *date_sql2k(const char *text)
{
    static char printed[kFieldsSize];
    tm fields;
    return print_display(printed, date_sql2tm(text, &fields));
}

char *date_k2sql(const char *text)
{
    static char printed[kFieldsSize];
    tm fields;
    const tm *read = date_k2tm(text, &fields);
    return read ? print_sql(printed, read) : nullptr;
}

char *date_time2sql(time_t t, int local)
{
    static char text[kFieldsSize];
    const tm fields = printable(t, local);
    return print_sql(text, &fields);
}

char *date_itoa(time_t t, int local)
{
    static char text[kFieldsSize];
    const tm fields = printable(t, local);
    return print_display(text, &fields);
}

char *date_itoa_fmt(time_t t, const char *format, int local)
{
    static char text[kTextSize];
    print_format(text, sizeof(text), t, format, local != 0);
    return text;
}

char *date_us_itoa_fmt(const timeval *tv, const char *format, int local)
{
    static char text[kTextSize];
    constexpr size_t kFraction = sizeof(".-9223372036854775808");
    if (!tv || !format) {
        text[0] = '\0';
        return text;
    }
    const bool has_no_text = *format == '\0'; // asked before the text changes: it may be the format
    const size_t length = print_format(text, sizeof(text) - kFraction, tv->tv_sec, format, local != 0);
    if (length > 0 || has_no_text)
        snprintf(text + length, kFraction + 1, ".%06lld", static_cast<long long>(tv->tv_usec));
    return text;
}

char *date_get_fmt(const char *format, int local)
{
    static char text[kTextSize];
    print_format(text, sizeof(text), now().tv_sec, format, local != 0);
    return text;
}

char *date_get()
{
    static char text[kTextSize];
    print_format(text, sizeof(text), now().tv_sec, "%d-%b-%y", false);
    return text;
}

char *arpa_date_get(time_t t)
{
    static char text[kHttpSize];
    print_format(text, sizeof(text), t, "%a, %d %b %Y %H:%M:%S GMT", false);
    return text;
}

char *kavri_time(int with_ms)
{
    static char text[kTextSize];
    timespec ts = {};
    clock_gettime(CLOCK_REALTIME, &ts);
    const size_t length = print_format(text, sizeof(text), ts.tv_sec, "%H:%M:%S", true);
    if (with_ms)
        snprintf(text + length, sizeof(text) - length, ".%03d", static_cast<int>(ts.tv_nsec / 1000000));
    return text;
}

// ---- Arithmetic ----

time_t kmktime(tm *t, int local)
{
    if (!t)
        return -1;
    return local ? make_local(*t) : make_utc(*t);
}

const char *change_tz(const char *tz)
{
    const char *current = getenv("TZ");
    const char *previous = current ? keep_zone(current) : nullptr;
    const int result = tz ? setenv("TZ", tz, 1) : unsetenv("TZ");
    if (result != 0)
        zel_perror_full(kEntity, kErr, "%s: TZ not changed", __func__);
    tzset();
    return previous;
}

int check_date_time(const tm *t, int check_date, int check_time)
{
    if (!t)
        return 0;
    tm normal = *t;
    if (kmktime(&normal, 0) == -1)
        return 0;
    const bool same_date =
        normal.tm_mday == t->tm_mday && normal.tm_mon == t->tm_mon && normal.tm_year == t->tm_year;
    const bool same_time =
        normal.tm_hour == t->tm_hour && normal.tm_min == t->tm_min && normal.tm_sec == t->tm_sec;
    return (same_date || !check_date) && (same_time || !check_time);
}

time_t date_round_day(time_t t, int local)
{
    tm fields = {};
    if (!break_down(t, local != 0, fields))
        return t;
    // Midnight may be on the other side of a change of daylight saving than t: kmktime finds out.
    fields.tm_hour = fields.tm_min = fields.tm_sec = fields.tm_isdst = 0;
    return kmktime(&fields, local);
}

time_t time_offset_add(time_t t, int n, int unit)
{
    switch (unit) {
    case DATE_UNIT_SECOND:
    case DATE_UNIT_MINUTE:
    case DATE_UNIT_HOUR:
    case DATE_UNIT_DAY:
    case DATE_UNIT_WEEK:
        return add_saturating(t, n * kUnitSeconds[unit]);
    case DATE_UNIT_MONTH:
        return add_months(t, n / 12, n % 12);
    case DATE_UNIT_YEAR:
        return add_months(t, n, 0);
    default:
        return t;
    }
}

void sec_to_days_hours_minutes(int64_t seconds, int *days, int *hours, int *minutes)
{
    constexpr int64_t kMost = std::numeric_limits<int>::max();
    if (days)
        *days = static_cast<int>(std::clamp(seconds / 86400, -kMost - 1, kMost));
    if (hours)
        *hours = static_cast<int>(seconds / 3600 % 24);
    if (minutes)
        *minutes = static_cast<int>(seconds / 60 % 60);
}

void ms2tv(timeval *out, double ms)
{
    if (!out)
        return;
    // The largest double below 2^63, the first that time_t does not hold.
    constexpr double kMost = 9223372036854774784.0;
    const double wanted = ms == ms ? ms : 0; // not a number is not equal to itself
    out->tv_sec = static_cast<time_t>(std::clamp(wanted / 1000, -kMost, kMost));
    const double microseconds = (wanted - static_cast<double>(out->tv_sec) * 1000) * 1000;
    out->tv_usec = static_cast<suseconds_t>(std::clamp(microseconds, -999999.0, 999999.0));
}

double date_microseconds(const timeval *tv)
{
    if (!tv)
        return 0;
    return (static_cast<double>(tv->tv_sec) * 1000000 + static_cast<double>(tv->tv_usec)) / 1000000;
}

double date_now_micro()
{
    const timeval tv = now();
    return date_microseconds(&tv);
}

float time_diff(int64_t a_sec, int64_t a_usec, int64_t b_sec, int64_t b_usec)
{
    const double seconds = static_cast<double>(a_sec) - static_cast<double>(b_sec);
    const double microseconds = static_cast<double>(a_usec) - static_cast<double>(b_usec);
    return static_cast<float>(seconds + microseconds / 1000000);
}
