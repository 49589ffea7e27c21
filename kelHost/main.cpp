#include "CommandLine.h"
#include "Signals.h"

#include <iostream>

int main(int argc, char** argv) {
    kel::host::StartSignalGuard();
    return kel::host::Run(argc, argv, std::cout, std::cerr);
}
