#include "util/estream.h"

#include "support.h"
#include "util/internal/estream.h"
#include "util/sock.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/times.h>

// Streams over socket pairs, on a clock of the test's own: waiting for a time-out moves it and takes no time.
// Reads and writes fail and fall short on demand.

namespace
{

uint32_t ticks = 1000;

// The next results of read and send: an errno, or how many bytes at most when negative; 0 is a real call.
std::vector<int> read_script;
std::vector<int> send_script;

// The length to ask for, or -1 with errno.
ssize_t next_of(std::vector<int> *script, size_t length)
{
    if (script->empty())
        return static_cast<ssize_t>(length);
    const int entry = script->front();
    script->erase(script->begin());
    if (entry > 0) {
        errno = entry;
        return -1;
    }
    return entry < 0 ? std::min<ssize_t>(-entry, static_cast<ssize_t>(length)) : static_cast<ssize_t>(length);
}

} // namespace

extern "C" clock_t times(struct tms *) { return static_cast<clock_t>(ticks); }

extern "C" ssize_t read(int fd, void *buffer, size_t length)
{
    const ssize_t allowed = next_of(&read_script, length);
    return allowed < 0 ? -1 : syscall(SYS_read, fd, buffer, static_cast<size_t>(allowed));
}

extern "C" ssize_t send(int fd, const void *buffer, size_t length, int flags)
{
    const ssize_t allowed = next_of(&send_script, length);
    if (allowed < 0)
        return -1;
    return syscall(SYS_sendto, fd, buffer, static_cast<size_t>(allowed), flags, nullptr, 0);
}

namespace
{

int waits;        // since the last run began
int settle_ms;    // what the system may take to deliver; 0 for socket pairs
std::string seen; // what callbacks saw since the last run

int test_wait(int count, int has_timeout, double ms)
{
    waits++;
    const int ready =
        kutil::kPollBackEnd.wait(count, 1, has_timeout ? std::min<double>(ms, settle_ms) : 3000);
    if (ready == 0 && !has_timeout) {
        ADD_FAILURE() << "the loop waits for nothing";
        event_loop_quit = 1;
    }
    if (ready == 0)
        ticks += static_cast<uint32_t>(std::ceil(std::min(ms, 1e9) / 10));
    return ready;
}

bool *current_run; // set when it has had its time

void quit(void *done)
{
    *static_cast<bool *>(done) = true;
    event_loop_quit = 1;
}

// Runs the loop for `ms` of its time and returns what callbacks saw. The loop works when something happens
// and not otherwise: `most_waits` is how often it may wake.
std::string run(double ms = 0, int most_waits = 40)
{
    waits = 0;
    ticks++;
    bool done = false;
    bool *const outer = std::exchange(current_run, &done);
    event_timer_set(ms + 5, quit, &done);
    while (!done && kutil::event_loop_is_up()) {
        event_loop();
        event_loop_quit = 0;
    }
    current_run = outer;
    event_loop_quit = outer && *outer;
    EXPECT_LE(waits, most_waits) << "the loop spins";
    return std::exchange(seen, "");
}

using Action = std::function<int(estream *, char *, int)>;
Action on_data;   // called for data after it was noted
Action on_notice; // called when all is written

int stream_cb(estream *es, char *bytes, int length)
{
    if (!bytes) {
        seen += ".";
        return on_notice ? Action(on_notice)(es, bytes, length) : 0;
    }
    seen += "[" + std::string(bytes, static_cast<size_t>(length)) + "]";
    return on_data ? Action(on_data)(es, bytes, length) : 0;
}

void note_release(void *old_data, void *new_data, event_any_cb)
{
    seen += std::string("~") + static_cast<char *>(old_data) + (new_data ? ">" : "");
}

void note_hook_release(void *old_data, event_any_cb func, event_any_cb, void *new_data)
{
    seen += std::string("~") + static_cast<char *>(old_data) + (func ? "f" : "") + (new_data ? ">" : "");
}

// Requests of a size, as functions of a stream.
using Request = int (*)(estream *);
template <int (*ask)(estream *, int), int n>
int sized(estream *es)
{
    return ask(es, n);
}

int keep_all(void *, char *, int length) { return length; }

int close_in_hook(void *es, char *, int length)
{
    seen += "!";
    estream_close(static_cast<estream *>(es));
    return length;
}

char *name(const char *text) { return const_cast<char *>(text); }

// A stream and the raw other end of its descriptor. `es` may close: its data's release function tells.
struct Line {
    estream *es;
    int peer;
    int fd;
    bool open;

    explicit Line(uint32_t flags = 0) : es(nullptr), peer(-1), fd(-1), open(true)
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        es = estream_connect_fd(ends[0], ESTREAM_OWN_FD | ESTREAM_CONNECTED | flags, nullptr);
        peer = ends[1];
        fd = ends[0];
        fcntl(peer, F_SETFL, O_NONBLOCK);
        estream_set_func(es, stream_cb);
        estream_set_data(es, this, [](void *data, void *, event_any_cb) {
            static_cast<Line *>(data)->open = false;
            seen += "closed";
        });
    }
    ~Line()
    {
        if (open)
            estream_close(es);
        close(peer);
        seen.clear();
    }
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;

    void put(const std::string &bytes) const
    {
        ASSERT_EQ(::write(peer, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    // Puts and runs.
    std::string give(const std::string &bytes) const
    {
        put(bytes);
        return run();
    }
    // What the stream has sent.
    std::string take() const
    {
        std::string all;
        char buffer[65536];
        for (ssize_t n; (n = syscall(SYS_read, peer, buffer, sizeof(buffer))) > 0;)
            all.append(buffer, static_cast<size_t>(n));
        return all;
    }
};

estream *accepted; // note_connect marks it

class Estream : public testing::Test
{
public:
    void SetUp() override
    {
        static const event_be kBackEnd = [] {
            event_be table = kutil::kPollBackEnd;
            table.wait = test_wait;
            return table;
        }();
        event_be_set(&kBackEnd);
        event_loop_init();
        settle_ms = 0;
        accepted = nullptr;
        seen.clear();
        log.take();
    }
    void TearDown() override
    {
        on_data = on_notice = nullptr;
        event_loop_uninit();
        event_be_set(nullptr);
        EXPECT_TRUE(read_script.empty() && send_script.empty()) << "not every fault happened";
        EXPECT_EQ(reports(), "");
    }
    // The reports since the last call but those of debug.
    std::string reports()
    {
        std::erase_if(log.entries, [](const auto &entry) { return (entry.flags & 15) == 8; });
        return log.take();
    }
    ReportLog log;
};

} // namespace

// --- What the requests deliver ---

TEST_F(Estream, EachRequestDeliversItsRecords)
{
    const auto bytes = [](const char *text, size_t length) { return std::string(text, length); };
    const struct {
        const char *request;
        Request ask;
        std::vector<std::string> arrivals;
        std::string delivered;
        int left; // buffered, or in the system
    } rows[] = {
        {"line", estream_read_line, {"abc\r\n", "abc\n"}, "[abc]|[abc]|", 0},
        {"line", estream_read_line, {"a\rb\n", "\n\r\n", "\r\r\n"}, "[a\rb]|[][]|[\r]|", 0},
        {"line", estream_read_line, {bytes("a\0\r\0b\n", 6)}, bytes("[a][\r][b]|", 10), 0},
        {"line", estream_read_line, {"x\ny", "z\r", "\nw"}, "[x]||[yz]|", 1},
        {"text", estream_read_null_terminated, {bytes("a\r\nb\0\0c", 7)}, "[a\r\nb][]|", 1},
        {"10", sized<estream_read, 10>, {"01234", "5678901", "2"}, "|[0123456789]||", 3},
        {"none", sized<estream_read, 0>, {"abc\n"}, "|", 4},
        {"partial", sized<estream_read_partial, 5>, {"ab", "c", "defg"}, "[ab]|[abc]|[abcde]|", 2},
        {"partial", sized<estream_read_partial, -1>, {"ab"}, "|", 2},
        {"forever", sized<estream_read_forever, 4>, {"ab", "c", "def"}, "[ab]|[abc]|[abcd]|", 4},
    };
    for (const auto &row : rows) {
        const Line line;
        EXPECT_EQ(row.ask(line.es), 0);
        std::string delivered;
        for (const std::string &arrival : row.arrivals)
            delivered += line.give(arrival) + "|";
        EXPECT_EQ(delivered, row.delivered) << row.request;
        EXPECT_EQ(estream_pending_read(line.es), row.left) << row.request;
        EXPECT_TRUE(line.open);
    }
}

// A new request starts with what the old one left.
TEST_F(Estream, RequestsFollowOneAnother)
{
    const Line line;
    estream_read(line.es, 3);
    on_data = [](estream *es, char *bytes, int) { return bytes[0] == 'a' ? estream_read_line(es) : 0; };
    EXPECT_EQ(line.give("abcde\nf\ng"), "[abc][de][f]");
    EXPECT_EQ(estream_pending_read(line.es), 1);
    estream_read_abort(line.es);
    EXPECT_EQ(line.give("h"), "");
    EXPECT_EQ(estream_get_read_req(line.es), 0);
    EXPECT_EQ(estream_pending_read(line.es), 1);
    estream_clear_input(line.es);
    EXPECT_EQ(estream_pending_read(line.es), 1) << "what the system holds";
    estream_read_null_terminated(line.es);
    EXPECT_EQ(estream_get_read_req(line.es), 1460);
    EXPECT_EQ(line.give(std::string("i\0", 2)), "[hi]");
}

TEST_F(Estream, ForeverKeepsWhatIsNotAcknowledged)
{
    const Line line;
    EXPECT_EQ(estream_read_ack(line.es, 1), -1);
    estream_read_forever(line.es, 0);
    EXPECT_EQ(estream_get_read_req(line.es), 102400);
    on_data = [](estream *es, char *, int length) { return estream_read_ack(es, length > 1 ? 2 : 0); };
    EXPECT_EQ(line.give("abcde"), "[abcde][cde][e]") << "the rest comes again after an acknowledgement";
    EXPECT_EQ(line.give("f"), "[ef]");
    on_data = nullptr;
    EXPECT_EQ(line.give("gh"), "[gh]");
    EXPECT_EQ(run(1000), "") << "and never again without one";
    EXPECT_EQ(estream_read_ack(line.es, 0), 0);
    EXPECT_EQ(run(), "");
    EXPECT_EQ(estream_read_ack(line.es, 1), 0);
    EXPECT_EQ(run(), "[h]");
    EXPECT_EQ(estream_read_ack(line.es, INT_MAX), 0);
    EXPECT_EQ(line.es->in.count(), 0);
    EXPECT_EQ(line.give("ijk"), "[ijk]");
    estream_clear_input(line.es);
    EXPECT_EQ(line.give("l"), "[l]") << "what was dropped was not shown";
}

// One arrival is one run, but a write or a change of the stream leaves the next record to another one.
TEST_F(Estream, LinesOfOneRunAndOfSeveral)
{
    for (const bool writes : {false, true}) {
        const Line line;
        estream_read_line(line.es);
        const auto mark = [](void *) { seen += "t"; };
        on_data = [&](estream *es, char *, int) {
            event_timer_set(0, mark, nullptr);
            return writes ? estream_write(es, "x", 1) : 0;
        };
        on_notice = [](estream *, char *, int) { return seen.pop_back(), 0; };
        const std::string delivered = line.give("a\nb\n");
        EXPECT_EQ(delivered.substr(0, writes ? 4 : 6), writes ? "[a]t" : "[a][b]") << delivered;
        EXPECT_NE(delivered.find("[b]"), std::string::npos);
    }
}

// A read buffer that is full of what its owner does not take: nothing is read, nothing spins, time-outs run.
TEST_F(Estream, AFullBufferWaitsForItsOwner)
{
    const struct {
        Request ask;
        int limit;
    } rows[] = {
        {estream_read_line, 8192},
        {estream_read_null_terminated, 102400},
        {sized<estream_read_forever, 3000>, 3000},
    };
    for (const auto &row : rows) {
        const Line line;
        row.ask(line.es);
        estream_set_timeout(line.es, 500, [](estream *, char *, int) { return seen += "late", 0; });
        const int sent = row.limit + 100;
        for (int done = 0; done < sent; done += 100)
            line.put(std::string(100, 'x')), run();
        EXPECT_EQ(line.es->in.count(), row.limit);
        EXPECT_EQ(run(2100, 10).substr(0, 16), "latelatelatelate");
        // These do not help.
        estream_write(line.es, "w", 1);
        estream_set_timeout(line.es, 0, nullptr);
        EXPECT_EQ(run(2000, 5), ".");
        EXPECT_EQ(line.es->in.count(), row.limit);
        // These do.
        row.ask(line.es);
        run(2000, 5), seen.clear();
        if (estream_read_ack(line.es, 1) == 0) {
            run();
            EXPECT_EQ(line.es->in.count(), row.limit) << "one byte more was read";
        }
        estream_clear_input(line.es);
        run();
        EXPECT_EQ(line.es->in.count() + estream_pending_read(line.es), 2 * line.es->in.count());
        EXPECT_GE(line.es->in.count(), 99);
        line.put(std::string("\n\0", 2));
        run(), seen.clear();
    }
}

TEST_F(Estream, ALineOfAnyLengthUpToTheLimit)
{
    for (const int length : {0, 1, 1459, 1460, 1461, 5840, 8190, 8191}) {
        const Line line;
        estream_read_line(line.es);
        const std::string text(static_cast<size_t>(length), 'y');
        EXPECT_EQ(line.give(text + "\nz\n"), "[" + text + "][z]");
    }
    // A larger buffer of an earlier request holds a longer line.
    const Line line;
    estream_read_forever(line.es, 20000);
    estream_read_line(line.es);
    const std::string text(15000, 'y');
    EXPECT_EQ(line.give(text + "\n"), "[" + text + "]");
}

TEST_F(Estream, TheBufferShrinksWhenAllFits)
{
    for (const bool keep : {false, true}) {
        const Line line(keep ? 0 : ESTREAM_SHRINK);
        estream_read(line.es, 4000);
        EXPECT_EQ(line.give(std::string(4100, 's')).size(), 4002U);
        EXPECT_EQ(line.es->in.capacity(), keep ? 4000 : 1460);
    }
    const Line line(ESTREAM_SHRINK);
    on_data = [](estream *es, char *, int) { return estream_read(es, 3000); };
    estream_read(line.es, 4000);
    EXPECT_EQ(line.give(std::string(7000, 's')).size(), 7004U) << "the next request does not fit";
    EXPECT_EQ(line.es->in.capacity(), 4000);
}

// Whatever a callback does to its stream, the bytes that it was given stay as they were until it returns.
TEST_F(Estream, TheCallersBufferOutlivesEverything)
{
    const std::pair<const char *, void (*)(estream *)> acts[] = {
        {"larger", [](estream *es) { estream_read(es, 50000), estream_read_forever(es, 90000); }},
        {"clear", [](estream *es) { estream_clear_input(es); }},
        {"ack", [](estream *es) { estream_read_ack(es, 3); }},
        {"close",
         [](estream *es) { seen += std::to_string(estream_close(es)) + std::to_string(estream_close(es)); }},
        {"uninit", [](estream *es) { event_loop_uninit(), estream_close(es); }},
        {"abort", [](estream *es) { estream_read_abort(es), estream_write(es, "x", 1); }},
        {"loop", [](estream *) { run(50, 10); }},
    };
    const Request requests[] = {estream_read_line, sized<estream_read, 6>, sized<estream_read_partial, 99>,
                                sized<estream_read_forever, 99>};
    for (const auto &act : acts) {
        for (const auto &request : requests) {
            event_loop_init();
            Line line;
            on_data = [&](estream *es, char *bytes, int length) {
                const std::string before(bytes, static_cast<size_t>(length));
                on_data = nullptr;
                line.put("more");
                act.second(es);
                EXPECT_EQ(std::string(bytes, static_cast<size_t>(length)), before) << act.first;
                return 0;
            };
            request(line.es);
            line.give("abcde\nfg");
            EXPECT_FALSE(on_data) << "not called";
            if (line.open)
                run(100, 10);
        }
    }
}

// A callback may wait in a loop of its own: its stream stands still, others live.
TEST_F(Estream, ARunningCallbackHasItsStreamForItself)
{
    const Line line;
    const Line other;
    estream_read_line(line.es), estream_read_line(other.es);
    on_data = [&](estream *es, char *, int) {
        if (es != line.es)
            return 0;
        on_data = nullptr;
        line.put("second\n"), other.put("other\n");
        estream_write(es, "out", 3);
        seen += "<" + run(1000, 8) + ">";
        EXPECT_EQ(line.take(), "");
        return 0;
    };
    std::string first = line.give("first\nhalf");
    first += run();
    EXPECT_EQ(first.substr(0, 16), "<[first][other]>") << first;
    EXPECT_NE(first.find("[halfsecond]"), std::string::npos) << first;
    EXPECT_EQ(line.take(), "out");
}

// --- Writing ---

TEST_F(Estream, EverythingWrittenIsSentOnceAndInOrder)
{
    const Line line;
    std::string expected;
    for (int i = 0; i < 40000; i++) {
        const std::string piece = std::to_string(i) + ",";
        ASSERT_EQ(estream_write(line.es, piece.data(), static_cast<int>(piece.size())), 0);
        expected += piece;
    }
    EXPECT_EQ(estream_pending_write(line.es), static_cast<int>(expected.size()));
    send_script = {EAGAIN, EINTR, -1, -7, EAGAIN, 0};
    std::string sent;
    while (seen.empty() && sent.size() < expected.size())
        seen += run(), sent += line.take(), estream_write(line.es, "!", 1), expected += "!";
    sent += (run(), line.take());
    EXPECT_EQ(sent, expected);
    EXPECT_EQ(estream_pending_write(line.es), 0);
}

TEST_F(Estream, EachFormWritesItsBytes)
{
    const Line line;
    for (const int result : {estream_printf(line.es, "%d-%s;", 7, "x"), estream_write_str(line.es, "str"),
                             estream_write_strn(line.es, "strn", 2), estream_write_strn(line.es, nullptr, 2),
                             estream_write_str_replace(line.es, "a\nb\n\n", "\n", "\r\n"),
                             estream_write_str_replace(line.es, "aaa", "aa", nullptr),
                             estream_write_str_replace(line.es, "q", "", "z"),
                             estream_write(line.es, "all", -1), estream_write_u8(line.es, 0x81),
                             estream_write_u16(line.es, 0x8182), estream_write_u32(line.es, 0x81828384)})
        EXPECT_EQ(result, 0);
    EXPECT_EQ(estream_write(line.es, "x", -2), -1);
    EXPECT_EQ(estream_write(line.es, nullptr, 2), -1);
    EXPECT_EQ(run(), ".");
    EXPECT_EQ(line.take(), "7-x;strsta\r\nb\r\n\r\naqall\x81\x81\x82\x81\x82\x83\x84");

    ASSERT_EQ(estream_write_alloc(line.es, 5), 0);
    ASSERT_GE(estream_get_write_buf_len(line.es), 5);
    memcpy(estream_get_write_buf(line.es), "abcde", 5);
    EXPECT_EQ(estream_write0(line.es, 5), 0);
    EXPECT_EQ(estream_write0(line.es, -5), 0);
    EXPECT_EQ(estream_write0(line.es, INT_MAX), 0) << "clipped to the room";
    EXPECT_EQ(estream_get_write_buf_len(line.es), 0);
    EXPECT_EQ(estream_pending_write(line.es), 1460);
    EXPECT_NE(estream_write_alloc(line.es, INT_MAX), 0);
    EXPECT_NE(reports().find("4: estream_write_alloc:"), std::string::npos);
    EXPECT_TRUE(line.open);
}

TEST_F(Estream, OutputMayComeFromTheStreamItself)
{
    const Line line;
    std::string expected = "0123456789";
    estream_write(line.es, expected.data(), 10);
    for (int i = 0; i < 9; i++) {
        const kutil::StreamBuffer &out = line.es->out;
        estream_write(line.es, out.first(), out.count());
        expected += expected;
    }
    run();
    EXPECT_EQ(line.take(), expected);
    // What is left would move to the front, over the bytes that are to be copied.
    const Line part;
    std::string text;
    for (int i = 0; i < 1000; i++)
        text += static_cast<char>('a' + i % 17);
    estream_write(part.es, text.data(), 1000);
    part.es->out.start = 900; // as if sent
    estream_write(part.es, part.es->out.bytes(), 900);
    EXPECT_EQ(part.es->out.capacity(), 1460);
    run();
    EXPECT_EQ(part.take(), text.substr(900) + text.substr(0, 900));
    // An echo of the delivered text.
    estream_read_line(line.es);
    on_data = [](estream *es, char *bytes, int length) { return estream_write(es, bytes, length); };
    line.give("first\nsecond\n"), run();
    EXPECT_EQ(line.take(), "firstsecond");
}

TEST_F(Estream, TheNoticeThatAllIsWritten)
{
    Line line;
    EXPECT_EQ(estream_write(line.es, nullptr, 0), 0);
    EXPECT_EQ(std::exchange(seen, ""), ".") << "at once when nothing is buffered";
    estream_write(line.es, "abc", 3);
    EXPECT_EQ(estream_write(line.es, "", 0), 0);
    EXPECT_EQ(seen, "");
    EXPECT_EQ(run(1000, 5), ".") << "once";
    on_notice = [](estream *es, char *, int) { return estream_write(es, "", 0); };
    EXPECT_EQ((estream_write(line.es, "a", 1), run(1000, 5)), ".") << "not from the notice itself";
    on_notice = [](estream *es, char *, int) { return on_notice = nullptr, estream_write(es, "b", 1); };
    EXPECT_EQ((estream_write(line.es, "a", 1), run(1000, 5)), "..");
    EXPECT_EQ(line.take(), "abcaab");

    for (const int result : {-3, 3}) {
        Line at_once;
        Line later;
        on_notice = [result](estream *, char *, int) { return result; };
        estream_write(at_once.es, nullptr, 0);
        estream_write(later.es, "x", 1);
        EXPECT_EQ(run(), ".closed.closed");
        EXPECT_FALSE(at_once.open || later.open);
        const std::string how = result < 0 ? "failed" : "closed connection";
        const std::string tail = ": write_func " + how + " (rc=" + std::to_string(result) + ")";
        EXPECT_NE(log.take().find(tail), std::string::npos);
    }
}

// --- Faults ---

TEST_F(Estream, OnlyRealFailuresClose)
{
    const struct {
        bool writing;
        int error;
        const char *report; // NULL: goes on
    } rows[] = {
        {false, EINTR, nullptr},
        {false, EAGAIN, nullptr},
        {false, ECONNRESET, "5: estream: Cannot read from fd "},
        {true, EINTR, nullptr},
        {true, EAGAIN, nullptr},
        {true, EPIPE, "4: estream: socket "},
        {true, ENOBUFS, "4: estream: socket "},
    };
    for (const auto &row : rows) {
        Line line;
        estream_read_line(line.es);
        (row.writing ? send_script : read_script) = {row.error};
        if (row.writing)
            estream_write(line.es, "out", 3);
        std::string expected;
        if (row.report) {
            expected = row.report + std::to_string(line.fd) + (row.writing ? ": failed write() " : " ") +
                       strerror(row.error) + (row.writing ? "\n" : "(" + std::to_string(row.error) + ")\n");
        }
        int error_seen = 0;
        on_data = [&](estream *es, char *, int) { return error_seen = estream_get_errno(es), 0; };
        const std::string got = line.give("in\n");
        EXPECT_EQ(line.open, !row.report) << row.error;
        EXPECT_EQ(reports(), expected);
        EXPECT_EQ(got.find("[in]") != std::string::npos, !row.report);
        EXPECT_EQ(error_seen, 0);
    }
}

TEST_F(Estream, TheEndOfInput)
{
    {
        Line line;
        estream_read_line(line.es);
        line.put("whole\npart");
        shutdown(line.peer, SHUT_WR);
        EXPECT_EQ(run(), "[whole]closed") << "a part of a line is not delivered";
    }
    {
        const Line line;
        shutdown(line.peer, SHUT_RDWR);
        EXPECT_EQ(run(1000, 3), "") << "who reads nothing notices nothing";
    }
    for (const int result : {0, 1}) {
        const Line line(ESTREAM_HALF_CLOSE);
        estream_read_line(line.es);
        static int answer;
        answer = result;
        estream_set_half_close(line.es, [](estream *) { return seen += "half", answer; });
        line.put("in\n");
        shutdown(line.peer, SHUT_WR);
        EXPECT_EQ(run(1000, 5), result ? "[in]halfclosed" : "[in]half");
        if (result) {
            reports();
            continue;
        }
        EXPECT_EQ(estream_get_read_req(line.es), 0);
        estream_read_line(line.es);
        EXPECT_EQ(run(1000, 5), "") << "told once";
        estream_write(line.es, "out", 3);
        EXPECT_EQ(run(), ".");
        EXPECT_EQ(line.take(), "out");
    }
}

TEST_F(Estream, ResultsOfCallbacksCloseWithAReport)
{
    const Request requests[] = {estream_read_line, sized<estream_read, 2>, sized<estream_read_forever, 9>};
    for (const auto &request : requests) {
        for (const int result : {-1, 5}) {
            const Line line;
            request(line.es);
            on_data = [result](estream *, char *, int) { return result; };
            const std::string text = line.give("ab\ncd\n");
            EXPECT_EQ(text.substr(text.size() - 6), "closed");
            EXPECT_EQ(std::count(text.begin(), text.end(), '['), 1);
            EXPECT_EQ(reports(), "7: estream: socket " + std::to_string(line.fd) + " read_func " +
                                     (result < 0 ? "failed" : "closed connection") +
                                     " (rc=" + std::to_string(result) + ")\n");
        }
    }
}

TEST_F(Estream, PipesAreRunWithoutSocketCalls)
{
    signal(SIGPIPE, SIG_IGN);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    estream *es = estream_connect_fd(ends[1], ESTREAM_OWN_FD | ESTREAM_CONNECTED | ESTREAM_PLAIN, nullptr);
    ASSERT_NE(es, nullptr);
    EXPECT_EQ(estream_peer_port_get(es), 65535);
    estream_write(es, "through", 7);
    run();
    char buffer[8] = {};
    EXPECT_EQ(::read(ends[0], buffer, 7), 7);
    EXPECT_STREQ(buffer, "through");
    close(ends[0]);
    estream_set_data(es, name("data"), note_release);
    estream_write(es, "nobody", 6);
    EXPECT_EQ(run(), "~data");
    EXPECT_NE(reports().find("failed write() " + std::string(strerror(EPIPE))), std::string::npos);

    // Where options and addresses are wanted, a pipe is refused, and closed if owned.
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(estream_connect_fd(ends[0], ESTREAM_CONNECTED, nullptr), nullptr);
    EXPECT_EQ(estream_connect_fd(ends[1], ESTREAM_SOCKOPT_DONE | ESTREAM_CONNECTED | ESTREAM_OWN_FD, nullptr),
              nullptr);
    EXPECT_EQ(fcntl(ends[0], F_GETFD), 0);
    EXPECT_EQ(fcntl(ends[1], F_GETFD), -1);
    close(ends[0]);
    EXPECT_EQ(estream_connect_fd(-1, 0, nullptr), nullptr);
    reports();
}

// --- Owners and hooks ---

TEST_F(Estream, OwnersBorrowAndHandBack)
{
    Line line;
    estream *es = line.es;
    EXPECT_EQ(estream_pop(es), -1);
    EXPECT_EQ(reports(), "4: estream_pop: empty stack - estream unchanged\n");
    estream_set_state(es, 5);
    ASSERT_EQ(estream_push(es), 0);
    EXPECT_EQ(estream_get_data(es), nullptr);
    EXPECT_EQ(estream_get_state(es), 0);
    estream_set_data(es, name("one"), note_release);
    estream_set_data(es, name("two"), note_release);
    EXPECT_EQ(std::exchange(seen, ""), "~one>");
    estream_set_func(es, [](estream *, char *, int) {
        seen += "borrower";
        return 0;
    });
    estream_read_line(es);
    EXPECT_EQ(line.give("x\n"), "borrower");
    EXPECT_EQ(estream_pop(es), 0);
    EXPECT_EQ(std::exchange(seen, ""), "~two>");
    EXPECT_EQ(estream_get_data(es), &line);
    EXPECT_EQ(estream_get_state(es), 5);
    EXPECT_EQ(line.give("x\n"), "[x]");

    for (const char *text : {"a", "b", "c"})
        estream_push(es), estream_set_data(es, name(text), note_release);
    estream_set_data(es, nullptr, note_release);
    EXPECT_EQ(std::exchange(seen, ""), "~c");
    estream_set_read_notify(es, keep_all, note_hook_release, name("in"));
    estream_set_write_notify(es, keep_all, note_hook_release, name("out"));
    estream_set_write_notify(es, nullptr, note_hook_release, name("new"));
    EXPECT_EQ(std::exchange(seen, ""), "~out>");
    estream_set_read_notify(es, nullptr, note_hook_release, name("in"));
    estream_set_read_notify(es, keep_all, note_hook_release, name("in"));
    EXPECT_EQ(seen, "") << "the same pair stays";
    EXPECT_EQ(estream_close(es), 0);
    EXPECT_EQ(seen, "~b~aclosed~in~new") << "newest first, hooks last";
}

TEST_F(Estream, ReleaseFunctionsMayDoAnythingToTheStream)
{
    const Line line;
    estream_push(line.es);
    static estream *es;
    es = line.es;
    estream_set_data(es, name("x"), [](void *, void *, event_any_cb) {
        seen += estream_get_data(es) ? "old" : "none";
        if (!estream_is_closing(es))
            seen += std::to_string(estream_push(es)), seen += std::to_string(estream_pop(es));
        estream_close(es);
        seen += std::to_string(estream_pop(es)) + std::to_string(estream_write(es, "x", 1));
        estream_set_data(es, name("lost"), note_release);
    });
    estream_pop(es);
    EXPECT_EQ(seen, "old00closed-1-1");
}

TEST_F(Estream, HooksSeeAndChangeWhatPasses)
{
    const Line line;
    static int answer;
    estream_set_read_notify(
        line.es, [](void *, char *bytes, int) { return *bytes = 'R', answer; }, nullptr, nullptr);
    estream_read_line(line.es);
    const std::pair<int, const char *> reads[] = {{3, "[Rbc]"}, {1, "[R]"}, {99, "[Rbc]"}, {0, ""}, {-7, ""}};
    for (const auto &[result, expected] : reads) {
        answer = result;
        EXPECT_EQ(line.give("abc\n"), expected) << result;
    }
    EXPECT_EQ(line.give("\n"), "[]") << "an empty line is a delivery";
    estream_set_write_notify(
        line.es,
        [](void *data, char *bytes, int length) {
            EXPECT_EQ(estream_write(static_cast<estream *>(data), "again", 5), -1);
            memcpy(bytes + length, "++", 2);
            return answer;
        },
        nullptr, line.es);
    const std::pair<int, size_t> writes[] = {{0, 0}, {-4, 0}, {2, 2}, {5, 5}};
    for (const auto &[result, expected] : writes) {
        answer = result;
        estream_write(line.es, "out", 3), run();
        EXPECT_EQ(line.take(), std::string("out++").substr(0, expected)) << result;
    }
    answer = INT_MAX;
    estream_write(line.es, "out", 3);
    EXPECT_EQ(estream_pending_write(line.es), line.es->out.capacity());
}

// --- Time-outs ---

TEST_F(Estream, TimeOutsRunWhileThereIsSomethingToWaitFor)
{
    Line line;
    const auto late = [](estream *, char *bytes, int length) {
        return seen += bytes || length ? "?" : "late", 9;
    };
    estream_set_timeout(line.es, 100, late);
    EXPECT_EQ(run(1000), "") << "no request, no output";
    estream_read_line(line.es);
    EXPECT_EQ(run(350), "latelatelate") << "its result is not looked at, and it starts again";
    for (int i = 0; i < 5; i++)
        EXPECT_EQ((line.put("x\n"), run(60)), "[x]") << "traffic starts it again";
    std::string slow;
    for (int i = 0; i < 5; i++)
        line.put("x"), slow += run(60);
    EXPECT_NE(slow.find("late"), std::string::npos) << "parts of a line do not";
    for (int i = 0; i < 5; i++)
        EXPECT_EQ((estream_write(line.es, "y", 1), line.put("x"), run(60)), ".") << "but with a write";
    estream_set_timeout(line.es, -5, late);
    EXPECT_EQ(run(1000), "");
    estream_set_timeout(line.es, 100, nullptr);
    log.take();
    EXPECT_EQ(run(200), "closed");
    EXPECT_EQ(log.entries.at(0).message,
              "estream: socket " + std::to_string(line.fd) + ": timed out 100 ms on data");
}

// A long time-out is not set again for traffic within a second of the last setting.
TEST_F(Estream, LongTimeOutsAreSetSeldom)
{
    const struct {
        double pause;
        int timeout;
        double due; // from the start
    } rows[] = {{900, 10000, 10000}, {1200, 10000, 11200}, {900, 4000, 4900}};
    for (const auto &row : rows) {
        const Line line;
        estream_read_line(line.es);
        const double start = get_time_from_boot();
        static double fired;
        fired = 0;
        estream_set_timeout(line.es, row.timeout, [](estream *, char *, int) {
            fired = fired == 0 ? get_time_from_boot() : fired;
            return 0;
        });
        run(row.pause);
        line.give("x\n");
        run(12000);
        EXPECT_NEAR(fired - start, row.due, 60) << row.pause;
    }
}

TEST_F(Estream, AConnectThatTakesTooLong)
{
    for (const bool with_callback : {false, true}) {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        // Nothing can be written, so the descriptor never tells that it is connected.
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        while (syscall(SYS_write, ends[0], std::string(4096, 'x').data(), 4096) > 0)
            continue;
        estream *es = estream_connect_fd(ends[0], ESTREAM_TIMEOUT, [](estream *stream, int ok) {
            run(4000); // a time-out in here must not tell again
            return seen += ok ? "up" : stream->closing ? "closed" : "down", 0;
        });
        estream_set_data(es, name("data"), note_release);
        if (with_callback)
            estream_set_timeout(es, 3000, [](estream *stream, char *, int) {
                return seen += "late", seen.size() > 4 ? estream_close(stream) : 0;
            });
        log.take();
        EXPECT_EQ(run(2900), "");
        EXPECT_EQ(run(4000), with_callback ? "latelate~data" : "down~data");
        EXPECT_NE(log.take().find("timed out 3000 ms on connect"), std::string::npos);
        EXPECT_EQ(fcntl(ends[0], F_GETFD), 0) << "not owned";
        close(ends[0]), close(ends[1]);
    }
}

// --- Connecting and accepting ---

namespace
{

iaddr ipv4(uint32_t ip)
{
    iaddr addr = {};
    return *ip2iaddr(&addr, ip);
}

constexpr uint32_t kHere = 0x7f000001;

struct Listener {
    int fd;
    uint16_t port;
    explicit Listener(const iaddr &addr = ipv4(kHere))
        : fd(sock_socket_full(SOCK_STREAM, addr, 0, nullptr, 0, 0, 0)), port(0)
    {
        settle_ms = 20;
        sockaddr_storage bound = {};
        socklen_t length = sizeof(bound);
        EXPECT_EQ(listen(fd, 5), 0);
        EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&bound), &length), 0);
        sockaddr_get_port(reinterpret_cast<sockaddr *>(&bound), &port);
    }
    ~Listener() { socket_close(fd); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;
};

int note_connect(estream *es, int ok)
{
    seen += ok ? "up" : "down";
    if (es == accepted)
        seen += "*";
    return 0;
}

} // namespace

TEST_F(Estream, ConnectsAcceptsAndKnowsBothEnds)
{
    const Listener listener;
    estream *es = estream_connect_tcp(0, note_connect, kHere, listener.port);
    ASSERT_NE(es, nullptr);
    EXPECT_EQ(estream_is_connected(es), 0);
    estream_write(es, "early", 5);
    accepted = estream_accept(listener.fd, 0, note_connect);
    ASSERT_NE(accepted, nullptr);
    EXPECT_EQ(seen, "") << "callbacks come from the loop";
    estream_set_func(accepted, stream_cb);
    estream_read(accepted, 5);
    const std::string order = run(100);
    EXPECT_EQ(order.size(), strlen("upup*[early]")) << order;
    EXPECT_EQ(estream_is_connected(es) + estream_is_connected(accepted), 2);
    EXPECT_EQ(estream_peer_port_get(es), listener.port);
    EXPECT_EQ(estream_local_port_get(accepted), listener.port);
    EXPECT_EQ(estream_local_port_get(es), estream_peer_port_get(accepted));
    EXPECT_EQ(estream_peer_ip_get(es), kHere);
    EXPECT_EQ(estream_local_ip_get(accepted), kHere);
    EXPECT_EQ(estream_is_local(accepted), 1);
    EXPECT_EQ(estream_set_tcp_keepalive(es, 60, 0, 3), 0);
    const int on = 1;
    EXPECT_EQ(estream_set_sockopt(es, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on)), 0);
    estream *copy = estream_null();
    EXPECT_EQ(estream_peer_ip_get(copy), 0U);
    EXPECT_NE(reports().find(": Wrong address family is used"), std::string::npos);
    estream_copy_peer_local_addr_port(copy, es);
    EXPECT_EQ(estream_peer_ip_get(copy), kHere);
    EXPECT_EQ(estream_peer_port_get(copy), listener.port);
    estream_close(copy);

    // Urgent data: the stream callback, or one of its own.
    estream_read_forever(accepted, 10);
    on_data = [](estream *stream, char *, int length) { return estream_read_ack(stream, length); };
    send(estream_fd_get(es), "u", 1, MSG_OOB);
    EXPECT_EQ(run(100), "[u]");
    _estream_set_urgent_func(
        accepted,
        [](estream *stream, char *bytes, int length) {
            return seen += std::string("!") + bytes[length - 1], estream_read_ack(stream, length);
        },
        nullptr);
    send(estream_fd_get(es), "v", 1, MSG_OOB);
    EXPECT_EQ(run(100), "!v");
    // A reset.
    const struct linger hard = {1, 0};
    estream_set_sockopt(es, SOL_SOCKET, SO_LINGER, &hard, sizeof(hard));
    estream_set_data(accepted, name("data"), note_release);
    estream_close(es);
    EXPECT_EQ(run(100), "~data");
    EXPECT_NE(reports().find(strerror(ECONNRESET)), std::string::npos);
}

TEST_F(Estream, FailedConnectsAreToldOnce)
{
    uint16_t dead_port;
    {
        const Listener listener;
        dead_port = listener.port;
    }
    estream *es = estream_connect_tcp(0, note_connect, kHere, dead_port);
    if (es) {
        estream_set_data(es, name("data"), note_release);
        EXPECT_EQ(run(1000), "down~data");
        EXPECT_NE(reports(), "");
    } else {
        EXPECT_NE(reports().find("failed connect()"), std::string::npos);
    }
    // The caller's descriptor stays the caller's.
    for (const uint32_t flags : {0U, ESTREAM_OWN_FD}) {
        const int fd = sock_socket(SOCK_STREAM, 0, 0);
        iaddr none = {};
        EXPECT_EQ(estream_connect_tcp_full(fd, flags, nullptr, none, 1, none, 0, nullptr, 0, 0), nullptr);
        EXPECT_EQ(errno, EAFNOSUPPORT);
        EXPECT_EQ(fcntl(fd, F_GETFD), flags ? -1 : 0);
        socket_close(fd);
    }
    EXPECT_EQ(estream_connect_tcp_full(-1, 0, nullptr, iaddr{}, 1, iaddr{}, 0, nullptr, 0, 0), nullptr);
    const Listener listener;
    const int fd = sock_socket(SOCK_DGRAM, kHere, 0);
    EXPECT_EQ(estream_accept(fd, 0, nullptr), nullptr);
    EXPECT_NE(errno, 0);
    reports();
    socket_close(fd);
    // A callback may refuse a connection that is up.
    es = estream_connect_tcp(
        0, [](estream *, int ok) { return seen += "c", ok * 2; }, kHere, listener.port);
    EXPECT_EQ(run(100), "c");
    EXPECT_NE(reports().find("failed connect handler closed connection (rc=2)"), std::string::npos);
}

TEST_F(Estream, TheSourceAddressIsAskedForAnIpv4Destination)
{
    static int asked;
    asked = 0;
    set_matching_src_ip_cb([](uint32_t dst, const char *, uint32_t mark) {
        asked += dst == kHere && mark == 0;
        return 0x7f000002U;
    });
    const Listener listener;
    estream *es = estream_connect_tcp(0, note_connect, kHere, listener.port);
    EXPECT_EQ(run(100), "up");
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(estream_local_ip_get(es), 0x7f000002U);
    estream_close(es);
    set_matching_src_ip_cb(nullptr);
    // An IPv4 peer of an IPv6 socket is shown as IPv4.
    const int probe = socket(AF_INET6, SOCK_STREAM, 0);
    close(probe);
    if (probe < 0)
        GTEST_SKIP() << "no IPv6 here";
    const Listener both(*iaddr_any(AF_INET6));
    es = estream_connect_tcp(0, note_connect, kHere, both.port);
    estream *peer = estream_accept(both.fd, 0, nullptr);
    run(100);
    ASSERT_NE(peer, nullptr);
    EXPECT_EQ(estream_peer_addr_get(peer).family, AF_INET);
    EXPECT_EQ(estream_peer_ip_get(peer), kHere);
    estream_close(es), estream_close(peer);
}

TEST_F(Estream, AStreamOverAConnectedDescriptor)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    estream *es = estream_connect_fd(ends[0], ESTREAM_CONNECTED, note_connect);
    EXPECT_EQ(seen, "") << "the caller has the stream first";
    estream_set_func(es, stream_cb);
    estream_read_line(es);
    ASSERT_EQ(::write(ends[1], "x\n", 2), 2);
    EXPECT_EQ(run(), "up[x]");
    EXPECT_EQ(estream_peer_addr_get(es).family, 0) << "no address";
    EXPECT_EQ(estream_is_local(es), 0);
    EXPECT_EQ(estream_close(es), 0);
    EXPECT_EQ(fcntl(ends[0], F_GETFD), 0);
    // Closed before its callback came.
    es = estream_connect_fd(ends[0], ESTREAM_CONNECTED, note_connect);
    estream_close(es);
    EXPECT_EQ(run(), "");
    close(ends[0]), close(ends[1]);
}

// --- Closing ---

TEST_F(Estream, AClosedStreamAnswersUntilTheNextTimers)
{
    Line line;
    estream *es = line.es;
    estream_read_line(es), estream_write(es, "unsent", 6);
    line.put("in\n");
    const int fd = es->fd;
    EXPECT_EQ(estream_close(es), 0);
    EXPECT_EQ(std::exchange(seen, ""), "closed");
    for (estream *gone : {es, static_cast<estream *>(nullptr)}) {
        EXPECT_EQ(estream_close(gone), gone ? 1 : 0);
        EXPECT_EQ(estream_is_closing(gone), 1);
        EXPECT_EQ(estream_fd_get(gone), -1);
        for (const int result :
             {estream_read(gone, 1), estream_read_line(gone), estream_read_forever(gone, 1),
              estream_read_null_terminated(gone), estream_read_partial(gone, 0), estream_read_ack(gone, 1),
              estream_write(gone, "x", 1), estream_write_alloc(gone, 1), estream_write0(gone, 0),
              estream_printf(gone, "x"), estream_write_str_replace(gone, "x", "x", "y"), estream_push(gone),
              estream_pop(gone), estream_set_sockopt(gone, 0, 0, nullptr, 0)})
            EXPECT_EQ(result, -1);
        estream_set_data(gone, name("x"), note_release), estream_set_func(gone, stream_cb);
        estream_set_read_notify(gone, nullptr, nullptr, nullptr), estream_set_timeout(gone, 1, nullptr);
        estream_read_abort(gone), estream_clear_input(gone), estream_set_state(gone, 1);
        EXPECT_EQ(estream_pending_write(gone) + estream_pending_read(gone) + estream_get_state(gone), 0);
        EXPECT_EQ(estream_get_write_buf(gone), nullptr);
        EXPECT_EQ(estream_null_output_ack(gone, 1), 0);
    }
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(run(), "");
    EXPECT_EQ(reports(), "");
}

TEST_F(Estream, EveryCallbackMayCloseItsStream)
{
    const auto closing = [](estream *es, char *, int) { return seen += "!", estream_close(es), 7; };
    const std::pair<const char *, std::function<void(Line &)>> rows[] = {
        {"notice", [&](Line &line) { on_notice = closing, estream_write(line.es, "x", 1); }},
        {"notice at once", [&](Line &line) { on_notice = closing, estream_write(line.es, nullptr, 0); }},
        {"data", [&](Line &) { on_data = closing; }},
        {"bytes", [&](Line &line) { on_data = closing, estream_read(line.es, 1); }},
        {"time-out", [&](Line &line) { estream_set_timeout(line.es, 20, closing); }},
        {"read hook", [](Line &line) { estream_set_read_notify(line.es, close_in_hook, nullptr, line.es); }},
        {"write hook",
         [](Line &line) {
             estream_set_write_notify(line.es, close_in_hook, nullptr, line.es);
             estream_write(line.es, "x", 1);
         }},
        {"half close",
         [&](Line &line) {
             estream_set_half_close(line.es, [](estream *es) { return seen += "!", estream_close(es), 7; });
             shutdown(line.peer, SHUT_WR);
         }},
    };
    for (const auto &[what, set_up] : rows) {
        Line line(ESTREAM_HALF_CLOSE);
        on_data = on_notice = nullptr;
        estream_read_line(line.es);
        if (strcmp(what, "half close") != 0)
            line.put("a\nb\n");
        set_up(line);
        const std::string got = run(50);
        EXPECT_EQ(std::count(got.begin(), got.end(), '!'), 1) << what << got;
        EXPECT_FALSE(line.open) << what << got;
    }
    // Without a loop the record is freed when the callback has returned.
    const Line line;
    on_notice = closing;
    event_loop_uninit();
    EXPECT_EQ(estream_write(line.es, nullptr, 0), 0);
    EXPECT_EQ(seen, ".!closed");
}

// --- Null streams ---

TEST_F(Estream, ANullStreamCollects)
{
    for (const bool with_loop : {true, false}) {
        if (!with_loop)
            event_loop_uninit();
        on_notice = nullptr;
        estream *es = estream_null();
        estream_set_func(es, stream_cb);
        estream_set_data(es, name("data"), note_release);
        EXPECT_EQ(estream_null_output_len_get(es), 0);
        estream_printf(es, "%05000d", 1), estream_write_str(es, "end");
        EXPECT_EQ(estream_null_output_len_get(es), 5003);
        EXPECT_EQ(with_loop ? run(1000, 4) : ".", ".") << "told once for what was committed";
        EXPECT_EQ(estream_null_output_ack(es, 5000), 3);
        EXPECT_EQ(std::string(estream_null_output_get(es), 3), "end");
        EXPECT_EQ(estream_null_output_ack(es, -1), 3);
        EXPECT_EQ(reports(), "");
        EXPECT_EQ(estream_null_output_ack(es, 4), 0);
        EXPECT_EQ(reports(), "5: estream null len was acked more then its len\n");
        EXPECT_EQ(seen, "");
        estream_write(es, nullptr, 0);
        EXPECT_EQ(std::exchange(seen, ""), ".");
        if (with_loop) {
            on_notice = [](estream *, char *, int) { return 1; };
            estream_write_str(es, "x");
            EXPECT_EQ(run(), ".~data");
        } else {
            estream_close(es);
            EXPECT_EQ(std::exchange(seen, ""), "~data");
        }
    }
    event_loop_init();
    const Line line;
    estream_write(line.es, "abc", 3);
    EXPECT_EQ(estream_null_output_ack(line.es, 3), 0);
    EXPECT_EQ(estream_pending_write(line.es), 3) << "a descriptor's output is not acknowledged away";
}

// --- TLS ---

namespace
{

std::string tls_input; // decrypted, unknown to the descriptor

const kutil::StreamTls kTls = {
    [](estream *, char *to, int length) {
        const size_t n = std::min(tls_input.size(), static_cast<size_t>(std::min(length, 3)));
        memcpy(to, tls_input.data(), n);
        tls_input.erase(0, n);
        errno = EAGAIN;
        return n ? static_cast<int>(n) : -1;
    },
    [](estream *, const char *bytes, int length) {
        seen += "{" + std::string(bytes, static_cast<size_t>(length)) + "}";
        return length;
    },
    [](estream *) { return static_cast<int>(tls_input.size()); },
    [](estream *es) {
        seen += "shake";
        if (tls_input != "wait")
            tls_input == "bad" ? kutil::stream_abort_connect(es) : kutil::stream_connected(es);
    },
    [](estream *) { seen += "bye"; }};

} // namespace

TEST_F(Estream, ATlsLayerCarriesTheStream)
{
    expect_fatal("estream_connect(0): called with ESTREAM_SSL before estream_ssl_open_func init",
                 [] { estream_connect_fd(0, ESTREAM_SSL | ESTREAM_SOCKOPT_DONE, nullptr); });
    const auto open = [](estream *es, void *) { return kutil::stream_set_tls(es, &kTls), 0; };
    EXPECT_EQ(estream_ssl_open_func_set(open), nullptr);
    for (const char *how : {"", "bad", "wait"}) {
        const bool good = !*how;
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        tls_input = how;
        estream *es = estream_connect_fd(ends[0], ESTREAM_OWN_FD | ESTREAM_SSL, note_connect);
        estream_set_timeout(es, 500, nullptr);
        EXPECT_EQ(run(), good ? "shakeup" : tls_input == "bad" ? "shakedownbye" : "shake");
        if (tls_input == "wait") {
            estream_set_timeout(es, 500, nullptr);
            EXPECT_EQ(run(600), "downbye") << "the layer alone waits for the descriptor";
        }
        if (good) {
            estream_set_timeout(es, 0, nullptr);
            estream_set_func(es, stream_cb);
            tls_input = "hello\nworld\nrest";
            estream_read_line(es);
            EXPECT_EQ(run(), "[hello][world]") << "what is pending is read without the descriptor's help";
            estream_write(es, "out", 3);
            EXPECT_EQ(run(), "{out}.");
            estream_read_forever(es, 4);
            EXPECT_EQ((tls_input = "more", run(1000, 10)), "[rest]") << "pending, with no room: no spinning";
            estream_close(es);
            EXPECT_EQ(std::exchange(seen, ""), "bye");
        }
        close(ends[1]);
    }
    tls_input.clear();
    estream_ssl_open_func_set([](estream *, void *) { return 1; });
    EXPECT_EQ(estream_connect_fd(0, ESTREAM_SSL | ESTREAM_SOCKOPT_DONE, note_connect), nullptr);
    EXPECT_EQ(seen, "");
    estream_ssl_open_func_set(nullptr);
}
