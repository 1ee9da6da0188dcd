// The model check and the headset's wiring standard. accessories/model holds
// "corvine" or "other"; accessories/headset-type holds 3 (CTIA), 4 (OMTP), or
// anything else for a headset the jack cannot classify.
#include <string>

#include "platform/tolma.h"
#include "sim/common/phone.h"

extern "C" {

int is_corvine_entry(void) {
    std::string model;
    sim::read_file("accessories/model", model, 32);
    return model == "corvine" ? 1 : 0;
}

int Jack_GetHeadsetType(int *type) {
    std::string text;
    sim::read_file("accessories/headset-type", text, 32);
    if (text != "3" && text != "4") return -1;
    *type = text[0] - '0';
    return 0;
}

}  // extern "C"
