// Product information: the hardware identity from the hardware record, the
// software identity from "/product.info", and their place in shared memory
// and in every settings document.
#include "constants.h"
#include "hwinfo.h"
#include "kmsgcapture.h"
#include "logline.h"
#include "productinfo.h"
#include "servicefixture.h"
#include "settings-service/records.h"

#include <unistd.h>

using namespace servicetest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* MMC = "/dev/mmcblk1";
constexpr off_t MMC_SIZE = 0x110000;

// Writes the three identity fields of the hardware record.
void writeRecord(const char* board, const char* serial, const char* revision) {
    HwInfo record;
    record.initialize();
    ASSERT_TRUE(record.write(Constants::HWINFO_BOARD, board));
    ASSERT_TRUE(record.write(Constants::HWINFO_SERIAL, serial));
    ASSERT_TRUE(record.write(Constants::HWINFO_REVISION, revision));
}

} // namespace

class ProductInfoTest : public ServiceTest {};

TEST_F(ProductInfoTest, TheRecordsIdentityIsLoggedAndPublished) {
    writeRecord("Falcon 3", "SN-0042", "2.1");
    testsupport::KmsgCapture log;
    ASSERT_TRUE(service->init());
    EXPECT_STREQ(gen::memPersistent().ProductName.data(), "Falcon 3");
    EXPECT_STREQ(gen::memPersistent().ProductVersion.data(), "0.0.0-dev");
    EXPECT_STREQ(gen::memStatic().ProductSerial.data(), "SN-0042");
    EXPECT_STREQ(gen::memStatic().ProductRevision.data(), "2.1");
    EXPECT_STREQ(gen::memStatic().ProductLastCommit.data(), "unknown");
    const auto lines = log.lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_TRUE(testsupport::isLogLine(lines[0], gen::LogLight, "productinfo.cpp",
                                       "HW: Falcon 3 SN-0042 2.1"));
    EXPECT_TRUE(testsupport::isLogLine(lines[1], gen::LogLight, "productinfo.cpp",
                                       "SW: 0.0.0-dev unknown"));
    const std::string current = readFile(CURRENT);
    EXPECT_NE(current.find("\"ProductName\": \"Falcon 3\",\n"), std::string::npos);
    EXPECT_NE(current.find("\"ProductVersion\": \"0.0.0-dev\",\n"), std::string::npos);
}

TEST_F(ProductInfoTest, ALongBoardNameIsCutTo19Characters) {
    writeRecord("ABCDEFGHIJKLMNOPQRSTUVWXY", "1", "1");
    ASSERT_TRUE(service->init());
    EXPECT_STREQ(gen::memPersistent().ProductName.data(), "ABCDEFGHIJKLMNOPQRS");
    EXPECT_NE(readFile(CURRENT).find("\"ProductName\": \"ABCDEFGHIJKLMNOPQRS\",\n"),
              std::string::npos);
}

TEST_F(ProductInfoTest, AUnitWithoutHardwareRecordIsUnknown) {
    ASSERT_EQ(::truncate(MMC, 0), 0);
    testsupport::KmsgCapture log;
    const bool started = service->init();
    ASSERT_EQ(::truncate(MMC, MMC_SIZE), 0);
    ASSERT_TRUE(started);
    EXPECT_STREQ(gen::memStatic().ProductSerial.data(), "Unknown");
    EXPECT_STREQ(gen::memStatic().ProductRevision.data(), "Unknown");
    EXPECT_STREQ(gen::memPersistent().ProductName.data(), "Unknown");
    std::vector<std::string> identity;
    for (const std::string& line : log.lines()) {
        if (line.find("productinfo.cpp") != std::string::npos) {
            identity.push_back(line);
        }
    }
    ASSERT_EQ(identity.size(), 5u);
    EXPECT_TRUE(testsupport::isLogLine(identity[0], gen::Error, "productinfo.cpp",
                                       "Could not read product name."));
    EXPECT_TRUE(testsupport::isLogLine(identity[1], gen::Error, "productinfo.cpp",
                                       "Could not read product name."));
    EXPECT_TRUE(testsupport::isLogLine(identity[2], gen::Error, "productinfo.cpp",
                                       "Could not read product revision."));
    EXPECT_TRUE(testsupport::isLogLine(identity[3], gen::LogLight, "productinfo.cpp",
                                       "HW: Unknown Unknown Unknown"));
    EXPECT_NE(readFile(CURRENT).find("\"ProductName\": \"Unknown\",\n"), std::string::npos);
}

TEST_F(ProductInfoTest, PublishingAnUnchangedValuePostsNoEvent) {
    writeRecord("Falcon 3", "SN-0042", "2.1");
    ASSERT_TRUE(service->init());
    posted();
    service->writeProductInfo();
    EXPECT_THAT(posted(), IsEmpty());
    std::snprintf(gen::memPersistent().ProductName.data(), 20, "Other");
    service->writeProductInfo();
    EXPECT_THAT(ids(posted()), ElementsAre(VarProductNameChanged));
    EXPECT_STREQ(gen::memPersistent().ProductName.data(), "Falcon 3");
}

// The product information on its own, publishing into the memories it is given.
class ProductInfoClassTest : public ServiceClassTest {};

TEST_F(ProductInfoClassTest, TheIdentityIsKeptAndPublishedByItsOwnObject) {
    writeRecord("Heron 2", "SN-7", "1.0");
    ProductInfo product(memories);
    EXPECT_EQ(product.name(), "");
    product.readHardwareIdentity();
    product.readSoftwareIdentity();
    EXPECT_EQ(product.name(), "Heron 2");
    EXPECT_EQ(product.version(), "0.0.0-dev");
    EXPECT_STREQ(gen::memStatic().ProductSerial.data(), "SN-7");
    posted();
    product.publish();
    EXPECT_STREQ(gen::memPersistent().ProductName.data(), "Heron 2");
    EXPECT_STREQ(gen::memPersistent().ProductVersion.data(), "0.0.0-dev");
    EXPECT_THAT(ids(posted()), testing::Contains(VarProductNameChanged));
}
