#include "shell/console.h"

int main() { return console_main(); }
