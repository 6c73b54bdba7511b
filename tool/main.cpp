#include "tool/commandLine.h"

int main(int argc, char** argv) { return pal2ntscMain(argc, argv); }
