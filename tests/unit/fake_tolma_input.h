// Fake of the maker library's accessory and jack calls: the headset type is set by the test.
#pragma once

extern int fake_headset_type;
