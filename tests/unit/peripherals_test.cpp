#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "peripherals/memory_test.h"
#include "peripherals/sdram_march.h"
#include "peripherals/usb.h"

namespace {

// Memory with one bad cell: stuck at a value, or coupled to a lower neighbour
// (a write to `aggressor` also sets the cell), or reading back a value it was
// never given once the block is full of `spoil_after`.
struct FaultyMemory {
    enum Kind { kGood, kStuck, kCoupled } kind;
    size_t cell, aggressor;
    uint8_t stuck_value;
    std::vector<uint8_t> bytes;

    void write(size_t i, uint8_t v) {
        bytes[i] = v;
        if (kind == kCoupled && i == aggressor) bytes[cell] = static_cast<uint8_t>(~v);
        if (kind == kStuck && i == cell) bytes[i] = stuck_value;
    }
    uint8_t read(size_t i) const { return bytes[i]; }
};

struct MarchCase {
    const char *name;
    FaultyMemory::Kind kind;
    size_t cell, aggressor;
    uint8_t stuck_value;
    int result;
};

TEST(SdramMarch, FindsStuckAndCoupledCells) {
    constexpr size_t n = 64;
    const MarchCase cases[] = {
        {"good memory", FaultyMemory::kGood, 0, 0, 0, 0},
        {"cell stuck at 0x00", FaultyMemory::kStuck, 10, 0, 0x00, -1},
        {"cell stuck at 0xFF", FaultyMemory::kStuck, 10, 0, 0xFF, -1},
        {"cell stuck at 0x55", FaultyMemory::kStuck, 33, 0, 0x55, -1},
        {"top cell stuck at 0xAA", FaultyMemory::kStuck, n - 1, 0, 0xAA, -1},
        {"cell coupled to its lower neighbour", FaultyMemory::kCoupled, 21, 20, 0, -1},
        {"cell coupled to a far lower cell", FaultyMemory::kCoupled, 50, 3, 0, -1},
        // Byte 0 is written by every pass but never read back: a stuck byte 0
        // goes unseen, as it does on the phone.
        {"byte 0 stuck", FaultyMemory::kStuck, 0, 0, 0x00, 0},
    };
    for (const MarchCase &c : cases) {
        SCOPED_TRACE(c.name);
        FaultyMemory block{c.kind, c.cell, c.aggressor, c.stuck_value, std::vector<uint8_t>(n)};
        FaultyMemory guard{FaultyMemory::kGood, 0, 0, 0, std::vector<uint8_t>(8)};
        if (c.kind == FaultyMemory::kStuck) block.bytes[c.cell] = c.stuck_value;
        int got = read_zero_pass(block, n) == 0 ? long_march(block, n, guard, 8) : -1;
        EXPECT_EQ(got, c.result);
        if (got == 0) {
            EXPECT_EQ(block.bytes, std::vector<uint8_t>(n, 0));
        }
    }
}

TEST(SdramMarch, GuardBlockMustStayZero) {
    FaultyMemory block{FaultyMemory::kGood, 0, 0, 0, std::vector<uint8_t>(16)};
    FaultyMemory guard{FaultyMemory::kGood, 0, 0, 0, std::vector<uint8_t>(16)};
    guard.bytes[15] = 1;
    EXPECT_EQ(long_march(block, 16, guard, 16), -1);
}

// An allocator that refuses blocks of one size (the sanitizer build's leak
// check sees a block not given back).
size_t g_refused_size;
void *refusing_calloc(size_t count, size_t size) {
    return count * size == g_refused_size ? nullptr : std::calloc(count, size);
}

TEST(Sdram, AllocationFailuresAndWords) {
    const std::string progress =
        "Test in progress... for mem block=67108864 Bytes and 4194304 Bytes. Please wait...\n";
    struct {
        const char *word;
        size_t refused;
        int result;
        std::string out;
    } cases[] = {
        {"0", 67108864, -1, progress + "FAIL to allocate 67108864 Bytes of memory block\n"},
        {"1", 4194304, -1, progress + "FAIL to allocate  4194304 Bytes of memory block\n"},
        {"-0", 0, -1, "FAIL. Invalid parameter.\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.word);
        g_refused_size = c.refused;
        testing::internal::CaptureStdout();
        EXPECT_EQ(sdramTestWith(c.word, refusing_calloc), c.result);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out);
    }
}

// A Ctrl+C that comes before the test has noticed the first one only says so.
TEST(UsbRw, SecondInterruptOnlySaysSo) {
    testing::internal::CaptureStdout();
    signal_handler(SIGINT);
    signal_handler(SIGINT);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "signal_handler: signal already received.\n");
}

}  // namespace
