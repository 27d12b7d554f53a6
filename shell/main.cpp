// rivo: the program's entry point.
#include "shell/CommandLine.h"

int main(int argc, char** argv) {
  return rivo::CommandLine::main(argc, argv);
}
