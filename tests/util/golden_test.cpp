// Files in tests/golden are written on one machine and read on every other: a host of any byte order and word
// size makes the same bytes from the same values, and reads the stored bytes back to them. With
// KUTIL_GOLDEN_WRITE set the files are written instead.

#include "util/kutil.h"

#include "support.h"

#include <cstring>
#include <fstream>
#include <iterator>

namespace
{

std::string take(char *text)
{
    const std::string copy = text ? text : "(null)";
    free(text);
    return copy;
}

std::string golden_path(const std::string &name)
{
    return std::string(KUTIL_SOURCE_DIR) + "/tests/golden/" + name;
}

std::string read_golden(const std::string &name)
{
    std::ifstream file(golden_path(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

// Every byte but NUL, in an order of its own.
std::string all_bytes()
{
    std::string bytes;
    for (unsigned i = 0; i < 255; i++)
        bytes += static_cast<char>(1 + i * 7 % 255);
    return bytes;
}

// A tree with a value of every kind.
set *sample_tree()
{
    set *root = set_alloc("golden");
    set **h = &root;
    iaddr v6;
    str2iaddr(&v6, "2001:db8::ff00:42:8329");
    const uint8_t mac[6] = {0x00, 0x1B, 0x21, 0x3C, 0x9D, 0xF8};
    set_set_path_int(h, "number/int", INT32_MIN);
    set_set_path_u32(h, "number/u32", UINT32_MAX);
    set_set_path_u64(h, "number/u64", UINT64_MAX - 1);
    set_set_path_time(h, "number/time", -1);
    set_set_path_hex(h, "number/hex", -2);
    set_set_path_float(h, "number/float", 1.0 / 3);
    set_set_path_enum(h, "number/enum", fw_level_t_str, 3);
    set_set_path_ip(h, "address/ip", 0xC0A80101);
    set_set_path_ip_ex(h, "address/ip6", &v6);
    set_set_path_mac(h, "address/mac", mac);
    set_set_path_bin(h, "bytes", 255, all_bytes().data());
    set_set_path_str(h, "text/all", all_bytes().c_str());
    set_set_path_str(h, "text/empty", "");
    set_set_path_obscured(h, "secret/text", "a secret of more than sixteen characters");
    set_set_path_bin_obscured(h, "secret/bytes", 255, all_bytes().data());
    for (const char *name : {"", "a/b", "back\\slash", "(", " ", "\xC3\xA9"}) {
        char *path = strdup("odd");
        for (str_cat(&path, "/"); *name; name++)
            str_catprintf(&path, "\\%c", *name);
        set_set_path_str(h, path, "name");
        str_free(&path);
    }
    return root;
}

std::string tree_text()
{
    set *root = sample_tree();
    const std::string text = take(set_write_alloc(&root));
    set_free(&root);
    return text;
}

std::string tree_text_dos()
{
    set *root = sample_tree();
    const std::string text = take(set_write_alloc_dos(&root));
    set_free(&root);
    return text;
}

std::string query_text()
{
    attrib *list = nullptr;
    attrib_addset(&list, "all", all_bytes().c_str());
    attrib_addset(&list, "", "empty name");
    attrib_addset(&list, "empty value", "");
    char *text = nullptr;
    attrib_to_str_http(&text, &list);
    attrib_free(&list);
    return take(text) + "\n";
}

// A file with a header of attributes; its body is the query form with bytes, and the display form of dates.
std::string attrib_file_text()
{
    attrib *list = nullptr;
    attrib_addset(&list, "All", all_bytes().c_str());
    attrib_addset(&list, "Lines", "one\n\n  two");
    attrib_addset(&list, "Empty", "");
    char **lines = attrib_to_lines(&list, 0);
    char *text = nullptr;
    str_join_lines(&text, lines, "\n", 1);
    lines_free(&lines);
    attrib_free(&list);
    std::string file = take(text) + "\n";
    attrib_addset_len(&list, "bytes", "\0\x80\xFF", 3);
    text = nullptr;
    attrib_to_str_http(&text, &list);
    attrib_free(&list);
    file += take(text) + "\n";
    for (const time_t t : {time_t{-157766400}, time_t{86400}, time_t{1794659400}, time_t{3155759999}})
        file += date_itoa(t, 0) + std::string("\n");
    return file;
}

std::string escaped_text()
{
    char **(*const forms[])(char **) = {str_escape_javascript,    str_escape_xml, str_escape_html_text,
                                        str_escape_html_textarea, str_escape_uri, str_escape_http,
                                        str_escape_shell,         str_escape_csv, str_escape_c};
    std::string text;
    for (const auto form : forms) {
        char *piece = strdup(all_bytes().c_str());
        form(&piece);
        text += take(piece) + "\n";
    }
    return text;
}

std::string date_text()
{
    std::string text;
    for (const time_t t : {time_t{0}, time_t{1}, time_t{951782400}, time_t{2147483647}, time_t{4102444799}}) {
        text += date_time2sql(t, 0) + std::string(" ") + arpa_date_get(t) + " " +
                std::to_string(date_sql2time(date_time2sql(t, 0))) + "\n";
    }
    return text;
}

std::string secret_text()
{
    unsigned char *key = aes_password_to_key("pass word");
    char hex[2 * CONF_KEY_SIZE + 1];
    std::string text = std::string("key ") + bin_2_hex(key, CONF_KEY_SIZE, hex) + "\n";
    free(key);
    std::string stream = all_bytes();
    md5_obscure_str(stream.data());
    std::string digits(2 * stream.size() + 1, '\0');
    text += std::string("stream ") + bin_2_hex(stream.data(), stream.size(), digits.data()) + "\n";
    return text;
}

// Sorted by values that a machine could compare in its own way, and with a field of each type.
csv *sample_table()
{
    csv *table = csv_alloc_with_hdr("text", "case", "number", "date", "float", "formula", "", NULL);
    csv_type_set(table, "text", CSV_TYPE_TEXT, "case", CSV_TYPE_TEXT_CASE, "number", CSV_TYPE_INT, "date",
                 CSV_TYPE_DATE, "float", CSV_TYPE_FLOAT, "formula", CSV_TYPE_FORMULA, NULL);
    std::string bytes = all_bytes();
    for (const char dropped : {'\xFF', '\r'}) // in a file the former ends it, the latter is passed over
        bytes.erase(bytes.find(dropped), 1);
    for (const char *number : {"-1", "2147483648", "-2147483648", "17 apples", "", "4294967295"}) {
        for (const char *real : {"-1e3", "0.1", "1e300"})
            csv_line_add_fields_set(table, "text", *number ? number : bytes.c_str(), "case",
                                    "a, \"b\"\n\xC3\xA9", "number", number, "date", "31-Dec-69", "float",
                                    real, "formula", "A1+B2", NULL);
    }
    csv_line_add_fields_set(table, "text", "\xE4", "case", "z", "date", "1-Jan-1900", NULL);
    csv_sort(table, "number", CSV_KEY_DESC, "text", 0, "date", 0, "float", 0, NULL);
    return table;
}

std::string table_text(uint32_t flags)
{
    csv *table = sample_table();
    table->flags |= flags;
    char *text = nullptr;
    size_t length = 0;
    FILE *file = open_memstream(&text, &length);
    csv_write_fp(table, file);
    fclose(file);
    csv_close(table);
    return take(text);
}

std::string comma_text() { return table_text(0); }

std::string tab_text()
{
    csv_delim_set_tab();
    const std::string text = table_text(CSV_F_SPREADSHEET);
    csv_delim_reset();
    return text;
}

// What a client answers to challenges that leave it no random number of its own, and digests of keys and
// data.
std::string digest_text()
{
    std::string text;
    for (const char *challenge : {"Basic realm=\"r\"", "Digest realm=\"a realm\", nonce=\"0123456789\"",
                                  "Digest realm=\"\", nonce=\"n\", algorithm=md5, opaque=\"\xC3\xA9\""}) {
        estream *s = estream_null();
        http_auth_request request = {"GET", "/dir/index.html?a=%20", challenge};
        http_send_auth_header(s, "user", all_bytes().c_str(), &request);
        text.append(estream_null_output_get(s), static_cast<size_t>(estream_null_output_len_get(s)));
        estream_close(s);
    }
    const std::string bytes = all_bytes();
    for (const int key_size : {0, 64, 65, 255}) {
        const auto *data = reinterpret_cast<const uint8_t *>(bytes.data());
        uint8_t digest[16];
        char hex[33];
        hmac_md5(data, 255 - key_size, data, key_size, digest);
        text += bin_2_hex(digest, 16, hex) + std::string("\n");
    }
    return text;
}

struct Golden {
    const char *name;
    std::string (*make)();
};
constexpr Golden kGolden[] = {
    {"tree.conf", tree_text},          {"tree-dos.conf", tree_text_dos}, {"query.txt", query_text},
    {"escapes.txt", escaped_text},     {"dates.txt", date_text},         {"secrets.txt", secret_text},
    {"attribs.txt", attrib_file_text}, {"table.csv", comma_text},        {"table.tab", tab_text},
    {"digests.txt", digest_text},
};

} // namespace

TEST(Golden, SameBytesOnEveryMachine)
{
    for (const Golden &golden : kGolden) {
        const std::string made = golden.make();
        if (getenv("KUTIL_GOLDEN_WRITE"))
            std::ofstream(golden_path(golden.name), std::ios::binary) << made;
        EXPECT_EQ(made, read_golden(golden.name)) << golden.name;
    }
}

TEST(Golden, StoredBytesReadBack)
{
    for (const char *name : {"tree.conf", "tree-dos.conf"}) {
        const std::string stored = read_golden(name);
        set *root = set_read(stored.c_str());
        ASSERT_NE(root, nullptr) << name;
        EXPECT_EQ(take(set_write_alloc(&root)), read_golden("tree.conf"));
        EXPECT_EQ(take(set_get_path_unobscured(&root, "secret/text")),
                  "a secret of more than sixteen characters");
        std::string bytes(255, '\0');
        EXPECT_EQ(set_get_path_bin_buf_unobscured(&root, "secret/bytes", bytes.data()), 255);
        EXPECT_EQ(bytes, all_bytes());
        EXPECT_EQ(set_get_path_strz(&root, "text/all"), all_bytes());
        uint32_t ip = 0;
        EXPECT_EQ(*set_get_path_ip(&ip, &root, "address/ip"), 0xC0A80101);
        set_free(&root);
    }
    attrib *list = nullptr;
    std::string query = read_golden("query.txt");
    query.pop_back();
    str_http_to_attrib(&list, query.c_str());
    EXPECT_EQ(attrib_get(&list, "all"), all_bytes());
    attrib_file *file = attrib_file_alloc(golden_path("attribs.txt").c_str(), nullptr, 0);
    EXPECT_EQ(attrib_get(&file->attribs, "all"), all_bytes());
    EXPECT_STREQ(attrib_get(&file->attribs, "lines"), "one\n\n  two");
    str_http_to_attrib(&list, file->body[0]);
    EXPECT_EQ(list->len, 3);
    EXPECT_EQ(memcmp(list->value, "\0\x80\xFF", 3), 0);
    EXPECT_EQ(date_atoi(file->body[3], 0), 1794659400);
    attrib_file_free(file);
    attrib_free(&list);
}

TEST(Golden, StoredTablesReadBack)
{
    csv *made = sample_table(), *stored = csv_open(golden_path("table.csv").c_str(), 0);
    ASSERT_NE(stored, nullptr);
    csv_line *line = stored->lines;
    for (csv_line *row = made->lines; row; row = row->next, line = line ? line->next : nullptr) {
        for (const char *field : {"text", "case", "number", "date", "float", "formula"})
            EXPECT_STREQ(csv_field_get(stored, line, field), csv_field_get(made, row, field)) << field;
    }
    EXPECT_EQ(line, nullptr);
    csv_close(made);
    csv_close(stored);
}

TEST(Golden, StoredLoginsAreRight)
{
    std::string digests = read_golden("digests.txt");
    for (const int expected :
         {HTTP_AUTH_OK, HTTP_AUTH_STALE, HTTP_AUTH_STALE}) { // the nonce is not this process's
        const size_t end = digests.find("\r\n"), value = digests.find(": ");
        ASSERT_NE(end, std::string::npos);
        const std::string header = digests.substr(value + 2, end - value - 2);
        http_auth_request request = {"GET", "/dir/index.html?a=%20", header.c_str()};
        const auto password = [](void *, const char *) { return strdup(all_bytes().c_str()); };
        EXPECT_EQ(http_check_auth(&request, password, nullptr), expected) << header;
        digests.erase(0, end + 2);
    }
}
