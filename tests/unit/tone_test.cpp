#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>
#include <tuple>

#include "audio/tone.h"
#include "tests/unit/fake_tinyalsa.h"

namespace {

std::string le(uint32_t v, int n) {
    std::string s;
    for (int i = 0; i < n; ++i) s += static_cast<char>(v >> (8 * i));
    return s;
}
std::string chunk(const char *id, const std::string &payload) {
    return id + le(static_cast<uint32_t>(payload.size()), 4) + payload;
}
// A WAV file: its "fmt " chunk (with `extra` bytes after the usual 16), then `chunks`.
std::string wav(unsigned ch, unsigned rate, unsigned bits, const std::string &chunks,
                const std::string &extra = "") {
    std::string body = "WAVE" + chunk("fmt ", le(1, 2) + le(ch, 2) + le(rate, 4) +
                                                  le(rate * ch * bits / 8, 4) +
                                                  le(ch * bits / 8, 2) + le(bits, 2) + extra);
    body += chunks;
    return "RIFF" + le(static_cast<uint32_t>(body.size()), 4) + body;
}

const std::string kSamples = "0123456789abcdef";
const std::string kBig(3000, 's');   // more than one 1280-byte buffer

TEST(Tone, PlaysFromTheFirstSampleToTheEndOfTheFilePassAfterPass) {
    struct Case {
        const char *what;
        std::string file;
        int stop_after;            // writes
        std::string played;
        std::string out;
        unsigned channels, rate;
        pcm_format format;
        const char *pcm_error = nullptr;
    } cases[] = {
        {"long fmt, odd chunk, chunk after data",
         wav(2, 16000, 32, chunk("LIST", "abc") + chunk("data", kSamples) + chunk("junk", "zz"),
             "xx"),
         2, kSamples + "junk" + le(2, 4) + "zz" + kSamples + "junk" + le(2, 4) + "zz", "", 2,
         16000, PCM_FORMAT_S32_LE},
        {"24-bit as 16-bit, longer than a buffer", wav(1, 8000, 24, chunk("data", kBig)), 4,
         kBig + kBig.substr(0, 1280), "", 1, 8000, PCM_FORMAT_S16_LE},
        {"busy", wav(1, 8000, 16, chunk("data", kSamples)), 1, "",
         "play_sample : Unable to open PCM device 5 (busy)\n", 1, 8000, PCM_FORMAT_S16_LE, "busy"},
        {"no samples at all", wav(1, 8000, 16, chunk("data", "")), 1, "", "", 1, 8000,
         PCM_FORMAT_S16_LE},
    };
    for (const Case &c : cases) {
        g_card = FakeCard();
        g_card.pcm_error = c.pcm_error;
        // The player is asked to stop after its `stop_after`th write.
        std::atomic<unsigned> stops{0};
        g_card.after_write = [&] { stops += g_card.writes == c.stop_after; };
        std::FILE *f = std::tmpfile();
        std::fwrite(c.file.data(), 1, c.file.size(), f);
        std::rewind(f);
        testing::internal::CaptureStdout();
        EXPECT_EQ(play_sample(f, ToneStop(stops, 0)), 0) << c.what;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out) << c.what;
        std::fclose(f);
        g_card.after_write = nullptr;

        EXPECT_EQ(g_card.played, c.played) << c.what;
        EXPECT_LE(g_card.writes, c.stop_after) << c.what;
        const pcm_config &cfg = g_card.config;
        EXPECT_EQ(std::make_tuple(g_card.pcm_opens, g_card.pcm_closes, cfg.channels, cfg.rate,
                                  cfg.format),
                  std::make_tuple(1, 1, c.channels, c.rate, c.format))
            << c.what;
    }
}

}  // namespace
