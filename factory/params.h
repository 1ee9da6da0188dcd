// The factory parameters the console knows, in the store's index order.
#pragma once

struct FactoryParam {
    const char *name;    // storage name
    const char *alias;   // console alias
};

constexpr int kFactoryParamCount = 33;
constexpr int kFactoryValueSize = 32;

// kFactoryParamCount rows, then a row of two nulls.
extern const FactoryParam factoryParamTable[kFactoryParamCount + 1];

// Prints `label = "value"` (the storage name when `label` is null). Returns 0,
// or -1 with nothing printed when the name is unknown or cannot be read.
int printFactoryParam(const char *name, const char *label);
