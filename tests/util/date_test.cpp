#include "util/date.h"

#include "support.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace
{

constexpr time_t kNov15 = 1794700800; // 2026-11-15 00:00:00 UTC
constexpr const char *kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";

class Zone
{
public:
    explicit Zone(const char *tz) : previous_(change_tz(tz)) {}
    ~Zone() { change_tz(previous_); }

private:
    const char *previous_;
};

tm broken(int year, int mon, int day, int hour = 0, int min = 0, int sec = 0)
{
    tm t = {};
    t.tm_year = year - 1900;
    t.tm_mon = mon - 1;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = min;
    t.tm_sec = sec;
    return t;
}

// ---- Reading ----

// "year-month-day hour:minute:second" of the fields as they were read, or "refused".
std::string read_by(const char *format, const char *text)
{
    tm t;
    memset(&t, 0x77, sizeof(t));
    const char *result = str_ptime(text, format, &t);
    EXPECT_TRUE(result == nullptr || result == text);
    char shown[100];
    snprintf(shown, sizeof(shown), "%d-%d-%d %d:%d:%d", t.tm_year, t.tm_mon, t.tm_mday, t.tm_hour, t.tm_min,
             t.tm_sec);
    if (result)
        return shown;
    EXPECT_STREQ(shown, "0-0-0 0:0:0") << text << ": a refused text clears the fields";
    return "refused";
}

TEST(DateRead, PtimeReadsAsSscanf)
{
    const char *sql = "%Y-%m-%d %H:%M:%S", *display = "%d-%b-%Y %H:%M:%S";
    const char *rows[][3] = {
        {sql, "2026-11-15 12:30:05", "126-10-15 12:30:5"},
        {sql, "2026-11-15", "126-10-15 0:0:0"},
        {sql, "2026-11-15T12:30:05", "126-10-15 0:0:0"}, // reading stops where the format does not fit
        {sql, "2026-11-15 12:30:05 and more", "126-10-15 12:30:5"},
        {sql, "  2026- 1-\t5\n 7: 8: 9", "126-0-5 7:8:9"},
        {sql, "2026-11-1512:30", "126-10-15 12:30:0"},
        {sql, "2026--1-05 10:00:00", "126--2-5 10:0:0"}, // the sign counts as a character
        {sql, "+026-+1-+5", "126-0-5 0:0:0"},
        {sql, "15-11-2026", "115-10-20 26:0:0"},
        {sql, "2026-13-45 99:99:99", "126-12-45 99:99:99"}, // nothing is checked
        {sql, "05-01-02", "105-0-2 0:0:0"},
        {sql, "69-01-02", "169-0-2 0:0:0"},
        {sql, "70-01-02", "70-0-2 0:0:0"},
        {sql, "99-01-02", "99-0-2 0:0:0"},
        {sql, "169-01-02", "169-0-2 0:0:0"},
        {sql, "1900-01-02", "0-0-2 0:0:0"},
        {sql, "2069-12-31", "169-11-31 0:0:0"},
        {sql, "0000-00-00 00:00:00", "0-0-0 0:0:0"}, // empty
        {sql, "1900-01-00", "0-0-0 0:0:0"},
        {display, "15-nOV-2026 1:2:3", "126-10-15 1:2:3"},
        {display, "15-Nov-26", "126-10-15 0:0:0"},
        {"%H:%M:%S", "10:11:12", "100--1-0 10:11:12"}, // neither year nor month
        {"%y%m%d", "261115", "126-10-15 0:0:0"},
        {"%d.%m.%Y", "15.11.2026", "126-10-15 0:0:0"},
        {"", "2026-11-15", "refused"}};
    for (const auto &row : rows)
        EXPECT_EQ(read_by(row[0], row[1]), row[2]) << row[0] << " of " << row[1];
    for (const char *text : {"20261-11-15", "2026-11", "15/11/2026", "2026-11--", "170-01-02", "1899-01-02",
                             "2070-01-01", "-1-01-01", ""})
        EXPECT_EQ(read_by(sql, text), "refused") << text;
    for (const char *text : {"15-Nove-2026", "15-Nox-2026", "15-No -2026"})
        EXPECT_EQ(read_by(display, text), "refused") << text;
    EXPECT_EQ(read_by(sql, nullptr), "refused");
    EXPECT_EQ(read_by(nullptr, "2026-11-15"), "refused");
    EXPECT_STREQ(str_ptime("26-1-2", sql, nullptr), "26-1-2");
    expect_fatal("Invalid date format %j", [] { str_ptime("", "%Y-%j", nullptr); });
    expect_fatal("Invalid date format %%", [] { str_ptime("x", "%%", nullptr); });
}

TEST(DateRead, TextForms)
{
    ReportLog reports;
    const struct {
        const char *text;
        time_t atoi, sql, xml;
    } rows[] = {{"15-Nov-2026", kNov15, 0, -1},
                {"15-Nov-26 12:30", kNov15 + 45000, 0, -1},
                {"2026-11-15 12:00:00", kNov15 + 43200, kNov15 + 43200, kNov15}, // XML stops before the blank
                {"2026-11-15T12:00:00Z", kNov15, kNov15, kNov15 + 43200},
                {"15-11-2026", 1448071200, 1448071200, 1447977600},
                {"2026--1-05 10:00:00", 1762336800, 1762336800, -1},
                {"2026-02-30T00:00:00Z", 1772409600, 1772409600, -1}, // 2 March; not a day of the calendar
                {"2026-02-28T24:00:00Z", 1772236800, 1772236800, -1},
                {"2028-02-29T23:59:59Z", 1835395200, 1835395200, 1835481599},
                {"0000-00-00", 0, 0, -1},
                {" \t\n", 0, 0, -1},
                {"", 0, 0, -1},
                {nullptr, 0, 0, -1}};
    for (const auto &row : rows) {
        EXPECT_EQ(date_atoi(row.text, 0), row.atoi) << row.text;
        EXPECT_EQ(date_sql2time(row.text), row.sql) << row.text;
        EXPECT_EQ(date_xml2time(row.text), row.xml) << row.text;
    }
    EXPECT_EQ(date_sql2time("1969-12-31 23:59:58"), -2) << "four digits may name a year before 1970";
    EXPECT_EQ(reports.take(), "");
    EXPECT_EQ(date_atoi("15/11/2026", 0), 0);
    EXPECT_EQ(date_sql2time("15/11/2026"), 0);
    tm t = broken(2026, 1, 1);
    EXPECT_EQ(date_sql2tm("15-Nov-2026", &t), nullptr);
    EXPECT_EQ(date_k2tm("%s", &t), nullptr);
    EXPECT_EQ(reports.take(), "5: date_atoi: invalid date format '15/11/2026'\n"
                              "5: date_sql2tm: invalid date format '15-Nov-2026'\n"
                              "5: date_k2tm: invalid date format '%s'\n");
    EXPECT_EQ(t.tm_year, 0);
    for (const char *blank : {static_cast<const char *>(nullptr), "", " \n"}) {
        t = broken(2026, 1, 1);
        EXPECT_EQ(date_k2tm(blank, &t), &t);
        EXPECT_STREQ(date_tm2sql(&t), "");
        EXPECT_STREQ(date_sql2k(blank), "");
        EXPECT_STREQ(date_k2sql(blank), "");
    }
    EXPECT_STREQ(date_sql2k("2026-11-15 12:30:00"), "15-Nov-26 12:30");
    EXPECT_STREQ(date_k2sql("15-Nov-26 12:30"), "2026-11-15 12:30:00");
    EXPECT_STREQ(date_k2sql("2026-02-31"), "2026-02-31") << "not normalised";
    EXPECT_EQ(reports.take(), "");
    EXPECT_STREQ(date_sql2k("bad"), "");
    EXPECT_EQ(date_k2sql("bad"), nullptr);
    EXPECT_EQ(reports.take(),
              "5: date_sql2tm: invalid date format 'bad'\n5: date_k2tm: invalid date format 'bad'\n");
}

// ---- Printing ----

TEST(DatePrint, FieldsAndTheirOmissions)
{
    const struct {
        tm t;
        const char *sql, *display;
    } rows[] = {{broken(2026, 11, 15), "2026-11-15", "15-Nov-26"},
                {broken(2026, 11, 5, 10, 30), "2026-11-05 10:30:00", "05-Nov-26 10:30"},
                {broken(1999, 1, 2, 0, 0, 7), "1999-01-02 00:00:07", "02-Jan-99 00:00:07"},
                {broken(1970, 1, 1), "1970-01-01", "01-Jan-70"},
                {broken(1965, 12, 31, 23), "1965-12-31 23:00:00", "31-Dec-1965 23:00"},
                {broken(2000, 0, 1), "2000-00-01", "01-?-00"},
                {broken(1900, 1, 0), "", ""},
                {broken(2000, 0, 0), "", ""},
                {broken(2000, 1, 0, 0, 1), "2000-01-00 00:01:00", "00-Jan-00 00:01"},
                {broken(2001, 1, 0), "2001-01-00", "00-Jan-01"}};
    for (const auto &row : rows) {
        EXPECT_STREQ(date_tm2sql(&row.t), row.sql);
        EXPECT_STREQ(date_tm2k(&row.t), row.display);
    }
    EXPECT_STREQ(date_tm2sql(nullptr), "");
    EXPECT_STREQ(date_tm2k(nullptr), "");
    tm extreme;
    memset(&extreme, 0x7f, sizeof(extreme));
    EXPECT_STREQ(date_tm2sql(&extreme), "2139064043-2139062144-2139062143 2139062143:2139062143:2139062143");
}

TEST(DatePrint, TimesAndTheirLimits)
{
    constexpr time_t kLast = 67768036191676799; // the last second whose year an int holds
    EXPECT_STREQ(date_time2sql(0, 0), "");
    EXPECT_STREQ(date_time2sql(1, 0), "1970-01-01 00:00:01");
    EXPECT_STREQ(date_itoa(kNov15 + 45005, 0), "15-Nov-26 12:30:05");
    EXPECT_STREQ(date_time2sql(kLast, 0), "2147485547-12-31 23:59:59");
    for (const time_t t :
         {kLast + 1, std::numeric_limits<time_t>::min(), std::numeric_limits<time_t>::max()}) {
        EXPECT_STREQ(date_time2sql(t, 0), "");
        EXPECT_STREQ(date_itoa(t, 1), "");
        EXPECT_STREQ(date_itoa_fmt(t, "%Y", 0), "");
        EXPECT_STREQ(arpa_date_get(t), "");
        EXPECT_EQ(date_round_day(t, 0), t);
    }
    EXPECT_STREQ(arpa_date_get(0), "Thu, 01 Jan 1970 00:00:00 GMT");
    EXPECT_STREQ(arpa_date_get(kNov15 + 45005), "Sun, 15 Nov 2026 12:30:05 GMT");
    EXPECT_STREQ(date_itoa_fmt(kNov15, "%A %j%%", 0), "Sunday 319%");
    EXPECT_STREQ(date_itoa_fmt(kNov15, nullptr, 0), "");
    EXPECT_STREQ(date_itoa_fmt(kNov15, date_itoa_fmt(kNov15, "%%Y %%m", 0), 0), "2026 11");
    const std::string fits(255, 'x');
    EXPECT_EQ(date_itoa_fmt(kNov15, fits.c_str(), 0), fits);
    EXPECT_STREQ(date_itoa_fmt(kNov15, (fits + "x").c_str(), 0), "");
    timeval tv = {.tv_sec = kNov15, .tv_usec = 42};
    EXPECT_STREQ(date_us_itoa_fmt(&tv, "%H:%M:%S", 0), "00:00:00.000042");
    EXPECT_STREQ(date_us_itoa_fmt(&tv, "", 0), ".000042");
    EXPECT_STREQ(date_us_itoa_fmt(nullptr, "%H", 0), "");
    const char *kept = date_time2sql(kNov15, 0);
    const tm other = broken(1999, 1, 1);
    date_tm2sql(&other);
    EXPECT_STREQ(kept, "2026-11-15") << "each function has its own buffer";
}

TEST(DatePrint, Now)
{
    const Zone zone("XXX-5:30");
    const time_t before = time(nullptr);
    const std::string utc = date_get_fmt("%s", 1), day = date_get(), clock = kavri_time(0),
                      with_ms = kavri_time(1);
    const time_t after = time(nullptr), seen = static_cast<time_t>(atoll(utc.c_str()));
    EXPECT_LE(before, seen);
    EXPECT_LE(seen, after);
    EXPECT_TRUE(day == date_itoa_fmt(before, "%d-%b-%y", 0) || day == date_itoa_fmt(after, "%d-%b-%y", 0))
        << day;
    EXPECT_TRUE(clock == date_itoa_fmt(before, "%H:%M:%S", 1) || clock == date_itoa_fmt(after, "%H:%M:%S", 1))
        << clock;
    ASSERT_EQ(with_ms.size(), 12U) << with_ms;
    EXPECT_EQ(with_ms[8], '.');
    EXPECT_EQ(with_ms.find_first_not_of("0123456789", 9), std::string::npos);
    EXPECT_NEAR(date_now_micro(), static_cast<double>(before), 10);
}

// ---- Arithmetic ----

// Every day of 400 years from 1800 on, counted by the rule of leap years, with every zone set that may not
// matter.
TEST(DateCalendar, UtcIsItsOwnArithmetic)
{
    const Zone zone(kCentralEurope);
    const int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    int64_t day = -62091; // 1800-01-01
    for (int year = 1800; year < 2200; year++) {
        const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
        for (int month = 0; month < 12; month++) {
            const int length = lengths[month] + (leap && month == 1);
            for (int mday = 1; mday <= length; mday++, day++) {
                tm t = broken(year, month + 1, mday, 1, 2, 3);
                t.tm_isdst = 1; // ignored
                ASSERT_EQ(kmktime(&t, 0), day * 86400 + 3723) << year << " " << month << " " << mday;
                ASSERT_EQ(t.tm_wday, ((day + 4) % 7 + 7) % 7);
                ASSERT_EQ(t.tm_isdst, 0);
                tm shifted = broken(year - 3, month + 37, mday - 1, 25, 62, -57);
                ASSERT_EQ(kmktime(&shifted, 0), day * 86400 - 86400 + 90000 + 3720 - 57);
            }
        }
    }
    EXPECT_STREQ(getenv("TZ"), kCentralEurope);
    tm t = broken(2026, -11, -30, -25, -61, -61);
    EXPECT_EQ(kmktime(&t, 0), 1735689600 - 31 * 86400 - 25 * 3600 - 61 * 60 - 61);
    tm far = broken(2026, 1, 1);
    far.tm_year = far.tm_mon = std::numeric_limits<int>::max();
    const tm untouched = far;
    EXPECT_EQ(kmktime(&far, 0), -1);
    EXPECT_EQ(memcmp(&far, &untouched, sizeof(far)), 0);
    EXPECT_EQ(kmktime(nullptr, 0), -1);
}

TEST(DateCalendar, LocalTimeAndDaylightSaving)
{
    const Zone zone(kCentralEurope);
    EXPECT_EQ(date_atoi("15-Jan-2026 12:00:00", 1), 1768474800);
    EXPECT_EQ(date_atoi("01-Jul-2026 12:00:00", 1), 1782900000);
    EXPECT_STREQ(date_itoa(1782900000, 1), "01-Jul-26 12:00");
    EXPECT_STREQ(date_itoa_fmt(1782900000, "%H %Z", 1), "12 CEST");
    tm t = broken(2026, 7, 1, 12);
    EXPECT_EQ(kmktime(&t, 1), 1782900000);
    EXPECT_EQ(t.tm_isdst, 1);
    EXPECT_EQ(t.tm_hour, 12);
    // The days of the two changes have 23 and 25 hours; t is on the other side of the change than midnight.
    EXPECT_EQ(date_round_day(1774796400, 1), 1774738800); // 29 March
    EXPECT_EQ(date_round_day(1792936800, 1), 1792879200); // 25 October
    EXPECT_EQ(date_round_day(kNov15 + 45005, 0), kNov15);
    EXPECT_EQ(date_round_day(-1, 0), -86400);
}

TEST(DateCalendar, ChangeTzKeepsWhatItReturned)
{
    const Zone outer(nullptr);
    EXPECT_EQ(change_tz("AAA-1"), nullptr);
    EXPECT_STREQ(date_itoa_fmt(0, "%H%Z", 1), "01AAA");
    const char *first = change_tz("BBB-2");
    EXPECT_STREQ(first, "AAA-1");
    const std::string longer(300, 'C');
    EXPECT_STREQ(change_tz(longer.c_str()), "BBB-2");
    EXPECT_EQ(change_tz(first), longer);
    EXPECT_EQ(change_tz(nullptr), first) << "one copy of each";
    EXPECT_EQ(getenv("TZ"), nullptr);
    EXPECT_STREQ(first, "AAA-1");
}

TEST(DateCalendar, CheckDateTime)
{
    const struct {
        tm t;
        bool date, time;
    } rows[] = {{broken(2028, 2, 29, 23, 59, 59), true, true},
                {broken(2026, 2, 29, 23, 59, 59), false, true},
                {broken(2026, 2, 31), false, true},
                {broken(2026, 13, 1), false, true},
                {broken(2026, 1, 0), false, true},
                {broken(2026, 1, 1, 24), false, false},
                {broken(2026, 1, 1, 0, 0, 60), true, false},
                {broken(2026, 1, 1, 0, -1, 60), true, false}};
    for (const auto &row : rows) {
        EXPECT_EQ(check_date_time(&row.t, 1, 0), row.date) << date_tm2sql(&row.t);
        EXPECT_EQ(check_date_time(&row.t, 0, 1), row.time) << date_tm2sql(&row.t);
        EXPECT_EQ(check_date_time(&row.t, 1, 1), row.date && row.time) << date_tm2sql(&row.t);
        EXPECT_TRUE(check_date_time(&row.t, 0, 0));
    }
    const tm minus_one = broken(1969, 12, 31, 23, 59, 59);
    EXPECT_FALSE(check_date_time(&minus_one, 0, 0)) << "-1 is a time and the failure";
    EXPECT_FALSE(check_date_time(nullptr, 0, 0));
}

TEST(DateCalendar, Offsets)
{
    constexpr time_t kJan31 = 1769853600; // 2026-01-31 10:00:00
    const struct {
        int n, unit;
        time_t result;
    } rows[] = {{-7, DATE_UNIT_SECOND, kJan31 - 7},
                {2, DATE_UNIT_MINUTE, kJan31 + 120},
                {-3, DATE_UNIT_HOUR, kJan31 - 10800},
                {1, DATE_UNIT_DAY, kJan31 + 86400},
                {2147483647, DATE_UNIT_WEEK, kJan31 + 2147483647LL * 604800},
                {1, DATE_UNIT_MONTH, 1772532000},   // 3 March
                {-11, DATE_UNIT_MONTH, 1740996000}, // 3 March 2025
                {25, DATE_UNIT_MONTH, 1835604000},  // 2 March 2028
                {2, DATE_UNIT_YEAR, 1832925600},    // 31 January 2028
                {2147483647, DATE_UNIT_YEAR, -1},
                {9, 7, kJan31},
                {9, -1, kJan31}};
    for (const Zone zone("UTC0"); const auto &row : rows)
        EXPECT_EQ(time_offset_add(kJan31, row.n, row.unit), row.result) << row.n << " of unit " << row.unit;
    const Zone zone(kCentralEurope);
    EXPECT_EQ(time_offset_add(kJan31, 1, DATE_UNIT_MONTH), 1772532000 - 3600)
        << "read as UTC, written as local time";
    constexpr time_t kMax = std::numeric_limits<time_t>::max(), kMin = std::numeric_limits<time_t>::min();
    EXPECT_EQ(time_offset_add(kMax, 1, DATE_UNIT_WEEK), kMax);
    EXPECT_EQ(time_offset_add(kMin, -1, DATE_UNIT_SECOND), kMin);
    EXPECT_EQ(time_offset_add(kMax, 1, DATE_UNIT_MONTH), -1);
}

TEST(DateCalendar, SmallHelpers)
{
    int days = 0, hours = 0, minutes = 0;
    sec_to_days_hours_minutes(3 * 86400 + 4 * 3600 + 5 * 60 + 59, &days, &hours, &minutes);
    EXPECT_EQ(days * 10000 + hours * 100 + minutes, 30405);
    sec_to_days_hours_minutes(-90061, &days, &hours, &minutes);
    EXPECT_EQ(days * 10000 + hours * 100 + minutes, -10101);
    sec_to_days_hours_minutes(std::numeric_limits<int64_t>::max(), &days, nullptr, nullptr);
    EXPECT_EQ(days, std::numeric_limits<int>::max());

    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const struct {
        double ms;
        time_t seconds;
        long microseconds;
    } rows[] = {{1500.25, 1, 500250},
                {0.0019, 0, 1},
                {-1500.5, -1, -500500},
                {999.9999999999999, 0, 999999},
                {NAN, 0, 0},
                {1e15, 1000000000000, 0},
                {kInfinity, 9223372036854774784, 999999},
                {-kInfinity, -9223372036854774784, -999999}};
    for (const auto &row : rows) {
        timeval tv = {};
        ms2tv(&tv, row.ms);
        EXPECT_EQ(tv.tv_sec, row.seconds) << row.ms;
        EXPECT_EQ(tv.tv_usec, row.microseconds) << row.ms;
    }
    const timeval tv = {.tv_sec = 3, .tv_usec = 500000};
    EXPECT_EQ(date_microseconds(&tv), 3.5);
    EXPECT_EQ(date_microseconds(nullptr), 0);
    EXPECT_EQ(time_diff(10, 250000, 12, 500000), -2.25F);
    EXPECT_EQ(time_diff(4000000000, 0, 3999999999, 999999), static_cast<float>(1e-6));
}

} // namespace
