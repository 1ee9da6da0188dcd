#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "tests/unit/console_line.h"
#include "tests/unit/fake_radio.h"
#include "tests/unit/fake_shell.h"
#include "wireless/bluetooth.h"

namespace {

class Radio : public testing::Test {
protected:
    void SetUp() override {
        use_fake_clock();
        radio().reset();
        shell_calls().clear();
    }
    void TearDown() override {
        testing::internal::CaptureStdout();
        btTestDestroy();
        testing::internal::GetCapturedStdout();
    }
    FakeRadio &radio() { return FakeRadio::get(); }
};

// `before`, then `call` n times.
std::vector<std::string> times(int n, const std::string &call, std::vector<std::string> before = {}) {
    before.insert(before.end(), n, call);
    return before;
}

TEST_F(Radio, WifiStartAndStopThroughTheModuleList) {
    const std::string start_fail = "ft: Err starting WiFi service\nFAIL\nft : Err: failed to start WiFi service, retry.\n";
    const std::string stop_fail = "ft: Err stopping WiFi service\nFAIL\nft : Err: failed to stop WiFi service, retry.\n";
    struct Case {
        const char *name;
        bool running;               // both modules listed before the command
        const char *broken;         // "missing NAME", "busy NAME", "stuck NAME", in pairs
        const char *line;
        std::string out;
        std::vector<std::string> calls;
        std::vector<std::string> listed_after;
        unsigned long long ms;      // time spent in pauses
    } cases[] = {
        {"mlan missing", false, "missing mlan", "wifi start",
         "wifi_load_driver /system/lib/modules/mlan.ko failed" + start_fail, {}, {}, 0},
        // The report comes whole, after the retries.
        {"sd8xxx missing, mlan busy", false, "missing sd8xxx busy mlan", "wifi start",
         "wifi_load_driver /system/lib/modules/sd8xxx.ko failed"
         "Unable to unload driver module \"mlan\": Resource temporarily unavailable\n"
         "wifi_load_driver : failed to unload /system/lib/modules/sd8xxx.ko\n" + start_fail,
         times(10, "delete_module mlan", {"init_module mlan "}), {"mlan"}, 5000},
        {"stop", true, "", "wifi stop", "ft: WiFi stopped.\n",
         {"delete_module sd8xxx", "delete_module mlan"}, {}, 500},
        {"busy", true, "busy sd8xxx", "wifi stop",
         "Unable to unload driver module \"sd8xxx\": Resource temporarily unavailable\n" + stop_fail,
         times(10, "delete_module sd8xxx"), {"mlan", "sd8xxx"}, 5000},
        {"still listed", true, "stuck sd8xxx", "wifi stop", stop_fail,
         {"delete_module sd8xxx", "delete_module mlan"}, {"sd8xxx"}, 10500},
    };
    for (const Case &c : cases) {
        SetUp();
        FakeRadio &r = radio();
        if (c.running) r.listed = {"mlan", "sd8xxx"};
        std::istringstream broken(c.broken);
        std::string kind, module;
        while (broken >> kind >> module)
            (kind == "missing" ? r.missing : kind == "busy" ? r.busy : r.stuck).insert(module);
        EXPECT_EQ(run(c.line), c.out) << c.name;
        EXPECT_EQ(r.calls, c.calls) << c.name;
        EXPECT_EQ(r.listed, c.listed_after) << c.name;
        EXPECT_EQ(r.now_us, c.ms * 1000) << c.name;
    }
}

// Properties as the stack hands them: the RSSI in one signed byte.
struct Found {
    uint8_t address[6];
    int32_t type = 0;
    int8_t rssi = 0;
    uint32_t cod = 0;
    const char *name = nullptr;

    std::vector<BtProperty> props() {
        std::vector<BtProperty> p = {{kBtPropAddress, 6, address}};
        if (type) p.push_back({kBtPropDeviceType, 4, &type});
        if (rssi) p.push_back({kBtPropRemoteRssi, 1, &rssi});
        if (cod) p.push_back({kBtPropClassOfDevice, 4, &cod});
        if (name) p.push_back({kBtPropName, 4, const_cast<char *>(name)});
        return p;
    }
};

TEST_F(Radio, BtScanPrintsRowsAsPropertiesArrive) {
    static Found a0{{0xaa, 0, 0, 0, 0, 1}};
    static Found a1{{0xaa, 0, 0, 0, 0, 1}, 1, -60};
    static Found b{{0xbb, 0, 0, 0, 0, 2}, 0, 0, 0x5a020c};
    static Found a2{{0xaa, 0, 0, 0, 0, 1}, 1, -60, 0, "Desk"};
    unsigned t = 100;
    for (Found *f : {&a0, &a1, &b, &a2, &a2}) radio().discovery.push_back({t += 100, f->props()});

    run("bt init");
    const std::string header = "Name                 Address           Class    Type  RSSI\n";
    const std::string on = "BT state changed: ON\nBT discovery STARTED\n";
    const std::string off = "BT discovery STOPPED\nBT state changed: OFF\n";
    // A repeated event adds nothing and prints nothing.
    EXPECT_EQ(run("bt scan"), on + header + "Unknown              AA:00:00:00:00:01 \n" + header +
                                  "Unknown              AA:00:00:00:00:01 BREDR -60\n"
                                  "Unknown              BB:00:00:00:00:02 0x5A020C \n"
                                  "Desk                 AA:00:00:00:00:01 BREDR -60\n" + off);
    // The table is emptied: the same device prints afresh, with the header.
    radio().discovery.resize(1);
    EXPECT_EQ(run("bt scan"), on + header + "Unknown              AA:00:00:00:00:01 \n" + off);
}

TEST_F(Radio, BtScanEndsOnCtrlCOrAfterAMinute) {
    struct Case {
        const char *name;
        unsigned long long interrupt_at;
        unsigned long long at_least_us;
    } cases[] = {
        {"ctrl+c", 1500000, 1500000},
        {"never stops", ~0ull, 60000000},
    };
    for (const Case &c : cases) {
        SetUp();
        run("bt init");
        run("bt on");
        radio().ends_discovery = false;
        radio().interrupt_at = c.interrupt_at;
        EXPECT_EQ(run("bt scan"), "BT discovery STARTED\nBT discovery STOPPED\n") << c.name;
        EXPECT_EQ(radio().cancels, 1u) << c.name;
        EXPECT_GE(radio().now_us, c.at_least_us) << c.name;
        EXPECT_LT(radio().now_us, c.at_least_us + 2000000) << c.name;
        // A second Ctrl+C would end the console as usual.
        struct sigaction now {};
        sigaction(SIGINT, nullptr, &now);
        EXPECT_EQ(now.sa_handler, SIG_DFL) << c.name;
        TearDown();
    }
}

}  // namespace
