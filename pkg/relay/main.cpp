// relay: joins TCP connections with connections to another place.

#include "relay.h"
#include "util/event.h"
#include "util/zel_error.h"

#include <csignal>

namespace relay
{

namespace
{

constexpr uint32_t kShownLevel = 6;

void on_stop(int, void *data) { static_cast<Relay *>(data)->stop(); }
void on_report(int, void *data) { static_cast<Relay *>(data)->report_counters(); }

Exit run(const Options &options)
{
    event_loop_init();
    Exit result = kFailed;
    {
        Relay relay(options);
        event_signal_set(SIGTERM, on_stop, &relay);
        event_signal_set(SIGINT, on_stop, &relay);
        event_signal_set(SIGUSR1, on_report, &relay);
        if (relay.listen() && event_loop() == 0)
            result = relay.cut_off() ? kCut : kDone;
    }
    event_loop_uninit();
    return result;
}

} // namespace

} // namespace relay

int main(int argc, char **argv)
{
    relay::Options options;
    bool done;
    const relay::Exit read = relay::read_options(argc, argv, &options, &done);
    if (done)
        return read;
    zel_error_init_default(relay::kShownLevel);
    zel_error_set_mt_id();
    return relay::run(options);
}
