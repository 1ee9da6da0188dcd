#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "shell/dispatch.h"
#include "tests/unit/fake_radio.h"
#include "tests/unit/fake_shell.h"

namespace {

constexpr char kParams[] =
    "reg_alpha2=00 sta_name=wlan uap_name=wlan wfd_name=wlan cal_data_cfg=none";

std::string run(const char *text) {
    static CommandLine line;
    split_line(text, line.words);
    testing::internal::CaptureStdout();
    dispatch(line);
    return testing::internal::GetCapturedStdout();
}

std::vector<std::string> times(int n, const std::string &call) { return std::vector<std::string>(n, call); }

TEST(Wifi, StartAndStopThroughTheModuleList) {
    const std::string start_fail = "ft: Err starting WiFi service\nFAIL\nft : Err: failed to start WiFi service, retry.\n";
    const std::string stop_fail = "ft: Err stopping WiFi service\nFAIL\nft : Err: failed to stop WiFi service, retry.\n";
    struct Case {
        const char *name;
        bool running;               // both modules listed before the command
        std::string broken;         // "missing NAME", "busy NAME", "stuck NAME"
        const char *line;
        std::string out;
        std::vector<std::string> calls;
        std::vector<std::string> listed_after;
        unsigned long long ms;      // time spent in pauses
    } cases[] = {
        {"start", false, "", "wifi start", "ft: WiFi started.\n",
         {"init_module mlan ", std::string("init_module sd8xxx ") + kParams}, {"mlan", "sd8xxx"}, 0},
        {"start when running", true, "", "wifi start", "ft : WiFi service already running.\n", {},
         {"mlan", "sd8xxx"}, 0},
        {"mlan missing", false, "missing mlan", "wifi start",
         "wifi_load_driver /system/lib/modules/mlan.ko failed" + start_fail, {}, {}, 0},
        // No half-loaded driver, and the messages share a line as the phone prints them.
        {"sd8xxx missing", false, "missing sd8xxx", "wifi start",
         "wifi_load_driver /system/lib/modules/sd8xxx.ko failed" + start_fail,
         {"init_module mlan ", "delete_module mlan"}, {}, 0},
        {"stop", true, "", "wifi stop", "ft: WiFi stopped.\n",
         {"delete_module sd8xxx", "delete_module mlan"}, {}, 500},
        {"stop when stopped", false, "", "wifi stop", "ft : WiFi service already stopped.\n", {}, {}, 0},
        {"busy", true, "busy sd8xxx", "wifi stop",
         "Unable to unload driver module \"sd8xxx\": Resource temporarily unavailable\n" + stop_fail,
         times(10, "delete_module sd8xxx"), {"mlan", "sd8xxx"}, 5000},
        {"still listed", true, "stuck sd8xxx", "wifi stop", stop_fail,
         {"delete_module sd8xxx", "delete_module mlan"}, {"sd8xxx"}, 10500},
    };
    use_fake_clock();
    for (const Case &c : cases) {
        FakeRadio &r = FakeRadio::get();
        r.reset();
        if (c.running) r.listed = {"mlan", "sd8xxx"};
        if (!c.broken.empty()) {
            std::string kind = c.broken.substr(0, c.broken.find(' '));
            std::string module = c.broken.substr(c.broken.find(' ') + 1);
            (kind == "missing" ? r.missing : kind == "busy" ? r.busy : r.stuck).insert(module);
        }
        EXPECT_EQ(run(c.line), c.out) << c.name;
        EXPECT_EQ(r.calls, c.calls) << c.name;
        EXPECT_EQ(r.listed, c.listed_after) << c.name;
        EXPECT_EQ(r.now_us, c.ms * 1000) << c.name;
    }
}

TEST(Wifi, MacAndScanStartWifiFirst) {
    use_fake_clock();
    FakeRadio::get().reset();
    shell_calls().clear();
    // No address file on this host: the start is reported, then the failure.
    EXPECT_EQ(run("wifi mac_get"), "ft: WiFi started.\nFAIL\nft: Err getting WiFi MAC address \n");
    EXPECT_EQ(run("wifi scan"), "ft : WiFi service already running.\nft: Initiating wifi scan... \n"
                                "ft: Done, check AP list above. \n");
    EXPECT_EQ(shell_calls(), (std::vector<std::string>{"ip link set wlan0 up", "iwlist wlan0 scan"}));
    EXPECT_EQ(FakeRadio::get().now_us, 1000000u);
}

}  // namespace
