// hwinfo: reads and writes the hardware record and the boot status register
// from the command line, for the factory and for service work (commands.h).
#include "commands.h"

#include <memory>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    const Program program =
        hwinfoProgram([](HwInfo::Use use) { return std::make_unique<HwInfo>(use); });
    return runProgram(program, std::vector<std::string>(argv + 1, argv + argc));
}
