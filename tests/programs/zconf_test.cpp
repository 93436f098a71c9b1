// Drives zconf from outside: what it prints, what it leaves in the file, and with which status it ends.

#include "common/file_lock.h"
#include "programs/child_program.h"
#include "util/hex.h"
#include "util/http_auth.h"
#include "zconf/value_type.h"

#include <csignal>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <termios.h>

namespace
{

constexpr const char *kBase = "(conf\n"
                              "  (wan\n"
                              "    (mtu(1500))\n"
                              "    (name(Fibre &26; co))\n"
                              "    (dns\n"
                              "      (0(192.0.2.1))\n"
                              "      (3(192.0.2.2))\n"
                              "    )\n"
                              "  )\n"
                              "  (empty)\n"
                              ")\n";

struct Row {
    std::vector<std::string> words;
    int exit_code;
    std::string out;
    std::string err; // a part of it; "" for nothing at all
};

void expect(const ProgramResult &result, int exit_code, const std::string &out, const std::string &err,
            const std::string &what)
{
    EXPECT_EQ(result.exit_code, exit_code) << what << "\n" << result.err;
    EXPECT_EQ(result.out, out) << what;
    if (err.empty())
        EXPECT_EQ(result.err, "") << what;
    else
        EXPECT_NE(result.err.find(err), std::string::npos) << what << "\n" << result.err;
}

std::string joined(const std::vector<std::string> &words)
{
    std::string all;
    for (const std::string &word : words)
        all += "[" + word + "]";
    return all;
}

struct Step {
    Row row;
    std::string input;
};

// A folder with the file "c", in which zconf is run.
class Zconf : public testing::Test
{
protected:
    Zconf()
    {
        unsetenv("ZCONF_FILE");
        folder.write("c", kBase);
    }
    // With "-f c" in front.
    ProgramResult zconf(std::vector<std::string> words, const std::string &input = "")
    {
        words.insert(words.begin(), {"-f", "c"});
        return plain(std::move(words), input);
    }
    ProgramResult plain(std::vector<std::string> words, const std::string &input = "",
                        const std::function<void()> &prepare = {})
    {
        words.insert(words.begin(), KUTIL_ZCONF);
        return run_program(folder, aside, words, input, prepare);
    }
    std::string list() { return zconf({"list"}).out; }
    // Runs rows on the file that the rows before left.
    void expect_in_turn(const std::vector<Step> &steps)
    {
        for (const Step &step : steps) {
            const Row &row = step.row;
            const ProgramResult result = zconf(row.words, step.input);
            expect(result, row.exit_code, row.out, row.err, joined(row.words));
            EXPECT_EQ(result.err.find("geheim"), std::string::npos) << result.err;
        }
    }

    ScratchFolder folder;
    ScratchFolder aside;
};

} // namespace

TEST_F(Zconf, ReadsWithoutTouchingTheFolder)
{
    const Row rows[] = {
        {{"get", "wan/mtu"}, 0, "1500\n", ""},
        {{"get", "/wan//name/"}, 0, "Fibre & co\n", ""},
        {{"get", "&77;an/dns/3"}, 0, "192.0.2.2\n", ""},
        {{"get", "wan"}, 1, "", "zconf: wan: holds 4 keys and no value"},
        {{"get", "empty"}, 1, "", "empty: holds no value"},
        {{"get", "lan/x"}, 1, "", "lan/x: no such key"},
        {{"get", "a&b"}, 2, "", "a&b: character 2: not an escape"},
        {{"get", "wan/mtu\\"}, 2, "", "character 8: a path does not end in a backslash"},
        {{"get"}, 2, "", "usage: get [--type TYPE] [--unmask] PATH"},
        {{"get", "a", "b"}, 2, "", "usage: get [--type TYPE] [--unmask] PATH"},
        {{"list"},
         0,
         "wan/mtu=1500\nwan/name=Fibre &26; co\nwan/dns/0=192.0.2.1\nwan/dns/3=192.0.2.2\nempty/\n",
         ""},
        {{"list", "wan/dns"}, 0, "wan/dns/0=192.0.2.1\nwan/dns/3=192.0.2.2\n", ""},
        {{"list", "wan/mtu"}, 0, "wan/mtu=1500\n", ""},
        {{"list", "lan"}, 1, "", "lan: no such key"},
        {{"print"},
         0,
         "conf\n  wan\n    mtu = 1500\n    name = Fibre &26; co\n    dns\n      0 = 192.0.2.1\n      3 = "
         "192.0.2.2\n"
         "  empty\n",
         ""},
        {{"print", "--depth", "0"}, 0, "conf (5 keys)\n", ""},
        {{"print", "--depth=1", "wan"}, 0, "wan\n  mtu = 1500\n  name = Fibre &26; co\n  dns (2 keys)\n", ""},
        {{"print", "--depth", "1x"}, 2, "", "--depth: not a number from 0 up: 1x"},
        {{"print", "--depth", "-1"}, 2, "", "--depth"},
        {{"list", "--depth", "1"}, 2, "", "list: no such option: --depth (general"},
        {{"validate"}, 0, "c: valid, 5 keys\n", ""},
        {{"frobnicate"}, 2, "", "no such command: frobnicate"},
        {{}, 2, "", "no command"},
    };
    for (const Row &row : rows)
        expect(zconf(row.words), row.exit_code, row.out, row.err, joined(row.words));
    EXPECT_EQ(folder.list(), "c");
}

TEST_F(Zconf, ChangesOneThingAndNothingElse)
{
    const struct {
        Row row;
        const char *diff; // from the old file to the new one
    } rows[] = {
        {{{"set", "wan/mtu", "1492"}, 0, "", ""}, "~ wan/mtu=1492\n"},
        {{{"set", "wan/mtu", "-5"}, 0, "", ""}, "~ wan/mtu=-5\n"},
        {{{"set", "wan/mtu", ""}, 0, "", ""}, "~ wan/mtu=\n"},
        {{{"set", "wan/name", "(\x01\xff&;'\"\\\n)"}, 0, "", ""}, "~ wan/name=(&01;&ff;&26;;'\"\\&0a;)\n"},
        {{{"set", "new/k\\/\\=&26;", "x"}, 0, "", ""}, "+ new/k\\/\\=&26;=x\n"},
        {{{"set", "empty/x", "1"}, 0, "", ""}, "- empty/\n+ empty/x=1\n"},
        {{{"set", "wan", "5"}, 1, "", "wan: holds 4 keys"}, ""},
        {{{"--force", "set", "wan/dns", "5"}, 0, "", ""},
         "- wan/dns/0=192.0.2.1\n- wan/dns/3=192.0.2.2\n+ wan/dns=5\n"},
        {{{"set", "wan/mtu/x/y", "5"}, 1, "", "wan/mtu: holds a value"}, ""},
        {{{"--force", "set", "wan/mtu/x", "5"}, 0, "", ""},
         "- wan/mtu=1500\n+ wan/mtu/1500/\n+ wan/mtu/x=5\n"},
        {{{"set", "//", "5"}, 2, "", "names no key"}, ""},
        {{{"del", "wan/dns"}, 0, "", ""}, "- wan/dns/0=192.0.2.1\n- wan/dns/3=192.0.2.2\n"},
        {{{"del", "wan/nothing"}, 1, "", "wan/nothing: no such key"}, ""},
        {{{"del", ""}, 2, "", "names no key"}, ""},
        {{{"add", "wan/dns"}, 0, "wan/dns/4\n", ""}, "+ wan/dns/4/\n"},
        {{{"add", "empty"}, 0, "empty/0\n", ""}, "~ empty=0\n"},
        {{{"add", "new/li\\/st"}, 0, "new/li\\/st/0\n", ""}, "+ new/li\\/st=0\n"},
        {{{"add", "wan"}, 1, "", "wan: not a list"}, ""},
        {{{"add", "wan/mtu"}, 1, "", "wan/mtu: holds the value 1500"}, ""},
    };
    for (const auto &[row, diff] : rows) {
        folder.write("c", kBase);
        folder.write("old", kBase);
        expect(zconf(row.words), row.exit_code, row.out, row.err, joined(row.words));
        const ProgramResult changes = plain({"-f", "old", "diff", "c"});
        EXPECT_EQ(changes.out, diff) << joined(row.words);
        EXPECT_EQ(changes.exit_code, *diff ? 1 : 0) << joined(row.words);
        if (!*diff) {
            EXPECT_EQ(folder.read("c"), kBase);
        }
    }
}

// Empty: no value of the type. What is stored is what every program of the gateway reads back.
TEST(ZconfTypes, TakeWhatFitsAndRefuseTheRest)
{
    const struct {
        const char *type;
        const char *text;
        const char *stored;
        const char *shown;
    } rows[] = {
        {"int", "-5", "-5", "-5"},
        {"int", " +007", "7", "7"},
        {"int", "-2147483648", "-2147483648", "-2147483648"},
        {"int", "2147483648", "", ""},
        {"int", "12x", "", ""},
        {"int", "", "", ""},
        {"u32", "4294967295", "4294967295", "4294967295"},
        {"u32", "4294967296", "", ""},
        {"u32", "-1", "", "4294967295"},
        {"u64", "018446744073709551615", "18446744073709551615", "18446744073709551615"},
        {"u64", "18446744073709551616", "", ""},
        {"u64", "-1", "", "18446744073709551615"},
        {"u64", "0", "0", "0"},
        {"u64", "1 ", "", ""},
        {"hex", "0xFfffFfff", "ffffffff", "ffffffff"},
        {"hex", "00000000000a", "a", "a"},
        {"hex", "100000000", "", ""},
        {"hex", "0x", "", ""},
        {"hex", "-1", "", ""},
        {"float", "-1.5e2", "-150.000000", "-150.000000"},
        {"float", "0.1", "0.100000", "0.100000"},
        {"float", "0.12345678", "", "0.123457"},
        {"float", "1e70", "", ""},
        {"float", "inf", "", ""},
        {"float", "nan", "", ""},
        {"float", "1,5", "", ""},
        {"flag", "7", "1", "1"},
        {"flag", "0", "0", "0"},
        {"flag", "on", "", ""},
        {"time", "-1", "18446744073709551615", "-1"},
        {"time", "18446744073709551615", "", "-1"},
        {"time", "4294967296", "4294967296", "4294967296"},
        {"time", "-9223372036854775808", "9223372036854775808", "-9223372036854775808"},
        {"time", "-9223372036854775809", "", "9223372036854775807"},
        {"ip", "192.0.2.1", "192.0.2.1", "192.0.2.1"},
        {"ip", "2001:DB8:0:0::1", "2001:db8::1", "2001:db8::1"},
        {"ip", "192.0.2.256", "", ""},
        {"ip", "192.0.2", "", "192.0.0.2"},
        {"ip", "fe80::1%1", "", "fe80::1"},
        {"ip", "", "", ""},
        {"mac", "00:1A:ff:0:1:2", "", ""},
        {"mac", "00:1A:fF:00:01:02", "00:1a:ff:00:01:02", "00:1a:ff:00:01:02"},
        {"mac", "1:2:3:4:5:6:zzzzz", "", ""},
        {"bin", "00fFaA", "00ffaa", "00ffaa"},
        {"bin", "abc", "", ""},
        {"bin", "0g", "", ""},
        {"enum:fw_level_t", "low", "low", "low"},
        {"enum:fw_level_t_str", "LOW", "", ""},
        {"enum:fw_level_t", "", "", ""},
        {"enum:eap_method_id_t", "MD5-Challenge", "md5_challenge", "md5_challenge"},
        {"secret", "d87262453b74189e3c029f0535ddeecb", nullptr, "d87262453b74189e3c029f0535ddeecb"},
        {"secret", "d87262453b74189e", nullptr, ""},
        {"bin-secret", "d872", nullptr, "d872"},
        {"bin-secret", "clear", nullptr, ""},
    };
    for (const auto &row : rows) {
        zconf::ValueType type;
        ASSERT_TRUE(type.read(row.type)) << row.type;
        EXPECT_EQ(type.is_secret(), row.stored == nullptr) << row.type;
        const auto text_of = [](const kutil::HeapText &text) { return std::string(text ? text.get() : ""); };
        if (row.stored) {
            EXPECT_EQ(text_of(type.to_stored(row.text)), row.stored) << row.type << " " << row.text;
        }
        EXPECT_EQ(text_of(type.to_shown(row.text)), row.shown) << row.type << " " << row.text;
    }
    for (const char *none : {"", "int ", "enum", "enum:", "enum:none", "str"})
        EXPECT_FALSE(zconf::ValueType().read(none)) << none;
}

TEST_F(Zconf, TypesStandInFrontOfThePath)
{
    expect_in_turn({
        {{{"set", "--type", "u32", "wan/mtu", "1492 "}, 2, "", "1492 : not a decimal number from 0"}, ""},
        {{{"set", "--type=enum:fw_level_t", "fw", "no"}, 2, "", "enumeration: disabled, low, standard"}, ""},
        {{{"get", "fw"}, 1, "", "fw: no such key"}, ""},
        {{{"set", "--type", "hex", "wan/mtu", "0x5DC"}, 0, "", ""}, ""},
        {{{"get", "wan/mtu"}, 0, "5dc\n", ""}, ""},
        {{{"get", "--type", "int", "wan/mtu"}, 1, "", "wan/mtu: its value is not a decimal number"}, ""},
        {{{"get", "--type", "text", "wan/mtu"}, 2, "", "--type: text: not one of int, u32"}, ""},
        {{{"get", "--type"}, 2, "", "get: the last option needs an argument"}, ""},
        {{{"get", "--unmask", "--type", "hex", "wan/mtu"}, 2, "", "only --type secret"}, ""},
        {{{"del", "--type", "hex", "wan/mtu"}, 2, "", "del: no such option: --type"}, ""},
        {{{"batch"}, 2, "", "standard input:2:18: x: not a decimal"}, "a=1\nset --type int a x"},
        {{{"batch"}, 0, "-1\n", ""}, "set --type time t -1\nget --type time t"},
    });
}

namespace
{

constexpr const char *kSecretBase = "(conf(encryption(obscured_params"
                                    "(0(name(user/0/password))(type(str)))(1(name(/vpn//key))(type(bin)))))"
                                    "(user(0(name(ann)))))";
constexpr const char *kSecretStored = "261ca62d54f41b4cf9ff82243c488460"; // "secret" under the built-in key
constexpr const char *kDeviceKey = "00112233445566778899aabbccddeeff00112233445566778899AABBCCDDEEFF";

} // namespace

TEST_F(Zconf, SecretsAreStoredObscuredAndShownOnRequestOnly)
{
    const std::string password = "user/0/password";
    const std::string stored = std::string(kSecretStored) + "\n";
    folder.write("c", kSecretBase);
    expect_in_turn({
        {{{"set", password, "geheim"}, 1, "", "user/0/password: is a secret, and this value is not"}, ""},
        {{{"set", "--type", "int", password, "5"}, 1, "", "--type secret obscures it"}, ""},
        {{{"set", "/user//0/pass\\word", "00ff"}, 1, "", "is a secret"}, ""},
        {{{"set", "--type", "secret", password, "-"}, 0, "", ""}, "secret\n"},
        {{{"get", password}, 0, stored, ""}, ""},
        {{{"get", "--type", "secret", password}, 0, stored, ""}, ""},
        {{{"list", "user"}, 0, "user/0/name=ann\nuser/0/password=" + stored, ""}, ""},
        {{{"get", "--unmask", password}, 0, "secret\n", ""}, ""},
        {{{"set", password, kSecretStored}, 0, "", ""}, ""},
        {{{"set", "--type", "bin-secret", password, "00"}, 1, "", "is listed as a secret"}, ""},
        {{{"set", "--type", "secret", "vpn/key", "geheim"}, 1, "", "is listed as a bin-secret"}, ""},
        {{{"set", "--type", "bin-secret", "vpn/key", "geheim"}, 2, "", "vpn/key: the value is not bytes"},
         ""},
        {{{"set", "--type", "bin-secret", "vpn/key", "-"}, 0, "", ""}, "00FF10"},
        {{{"get", "--unmask", "vpn/key"}, 0, "00ff10\n", ""}, ""},
        {{{"get", "--unmask", "user/0/name"}, 1, "", "user/0/name: is not listed as a secret"}, ""},
        {{{"get", "--unmask", "--type", "secret", "user/0/name"}, 1, "", "was not obscured as a secret"}, ""},
        {{{"set", "--type", "secret", "note", "\x1b[2J\xff\n"}, 0, "", "note: stored, but not listed"}, ""},
        {{{"get", "--unmask", "--type", "secret", "note"}, 0, "&1b;[2J&ff;&0a;\n", ""}, ""},
        {{{"set", "--type", "secret", password, "-"}, 0, "", ""}, ""},
        {{{"get", "--unmask", password}, 0, "\n", ""}, ""},
        {{{"set", "--type", "secret", password, "-"}, 2, "", "no NUL"}, std::string("a\0b", 3)},
        {{{"set", "--type", "secret", password, "-"}, 2, "", "too long"}, std::string(65537, 'x')},
        {{{"batch"}, 2, "", "standard input can be read only once"}, "set --type secret user/0/password -"},
        {{{"--force", "set", password, "clear"}, 0, "", ""}, ""},
        {{{"get", "--unmask", password}, 1, "", "user/0/password: its value was not obscured"}, ""},
    });
    expect(plain({"-f", "-", "set", "--type", "secret", "p", "-"}, kSecretBase), 2, "", "only once",
           "stream");
}

TEST_F(Zconf, ReobscuresWithTheDeviceKeyWhatTheBuiltInKeyHides)
{
    const std::string key = "manufacturer/zel_conf/key";
    folder.write("c", kSecretBase);
    expect_in_turn({
        {{{"set", "--type", "secret", "user/0/password", "-"}, 0, "", ""}, "secret"},
        {{{"reobscure"}, 1, "", "manufacturer/zel_conf/key: holds no usable key"}, ""},
        {{{"set", key, "geheim"}, 1, "", "is a secret"}, ""},
        {{{"set", "--type", "secret", key, "geheim"}, 2, "", "is not a key of 64 hexadecimal digits"}, ""},
        {{{"set", "--type", "secret", key, "-"}, 0, "", ""}, std::string(kDeviceKey) + "\n"},
        {{{"get", "--unmask", key}, 0, std::string(kDeviceKey) + "\n", ""}, ""},
        {{{"get", "--unmask", "user/0/password"}, 1, "", "was not obscured as a secret with the current key"},
         ""},
        {{{"reobscure", "vpn"}, 0, "0 obscured anew, 0 left as they are, 0 without a value\n", ""}, ""},
        {{{"reobscure", "user"}, 0, "1 obscured anew, 0 left as they are, 0 without a value\n", ""}, ""},
        {{{"get", "--unmask", "user/0/password"}, 0, "secret\n", ""}, ""},
        {{{"set", "--type", "secret", key, kDeviceKey}, 1, "", "could not be read any more (--force"}, ""},
    });
    EXPECT_NE(zconf({"get", "user/0/password"}).out, std::string(kSecretStored) + "\n");
    const std::string whole = folder.read("c");
    expect(zconf({"reobscure"}), 1, "", "1 of 1 secrets cannot be obscured anew, so nothing was", "again");
    EXPECT_EQ(folder.read("c"), whole);
    expect_in_turn({
        {{{"set", "--type", "bin-secret", "vpn/key", "0102"}, 0, "", ""}, ""},
        {{{"--force", "reobscure"},
          0,
          "1 obscured anew, 1 left as they are, 0 without a value\n",
          "user/0/password is not obscured with the built-in key"},
         ""},
        {{{"get", "--unmask", "vpn/key"}, 0, "0102\n", ""}, ""},
        {{{"set", "encryption/obscured_params/9/name", key}, 0, "", ""}, ""},
        {{{"--force", "reobscure"}, 1, "", "stays obscured with the built-in key"}, ""},
        {{{"--force", "set", key, "00"}, 0, "", ""}, ""},
        {{{"set", "--type", "secret", "user/0/password", "secret"}, 0, "", "holds no usable key"}, ""},
        {{{"get", "user/0/password"}, 0, std::string(kSecretStored) + "\n", ""}, ""},
    });
}

namespace
{

// Runs zconf on a terminal of its own, on which `typed` is typed when it asks; it then gets `number` unless
// 0. Returns its status and all that the terminal showed; *echo: whether the terminal shows again what is
// typed.
int run_on_terminal(const ScratchFolder &folder, const std::string &typed, int number, std::string *shown,
                    bool *echo)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    grantpt(master);
    unlockpt(master);
    const std::string name = ptsname(master);
    const int slave = open(name.c_str(), O_RDWR | O_NOCTTY); // keeps it open when the program has ended
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        signal(SIGINT, SIG_DFL);
        alarm(20); // rather than hang
        const int terminal = open(name.c_str(), O_RDWR);
        ioctl(terminal, TIOCSCTTY, 0);
        if (chdir(folder.path().c_str()) != 0 || dup2(terminal, 0) < 0 || dup2(terminal, 1) < 0 ||
            dup2(terminal, 2) < 0)
            _exit(126);
        execl(KUTIL_ZCONF, KUTIL_ZCONF, "-f", "c", "set", "--type", "secret", "user/0/password", "-",
              static_cast<char *>(nullptr));
        _exit(127);
    }
    char byte;
    while (shown->find("password: ") == std::string::npos && read(master, &byte, 1) == 1)
        *shown += byte;
    EXPECT_EQ(write(master, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
    if (number)
        kill(child, number);
    int status = 0;
    waitpid(child, &status, 0);
    struct termios mode = {};
    *echo = tcgetattr(slave, &mode) == 0 && (mode.c_lflag & ECHO) != 0;
    for (int left = 0; ioctl(master, FIONREAD, &left) == 0 && left > 0 && read(master, &byte, 1) == 1;)
        *shown += byte;
    close(slave);
    close(master);
    return status;
}

} // namespace

TEST_F(Zconf, ATerminalIsAskedForASecretAndShowsNothingOfIt)
{
    folder.write("c", kSecretBase);
    std::string shown;
    bool echo = false;
    EXPECT_EQ(run_on_terminal(folder, "geheim\n", 0, &shown, &echo), 0) << shown;
    EXPECT_EQ(shown, "Secret for user/0/password: \r\n");
    EXPECT_TRUE(echo);
    EXPECT_EQ(zconf({"get", "--unmask", "user/0/password"}).out, "geheim\n");
    // Interrupted in the middle: it ends as if nobody had caught the signal.
    const std::string whole = folder.read("c");
    shown.clear();
    const int status = run_on_terminal(folder, "half", SIGINT, &shown, &echo);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
    EXPECT_TRUE(echo);
    EXPECT_EQ(shown.find("half"), std::string::npos) << shown;
    EXPECT_EQ(folder.read("c"), whole);
}

TEST_F(Zconf, AddGoesOnFromTheGreatestNumberInWhateverOrder)
{
    folder.write(
        "c",
        "(conf\n(l\n(7(a))\n(2(b))\n)\n(full\n(1(a))\n(2147483647(b))\n)\n(odd\n(1(a))\n(02(b))\n)\n)\n");
    EXPECT_EQ(zconf({"add", "l"}).out, "l/8\n");
    EXPECT_EQ(list().substr(0, 18), "l/7=a\nl/2=b\nl/8/\nf");
    EXPECT_EQ(zconf({"add", "full"}).exit_code, 1);
    EXPECT_EQ(zconf({"add", "odd"}).exit_code, 1);
}

TEST_F(Zconf, DiffsTreesWhateverTheirOrder)
{
    folder.write("o", "(conf(empty)(wan(dns(3(192.0.2.2))(0(192.0.2.9)))(name(Fibre &26; co))(lte(1))))");
    expect(zconf({"diff", "o"}), 1, "- wan/mtu=1500\n~ wan/dns/0=192.0.2.9\n+ wan/lte=1\n", "", "other");
    expect(zconf({"diff", "-"}, kBase), 0, "", "", "itself");
    expect(zconf({"diff", "-"}, "(other" + std::string(kBase + 5)), 1, "",
           "the top node is conf here and other in -", "names");
    expect(zconf({"diff", "none"}), 2, "", "none: ", "missing");
}

TEST_F(Zconf, MergesAndReplacesAllOrOneBranch)
{
    const std::string source = "(conf(wan(mtu(1400))(vlan(7)))(lan(ip(192.0.2.7))))";
    const struct {
        Row row;
        std::string source;
        const char *list;
    } rows[] = {
        {{{"merge", "-"}, 0, "", ""},
         source,
         "wan/mtu=1400\nwan/name=Fibre &26; "
         "co\nwan/dns/0=192.0.2.1\nwan/dns/3=192.0.2.2\nwan/vlan=7\nempty/\n"
         "lan/ip=192.0.2.7\n"},
        {{{"merge", "-", "lan"}, 0, "", ""},
         source,
         "wan/mtu=1500\nwan/name=Fibre &26; co\nwan/dns/0=192.0.2.1\nwan/dns/3=192.0.2.2\nempty/\n"
         "lan/ip=192.0.2.7\n"},
        {{{"replace", "-", "wan"}, 0, "", ""}, source, "wan/mtu=1400\nwan/vlan=7\nempty/\n"},
        {{{"replace", "-", "lan/ip"}, 0, "", ""},
         source,
         "wan/mtu=1500\nwan/name=Fibre &26; co\nwan/dns/0=192.0.2.1\nwan/dns/3=192.0.2.2\nempty/\n"
         "lan/ip=192.0.2.7\n"},
        {{{"replace", "-"}, 0, "", ""}, source, "wan/mtu=1400\nwan/vlan=7\nlan/ip=192.0.2.7\n"},
        {{{"--force", "replace", "-"}, 0, "", ""}, "(other(x(1)))", "x=1\n"},
        {{{"--force", "merge", "-"}, 1, "", "conflict: wan/dns: holds keys here and a value in -"},
         "(conf(wan(dns(5))(mtu(9))(name(z))))",
         "wan/mtu=9\nwan/name=z\nwan/dns/0=192.0.2.1\nwan/dns/3=192.0.2.2\nempty/\n"},
        // Refused, and nothing is changed.
        {{{"merge", "-"}, 1, "", "conflict: wan/mtu: holds a value here and keys in -"},
         "(conf(wan(mtu(a(1)))(name(z))))",
         nullptr},
        {{{"merge", "-", "nope"}, 1, "", "-: nope: no such key"}, source, nullptr},
        {{{"merge", "-"}, 1, "", "the top node is conf here and other in -"}, "(other(x(1)))", nullptr},
        {{{"replace", "-"}, 1, "", "the top node is conf here and other in -"}, "(other(x(1)))", nullptr},
        {{{"merge", "-"}, 2, "", "standard input:2:6: text behind a node"}, "(conf\n(x(1)y)\n)", nullptr},
        {{{"replace", "none"}, 2, "", "none: "}, "", nullptr},
    };
    for (const auto &[row, text, lines] : rows) {
        folder.write("c", kBase);
        expect(zconf(row.words, text), row.exit_code, row.out, row.err, joined(row.words) + text);
        if (lines)
            EXPECT_EQ(list(), lines) << joined(row.words);
        else
            EXPECT_EQ(folder.read("c"), kBase) << joined(row.words);
    }
}

TEST_F(Zconf, ABatchIsSavedWholeOrNotAtAll)
{
    const struct {
        const char *script;
        int exit_code;
        const char *out;
        const char *err;
        const char *diff;
    } rows[] = {
        {"", 0, "", "", ""},
        {"# nothing\n\n   \t\n  # set a b\n", 0, "", "", ""},
        {"set 'a b' \"x \\\"\\y\\\\\" # comment\r\n  wan/mtu= 1 \nadd wan/dns\nget 'a b'\nlist wan/dns/4", 0,
         "wan/dns/4\nx \"\\y\\\nwan/dns/4/\n", "", "~ wan/mtu= 1 \n+ wan/dns/4/\n+ a b=x \"\\y\\\n"},
        {"set a\\ b x'y'\"z\"\n/set it=1\nempty/sub/\ndel wan/name", 0, "", "",
         "- wan/name=Fibre &26; co\n~ empty=sub\n+ a b=xyz\n+ set it=1\n"},
        {"set a 1\nget b\nset c 1", 1, "", "standard input:2:5: b: no such key", ""},
        {"a=1\n  wan=2\n", 1, "", "standard input:2:3: wan: holds 4 keys", ""},
        {"a=1\nb\n", 2, "", "standard input:2:2: neither a command nor", ""},
        {"a=1\n b=&2;\n", 2, "", "standard input:2:4: \"&\" does not start", ""},
        {"a=1\nset 'b\n", 2, "", "standard input:2:5: a quote that is not closed", ""},
        {"a=1\nset b \\", 2, "", "standard input:2:7: a backslash at the end", ""},
        {"a=1\nset b", 2, "", "standard input:2:1: usage: set [--type TYPE] PATH VALUE", ""},
        {"a=1\nprint --deep", 2, "", "standard input:2:1: print: no such option", ""},
        {"a=1\nset b&1 1", 2, "", "standard input:2:5: b&1: character 2", ""},
        {"a=1\nformat\n", 2, "", "standard input:2:1: format: not possible in a script", ""},
        {"a=1\nmerge -\n", 2, "", "standard input can be read only once", ""},
        {"a=1\ndiff same", 1, "- a=1\n", "", ""},
    };
    folder.write("same", kBase);
    for (const auto &row : rows) {
        folder.write("c", kBase);
        expect(zconf({"batch"}, row.script), row.exit_code, row.out, row.err, row.script);
        EXPECT_EQ(plain({"-f", "same", "diff", "c"}).out, row.diff) << row.script;
        if (row.exit_code != 0) {
            EXPECT_EQ(folder.read("c"), kBase) << row.script;
        }
    }
    folder.write("s", std::string("a=1\nset b 'x\0y'", 15));
    expect(zconf({"batch", "s"}), 2, "", "zconf: s:2:9: a NUL character", "NUL");
    expect(zconf({"batch", "none"}), 2, "", "none: ", "missing");
    EXPECT_EQ(zconf({"batch", "-"}, "--force set wan 1").exit_code, 2);
}

TEST_F(Zconf, AListingBuildsTheSameTreeAgain)
{
    // Names that look like commands, comments, blanks and syntax, and every byte.
    std::string bytes;
    for (int i = 1; i < 256; i++) {
        char escape[8];
        snprintf(escape, sizeof(escape), "&%02x;", i);
        bytes += escape;
    }
    folder.write("odd",
                 "(conf\n(set a b(1))\n(get(2))\n(&23;x(3))\n( y(4))\n(\ty(4))\n(list x\n(b(5))\n)\n(" +
                     bytes + "(" + bytes +
                     "))\n(/&5c;=&26;\n(e)\n(f())\n)\n(lone)\n(nest\n(lone)\n(z\n(y\n(x)\n(w)\n)\n)\n)\n)\n");
    for (const std::string &file :
         {std::string("odd"), std::string(KUTIL_SOURCE_DIR "/share/gateway.conf")}) {
        const ProgramResult listed = plain({"-f", file, "list"});
        expect({listed.exit_code, "", listed.err}, 0, "", "", file);
        unlink((folder / "copy").c_str());
        const char *top = file == "odd" ? "conf" : "zel_conf";
        expect(plain({"-f", "copy", "-c", top, "batch"}, listed.out), 0, "", "", file);
        expect(plain({"-f", file, "diff", "copy"}), 0, "", "", file);
        EXPECT_EQ(plain({"-f", "copy", "list"}).out, listed.out);
    }
    folder.write("c", "(conf(a(1))(a(2)))");
    expect(zconf({"list"}), 0, "a=1\na=2\n", "do not read back", "repeated names");
    expect(zconf({"validate"}), 0, "c: valid, 2 keys\n", "paths do not reach", "repeated names");
}

TEST_F(Zconf, RefusesWhatASaveWouldLose)
{
    const struct {
        std::string text;
        const char *place;
    } rows[] = {
        {"(a(b(1)x))", "c:1:8: text behind a node"},
        {"(a\n)\n(b)\n", "c:3:1: a second top node"},
        {"", "c:1:1: the text ends"},
        {std::string("(a\0)", 4), "c:1:3: a NUL byte"},
    };
    for (const auto &row : rows) {
        folder.write("c", row.text);
        for (const char *command : {"validate", "list", "format"})
            expect(zconf({command}), 2, "", row.place, row.text);
        expect(zconf({"set", "x", "1"}), 2, "", row.place, row.text);
        EXPECT_EQ(folder.read("c"), row.text);
    }
    // Nor does it make such a file.
    folder.write("c", kBase);
    std::string deep;
    for (int i = 0; i < 254; i++)
        deep += "a/";
    expect(zconf({"set", deep + "a", "1"}), 3, "", "c: not saved: the tree would have more than 256 levels",
           "257 levels");
    EXPECT_EQ(folder.read("c"), kBase);
    expect(zconf({"set", deep, "1"}), 0, "", "", "256 levels");
    EXPECT_EQ(zconf({"get", deep}).out, "1\n");
}

TEST_F(Zconf, KeepsLineEndsAndWritesOnlyWhatChanged)
{
    const auto inode = [&] {
        struct stat status;
        return stat((folder / "c").c_str(), &status) == 0 ? status.st_ino : 0;
    };
    const ino_t first = inode();
    EXPECT_EQ(zconf({"set", "wan/mtu", "1500"}).exit_code, 0);
    EXPECT_EQ(zconf({"format"}).exit_code, 0);
    EXPECT_EQ(inode(), first) << "nothing changed, so nothing was written";

    const std::string loose = "(conf(a(1))\t(b\n(c(2)) )) \n";
    folder.write("c", loose);
    EXPECT_EQ(zconf({"set", "a", "1"}).exit_code, 0);
    EXPECT_EQ(folder.read("c"), loose);
    EXPECT_EQ(zconf({"format", "--dos"}).exit_code, 0);
    EXPECT_EQ(folder.read("c"), "(conf\r\n  (a(1))\r\n  (b\r\n    (c(2))\r\n  )\r\n)\r\n");
    EXPECT_EQ(zconf({"set", "a", "3"}).exit_code, 0);
    EXPECT_EQ(folder.read("c").substr(0, 17), "(conf\r\n  (a(3))\r\n");
    EXPECT_EQ(zconf({"format"}).exit_code, 0);
    EXPECT_EQ(folder.read("c").find('\r'), std::string::npos);
}

TEST_F(Zconf, TakesItsFileFromTheOptionTheEnvironmentOrStandardInput)
{
    expect(plain({"get", "wan/mtu"}), 2, "", "no file: name it by -f FILE or in the variable ZCONF_FILE",
           "no file");
    const auto environment = [] { setenv("ZCONF_FILE", "c", 1); };
    expect(plain({"get", "wan/mtu"}, "", environment), 0, "1500\n", "", "environment");
    expect(plain({"-f", "none", "get", "x"}, "", environment), 2, "", "none: ", "option");
    expect(plain({"-f", "-", "get", "wan/mtu"}, kBase), 0, "1500\n", "", "stdin");
    expect(plain({"-f", "-", "set", "b", "2"}, "(x(a(1)))"), 0, "(x\n  (a(1))\n  (b(2))\n)\n", "", "filter");
    expect(plain({"-f", "-", "add", "l"}, "(x)"), 0, "(x\n  (l(0))\n)\n", "l/0\n", "results go aside");
    expect(plain({"-f", "-", "del", "b"}, "(x(a(1)))"), 1, "", "b: no such key", "failed filter");
    expect(plain({"-f", "-", "set", "b", "2"}, "(x"), 2, "", "standard input:1:3: the text ends",
           "bad input");
    EXPECT_EQ(folder.list(), "c");
}

TEST_F(Zconf, MakesAFileOnlyWhenAsked)
{
    expect(plain({"-f", "none", "set", "a", "1"}), 2, "", "-c NAME makes a new one", "missing");
    expect(plain({"-f", "none", "-c", "top", "get", "a"}), 1, "", "a: no such key", "reading makes nothing");
    expect(plain({"-f", "none", "-c", "", "set", "a", "1"}), 2, "", "-c needs a name", "no name");
    EXPECT_EQ(folder.list(), "c");
    expect(plain({"-f", "new", "-c", "to(p", "set", "a", "1"}), 0, "", "", "new");
    EXPECT_EQ(folder.read("new"), "(to&28;p\n  (a(1))\n)\n");
    expect(plain({"-f", "new", "-c", "other", "set", "b", "1"}), 0, "", "", "there already");
    EXPECT_EQ(folder.read("new"), "(to&28;p\n  (a(1))\n  (b(1))\n)\n");
}

TEST_F(Zconf, RefusesASecondWriterAndLetsReadersThrough)
{
    ASSERT_EQ(symlink("c", (folder / "link").c_str()), 0);
    kutil::common::FileLock lock;
    kutil::common::Problem problem;
    ASSERT_TRUE(lock.take((folder / "c").c_str(), &problem));
    const std::string holder = "process " + std::to_string(getpid()) + " is changing it";
    expect(zconf({"set", "a", "1"}), 3, "", holder, "second writer");
    expect(plain({"-f", "link", "batch"}), 3, "", holder, "by another name");
    expect(zconf({"get", "wan/mtu"}), 0, "1500\n", "", "reader");
    EXPECT_EQ(folder.read("c"), kBase);
    lock.release();
    expect(plain({"-f", "link", "set", "wan/mtu", "9"}), 0, "", "", "free again");
    struct stat status;
    EXPECT_TRUE(lstat((folder / "link").c_str(), &status) == 0 && S_ISLNK(status.st_mode));
    EXPECT_EQ(zconf({"get", "wan/mtu"}).out, "9\n");
    EXPECT_EQ(folder.list(), ".c.lock c link");
}

TEST_F(Zconf, SaysWhenItCouldNotSaveOrWrite)
{
    const auto full_disk = [] {
        const struct rlimit size = {64, 64};
        setrlimit(RLIMIT_FSIZE, &size);
        dup2(open("/dev/null", O_WRONLY), 2); // the message would not fit either
    };
    EXPECT_EQ(plain({"-f", "c", "set", "a", "1"}, "", full_disk).exit_code, 3);
    EXPECT_EQ(folder.read("c"), kBase);
    EXPECT_EQ(folder.list(), ".c.lock c");
    const auto full_output = [] { dup2(open("/dev/full", O_WRONLY), 1); };
    if (access("/dev/full", W_OK) == 0) {
        expect(plain({"-f", "c", "list"}, "", full_output), 3, "", "standard output: ", "list");
        expect(plain({"-f", "-", "set", "a", "1"}, kBase, full_output), 3, "", "standard output: ", "filter");
    }
}

TEST_F(Zconf, HelpTheManualAndTheCompletionKnowEveryCommand)
{
    const ProgramResult help = plain({"--help"});
    EXPECT_EQ(help.exit_code, 0);
    const auto file = [](const char *path) {
        std::ifstream text(std::string(KUTIL_SOURCE_DIR) + path);
        return std::string(std::istreambuf_iterator<char>(text), {});
    };
    const std::string manual = file("/docs/zconf.md");
    const std::string completion = file("/packaging/completion/zconf");
    const size_t commands = help.out.find("Commands:\n") + 10;
    size_t count = 0;
    for (size_t at = commands; help.out.compare(at, 2, "  ") == 0; at = help.out.find('\n', at) + 1) {
        const std::string line = help.out.substr(at + 2, help.out.find("  ", at + 2) - at - 2);
        const std::string name = line.substr(0, line.find(' '));
        EXPECT_NE(manual.find("| `" + line + "` |"), std::string::npos) << line;
        EXPECT_NE(completion.find(" " + name), std::string::npos) << name;
        count++;
    }
    EXPECT_EQ(count, 13U);
    EXPECT_EQ(plain({"--version"}).out.substr(0, 6), "zconf ");
}

TEST_F(Zconf, TheSampleIsWholeAndHoldsNoSecret)
{
    const std::string sample = KUTIL_SOURCE_DIR "/share/gateway.conf";
    folder.write("c", [&] {
        std::ifstream text(sample);
        return std::string(std::istreambuf_iterator<char>(text), {});
    }());
    EXPECT_EQ(plain({"-f", sample, "diff", "c"}).exit_code, 0);
    const std::string lines = list();
    EXPECT_GE(std::count(lines.begin(), lines.end(), '\n'), 1500);
    // What the configuration calls secret is not in it.
    const std::string name = "encryption/obscured_params/";
    size_t secrets = 0;
    for (size_t at = lines.find(name); at != std::string::npos; at = lines.find(name, at + 1)) {
        const size_t equals = lines.find('=', at);
        if (lines.compare(equals - 5, 5, "/name") != 0)
            continue;
        const std::string path = lines.substr(equals + 1, lines.find('\n', at) - equals - 1);
        EXPECT_EQ(zconf({"get", path}).exit_code, 1) << path;
        secrets++;
    }
    EXPECT_GT(secrets, 10U);
}

// What zconf makes of the sample is kept as digests, written on one machine and compared on every other. With
// KUTIL_GOLDEN_WRITE set they are written instead, as they must be when the sample changes.
TEST_F(Zconf, MakesTheSameBytesOfTheSampleOnEveryMachine)
{
    std::ostringstream sample;
    sample << std::ifstream(KUTIL_SOURCE_DIR "/share/gateway.conf", std::ios::binary).rdbuf();
    folder.write("c", sample.str());
    const Row steps[] = {
        {{"format"}, 0, "", ""},
        {{"list"}, 0, "", ""},
        {{"print"}, 0, "", ""},
        {{"set", "--type", "secret", "wan/0/ppp/password", "geheim \xC3\xA9"}, 0, "", ""},
        {{"set", "--type", "ip", "extra/ip6", "2001:db8:0::ff00:42:8329"}, 0, "", ""},
        {{"set", "--type", "u64", "extra/u64", "18446744073709551615"}, 0, "", ""},
        {{"set", "--type", "float", "extra/float", "-0.333333"}, 0, "", ""},
        {{"set", "extra/bytes", "\x01 & \x7F \x80 \xFF"}, 0, "", ""},
        {{"add", "device"}, 0, "", ""},
        {{"del", "wifi/ssid"}, 0, "", ""},
        {{"--force", "replace", KUTIL_SOURCE_DIR "/tests/golden/tree.conf", "text"}, 0, "", ""},
        {{"diff", KUTIL_SOURCE_DIR "/share/gateway.conf"}, 1, "", ""},
        {{"format", "--dos"}, 0, "", ""},
    };
    std::string made;
    const auto note = [&](const std::string &bytes) {
        uint8_t digest[16];
        char hex[33];
        hmac_md5(reinterpret_cast<const uint8_t *>(bytes.data()), static_cast<int>(bytes.size()), nullptr, 0,
                 digest);
        made += " " + std::to_string(bytes.size()) + " " + bin_2_hex(digest, sizeof(digest), hex);
    };
    for (const Row &step : steps) {
        const ProgramResult result = zconf(step.words);
        EXPECT_EQ(result.exit_code, step.exit_code) << joined(step.words) << result.err;
        made += step.words[0];
        note(folder.read("c"));
        note(result.out);
        made += "\n";
    }
    const std::string golden = KUTIL_SOURCE_DIR "/tests/golden/zconf.txt";
    if (getenv("KUTIL_GOLDEN_WRITE"))
        std::ofstream(golden) << made;
    std::ostringstream kept;
    kept << std::ifstream(golden).rdbuf();
    EXPECT_EQ(made, kept.str()) << "command, then bytes and digest of the file and of what was printed";
}
