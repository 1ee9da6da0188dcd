// The L2 switch diagnostics: one handler per l2 command, each one call of the
// maker's switch library. The dispatcher has checked the argument words.
// Each returns 0 after its success line and -1 after a failure line.
#pragma once

int rltkFTResetSettings();
int rltkFTportCntrs(const char *port);
int rltkFTportResetCntrs(const char *port);
int rltkFTGetMac(const char *port);
int rltkFTPrintMacTable();
int rltkFTGetRegValue(const char *reg);
int rltkFTGetPhyRegValue(const char *port, const char *reg);
int rltkFTEarlyInit(const char *mode);
int rltkFTsetAutoMDIX(const char *port, const char *mode);
int rltkFTgetAutoMDIX(const char *port);
int rltkFTsetLinkStatus(const char *port, const char *status);
int rltkFTgetLinkStatus(const char *port);
int rltkFTsetLinkMode(const char *port, const char *mode);
int rltkFTgetLinkMode(const char *port);
int rltkFTgetPVID(const char *port);
int rltkFTgetPortPriority(const char *port);
int rltkFTgetVlanMbrCfg(const char *index);
int rltkFTshowAllRules();
int rltkFTdelAllRules();
int rltkFTGetGreenEthernetPort();
int SetGreenEthernetPort(const char *mode);
int rltkFTGetEEEPort(const char *port);
int rltkFTSetEEEPort(const char *port, const char *mode);
int rltkFTrgmiiDelayExt_set(const char *port, const char *tx, const char *rx);
int rltkFTl2getSSC();
int rltkFTl2setSSC(const char *status);

// The special file that marks a running switch dump: 1 when it was created
// (or removed), 0 after printing why not.
int createFile();
int deleteFile();
