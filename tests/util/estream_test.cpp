#include "estream_fixture.h"

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
    answer = 2;
    EXPECT_EQ((estream_write_alloc(line.es, 2), estream_write(line.es, "", 0), run(), line.take()), "++");
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
