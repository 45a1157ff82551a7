// velmora: the command-line tool. Everything happens in velmora::runCli.
#include <iostream>

#include "velmora/Cli.h"

int main(int argc, char** argv) { return velmora::runCli(argc, argv, std::cout, std::cerr); }
