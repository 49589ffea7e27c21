#include "cli/CommandLine.h"

#include <iostream>

int main(int argc, char** argv) {
    return kel::host::Run(argc, argv, std::cout, std::cerr);
}
