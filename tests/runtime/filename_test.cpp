#include "VoAlgorithms/runtime/filename.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace VoAlgo::filename;

TEST(Filename, UnicodeGoesThroughPathsAndBack)
{
    const std::string utf8 = "Teil \xC3\xA4/\xF0\x9F\x93\x90.ply";
    const std::u16string utf16 = u"Teil \u00E4/\U0001F4D0.ply";
    EXPECT_EQ(ToUtf8(FromUtf8(utf8)), utf8);
    EXPECT_EQ(ToUtf16(FromUtf8(utf8)), utf16);
    EXPECT_EQ(FromUtf16(utf16), FromUtf8(utf8));
    EXPECT_THROW((void)FromUtf8("a\xFF"), std::invalid_argument);
    EXPECT_THROW((void)FromUtf16(u"a\xD83D"), std::invalid_argument);
    EXPECT_THROW((void)FromUtf16(u"\xDCD0\xD83D"), std::invalid_argument);
#if !defined(_WIN32)
    EXPECT_EQ(ToUtf8("a\xFF"), "a\xEF\xBF\xBD");
#endif
}

TEST(Filename, ExtensionsOfCompressedFilesHaveTwoParts)
{
    const std::vector<std::vector<std::string>> rows = {// path, stem, extension
                                                        {"d.x/scan.v2.ply", "scan.v2", ".ply"},
                                                        {"a/b.tar.GZ", "b", ".tar.GZ"},
                                                        {"b.gz", "b", ".gz"},
                                                        {".profile", ".profile", ""},
                                                        {".a.gz", ".a", ".gz"},
                                                        {"a.", "a.", ""},
                                                        {"a..gz", "a.", ".gz"},
                                                        {"d.x/", "", ""},
                                                        {"..", "..", ""}};
    for (const auto& row : rows) {
        EXPECT_EQ(Stem(row[0]), row[1]) << row[0];
        EXPECT_EQ(Extension(row[0]), row[2]) << row[0];
    }
    EXPECT_EQ(WithExtension("d/a.tar.gz", ".zip"), fs::path("d/a.zip"));
    EXPECT_EQ(WithExtension("d/a", ""), fs::path("d/a"));
}

TEST(Filename, PathsComeApartAndTogether)
{
    const std::vector<fs::path> names = {"/", "a", "..", "b.c"};
    EXPECT_EQ(Split("/a//../b.c/"), names);
    EXPECT_EQ(Join(names), fs::path("/a/../b.c"));
    EXPECT_TRUE(Split("").empty() && Join({}).empty());
    EXPECT_EQ(Relative("/a/b/c.ply", "/a/x/"), fs::path("../b/c.ply"));
    EXPECT_EQ(Relative("c.ply", "."), fs::path("c.ply"));
    EXPECT_EQ(Relative("/a/./b/../c", "/a"), fs::path("c"));
}

TEST(Filename, UniqueNamesAreFree)
{
    const fs::path folder = fs::path(testing::TempDir()) / "unique";
    fs::remove_all(folder);
    fs::create_directories(folder);
    const fs::path wanted = folder / "a.tar.gz";
    for (const char* expected : {"a.tar.gz", "a (2).tar.gz", "a (3).tar.gz"}) {
        EXPECT_EQ(Unique(wanted), folder / expected);
        std::ofstream(Unique(wanted)) << ' ';
    }
    fs::remove_all(folder);
}

TEST(Filename, SafeNamesAreAcceptedEverywhere)
{
    const std::vector<std::pair<std::string, std::string>> rows = {{"scan \xC3\xA4.ply", "scan \xC3\xA4.ply"},
                                                                   {"a/b\\c:d?.ply", "a_b_c_d_.ply"},
                                                                   {"tab\tnew\n", "tab_new_"},
                                                                   {"a. .", "a"},
                                                                   {" ..", "_"},
                                                                   {"", "_"},
                                                                   {"nul.txt", "nul_.txt"},
                                                                   {"COM1", "COM1_"},
                                                                   {"com10", "com10"},
                                                                   {"Aux.tar.gz", "Aux_.tar.gz"},
                                                                   {"con.a.ply", "con_.a.ply"},
                                                                   {"x\xFF.ply", "x\xEF\xBF\xBD.ply"}};
    for (const auto& [name, safe] : rows) {
        EXPECT_EQ(Safe(name), safe) << name;
        EXPECT_EQ(Safe(safe), safe);
    }
    std::string umlauts;
    for (int i = 0; i < 200; ++i) umlauts += "\xC3\xA4";
    const std::string cut = Safe(umlauts + ".ply");
    EXPECT_EQ(cut, umlauts.substr(0, 250) + ".ply"); // 251 bytes end within a character
    EXPECT_EQ(Safe("a." + umlauts).size(), 254U);
}

} // namespace
