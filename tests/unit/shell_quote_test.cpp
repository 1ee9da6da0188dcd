#include <gtest/gtest.h>

#include "platform/shell_quote.h"

namespace {

// Words that would break out of a shell line are compared end to end, each in
// the FTP failure line that shows it quoted; here the edges of the quoting.
TEST(ShellQuote, EachWordIsOneShellWord) {
    struct Case {
        const char *word;
        const char *line;
    } cases[] = {
        {"a-Z_0.9/x:y@h%p+q=r,s", "cmd a-Z_0.9/x:y@h%p+q=r,s"},
        {"", "cmd "},
        {"'", "cmd ''\\'''"},
        {"~root", "cmd '~root'"},
        {"tab\there", "cmd 'tab\there'"},
    };
    for (const Case &c : cases) {
        ShellLine<64> line("cmd");
        EXPECT_TRUE(line.word(c.word).fits()) << c.word;
        EXPECT_STREQ(line.c_str(), c.line) << c.word;
    }
}

TEST(ShellQuote, ALineThatWouldNotFitIsRefusedWhole) {
    ShellLine<12> line("cmd");                      // 11 characters at most
    EXPECT_TRUE(line.word("1234567").fits());       // "cmd 1234567": exactly 11
    EXPECT_FALSE(line.word("").fits());             // one more blank would not fit
    EXPECT_FALSE(line.word("x").raw("").fits());    // nothing goes in after a refusal
    EXPECT_STREQ(line.c_str(), "cmd 1234567");

    ShellLine<12> quoted("cmd");
    EXPECT_FALSE(quoted.word("a'b").fits());        // 'a'\''b' is 9 characters: 14 in all
    EXPECT_STREQ(quoted.c_str(), "cmd");
}

}  // namespace
