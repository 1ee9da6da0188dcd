// info, program and production: the console's side of the factory-data store.
#pragma once

int info();
// `value` is null when the operator's quoted value did not fit its buffer.
int programWrite(const char *name, const char *value);
int programWriteCommit(const char *name, const char *value);
int programCommit();
int programList(const char *target);
int programRead(const char *name);
int programReset(const char *target);
int production(const char *action);
