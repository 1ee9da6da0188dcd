#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include "shell/dispatch.h"
#include "tests/unit/fake_radio.h"
#include "tests/unit/fake_shell.h"
#include "wireless/bluetooth.h"

namespace {

std::string run(const char *text) {
    static CommandLine line;
    split_line(text, line.words);
    testing::internal::CaptureStdout();
    dispatch(line);
    return testing::internal::GetCapturedStdout();
}

class Bluetooth : public testing::Test {
protected:
    void SetUp() override {
        use_fake_clock();
        radio().reset();
        radio().listed = {};
        shell_calls().clear();
    }
    void TearDown() override {
        testing::internal::CaptureStdout();
        btTestDestroy();
        testing::internal::GetCapturedStdout();
    }
    FakeRadio &radio() { return FakeRadio::get(); }
};

TEST_F(Bluetooth, CommandsBeforeAndAfterInit) {
    struct Step {
        const char *line;
        const char *out;
    } steps[] = {
        {"bt on", "BT not initialized!\nFAIL\n"},
        {"bt off", "BT not initialized!\nFAIL\n"},
        {"bt mac_get", "BT not initialized!\nFAIL\n"},
        {"bt scan", "FAIL: BT not initialized!\n"},
        {"bt init", "BT interface initialized\n"},
        {"bt off", "BT already OFF\n"},
        {"bt mac_get", "AA:BB:CC:0D:EE:0F\nPASS\n"},
        {"bt on", "BT state changed: ON\n"},
        {"bt on", "BT already ON\n"},
        {"bt off", "BT state changed: OFF\n"},
        {"bt cap", "FAIL\n"},
    };
    for (const Step &s : steps) EXPECT_EQ(run(s.line), s.out) << s.line;
    EXPECT_EQ(radio().calls, std::vector<std::string>{"init_module mbt8xxx "});
    EXPECT_EQ(shell_calls(), std::vector<std::string>{"/system/bin/bd_addr_loader"});
}

TEST_F(Bluetooth, InitFailuresStillRunTheAddressLoader) {
    struct Case {
        const char *broken;
        const char *out;
    } cases[] = {
        {"node", "ERROR: failed to load BT driver!\n"},
        {"image", "insmod(): failed to load file\nERROR: failed to load BT driver!\n"},
    };
    for (const Case &c : cases) {
        SetUp();
        if (std::string(c.broken) == "node") radio().char_device = false;
        else radio().missing.insert("mbt8xxx");
        EXPECT_EQ(run("bt init"), c.out) << c.broken;
        EXPECT_EQ(shell_calls(), std::vector<std::string>{"/system/bin/bd_addr_loader"});
        EXPECT_EQ(run("bt on"), "BT not initialized!\nFAIL\n");
    }
}

TEST_F(Bluetooth, SilentOrFailingStackFailsTheCommand) {
    run("bt init");
    radio().enable_status = 1;
    EXPECT_EQ(run("bt on"), "FAIL\n");
    EXPECT_EQ(radio().now_us, 0u);
    radio().enable_status = 0;
    radio().silent = true;
    EXPECT_EQ(run("bt on"), "FAIL\n");
    EXPECT_EQ(run("bt mac_get"), "FAIL\n");
    EXPECT_EQ(radio().now_us, 10000000u);   // 5 s each
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

TEST_F(Bluetooth, ScanPrintsRowsAsPropertiesArrive) {
    static Found a0{{0xaa, 0, 0, 0, 0, 1}};
    static Found a1{{0xaa, 0, 0, 0, 0, 1}, 1, -60};
    static Found b{{0xbb, 0, 0, 0, 0, 2}, 0, 0, 0x5a020c};
    static Found a2{{0xaa, 0, 0, 0, 0, 1}, 1, -60, 0, "Desk"};
    static std::vector<Found> more;
    more.clear();
    for (uint8_t i = 0; i < 19; ++i) more.push_back(Found{{0xcc, 0, 0, 0, 0, i}});
    unsigned t = 100;
    for (Found *f : {&a0, &a1, &b, &a2, &a2}) radio().discovery.push_back({t += 100, f->props()});
    for (Found &f : more) radio().discovery.push_back({t += 10, f.props()});

    run("bt init");
    std::string out = run("bt scan");
    const std::string header = "Name                 Address           Class    Type  RSSI\n";
    const std::string expected_start =
        "BT state changed: ON\nBT discovery STARTED\n" + header +
        "Unknown              AA:00:00:00:00:01 \n" + header +
        "Unknown              AA:00:00:00:00:01 BREDR -60\n"
        "Unknown              BB:00:00:00:00:02 0x5A020C \n"
        "Desk                 AA:00:00:00:00:01 BREDR -60\n"
        "Unknown              CC:00:00:00:00:00 \n";
    EXPECT_EQ(out.substr(0, expected_start.size()), expected_start);
    // Twenty devices fit; the twenty-first is neither kept nor printed.
    EXPECT_NE(out.find("CC:00:00:00:00:11 \nBT discovery STOPPED\nBT state changed: OFF\n"),
              std::string::npos) << out;
    EXPECT_EQ(out.find("CC:00:00:00:00:12"), std::string::npos);

    // The table is emptied: the same devices print afresh, with the header.
    radio().discovery.resize(1);
    EXPECT_NE(run("bt scan").find(header + "Unknown              AA:00:00:00:00:01 \n"), std::string::npos);
}

TEST_F(Bluetooth, ScanEndsOnCtrlCOrAfterAMinute) {
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
        EXPECT_EQ(radio().stack_calls.back(), "cancel_discovery") << c.name;
        EXPECT_GE(radio().now_us, c.at_least_us) << c.name;
        EXPECT_LT(radio().now_us, c.at_least_us + 2000000) << c.name;
        // A second Ctrl+C would end the console as usual.
        struct sigaction now {};
        sigaction(SIGINT, nullptr, &now);
        EXPECT_EQ(now.sa_handler, SIG_DFL) << c.name;
        TearDown();
    }
}

TEST_F(Bluetooth, ShutDownSwitchesOffAndUnloads) {
    run("bt init");
    run("bt on");
    testing::internal::CaptureStdout();
    EXPECT_EQ(btTestDestroy(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "BT state changed: OFF\n");
    EXPECT_EQ(radio().stack_calls.back(), "cleanup");
    EXPECT_EQ(radio().calls.back(), "delete_module mbt8xxx");
    EXPECT_EQ(btTestDestroy(), -1);
}

}  // namespace
