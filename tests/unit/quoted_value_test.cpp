#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "shell/quoted_value.h"

namespace {

struct ValueCase {
    const char *line;       // words from slot 3 on, split at blanks
    const char *value;      // null: refused
};

TEST(QuotedValue, JoinsFromTheFirstToTheLastQuote) {
    const ValueCase cases[] = {
        {"abc", "abc"},
        {"abc def", "abc"},                        // unquoted: the first word only
        {"\"two words\"", "two words"},
        {"\"two\" \"quoted\" words", "two\" \"quoted"},
        {"\"a b\" dropped after", "a b"},
        {"\"open ended", "open ended "},           // one quote: the rest, trailing blank too
        {"\"\"", ""},
        {"\"", " "},                               // just the blank after the quote
        {"mid\"dle\"", "mid\"dle\""},              // quotes count only at the start
        {"", ""},
    };
    for (const ValueCase &c : cases) {
        CommandLine line{};
        // Words go into slots 3.. as the splitter would leave them.
        char buf[256];
        std::snprintf(buf, sizeof buf, "%s", c.line);
        size_t slot = 3;
        for (char *tok = std::strtok(buf, " "); tok; tok = std::strtok(nullptr, " "))
            std::snprintf(line.words.slot[slot++], kWordSize, "%s", tok);
        const char *v = take_quoted_value(line, 3);
        ASSERT_NE(v, nullptr) << c.line;
        EXPECT_EQ(std::string(v), c.value) << c.line;
    }
}

TEST(QuotedValue, RefusesWhatDoesNotFitTheBuffer) {
    CommandLine line{};
    // 17 words of 5 characters: 17 * 6 = 102 joined characters.
    for (size_t i = 3; i < 20; ++i) std::snprintf(line.words.slot[i], kWordSize, "\"aaaa");
    EXPECT_EQ(take_quoted_value(line, 3), nullptr);

    CommandLine fits{};
    // 16 words: 96 characters and the NUL fit.
    for (size_t i = 3; i < 19; ++i) std::snprintf(fits.words.slot[i], kWordSize, "\"aaaa");
    ASSERT_NE(take_quoted_value(fits, 3), nullptr);

    CommandLine big{};
    std::memset(big.words.slot[3], 'a', 99);   // a whole 99-character word, unquoted
    ASSERT_NE(take_quoted_value(big, 3), nullptr);
    EXPECT_EQ(std::strlen(big.value), 99u);
}

}  // namespace
