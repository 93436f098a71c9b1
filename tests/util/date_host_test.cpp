// Dates from 1970 to 2069 against python3 and GNU date, which have calendars of their own.

#include "util/date.h"

#include "support.h"

#include <fstream>
#include <sstream>

namespace
{

bool has(const char *tool)
{
    return system((std::string("command -v ") + tool + " >/dev/null 2>&1").c_str()) == 0;
}

// The lines that `command` writes.
std::vector<std::string> lines_of(const std::string &command)
{
    std::vector<std::string> lines;
    FILE *pipe = popen(command.c_str(), "r");
    char line[512];
    while (pipe && fgets(line, sizeof(line), pipe)) {
        lines.emplace_back(line);
        lines.back().pop_back();
    }
    EXPECT_TRUE(pipe && pclose(pipe) == 0) << command;
    return lines;
}

// About 20,000 times spread over the hundred years, the hours of the day and the seconds of the minute; and
// the ends of every year.
constexpr const char *kPython = R"(
from datetime import datetime, timedelta, timezone
epoch = datetime(1970, 1, 1)
times = list(range(1, 3155760000, 157907))
for year in range(1970, 2070):
    start = int((datetime(year, 1, 1) - epoch).total_seconds())
    march = start + 59 * 86400
    times += [t for t in (start - 1, start, march - 1, march, march + 86400) if t > 0]
for t in times:
    d = epoch + timedelta(seconds=t)
    print(t, d.isoformat(sep="_"), d.strftime("%d-%b-%Y_%H:%M:%S %a,_%d_%b_%Y_%H:%M:%S_GMT %j %w"))
)";

std::string spaced(std::string text)
{
    for (char &c : text)
        c = c == '_' ? ' ' : c;
    return text;
}

TEST(DateHost, UtcAgreesWithPython)
{
    if (!has("python3"))
        GTEST_SKIP() << "python3 is missing";
    const std::vector<std::string> lines = lines_of(std::string("LC_ALL=C python3 -c '") + kPython + "'");
    ASSERT_GT(lines.size(), 20000U);
    for (const std::string &line : lines) {
        std::istringstream words(line);
        long long number = 0;
        std::string sql, display, http;
        int yday = 0, wday = 0;
        words >> number >> sql >> display >> http >> yday >> wday;
        const time_t t = number;
        sql = spaced(sql);
        ASSERT_EQ(date_sql2time(sql.c_str()), t) << line;
        ASSERT_EQ(date_atoi(spaced(display).c_str(), 0), t) << line;
        ASSERT_EQ(date_atoi(date_itoa(t, 0), 0), t) << line;
        ASSERT_EQ(arpa_date_get(t), spaced(http)) << line;
        ASSERT_EQ(date_itoa_fmt(t, "%Y-%m-%d %H:%M:%S", 0), sql) << line;
        std::string xml = sql + "Z";
        xml[10] = 'T';
        ASSERT_EQ(date_xml2time(xml.c_str()), t) << line;
        tm fields;
        ASSERT_EQ(kmktime(date_sql2tm(sql.c_str(), &fields), 0), t) << line;
        ASSERT_EQ(fields.tm_yday + 1, yday) << line;
        ASSERT_EQ(fields.tm_wday, wday) << line;
    }
}

// Local times, summer and winter, north and south, that GNU date reads. The hours around a change are left
// out: a time that exists twice or not at all may be read either way.
TEST(DateHost, LocalTimeAgreesWithDate)
{
    if (!has("date"))
        GTEST_SKIP() << "date is missing";
    char name[] = "date_host_test.XXXXXX";
    const int fd = mkstemp(name);
    ASSERT_GE(fd, 0);
    close(fd);
    std::vector<std::string> texts;
    for (time_t t = 43200; t < 3155000000; t += 86400 * 7 + 3601) {
        const std::string text = date_itoa_fmt(t, "%Y-%m-%d %H:%M:%S", 0);
        if (text.compare(11, 2, "04") > 0)
            texts.push_back(text);
    }
    std::ofstream file(name);
    for (const std::string &text : texts)
        file << text << "\n";
    file.close();
    for (const char *zone :
         {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "NZST-12NZDT,M9.5.0,M4.1.0/3", "NST3:30NDT,M3.2.0,M11.1.0"}) {
        const std::string command =
            std::string("TZ='") + zone + "' date -f " + name + " '+%s %Y-%m-%d %H:%M:%S'";
        const std::vector<std::string> lines = lines_of(command);
        const char *previous = change_tz(zone);
        EXPECT_EQ(lines.size(), texts.size());
        for (size_t i = 0; i < lines.size() && i < texts.size(); i++) {
            const time_t t = atoll(lines[i].c_str());
            EXPECT_EQ(date_atoi(texts[i].c_str(), 1), t) << zone << " " << texts[i];
            EXPECT_EQ(date_itoa_fmt(t, "%Y-%m-%d %H:%M:%S", 1), texts[i]) << zone << " " << t;
            if (HasFailure())
                break;
        }
        change_tz(previous);
    }
    remove(name);
}

} // namespace
