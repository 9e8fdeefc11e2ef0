// main.cpp - the program vexhost.
#include "host/cli.h"

int main(int argc, char** argv) { return vex::host::RunVexhost(argc, argv); }
