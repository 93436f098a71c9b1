// Replacing the schema: what the compiler and the build refuse. Needs c++ and cmake.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace
{

class Schema : public testing::Test
{
protected:
    Schema()
    {
        char name[] = "/tmp/kutil_schema_XXXXXX";
        directory_ = mkdtemp(name);
    }
    ~Schema() override { std::filesystem::remove_all(directory_); }

    static bool has(const std::string &tool)
    {
        return system(("command -v " + tool + " >/dev/null").c_str()) == 0;
    }

    std::string path(const char *name) const { return directory_ + "/" + name; }

    void write(const std::string &text) const { std::ofstream(path("own.def")) << text; }

    bool compiles(const std::string &rows) const
    {
        write("SCHEMA(own)\nTABLE(own_t, own_t_str, OWN_NO_CODE, " + rows + ")\n");
        return system(("c++ -std=c++20 -fsyntax-only -I" KUTIL_SOURCE_DIR "/pkg -DKUTIL_CODE_TABLES='\"" +
                       path("own.def") + "\"' " KUTIL_SOURCE_DIR "/pkg/util/code_tables.cpp 2>" +
                       path("messages"))
                          .c_str()) == 0;
    }

    // What the build says to a schema: its suffix, or the complaint.
    std::string suffix_of(const std::string &schema) const
    {
        write(schema);
        std::ofstream(path("ask.cmake"))
            << "include(" KUTIL_SOURCE_DIR "/cmake/KutilSchema.cmake)\nkutil_schema_suffix(" +
                   path("own.def") + " suffix)\nfile(WRITE " + path("answer") + " ${suffix})\n";
        if (system(("cmake -P " + path("ask.cmake") + " 2>" + path("answer")).c_str()) == 0)
            return read("answer");
        const std::string complaint = read("answer");
        return complaint.find("KUTIL_SCHEMA") == std::string::npos ? "no complaint" : "refused: " + complaint;
    }

    std::string read(const char *name) const
    {
        std::ifstream file(path(name));
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    std::string directory_;
};

TEST_F(Schema, TheCompilerRefusesTablesThatDoNotReadBack)
{
    if (!has("c++"))
        GTEST_SKIP() << "c++ is missing";
    const struct {
        const char *rows;
        bool sound;
    } cases[] = {
        {"ROW(A, 0, \"a\", \"A\") ROW(B, 7, \"b\") HIDDEN_ROW(C, 0, \"a\")", true},
        {"ROW(A, 0, \"a\") ROW(B, 0, \"b\")", false},
        {"ROW(A, 0, \"a\") ROW(B, 1, \"b\", \"a\")", false},
        {"ROW(A, 0, \"a\", \"a\")", false},
        {"ROW(A, -1, \"a\")", false},
        {"HIDDEN_ROW(A, -1, \"a\")", false},
        {"ROW(A, 0, \"\")", false},
        {"ROW(A, 0, \"a\", \"\")", false},
        {"ROW(A, 0, \"Upper\")", false},
    };
    for (const auto &row : cases) {
        EXPECT_EQ(compiles(row.rows), row.sound) << row.rows;
        if (row.sound)
            continue;
        EXPECT_NE(read("messages").find("own_t_str: a bad or double code or word"), std::string::npos)
            << row.rows;
    }
}

TEST_F(Schema, TheNameOfASchemaIsItsOwn)
{
    if (!has("cmake"))
        GTEST_SKIP() << "cmake is missing";
    std::ifstream file(KUTIL_SOURCE_DIR "/pkg/util/code_tables.def");
    const std::string full(std::istreambuf_iterator<char>(file), {});
    const auto with = [&full](const std::string &from, const std::string &to) {
        std::string changed = full;
        return changed.replace(changed.find(from), from.size(), to);
    };
    EXPECT_EQ(suffix_of(with("\nSCHEMA(default)", "\nSCHEMA(acme_2)")), "acme_2");
    for (const char *name : {"\nSCHEMA(default)", "\nSCHEMA(Acme)", "\nSCHEMA(../x)", "\nSCHEMA()", "\n"})
        EXPECT_EQ(suffix_of(with("\nSCHEMA(default)", name)).find("refused"), 0U) << name;
    const std::string incomplete = with("\nSCHEMA(default)", "\nSCHEMA(acme)");
    const size_t table = incomplete.find("TABLE(fw_level_t,");
    EXPECT_NE(
        suffix_of(incomplete.substr(0, table) + incomplete.substr(incomplete.find("TABLE(eap_method_id_t,")))
            .find("lacks fw_level_t_str"),
        std::string::npos);
}

} // namespace
