// The RAM test's passes over a block of memory, written against any memory that
// reads and writes single bytes, so a test can run them on memory with a
// stuck or coupled cell. On the phone the memory is a volatile byte pointer:
// every byte is really written and read back, in place, in ascending order.
#pragma once

#include <cstddef>
#include <cstdint>

struct VolatileBytes {
    volatile uint8_t *p;
    void write(size_t i, uint8_t v) { p[i] = v; }
    uint8_t read(size_t i) const { return p[i]; }
};

// Every byte of [0, n) must read zero.
template <typename Memory>
int read_zero_pass(const Memory &mem, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (mem.read(i) != 0) return -1;
    return 0;
}

// Writes `value` to byte i, then checks that byte i + 1 still holds `expected`
// (the previous pass's value): a write that disturbs its upper neighbour, or a
// neighbour that never took the previous value, stops the pass at once.
template <typename Memory>
int march_pass(Memory &mem, size_t n, uint8_t expected, uint8_t value) {
    if (n == 0) return 0;
    for (size_t i = 0; i + 1 < n; ++i) {
        mem.write(i, value);
        if (mem.read(i + 1) != expected) return -1;
    }
    mem.write(n - 1, value);
    return 0;
}

// The long test after the zero check: three marches, the guard block still
// zero, and the march back to zero. 0, or -1 at the first failure.
template <typename Memory>
int long_march(Memory &block, size_t n, const Memory &guard, size_t guard_n) {
    constexpr uint8_t kSteps[][2] = {{0x00, 0x55}, {0x55, 0xAA}, {0xAA, 0xFF}};
    for (const auto &step : kSteps)
        if (march_pass(block, n, step[0], step[1]) != 0) return -1;
    if (read_zero_pass(guard, guard_n) != 0) return -1;
    return march_pass(block, n, 0xFF, 0x00);
}
