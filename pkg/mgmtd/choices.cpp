#include "choices.h"

#include "http_path.h"
#include "util/code_tables.h"

#include <algorithm>

namespace mgmtd
{

namespace
{

// Enumerations that only these pages offer.
constexpr View kLanguages = "de en fr it";
constexpr View kLevels = "err warn notice info debug";
constexpr View kProtocols = "tcp udp tcp+udp";
constexpr View kVerdicts = "accept drop reject";

struct Row {
    View path; // "*" stands for any one name
    const code_names *table;
    View words;
};
const Row kRows[] = {
    {"admin/user/*/language", nullptr, kLanguages},
    {"dhcp/option/*/type", nullptr, "string hex ip domains"},
    {"dns/server/*/transport", nullptr, "udp tcp tls https"},
    {"encryption/obscured_params/*/type", nullptr, "str bin"},
    {"firewall/address/*/type", nullptr, "host range subnet group"},
    {"firewall/rule/*/action", nullptr, "accept drop drop-invalid established reject"},
    {"firewall/rule/*/family", nullptr, "ipv4 ipv6"},
    {"firewall/service/*/protocol", nullptr, kProtocols},
    {"firewall/zone/*/forward", nullptr, kVerdicts},
    {"firewall/zone/*/input", nullptr, kVerdicts},
    {"firewall/zone/*/output", nullptr, kVerdicts},
    {"interface/*/duplex", port_duplex_t_str, {}},
    {"interface/*/role", nullptr, "lan wan"},
    {"interface/*/type", nullptr, "bridge cellular dsl ethernet ipsec loopback ppp vlan wifi wireguard"},
    {"log/entity/*/level", nullptr, kLevels},
    {"log/level", nullptr, kLevels},
    {"log/mail/level", nullptr, kLevels},
    {"log/mail/tls", nullptr, "off starttls tls"},
    {"log/remote/level", nullptr, kLevels},
    {"log/remote/protocol", nullptr, kProtocols},
    {"log/timestamps", nullptr, "local utc"},
    {"nat/forward/*/protocol", nullptr, kProtocols},
    {"nat/upnp/mapping/*/protocol", nullptr, kProtocols},
    {"remote/snmp/user/*/access", nullptr, "read write"},
    {"storage/share/*/access", nullptr, "read write"},
    {"system/firmware/branch", nullptr, "stable beta"},
    {"system/language", nullptr, kLanguages},
    {"voip/jitter_buffer/mode", nullptr, "fixed adaptive"},
    {"voip/line/*/dtmf", nullptr, "rfc4733 info inband"},
    {"voip/line/*/forward/mode", nullptr, "off always busy no-answer"},
    {"voip/line/*/transport", voip_sip_transport_prot_t_str, {}},
    {"voip/phonebook/*/kind", nullptr, "home mobile office"},
    {"voip/port/*/impedance", voip_impedance_t_str, {}},
    {"voip/port/*/type", nullptr, "fxs dect sip"},
    {"vpn/ipsec/*/authentication", nullptr, "psk certificate"},
    {"wan/*/cellular/network_mode", nullptr, "auto lte umts gsm"},
    {"wan/*/cellular/pdp_type", nullptr, "ipv4 ipv6 ipv4v6"},
    {"wan/*/ipv4/mode", nullptr, "dhcp dynamic ppp static"},
    {"wan/*/ipv6/mode", nullptr, "off dhcpv6 slaac static"},
    {"wan/*/mode", nullptr, "bridge cellular dhcp pppoe static"},
    {"wan/*/ppp/authentication", nullptr, "pap chap"},
    {"wifi/radio/*/band", nullptr, "2.4GHz 5GHz 6GHz"},
    {"wifi/ssid/*/mac_filter", nullptr, "off allow deny"},
    {"wifi/ssid/*/pmf", nullptr, "off optional required"},
    {"wifi/ssid/*/security", nullptr, "open wpa2 wpa2-wpa3 wpa3"},
    {"wifi/wps/method", nullptr, "button pin"},
};

// Names of keys that are on or off wherever they stand.
constexpr View kFlags =
    "accept_ra airtime_fairness ap_setup_locked authoritative auto_channel auto_update "
    "beamforming bitswap bogons call_waiting clir coexistence commit conflict_check "
    "default_route dfs dns_from_peer dnssec eco_ethernet eee enabled factory_reset fast_leave "
    "fax filter_aaaa flow_control g_inp hidden hsts igmp_snooping isolate led log managed "
    "masquerade message_led mss_clamp mu_mimo nat netbios nightly ofdma other_config "
    "password_login per_device periodic persistent rapid_commit rate_adaptation rdnss read "
    "rebind_protection recycle redirect_to_https roaming_11k roaming_11r safe_search secure "
    "serve_lan short_gi srtp stp strict vectoring vlan_aware wmm wps_blink write";

// Takes the first of words that have a blank between them.
View next_word(View *words)
{
    const size_t end = std::min(words->find(' '), words->size());
    const View word = kutil::sub(*words, 0, end);
    *words = kutil::sub(*words, end + 1);
    return word;
}

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

void Choices::for_each(void (*use)(void *, View), void *context) const
{
    if (flag) {
        use(context, "1");
        use(context, "0");
    }
    if (table) {
        for (int i = code2str_ex_iter_next(table, -1); table[i].code != -1;
             i = code2str_ex_iter_next(table, i))
            use(context, table[i].names[0]);
    }
    for (View rest = words; !rest.empty();)
        use(context, next_word(&rest));
}

Choices choices_of(View path)
{
    for (const Row &row : kRows) {
        if (fits(path, row.path))
            return {row.table, row.words};
    }
    const View name = kutil::sub(path, path.rfind('/') == View::npos ? 0 : path.rfind('/') + 1);
    bool flag = false;
    for (View rest = kFlags; !rest.empty() && !flag;)
        flag = next_word(&rest) == name;
    return {nullptr, {}, flag};
}

} // namespace mgmtd
