// The mixer of the simulated card. A control's values live in the control file
// and nowhere else, so ftsim and the console always agree on them.
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

#include "platform/tinyalsa.h"
#include "sim/common/phone.h"
#include "sim/libtinyalsa/card.h"

struct mixer {
    unsigned card;
    std::deque<mixer_ctl> ctls;   // handed out by name, kept for the mixer's life
};

struct mixer_ctl {
    mixer *owner;
    std::string name;
};

namespace {

constexpr size_t kMaxControlFile = 64 * 1024;

struct Control {
    std::string name;
    std::vector<int> values;
};

bool read_controls(unsigned card, std::vector<Control> &out) {
    out.clear();
    return sim::read_key_values(card::control_file(card), kMaxControlFile,
                                [&](const std::string &name, const std::string &values) {
        Control c{name, {}};
        const char *p = values.c_str();
        while (*p) {
            char *next;
            c.values.push_back(static_cast<int>(std::strtol(p, &next, 10)));
            if (next == p) break;
            p = *next == ',' ? next + 1 : next;
        }
        out.push_back(std::move(c));
    });
}

bool write_controls(unsigned card, const std::vector<Control> &controls) {
    std::string text;
    for (const Control &c : controls) {
        text += c.name + "=";
        for (size_t i = 0; i < c.values.size(); ++i)
            text += (i ? "," : "") + std::to_string(c.values[i]);
        text += "\n";
    }
    return card::replace_file(card::control_file(card), text);
}

// The control as the card has it now; null when the card or the control is gone.
Control *find(std::vector<Control> &controls, const std::string &name) {
    if (sim::fault("mixer-control." + name)) return nullptr;
    for (Control &c : controls)
        if (c.name == name) return &c;
    return nullptr;
}

}  // namespace

extern "C" {

struct mixer *mixer_open(unsigned int card) {
    std::vector<Control> controls;
    if (!read_controls(card, controls)) return nullptr;
    return new mixer{card, {}};
}

struct mixer_ctl *mixer_get_ctl_by_name(struct mixer *m, const char *name) {
    std::vector<Control> controls;
    if (!read_controls(m->card, controls) || !find(controls, name)) return nullptr;
    for (mixer_ctl &ctl : m->ctls)
        if (ctl.name == name) return &ctl;
    m->ctls.push_back({m, name});
    return &m->ctls.back();
}

unsigned int mixer_ctl_get_num_values(struct mixer_ctl *ctl) {
    std::vector<Control> controls;
    if (!read_controls(ctl->owner->card, controls)) return 0;
    Control *c = find(controls, ctl->name);
    return c ? static_cast<unsigned>(c->values.size()) : 0;
}

int mixer_ctl_set_value(struct mixer_ctl *ctl, unsigned int id, int value) {
    std::vector<Control> controls;
    if (!read_controls(ctl->owner->card, controls)) return -ENODEV;
    Control *c = find(controls, ctl->name);
    if (!c) return -ENODEV;
    if (id >= c->values.size()) return -EINVAL;
    c->values[id] = value;
    return write_controls(ctl->owner->card, controls) ? 0 : -EIO;
}

}  // extern "C"
