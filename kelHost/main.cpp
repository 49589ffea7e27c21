#include "cli/CommandLine.h"

int main(int argc, char** argv) {
    return kel::host::Run(argc, argv);
}
