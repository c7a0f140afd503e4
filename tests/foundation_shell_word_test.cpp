// foundation_shell_word_test.cpp: words quoted for the shell, as a real shell reads them back. The quoting is not
// exported, so it is built into this program.

#include "foundation/shell_word.cpp"  // NOLINT(bugprone-suspicious-include)

#include <gtest/gtest.h>
#include <string>

#include "foundation/owned.h"

TEST(ShellWord, IsReadBackAsTheTextThatItWasMadeFrom) {
    const struct {
        const char *text, *word;
    } cases[] = {{"plain-1.2:/@%+=_", "plain-1.2:/@%+=_"},
                 {"", "''"},
                 {"a b", "'a b'"},
                 {"it's", "'it'\\''s'"},
                 {"$(reboot)", "'$(reboot)'"},
                 {"a\n\"\\`;&", "'a\n\"\\`;&'"}};
    for (const auto &c : cases) {
        const ap::ShellWord word(c.text);
        EXPECT_TRUE(word.ok());
        EXPECT_STREQ(word.c_str(), c.word);
        const ap::UniquePipe pipe(popen((std::string("printf %s ") + word.c_str()).c_str(), "r"));
        char read_back[64] = {};
        EXPECT_EQ(std::fread(read_back, 1, sizeof read_back - 1, pipe.get()), std::strlen(c.text));
        EXPECT_STREQ(read_back, c.text);
    }
}

TEST(ShellWord, HoldsAConfigurationValueAndNoMore) {
    EXPECT_EQ(std::string(ap::ShellWord(std::string(2307, '\'').c_str()).c_str()).size(), 2 + 4 * 2307U);
    EXPECT_FALSE(ap::ShellWord(std::string(2308, 'a').c_str()).ok());
    EXPECT_FALSE(ap::ShellWord(nullptr).ok());
}

TEST(ShellWord, TellsFileNamesAndOptionsFromOthers) {
    for (const char *name : {"a", "..a", "-"}) EXPECT_TRUE(ap::is_file_name(name)) << name;
    for (const char *name : {"", ".", "..", "a/b", "/"}) EXPECT_FALSE(ap::is_file_name(name)) << name;
    EXPECT_TRUE(ap::looks_like_option("-rf"));
    EXPECT_FALSE(ap::looks_like_option("a-b"));
}
