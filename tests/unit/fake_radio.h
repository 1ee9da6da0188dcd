// Fakes of what the wireless code runs on: the kernel's module list, the
// module images, the Bluetooth stack and the capability queries, all on a
// virtual clock that the wireless pauses advance (stack events fall due on it).
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "platform/bluetooth.h"

struct FakeRadio {
    // Kernel.
    std::vector<std::string> listed;               // module names, in load order
    std::vector<std::string> calls;                // "init_module NAME PARAMS", "delete_module NAME"
    std::set<std::string> busy, stuck, missing;

    // Stack.
    BtCallbacks *callbacks = nullptr;
    bool ends_discovery = true;                    // false: STOPPED only after a cancel
    std::vector<std::pair<unsigned, std::vector<BtProperty>>> discovery;   // ms after STARTED
    unsigned cancels = 0;

    // Virtual clock, in microseconds; `interrupt_at` raises SIGINT once it passes.
    unsigned long long now_us = 0;
    unsigned long long interrupt_at = ~0ull;

    void post(unsigned ms, std::function<void()> event);
    void reset();
    static FakeRadio &get();

    std::vector<std::pair<unsigned long long, std::function<void()>>> events;
};

// Puts the fake clock in place of the wireless pauses.
void use_fake_clock();
