#include <gtest/gtest.h>

#include <string>

#include "audio/audio_warn.h"
#include "platform/shell_quote.h"
#include "tests/unit/fake_shell.h"

namespace {

TEST(ShellQuote, EachWordIsOneShellWord) {
    struct Case {
        const char *word;
        const char *line;
    } cases[] = {
        {"10.0.0.1", "cmd 10.0.0.1"},
        {"a-Z_0.9/x:y@h%p+q=r,s", "cmd a-Z_0.9/x:y@h%p+q=r,s"},
        {"", "cmd "},
        {"a;reboot", "cmd 'a;reboot'"},
        {"$(id)", "cmd '$(id)'"},
        {"it's", "cmd 'it'\\''s'"},
        {"'", "cmd ''\\'''"},
        {"~root", "cmd '~root'"},
        {"tab\there", "cmd 'tab\there'"},
        {"*", "cmd '*'"},
    };
    for (const Case &c : cases) {
        ShellLine<64> line("cmd");
        line.word(c.word);
        EXPECT_TRUE(line.fits()) << c.word;
        EXPECT_STREQ(line.c_str(), c.line) << c.word;
    }
}

TEST(ShellQuote, ALineThatWouldNotFitIsRefusedWhole) {
    ShellLine<12> line("cmd");          // 11 characters at most
    line.word("1234567");               // "cmd 1234567": exactly 11
    EXPECT_TRUE(line.fits());
    EXPECT_STREQ(line.c_str(), "cmd 1234567");
    line.word("");                      // one more blank would not fit
    EXPECT_FALSE(line.fits());
    line.word("x").raw("");
    EXPECT_FALSE(line.fits());
    EXPECT_STREQ(line.c_str(), "cmd 1234567");

    ShellLine<12> quoted("cmd");
    quoted.word("a'b");                 // 'a'\''b' is 9 characters: 14 in all
    EXPECT_FALSE(quoted.fits());
    EXPECT_STREQ(quoted.c_str(), "cmd");
}

TEST(AudioWarn, RunsTheScriptOrRefusesTheLine) {
    struct Case {
        const char *words[7];
        const char *out;
        const char *call;   // null: nothing runs
    } cases[] = {
        {{"10.1.1.9", "ft", "pw", "in.wav", "127", "119", "out.wav"}, "",
         "/system/bin/audio_warn.sh 10.1.1.9 ft pw in.wav 127 119 out.wav"},
        {{"10.1.1.9", "ft", "", "", "", "", ""}, "", "/system/bin/audio_warn.sh 10.1.1.9 ft     "},
        {{"h", "u", "p;reboot", "a b", "1", "2", "o"}, "",
         "/system/bin/audio_warn.sh h u 'p;reboot' 'a b' 1 2 o"},
    };
    for (const Case &c : cases) {
        shell_calls().clear();
        testing::internal::CaptureStdout();
        EXPECT_EQ(audio_warn(c.words[0], c.words[1], c.words[2], c.words[3], c.words[4],
                             c.words[5], c.words[6]),
                  1);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out);
        ASSERT_EQ(shell_calls().size(), 1u);
        EXPECT_EQ(shell_calls()[0], c.call);
    }

    // 25 + 7 blanks + 7 words of 68 quotes at 4 characters each, quoted: far past 511.
    std::string quotes(68, '\'');
    const char *q = quotes.c_str();
    shell_calls().clear();
    testing::internal::CaptureStdout();
    audio_warn(q, q, q, q, q, q, q);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Command too long (511 characters at most)\n");
    EXPECT_TRUE(shell_calls().empty());

    // A line of exactly 511 characters still runs.
    std::string w(68, 'w'), last(71, 'w');
    shell_calls().clear();
    audio_warn(w.c_str(), w.c_str(), w.c_str(), w.c_str(), w.c_str(), w.c_str(), last.c_str());
    ASSERT_EQ(shell_calls().size(), 1u);
    EXPECT_EQ(shell_calls()[0].size(), 511u);
}

}  // namespace
