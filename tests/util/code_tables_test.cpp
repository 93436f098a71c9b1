#include "util/code_tables.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

// A program's own table in place of the library's.
static const char *const own_words[] = {"own", nullptr};
const code_names param_split_t_str[] = {{0, own_words, 0}, {-1, nullptr, 0}};

namespace
{

std::vector<std::string> table_names()
{
    std::vector<std::string> names;
    std::ifstream ledger(KUTIL_SOURCE_DIR "/packaging/exports.txt");
    for (std::string name; std::getline(ledger, name);) {
        if (name.size() > 6 && name.compare(name.size() - 6, 6, "_t_str") == 0)
            names.push_back(name);
    }
    return names;
}

TEST(CodeTables, EveryExportedTableIsFoundAndReadsBackWhatItWrites)
{
    const std::vector<std::string> names = table_names();
    EXPECT_EQ(names.size(), 187U);
    size_t rows = 0;
    for (const std::string &name : names) {
        const code_names *table = code_names_find(name.c_str());
        ASSERT_NE(table, nullptr) << name;
        size_t table_rows = 0;
        for (int i = code2str_ex_iter_next(table, -1); table[i].code != -1;
             i = code2str_ex_iter_next(table, i)) {
            table_rows++;
            EXPECT_STREQ(code2str_ex(table, table[i].code), table[i].names[0]) << name;
            for (int word = 0; const char *text = code2str_ex_idx(table, table[i].code, word); word++)
                EXPECT_EQ(str2code_ex(table, text), table[i].code) << name << " " << text;
        }
        EXPECT_EQ(code2str_ex(table, -1), nullptr) << name;
        EXPECT_GE(table_rows, name == "param_split_t_str" ? 1U : 2U) << name;
        EXPECT_LE(table_rows, 10U) << name;
        rows += table_rows;
    }
    EXPECT_GT(rows, 900U);
    for (const char *unknown :
         {"", "fw_level", "fw_level_t_st", "fw_level_t_str2", static_cast<const char *>(nullptr)})
        EXPECT_EQ(code_names_find(unknown), nullptr);
}

TEST(CodeTables, AProgramsOwnTableReplacesTheWeakOne)
{
    EXPECT_EQ(code_names_find("param_split_t_str"), param_split_t_str);
    EXPECT_STREQ(code2str_ex(code_names_find("param_split_t_str"), 0), "own");
}

// What other programs and peers rely on: the stored words of the firewall level, and numbers that standards
// fix.
TEST(CodeTables, FixedCodes)
{
    const char *const levels[] = {"disabled", "low", "standard", "medium", "high", "block", "custom"};
    int code = 0;
    for (const char *level : levels)
        EXPECT_EQ(str2code_ex(fw_level_t_str, level), code++);
    EXPECT_EQ(fw_level_t_str[code].code, -1);

    const struct {
        const code_names *table;
        const char *word;
        int code;
    } rows[] = {
        {eap_method_id_t_str, "PEAP", 25},
        {cfg_rtp_payload_type_t_str, "PCMA", 8},
        {cfg_rtp_payload_type_t_str, "g729", 18},
        {iana_addr_family_number_t_str, "ipv6", 2},
        {lldp_chassis_id_subtype_t_str, "mac_address", 4},
        {lldp_port_id_subtype_t_str, "mac_address", 3},
        {cwmp_param_notification_t_str, "active", 2},
        {gsm_oper_format_t_str, "numeric", 2},
        {gsm_oper_act_t_str, "E-UTRAN", 7},
        {qos_prio_t_str, "voice", 5},
        {qos_prio_t_str, "best_effort", 0},
        {qos_packet_prio_t_str, "EF", 46},
        {ipsec_phase1_mode_t_str, "aggressive", 4},
        {ipsec_enc_type_t_str, "aes", 7},
        {ipsec_auth_type_t_str, "sha1", 2},
        {ipsec_dh_type_t_str, "modp_2048", 14},
        {ipsec_trans_type_t_str, "ESP_AES-CBC", 12},
        {dev_if_type_t_str, "ieee80211", 71},
        {wildcard_if_flags_t_str, "guest", 256},
    };
    for (const auto &row : rows)
        EXPECT_EQ(str2code_ex(row.table, row.word), row.code) << row.word;
}

TEST(CodeTables, ConstantsAreTheCodesAndSigned)
{
    EXPECT_EQ(str2code_ex(fw_level_t_str, "custom"), ZEL_FW_LEVEL_CUSTOM);
    EXPECT_STREQ(code2str_ex(gsm_oper_act_t_str, ZEL_GSM_OPER_ACT_NR_5GCN), "nr_5gcn");
    const fw_level_t none = static_cast<fw_level_t>(str2code_ex(fw_level_t_str, "Low"));
    EXPECT_EQ(none, ZEL_FW_LEVEL_NO_CODE);
    EXPECT_LT(none, 0);
}

} // namespace
