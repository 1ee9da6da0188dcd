// The flash and RAM tests next to plain loops doing the same work.
//
// sdram 1 against a volatile byte loop making the same passes over a fresh
// zero-filled 64 MiB block (a read pass, four write-i/read-i+1 passes) and a
// read of a 4 MiB block; sdram 0 against one volatile read pass; flash against
// open, write, read and remove of the same 23 bytes in /cache. Runs inside a
// simulated phone (bench/memory.sh), so /cache and the allocator are the
// console's. Prints the best of several rounds, and each RAM test's peak
// resident size measured in a child process of its own.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/timing.h"
#include "peripherals/memory_test.h"

namespace {

constexpr size_t kBlock = 67108864, kGuard = 4194304;

int g_sink;

void plain_ram(bool marches) {
    auto *block = static_cast<volatile unsigned char *>(std::calloc(kBlock, 1));
    auto *guard = static_cast<volatile unsigned char *>(std::calloc(kGuard, 1));
    int bad = 0;
    for (size_t i = 0; i < kBlock; ++i) bad |= block[i];
    if (marches) {
        const unsigned char steps[][2] = {{0x00, 0x55}, {0x55, 0xAA}, {0xAA, 0xFF}, {0xFF, 0x00}};
        for (int s = 0; s < 4; ++s) {
            if (s == 3)
                for (size_t i = 0; i < kGuard; ++i) bad |= guard[i];
            for (size_t i = 0; i + 1 < kBlock; ++i) {
                block[i] = steps[s][1];
                bad |= block[i + 1] ^ steps[s][0];
            }
            block[kBlock - 1] = steps[s][1];
        }
    }
    g_sink += bad;
    std::free(const_cast<unsigned char *>(guard));
    std::free(const_cast<unsigned char *>(block));
}

void plain_flash() {
    static const char text[] = "I am testing the flash";
    char buf[50];
    int fd = open("/cache/test.txt", O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    g_sink += static_cast<int>(write(fd, text, sizeof text));
    close(fd);
    fd = open("/cache/test.txt", O_RDONLY | O_CLOEXEC);
    g_sink += static_cast<int>(read(fd, buf, sizeof buf));
    close(fd);
    unlink("/cache/test.txt");
}

// Peak resident KiB of a child that runs `fn` once.
template <typename Fn>
long peak_kib(Fn fn) {
    std::fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        {
            Quiet quiet;
            fn();
        }
        _exit(0);
    }
    int status;
    struct rusage ru;
    if (wait4(pid, &status, 0, &ru) != pid) return -1;
    return ru.ru_maxrss;
}

void row(const char *name, double value, const char *unit, const char *base_name, double base) {
    std::printf("  %-9s %9.1f %s   %-34s %9.1f %s   ratio %.2f\n", name, value, unit, base_name,
                base, unit, value / base);
}

}  // namespace

int main() {
    constexpr int kRamRounds = 5, kFlashRounds = 5, kFlashRuns = 500;
    double long_test, short_test, flash;
    {
        Quiet quiet;
        long_test = best_of(kRamRounds, [] { sdramTest("1"); });
        short_test = best_of(kRamRounds, [] { sdramTest("0"); });
        flash = best_of(kFlashRounds, [] {
            for (int i = 0; i < kFlashRuns; ++i) flashTest();
        });
    }
    double plain_long = best_of(kRamRounds, [] { plain_ram(true); });
    double plain_short = best_of(kRamRounds, [] { plain_ram(false); });
    double plain_flash_ms = best_of(kFlashRounds, [] {
        for (int i = 0; i < kFlashRuns; ++i) plain_flash();
    });
    std::printf("flash and RAM tests, best of %d rounds (flash: %d runs a round):\n", kRamRounds,
                kFlashRuns);
    row("sdram 1", long_test, "ms", "volatile loop, same passes", plain_long);
    row("sdram 0", short_test, "ms", "volatile loop, one read pass", plain_short);
    row("flash", flash * 1000 / kFlashRuns, "us", "open/write/read/unlink in C",
        plain_flash_ms * 1000 / kFlashRuns);
    std::printf("  peak resident: sdram 1 %ld KiB, sdram 0 %ld KiB, the plain loop of sdram 1 %ld KiB\n",
                peak_kib([] { sdramTest("1"); }), peak_kib([] { sdramTest("0"); }),
                peak_kib([] { plain_ram(true); }));
    return g_sink == 12345 ? 1 : 0;
}
