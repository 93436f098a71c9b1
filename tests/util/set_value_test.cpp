#include "util/conf_crypt.h"
#include "util/conf_key.h"
#include "util/set.h"

#include "support.h"
#include "util/code_tables.h"

#include <climits>
#include <clocale>
#include <cstring>

namespace
{

// A tree of its own, and the key "v" for a value to convert.
struct Tree {
    set *root = set_alloc("conf");
    Tree() = default;
    ~Tree() { set_free(&root); }
    Tree(const Tree &) = delete;
    Tree &operator=(const Tree &) = delete;
    set **at() { return &root; }
    set **with(const char *text)
    {
        set_free(set_get(&root, "v"));
        set_set_path_str(&root, "v", text);
        return &root;
    }
    std::string get(const char *path) { return set_get_path_str_default(&root, path, "(absent)"); }
};

std::string unobscured(set **conf, const char *path)
{
    char *text = set_get_path_unobscured(conf, path);
    const std::string copy = text ? text : "(null)";
    free(text);
    return copy;
}

} // namespace

TEST(Numbers, PlainAndDefaultForms)
{
    struct Row {
        const char *text;
        int plain, with_default;
        uint32_t u32, u32_default;
        uint64_t u64;
        int hex;
    };
    const uint32_t u_max = UINT32_MAX;
    const Row rows[] = {
        {"-5", -5, -5, u_max - 4, u_max - 4, UINT64_MAX - 4, -5},
        {"12x", 12, 7, 12, 7, 12, 0x12},
        {"", 0, 7, 0, 7, 0, 0},
        {"-", 0, 7, 0, 7, 0, 0},
        {"5 ", 5, 7, 5, 7, 5, 5},
        {" +5", 5, 5, 5, 5, 5, 5},
        {"2147483648", INT_MAX, 7, 2147483648U, 2147483648U, 2147483648U, -1},
        {"99999999999", INT_MAX, 7, u_max, 7, 99999999999U, -1},
        {"-99999999999", INT_MIN, 7, u_max, 7, static_cast<uint64_t>(-99999999999), -1},
        {"-1", -1, -1, u_max, u_max, UINT64_MAX, -1},
        {"ff", 0, 7, 0, 7, 0, 255},
        {nullptr, 0, 7, 0, 7, 0, 0},
    };
    Tree tree;
    for (const Row &row : rows) {
        set **h = tree.with(row.text);
        SCOPED_TRACE(row.text ? row.text : "absent");
        EXPECT_EQ(set_get_path_int(h, "v"), row.plain);
        EXPECT_EQ(set_get_path_flag(h, "v"), row.plain);
        EXPECT_EQ(set_get_path_int_default(h, "v", 7), row.with_default);
        EXPECT_EQ(set_get_path_flag_default(h, "v", 7), row.with_default);
        EXPECT_EQ(set_get_path_u32(h, "v"), row.u32);
        EXPECT_EQ(set_get_path_u32_default(h, "v", 7), row.u32_default);
        EXPECT_EQ(set_get_path_u64(h, "v"), row.u64);
        EXPECT_EQ(set_get_path_hex(h, "v"), row.hex);
    }
}

TEST(Numbers, RoundTripsAndTheirTexts)
{
    Tree tree;
    set **h = tree.at();
    set_set_path_int(h, "i", INT_MIN);
    set_set_path_flag(h, "f", 7);
    set_set_path_u32(h, "u", UINT32_MAX);
    set_set_path_u64(h, "U", UINT64_MAX);
    set_set_path_time(h, "t", -1);
    set_set_path_hex(h, "x", -2);
    set_set_path_float(h, "d", -1.5);
    set_set_path_enum(h, "e", fw_level_t_str, 3);
    const char *wanted[][2] = {
        {"i", "-2147483648"},          {"f", "1"},        {"u", "4294967295"}, {"U", "18446744073709551615"},
        {"t", "18446744073709551615"}, {"x", "fffffffe"}, {"d", "-1.500000"},  {"e", "medium"}};
    for (const auto &[path, text] : wanted)
        EXPECT_EQ(tree.get(path), text) << path;
    EXPECT_EQ(set_get_path_time(h, "t"), -1);
    EXPECT_EQ(set_get_path_hex(h, "x"), -2);
    EXPECT_EQ(set_get_path_float(h, "d"), -1.5);
    // Where the machine has such a locale; the point must stay one.
    if (setlocale(LC_NUMERIC, "de_DE.UTF-8")) {
        set_set_path_float(h, "d", 2.25);
        EXPECT_EQ(tree.get("d"), "2.250000");
        EXPECT_EQ(set_get_path_float(h, "d"), 2.25);
        EXPECT_EQ(set_son_get_float(set_get(h, "d")), 2.25);
        setlocale(LC_NUMERIC, "C");
    }
    EXPECT_EQ(set_get_path_enum(h, "e", fw_level_t_str), 3);
    EXPECT_EQ(set_get_path_enum(h, "i", fw_level_t_str), -1);
    EXPECT_EQ(set_get_path_enum_default(h, "i", fw_level_t_str, 5), -1) << "a foreign word is no absent one";
    EXPECT_EQ(set_get_path_enum_default(h, "none", fw_level_t_str, 5), 5);
    EXPECT_EQ(set_set_path_enum(h, "none", fw_level_t_str, 99), nullptr);
    EXPECT_EQ(tree.get("none"), "(absent)");
}

TEST(Addresses, ReadAndWritten)
{
    struct Row {
        const char *text;
        uint32_t ip, ip_default;
        int prefix_len;
        const char *any_family;
    };
    const Row rows[] = {
        {"192.168.1.2", 0xC0A80102, 0xC0A80102, 2, "192.168.1.2"},
        {"255.255.255.0", 0xFFFFFF00, 0xFFFFFF00, 24, "255.255.255.0"},
        {"24", 24, 0x0A000001, 24, "0.0.0.24"}, // a short IPv4 form, and no strict dotted quad
        {"300", 300, 0x0A000001, 44, "0.0.1.44"},
        {"ffff:ffff::", 0, 0x0A000001, 32, "ffff:ffff::"},
        {"nonsense", 0, 0x0A000001, 0, ""},
        {nullptr, 0, 0x0A000001, 0, ""},
    };
    Tree tree;
    for (const Row &row : rows) {
        set **h = tree.with(row.text);
        SCOPED_TRACE(row.text ? row.text : "absent");
        uint32_t ip = 1;
        iaddr address;
        EXPECT_EQ(*set_get_path_ip(&ip, h, "v"), row.ip);
        EXPECT_EQ(*set_get_path_ip_default(&ip, h, "v", "10.0.0.1"), row.ip_default);
        EXPECT_STREQ(iaddr2str(set_get_path_ip_ex(&address, h, "v")), row.any_family);
        EXPECT_EQ(set_get_path_ip_prefix_len(h, "v"), row.prefix_len);
    }
    uint8_t mac[6] = {0, 0x1B, 2, 3, 4, 0xFE}, back[6];
    set **h = tree.at();
    set_set_path_mac(h, "m", mac);
    EXPECT_EQ(tree.get("m"), "00:1b:02:03:04:fe");
    EXPECT_EQ(memcmp(set_get_path_mac(back, h, "m"), mac, 6), 0);
    const uint8_t zeros[6] = {};
    EXPECT_EQ(memcmp(set_get_path_mac(back, h, "v"), zeros, 6), 0);

    ip_set_set_or_free(h, "ip", 0x01020304);
    EXPECT_EQ(tree.get("ip"), "1.2.3.4");
    ip_set_set_or_free(h, "ip", 0);
    EXPECT_EQ(tree.get("ip"), "(absent)");
    iaddr address;
    str2iaddr(&address, "fe80::1");
    ip_set_set_or_free_ex(h, "ip", &address);
    EXPECT_EQ(tree.get("ip"), "fe80::1");
    str2iaddr(&address, "::");
    ip_set_set_or_free_ex(h, "ip", &address);
    EXPECT_EQ(set_get(h, "ip"), nullptr);
}

TEST(Bytes, OddBadAndWhole)
{
    Tree tree;
    set **h = tree.at();
    set_set_path_bin(h, "b", 3, "\0\xFF\x10");
    EXPECT_EQ(tree.get("b"), "00ff10");
    set_set_path_bin(h, "none", -1, "x");
    EXPECT_EQ(tree.get("none"), "");
    struct Row {
        const char *text;
        int len, read;
        std::string buffer;
    };
    const Row rows[] = {{"00fF10", 3, 3, std::string("\0\xFF\x10#", 4)},
                        {"abc", 0, 0, "####"},
                        {"00gg", 2, 0, std::string("\0\0##", 4)},
                        {"", 0, 0, "####"}};
    for (const Row &row : rows) {
        std::string buffer = "####";
        tree.with(row.text);
        EXPECT_EQ(set_get_path_bin_len(h, "v"), row.len) << row.text;
        EXPECT_EQ(set_get_path_bin_buf(h, "v", buffer.data()), row.read) << row.text;
        EXPECT_EQ(buffer, row.buffer) << row.text;
    }
    std::string bytes("\0secret\0", 8), back(8, '#');
    EXPECT_EQ(set_set_path_bin_obscured(h, "s", 8, bytes.data()), 0);
    EXPECT_EQ(set_get_path_bin_buf_unobscured(h, "s", back.data()), 8);
    EXPECT_EQ(back, bytes);
    EXPECT_EQ(set_set_path_bin_obscured(h, "s", 4, nullptr), -1) << "what is stored stays";
    EXPECT_EQ(set_get_path_bin_buf(h, "s", back.data()), 8);
    EXPECT_NE(back, bytes);
}

TEST(Several, ListsAndSplits)
{
    Tree tree;
    set **h = tree.at();
    set_set_path_str(h, "list/old/v", "a,,b,");
    set_set_path_str(h, "list/old/path", "v");
    set **list = set_get(h, "list");
    // The text and the path lie in what is freed.
    set_set_path_delim_list(list, set_get_path_str(list, "old/path"), set_get_path_str(list, "old/v"), ",",
                            0);
    EXPECT_EQ(set_get_nsons(list), 3);
    EXPECT_EQ(tree.get("list/0/v") + "|" + tree.get("list/1/v") + "|" + tree.get("list/2/v"), "a||b");
    set_mask_push(UINT32_MAX,
                  2); // the sons stay in the layer below, and are the new layer's as far as it goes
    set_set_path_delim_list(list, "v", "x,y", ",", 0);
    EXPECT_EQ(tree.get("list/0/v") + "|" + tree.get("list/1/v") + "|" + tree.get("list/2/v"), "x|y|b");
    set_mask_pop();
    EXPECT_EQ(set_get_nsons_mask(list, 2) * 10 + set_get_nsons(list), 23);
    set_free_mask(h, 2);
    set_set_path_delim_list(list, "v", nullptr, ",", 0);
    EXPECT_EQ(set_get_nsons_mask(list, 1), 0);

    static const char *const words_a[] = {"read", "r", nullptr}, *const words_b[] = {"write", nullptr};
    static const code_names table[] = {{1, words_a, 0}, {2, words_b, 1}, {4, nullptr, 0}, {-1, nullptr, 0}};
    EXPECT_EQ(set_set_path_key_list(h, "rights", table, 6), -1);
    EXPECT_EQ(tree.get("rights/read") + tree.get("rights/write"), "01");
    EXPECT_EQ(set_get_nsons(set_get(h, "rights")), 2);

    EXPECT_EQ(set_split_get(h, 3), h);
    EXPECT_EQ(set_split_get(h, 1), nullptr);
    set **specific = set_split_set(h, 2);
    EXPECT_EQ(specific, set_get(h, "split/specific"));
    EXPECT_NE(specific, nullptr);
}

TEST(Secrets, StoredObscured)
{
    Tree tree;
    set **h = tree.at();
    EXPECT_EQ(set_set_path_obscured(h, "s", "secret"), 0);
    EXPECT_EQ(tree.get("s"), "261ca62d54f41b4cf9ff82243c488460");
    EXPECT_EQ(unobscured(h, "s"), "secret");
    EXPECT_EQ(set_path_unobscured_is_equal(h, "s", "secret"), 1);
    EXPECT_EQ(set_path_unobscured_is_equal(h, "s", "secret "), 0);
    EXPECT_EQ(set_path_unobscured_is_equal(h, "none", ""), 1);
    char buf[4] = "###";
    set_get_path_unobscured_buf(h, "s", buf, 0);
    EXPECT_STREQ(buf, "###");
    set_get_path_unobscured_buf(h, "s", buf, sizeof(buf));
    EXPECT_STREQ(buf, "sec");
    for (const char *bad :
         {"00112233", "261ca62d54f41b4cf9ff82243c4884", "261ca62d54f41b4cf9ff82243c48846g"}) {
        tree.with(bad);
        EXPECT_EQ(unobscured(h, "v"), "(null)") << bad;
        EXPECT_EQ(set_path_unobscured_is_equal(h, "v", ""), 0);
        set_get_path_unobscured_buf(h, "v", buf, sizeof(buf));
        EXPECT_STREQ(buf, "");
    }
    EXPECT_EQ(set_set_path_obscured(h, "n", nullptr), -1);
    EXPECT_EQ(tree.get("n"), "(absent)");
}

TEST(Keys, LoadedFromTheTree)
{
    ReportLog log;
    Tree tree;
    set **h = tree.at();
    const std::string key(64, 'b');
    EXPECT_EQ(zel_conf_crypt_key_load(nullptr), 0);
    EXPECT_EQ(zel_conf_crypt_key_load(h), -1);
    for (const char *bad : {"abc", "", "zz"}) {
        set_set_path_obscured(h, "manufacturer/zel_conf/key", bad);
        EXPECT_EQ(zel_conf_crypt_key_load(h), -1) << bad;
        EXPECT_EQ(zel_conf_crypt_key_get_curr_type(), CONF_KEY_DEFAULT);
    }
    EXPECT_EQ(zel_conf_crypt_key_factory_apply_new(h), 0);
    zel_conf_crypt_key_factory_set_new(h, key.c_str());
    EXPECT_EQ(zel_conf_crypt_key_factory_apply_new(h), 1);
    EXPECT_EQ(set_get(h, "manufacturer/zel_conf/factory_key"), nullptr);
    set_set_path_obscured(h, "wifi/psk", "under the built-in key");
    EXPECT_EQ(zel_conf_crypt_key_load(h), 0);
    EXPECT_EQ(zel_conf_crypt_key_get_curr_type(), CONF_KEY_DEVICE);
    EXPECT_NE(unobscured(h, "wifi/psk"), "under the built-in key");
    zel_conf_crypt_key_select(CONF_KEY_DEFAULT);
    zel_conf_crypt_key_factory_set_new(h, key.c_str());
    zel_conf_crypt_key_deselect();
    EXPECT_EQ(zel_conf_crypt_key_get_curr_type(), CONF_KEY_DEVICE) << "inside a select, which goes on";

    // What the list names is obscured anew, once: a second run finds nothing of the built-in key.
    struct Row {
        const char *name, *type, *value;
    };
    const Row rows[] = {{"wifi/psk", "str", nullptr},   {"wifi/bin", "bin", nullptr},
                        {"wifi/gone", "str", nullptr},  {"voip/secret", "str", "0123"},
                        {"wifi/text", "str", "plain!"}, {"wifi/empty", "str", ""}};
    set_set_path_bin_obscured(h, "wifi/bin", 4, "\1\2\3\4");
    for (int i = 0; i < 6; i++) {
        set **son = set_set(h, ("encryption/obscured_params/" + std::to_string(i)).c_str());
        set_set_path_str(son, "name", rows[i].name);
        set_set_path_str(son, "type", rows[i].type);
        set_set_path_str(h, rows[i].name, rows[i].value);
    }
    set_set_path_str(h, "encryption/obscured_params/7/type", "str");
    set_set_path_str(h, "encryption/obscured_params/8/name", "");
    const std::string bytes = tree.get("wifi/bin");
    reobscure_zel_conf_params(h, "wifi/");
    EXPECT_EQ(unobscured(h, "wifi/psk"), "under the built-in key");
    EXPECT_EQ(tree.get("wifi/bin"), bytes) << "the keyless form stays what it is";
    EXPECT_EQ(tree.get("wifi/gone"), "(absent)");
    EXPECT_EQ(log.take(), "5: wifi/text is not obscured with the built-in key and is left as it is\n");
    const std::string stored = tree.get("wifi/psk");
    reobscure_zel_conf_params(h, nullptr);
    EXPECT_EQ(tree.get("wifi/psk"), stored) << "a second run loses nothing";
    EXPECT_EQ(tree.get("voip/secret"), "0123");
    EXPECT_EQ(log.entries.size(), 3U);
    zel_conf_crypt_key_change(CONF_KEY_DEFAULT);
}
