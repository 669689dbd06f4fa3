// vantor: the command line of the archive client. Calls any member of the component by name, offers
// sub-commands for daily work, and runs a demonstration session against the reference gateway.

#include <iostream>

#include "cli.h"

int main(int argc, char** argv) {
  return vantor::RunVantor(std::vector<std::string>(argv + 1, argv + argc), std::cout, std::cerr);
}
