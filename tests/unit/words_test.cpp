#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "shell/words.h"

namespace {

struct SplitCase {
    std::string line;
    SplitResult result;
    std::vector<std::string> words;
};

std::string words_of(int n, const std::string &w) {
    std::string s;
    for (int i = 0; i < n; ++i) s += (i ? " " : "") + w;
    return s;
}

TEST(SplitLine, WordsLimitsAndTheirOrder) {
    const std::string w99(99, 'a'), w100(100, 'a');
    const SplitCase cases[] = {
        {"   info   ", SplitResult::kOk, {"info"}},
        {"ft ft  ft info ft", SplitResult::kOk, {"info", "ft"}},
        {"program  write\tx  y", SplitResult::kOk, {"program", "write\tx", "y"}},
        {"ftinfo", SplitResult::kOk, {"ftinfo"}},
        {"ft ft", SplitResult::kNoWords, {}},
        {std::string(255, ' ') , SplitResult::kNoWords, {}},
        {std::string(256, ' '), SplitResult::kLineTooLong, {}},
        {words_of(20, "w"), SplitResult::kOk, std::vector<std::string>(20, "w")},
        {"ft " + words_of(20, "w"), SplitResult::kOk, std::vector<std::string>(20, "w")},
        {w99 + " x", SplitResult::kOk, {w99, "x"}},
        // The checks come in a fixed order whatever else is wrong with the line.
        {w100 + " " + words_of(20, "w"), SplitResult::kTooManyWords, {}},
        {w100 + " " + words_of(80, "ww"), SplitResult::kLineTooLong, {}},
    };
    for (const SplitCase &c : cases) {
        ArgWords out;
        std::memset(&out, 'x', sizeof out);  // stale words must not survive
        EXPECT_EQ(split_line(c.line.c_str(), out), c.result) << c.line;
        ASSERT_EQ(out.count, c.words.size()) << c.line;
        for (size_t i = 0; i < kWordSlots; ++i) {
            std::string expect = i < c.words.size() ? c.words[i] : "";
            EXPECT_EQ(std::string(out.slot[i]), expect) << c.line << " slot " << i;
        }
    }
}

}  // namespace
