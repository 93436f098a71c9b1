#include "choices.h"

#include "http_path.h"
#include "util/code_tables.h"

#include <algorithm>

namespace mgmtd
{

namespace
{

// Enumerations that only this page offers, in the form of code_tables.h.
constexpr const char *kTcp[] = {"tcp", nullptr};
constexpr const char *kUdp[] = {"udp", nullptr};
constexpr const char *kTcpUdp[] = {"tcp udp", nullptr};
constexpr code_names kProtocols[] = {{0, kTcp, 0}, {1, kUdp, 0}, {2, kTcpUdp, 0}, {-1, nullptr, 0}};

constexpr const char *kOpen[] = {"open", nullptr};
constexpr const char *kWpa2[] = {"wpa2", nullptr};
constexpr const char *kWpa2Wpa3[] = {"wpa2-wpa3", nullptr};
constexpr const char *kWpa3[] = {"wpa3", nullptr};
constexpr code_names kSecurity[] = {
    {0, kOpen, 0}, {1, kWpa2, 0}, {2, kWpa2Wpa3, 0}, {3, kWpa3, 0}, {-1, nullptr, 0}};

constexpr const char *kOff[] = {"off", nullptr};
constexpr const char *kOptional[] = {"optional", nullptr};
constexpr const char *kRequired[] = {"required", nullptr};
constexpr code_names kPmf[] = {{0, kOff, 0}, {1, kOptional, 0}, {2, kRequired, 0}, {-1, nullptr, 0}};

constexpr const char *kErrWord[] = {"err", nullptr};
constexpr const char *kWarnWord[] = {"warn", nullptr};
constexpr const char *kNoticeWord[] = {"notice", nullptr};
constexpr const char *kInfoWord[] = {"info", nullptr};
constexpr const char *kDebugWord[] = {"debug", nullptr};
constexpr code_names kLevels[] = {{4, kErrWord, 0},  {5, kWarnWord, 0},  {6, kNoticeWord, 0},
                                  {7, kInfoWord, 0}, {8, kDebugWord, 0}, {-1, nullptr, 0}};

struct Row {
    View path; // "*" stands for any one name
    const code_names *words;
};
const Row kRows[] = {
    {"firewall/zone/*/input", fw_action_t_str},
    {"firewall/zone/*/forward", fw_action_t_str},
    {"firewall/zone/*/output", fw_action_t_str},
    {"firewall/service/*/protocol", kProtocols},
    {"nat/forward/*/protocol", kProtocols},
    {"interface/*/duplex", port_duplex_t_str},
    {"interface/*/type", dev_if_type_t_str},
    {"log/level", kLevels},
    {"log/entity/*/level", kLevels},
    {"storage/share/*/access", file_server_guest_access_t_str},
    {"voip/jitter_buffer/mode", voip_jb_type_t_str},
    {"voip/line/*/transport", voip_sip_transport_prot_t_str},
    {"voip/port/*/impedance", voip_impedance_t_str},
    {"wifi/radio/*/band", wl_band_t_str},
    {"wifi/ssid/*/security", kSecurity},
    {"wifi/ssid/*/pmf", kPmf},
};

// Names of keys that are on or off wherever they stand.
constexpr View kFlags[] = {
    "auto_channel",   "auto_update", "beamforming", "call_waiting", "default_route",
    "dnssec",         "eee",         "enabled",     "filter_aaaa",  "hidden",
    "igmp_snooping",  "isolate",     "masquerade",  "netbios",      "nightly",
    "password_login", "persistent",  "rdnss",       "recycle",      "remote",
    "serve_lan",      "srtp",        "stp",         "strict",       "wmm",
};
static_assert(std::ranges::is_sorted(kFlags));

bool fits(View path, View pattern)
{
    while (!pattern.empty()) {
        const size_t end = std::min(pattern.find('/'), pattern.size());
        const size_t path_end = std::min(path.find('/'), path.size());
        const View name = kutil::sub(path, 0, path_end);
        if (kutil::sub(pattern, 0, end) != "*" && kutil::sub(pattern, 0, end) != name)
            return false;
        if ((end == pattern.size()) != (path_end == path.size()))
            return false;
        pattern = kutil::sub(pattern, end + 1);
        path = kutil::sub(path, path_end + 1);
    }
    return path.empty();
}

} // namespace

Choices choices_of(View path)
{
    for (const Row &row : kRows) {
        if (fits(path, row.path))
            return {row.words, false};
    }
    const View name = kutil::sub(path, path.rfind('/') == View::npos ? 0 : path.rfind('/') + 1);
    return {nullptr, std::ranges::binary_search(kFlags, name)};
}

} // namespace mgmtd
