// The three help pages: general, audio and L2 switch.
#pragma once

void printHelp();
void printAudioHelp();
void printL2Help();
