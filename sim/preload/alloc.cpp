// The alloc fault (faults/alloc.SIZE, taken as the console starts): every
// allocation of SIZE bytes or more fails with ENOMEM, as on a phone whose
// memory is used up. The sanitizer build never comes here (its runtime owns
// malloc); ftsim sets the sanitizer's own allocation limit for that build.
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "sim/common/phone.h"
#include "sim/preload/nodes.h"

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
}

namespace {

std::atomic<size_t> g_limit{SIZE_MAX};

bool refused(size_t bytes) {
    if (bytes < g_limit.load(std::memory_order_relaxed)) return false;
    errno = ENOMEM;
    return true;
}

__attribute__((constructor)) void read_alloc_fault() {
    if (!preload::is_console_process()) return;
    std::string limit;
    if (sim::fault_argument("alloc.", limit)) g_limit = std::strtoull(limit.c_str(), nullptr, 10);
}

}  // namespace

extern "C" {

void *malloc(size_t n) { return refused(n) ? nullptr : __libc_malloc(n); }

void *calloc(size_t count, size_t size) {
    size_t bytes;
    if (__builtin_mul_overflow(count, size, &bytes)) bytes = SIZE_MAX;
    return refused(bytes) ? nullptr : __libc_calloc(count, size);
}

void *realloc(void *p, size_t n) { return refused(n) ? nullptr : __libc_realloc(p, n); }

}  // extern "C"
