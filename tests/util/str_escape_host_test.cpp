// The escaped forms, read back by the parsers that they are for.
#include "util/str_escape.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace
{

using Escaper = char **(*)(char **);

std::string escaped(Escaper escaper, const std::string &text)
{
    char *s = strdup(text.c_str());
    escaper(&s);
    std::string after = s;
    free(s);
    return after;
}

class Parser : public testing::Test
{
protected:
    Parser()
    {
        char name[] = "/tmp/kutil_escape_XXXXXX";
        directory_ = mkdtemp(name);
    }
    ~Parser() override { std::filesystem::remove_all(directory_); }

    static bool has(const char *tool)
    {
        return system((std::string("command -v ") + tool + " >/dev/null").c_str()) == 0;
    }

    std::string write(const char *name, const std::string &content) const
    {
        const std::string path = directory_ + "/" + name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    static std::string output_of(const std::string &command)
    {
        std::string output;
        FILE *pipe = popen((command + " 2>/dev/null").c_str(), "r");
        char buffer[65536];
        while (const size_t length = fread(buffer, 1, sizeof(buffer), pipe))
            output.append(buffer, length);
        pclose(pipe);
        return output;
    }

    // `count` texts of up to `longest` characters of `alphabet`; the empty one and the whole alphabet among
    // them.
    static std::vector<std::string> texts(const std::string &alphabet, size_t count, size_t longest = 40)
    {
        static std::mt19937 random(20260607);
        std::vector<std::string> result = {"", alphabet};
        while (result.size() < count) {
            std::string text(random() % (longest + 1), ' ');
            for (char &c : text)
                c = alphabet[random() % alphabet.size()];
            result.push_back(text);
        }
        return result;
    }

    static std::string bytes(int first, int last, const char *but = "")
    {
        std::string all;
        for (int byte = first; byte <= last; byte++) {
            if (!strchr(but, byte))
                all += static_cast<char>(byte);
        }
        return all;
    }

    static std::string joined(const std::vector<std::string> &parts, const std::string &end)
    {
        std::string all;
        for (const std::string &part : parts)
            all += part + end;
        return all;
    }

    static std::vector<std::string> each(Escaper escaper, std::vector<std::string> texts)
    {
        for (std::string &text : texts)
            text = escaped(escaper, text);
        return texts;
    }

    std::string directory_;
};

const std::string kNul(1, '\0');

TEST_F(Parser, ShellWordsThroughBash)
{
    if (!has("bash"))
        GTEST_SKIP() << "bash is missing";
    const std::vector<std::string> words = texts(bytes(1, 255), 10000);
    const std::string script = "printf '%s\\0' " + joined(each(str_escape_shell, words), " ") + "\n";
    EXPECT_EQ(output_of("LC_ALL=C bash " + write("words", script)), joined(words, kNul));
}

TEST_F(Parser, LiteralsThroughTheCCompiler)
{
    if (!has("cc"))
        GTEST_SKIP() << "cc is missing";
    const std::vector<std::string> values = texts(bytes(1, 255), 500);
    const std::string source =
        "#include <stdio.h>\nint main(void)\n{\n    static const char *const texts[] = {\n" +
        joined(each(str_escape_c, values), ",\n") +
        "};\n    for (unsigned i = 0; i < sizeof texts / sizeof *texts; i++) {\n"
        "        fputs(texts[i], stdout);\n        putchar(0);\n    }\n    return 0;\n}\n";
    const std::string path = write("literals.c", source);
    // Without trigraphs, which the form leaves alone.
    ASSERT_EQ(system(("cc -std=gnu11 -w -o " + directory_ + "/literals " + path).c_str()), 0);
    EXPECT_EQ(output_of(directory_ + "/literals"), joined(values, kNul));
}

TEST_F(Parser, JavascriptLiteralsThroughDuktape)
{
    if (!has("duk"))
        GTEST_SKIP() << "duk (package duktape) is missing";
    const std::vector<std::string> values = texts(bytes(1, 127), 1000);
    std::string script = "var texts = [\n";
    std::string codes;
    for (const std::string &value : values) {
        const char quote = script.size() % 2 ? '"' : '\'';
        script += quote + escaped(str_escape_javascript, value) + quote + ",\n";
        for (const char c : value)
            codes += std::to_string(static_cast<int>(c)) + " ";
        codes += "\n";
    }
    script +=
        "];\ntexts.forEach(function (text) {\n    var line = '';\n    for (var i = 0; i < text.length; i++)\n"
        "        line += text.charCodeAt(i) + ' ';\n    print(line);\n});\n";
    EXPECT_EQ(output_of("duk " + write("literals.js", script)), codes);
}

TEST_F(Parser, XmlThroughXmllint)
{
    if (!has("xmllint"))
        GTEST_SKIP() << "xmllint (package libxml2-utils) is missing";
    // DEL separates; CR and, in attributes, other white space are what XML itself normalises.
    const std::vector<std::string> elements = texts("\t\n\xC3\xA9" + bytes(32, 126), 2);
    const std::vector<std::string> values = texts(bytes(32, 126), 1000);
    const std::string text = joined(values, "\x7F") + elements[1];
    const std::string document = "<r a=\"" + joined(each(str_escape_xml, values), "\x7F") + "\" b='" +
                                 joined(each(str_escape_xml, values), "\x7F") + "'>" +
                                 escaped(str_escape_xml, text) + "</r>\n";
    const std::string path = write("document.xml", document);
    EXPECT_EQ(output_of("xmllint --xpath 'string(/r)' " + path), text + "\n");
    for (const char *attribute : {"a", "b"})
        EXPECT_EQ(output_of(std::string("xmllint --xpath 'string(/r/@") + attribute + ")' " + path),
                  joined(values, "\x7F") + "\n");
    const std::string spaces = escaped(str_escape_xml, "a\tb\nc\rd");
    const std::string changed = write("spaces.xml", "<r a=\"" + spaces + "\">" + spaces + "</r>\n");
    EXPECT_EQ(output_of("xmllint --xpath 'concat(/r, /r/@a)' " + changed), "a\tb\nc\nda b c d\n");
}

TEST_F(Parser, HtmlThroughXmllint)
{
    if (!has("xmllint"))
        GTEST_SKIP() << "xmllint (package libxml2-utils) is missing";
    const std::string text = joined(texts(bytes(32, 126), 1000), "~");
    std::string references; // what a text area makes of bytes: characters of Latin-1, here in UTF-8
    for (int byte = 160; byte < 256; byte++)
        references += std::string(1, static_cast<char>(byte < 192 ? 0xC2 : 0xC3)) +
                      static_cast<char>(0x80 | (byte & 63));
    const std::string page = "<html><head><meta charset=\"utf-8\"></head><body><p id=\"text\">" +
                             escaped(str_escape_html_text, text) + "</p><p id=\"lines\">" +
                             escaped(str_escape_html_text, "a\nb\n\nc") + "</p><input value=\"" +
                             escaped(str_escape_html_field, text) + "\"><input title='" +
                             escaped(str_escape_html_field, text) + "'><textarea>" +
                             escaped(str_escape_html_textarea, text + bytes(160, 255)) +
                             "</textarea></body></html>\n";
    const std::string path = write("page.html", page);
    const struct {
        const char *query;
        std::string answer;
    } rows[] = {
        {"string(//p[@id=\"text\"])", text},
        {"string(//@value)", text},
        {"string(//@title)", text},
        {"string(//textarea)", text + references},
        {"string(//p[@id=\"lines\"])", "abc"},
        {"count(//p[@id=\"lines\"]/br)", "3"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(output_of(std::string("xmllint --html --xpath '") + row.query + "' " + path),
                  row.answer + "\n")
            << row.query;
}

TEST_F(Parser, CellsThroughPython)
{
    if (!has("python3"))
        GTEST_SKIP() << "python3 is missing";
    const std::vector<std::string> cells = texts(bytes(1, 255, "\r"), 1000);
    const std::string path = write("cells.csv", joined(each(str_escape_csv, cells), ",x\r\n"));
    const std::string script =
        write("read.py", "import csv, sys\n"
                         "for row in csv.reader(open(sys.argv[1], encoding='latin-1', newline='')):\n"
                         "    assert row[1:] == ['x']\n"
                         "    sys.stdout.buffer.write(row[0].encode('latin-1') + b'\\0')\n");
    EXPECT_EQ(output_of("python3 " + script + " " + path), joined(cells, kNul));

    // The URL forms, by the decoder of form-encoded text.
    const std::vector<std::string> values = texts(bytes(1, 255), 1000);
    const std::string encoded = joined(each(str_escape_http, values), "\n") +
                                joined(each(str_escape_url_query_field, values), "\n") +
                                joined(each(str_escape_uri, values), "\n");
    const std::string decoder = write(
        "decode.py", "import sys, urllib.parse as u\n"
                     "for line in open(sys.argv[1], 'rb').read().split(b'\\n')[:-1]:\n"
                     "    sys.stdout.buffer.write(u.unquote_to_bytes(line.replace(b'+', b' ')) + b'\\0')\n");
    const std::string once = joined(values, kNul);
    EXPECT_EQ(output_of("python3 " + decoder + " " + write("encoded", encoded)), once + once + once);
}

} // namespace
