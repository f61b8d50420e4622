// hwinfo's commands with an opener of the devices that the test controls:
// what is refused before any device is opened, and a device that cannot be
// opened.
#include "commands.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Output {
    int status;
    std::string out;
    std::string err;
};

class HwinfoCommands : public testing::Test {
protected:
    Output run(const std::vector<std::string>& words) {
        const Program program = hwinfoProgram([this](HwInfo::Use use) -> std::unique_ptr<HwInfo> {
            uses.push_back(use);
            throw std::runtime_error("open /dev/mmcblk1: No such file or directory");
        });
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int status = runProgram(program, words);
        return {status, testing::internal::GetCapturedStdout(),
                testing::internal::GetCapturedStderr()};
    }

    std::vector<HwInfo::Use> uses;
};

TEST_F(HwinfoCommands, KeysNeedNoDevice) {
    const Output keys = run({"keys", "--writable"});
    EXPECT_EQ(keys.status, ExitSuccess);
    EXPECT_EQ(keys.out.rfind("serial\n", 0), 0u) << keys.out;
    EXPECT_EQ(keys.out.find("checksum"), std::string::npos) << "a private key is not writable";
    EXPECT_EQ(keys.err, "");
    EXPECT_TRUE(uses.empty());
}

TEST_F(HwinfoCommands, AnUnknownKeyIsAUsageErrorBeforeAnyDeviceIsOpened) {
    const Output get = run({"get", "serail"});
    EXPECT_EQ(get.status, ExitUsage);
    EXPECT_EQ(get.err, "hwinfo get: unknown key: serail. Did you mean: serial?\n"
                       "Usage: hwinfo get KEY [--json]\n");
    EXPECT_TRUE(uses.empty());
}

TEST_F(HwinfoCommands, EveryWrongAssignmentIsListedAndNothingOpened) {
    const Output set = run({"set", "serial", "bord=x", "serial=7"});
    EXPECT_EQ(set.status, ExitUsage);
    EXPECT_EQ(set.err, "hwinfo set: not a KEY=VALUE assignment: serial\n"
                       "hwinfo set: unknown key: bord. Did you mean: board?\n"
                       "hwinfo set: nothing written\n"
                       "Usage: hwinfo set KEY=VALUE...\n");
    EXPECT_TRUE(uses.empty());
}

TEST_F(HwinfoCommands, ADeviceThatCannotBeOpenedFailsTheCommand) {
    const Output print = run({"print"});
    EXPECT_EQ(print.status, ExitFailure);
    EXPECT_EQ(print.out, "");
    EXPECT_EQ(print.err, "hwinfo print: cannot open the hardware record (/dev/mmcblk1) and the "
                         "boot status register (/dev/mem): open /dev/mmcblk1: No such file or "
                         "directory\n");
    EXPECT_EQ(uses, std::vector<HwInfo::Use>{HwInfo::Use::Inspect}) << "read-only for print";
    uses.clear();
    EXPECT_EQ(run({"set", "serial=7"}).status, ExitFailure);
    EXPECT_EQ(uses, std::vector<HwInfo::Use>{HwInfo::Use::Write});
}

} // namespace
