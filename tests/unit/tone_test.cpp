#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

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
std::string fmt(unsigned channels, unsigned rate, unsigned bits, const std::string &extra = "") {
    return chunk("fmt ", le(1, 2) + le(channels, 2) + le(rate, 4) +
                             le(rate * channels * bits / 8, 4) + le(channels * bits / 8, 2) +
                             le(bits, 2) + extra);
}
std::string riff(const std::string &chunks) {
    return "RIFF" + le(static_cast<uint32_t>(4 + chunks.size()), 4) + "WAVE" + chunks;
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
        bool write_fails = false;
        const char *pcm_error = nullptr;
    } cases[] = {
        {"plain", riff(fmt(1, 8000, 16) + chunk("data", kSamples)), 3,
         kSamples + kSamples + kSamples, "", 1, 8000, PCM_FORMAT_S16_LE},
        {"long fmt, odd chunk, chunk after data",
         riff(fmt(2, 16000, 32, "xx") + chunk("LIST", "abc") + chunk("data", kSamples) +
              chunk("junk", "zz")),
         2, kSamples + "junk" + le(2, 4) + "zz" + kSamples + "junk" + le(2, 4) + "zz", "", 2,
         16000, PCM_FORMAT_S32_LE},
        {"24-bit as 16-bit", riff(fmt(1, 8000, 24) + chunk("data", kSamples)), 1, kSamples, "",
         1, 8000, PCM_FORMAT_S16_LE},
        {"longer than a buffer", riff(fmt(1, 8000, 16) + chunk("data", kBig)), 4,
         kBig + kBig.substr(0, 1280), "", 1, 8000, PCM_FORMAT_S16_LE},
        {"write errors", riff(fmt(1, 8000, 16) + chunk("data", kBig)), 2, "",
         "Error playing tone\nError playing tone\n", 1, 8000, PCM_FORMAT_S16_LE, true},
        {"busy", riff(fmt(1, 8000, 16) + chunk("data", kSamples)), 1, "",
         "play_sample : Unable to open PCM device 5 (busy)\n", 1, 8000, PCM_FORMAT_S16_LE,
         false, "busy"},
        {"no samples at all", riff(fmt(1, 8000, 16) + chunk("data", "")), 1, "", "", 1, 8000,
         PCM_FORMAT_S16_LE},
    };
    for (const Case &c : cases) {
        FakeCard &card = FakeCard::get();
        card.reset();
        card.write_fails = c.write_fails;
        card.pcm_error = c.pcm_error;
        std::atomic<unsigned> stops{7};
        card.after_write = [&] {
            if (card.writes.size() == static_cast<size_t>(c.stop_after)) ++stops;
        };
        std::FILE *f = std::tmpfile();
        std::fwrite(c.file.data(), 1, c.file.size(), f);
        std::rewind(f);

        testing::internal::CaptureStdout();
        EXPECT_EQ(play_sample(f, ToneStop(stops, 7)), 0) << c.what;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out) << c.what;
        std::fclose(f);

        EXPECT_EQ(card.played, c.played) << c.what;
        EXPECT_LE(card.writes.size(), static_cast<size_t>(c.stop_after)) << c.what;
        EXPECT_EQ(card.pcm_opens, 1) << c.what;
        EXPECT_EQ(card.pcm_closes, 1) << c.what;
        EXPECT_EQ(card.config.channels, c.channels) << c.what;
        EXPECT_EQ(card.config.rate, c.rate) << c.what;
        EXPECT_EQ(card.config.format, c.format) << c.what;
        EXPECT_EQ(card.config.period_size * card.config.period_count, 640u) << c.what;
        EXPECT_EQ(card.config.start_threshold + card.config.avail_min, 0u) << c.what;
    }
}

TEST(Tone, AFileThatEndsBeforeItsSamplesOpensNoStream) {
    const std::string files[] = {
        "",
        "RIFF" + le(4, 4) + "WAVE",
        riff(fmt(1, 8000, 16)),
        riff(fmt(1, 8000, 16) + chunk("LIST", "abc")),
        riff(fmt(1, 8000, 16)).substr(0, 30),            // inside the format block
        riff(fmt(1, 8000, 16) + "LIST" + le(0xFFFFFFF0u, 4) + chunk("data", kSamples)),
    };
    for (const std::string &file : files) {
        FakeCard::get().reset();
        std::FILE *f = std::tmpfile();
        std::fwrite(file.data(), 1, file.size(), f);
        std::rewind(f);
        std::atomic<unsigned> stops{0};
        EXPECT_EQ(play_sample(f, ToneStop(stops, 0)), kNoSamples) << file.size();
        std::fclose(f);
        EXPECT_EQ(FakeCard::get().pcm_opens, 0);
    }
}

}  // namespace
