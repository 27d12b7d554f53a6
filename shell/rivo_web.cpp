// rivo-web: the program with the browser front end, to which `rivo` hands serving.
#include "shell/BrowserApp.h"
#include "shell/CommandLine.h"

int main(int argc, char** argv) {
  return rivo::CommandLine::main(argc, argv, &rivo::BrowserApp::run);
}
