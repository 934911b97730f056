#include <gtest/gtest.h>

#include <fstream>
#include <vector>

#include "ExchangeSeed.h"
#include "StoreOps.h"
#include "SyntheticContent.h"
#include "TestFiles.h"

namespace {

using namespace nwsim;

std::vector<char> Content(uint64_t seed, size_t size) {
    std::vector<char> bytes(size);
    SyntheticContent(seed).Fill(0, bytes.data(), size);
    return bytes;
}

void WriteFile(const std::filesystem::path& file, const std::vector<char>& bytes) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

class StoreOpsTest : public ::testing::Test {
protected:
    void SetUp() override {
        layout.root = dir.Path() / "store";
        std::string error;
        uint64_t written = 0;
        ASSERT_TRUE(SeedExchange(layout, "srv", "cli", ExchangeSeedOptions(), written, error))
            << error;
        ASSERT_TRUE(LoadCatalogue(layout.CatalogueFile("srv", "cli"), catalogue, error)) << error;
        // Object 24: "/Second Storage Group/E01000A2.log", 65,536 bytes, 4 blocks of 16,384.
        object = SelectObject(catalogue, "/Second Storage Group/E01000A2.log", 0);
        ASSERT_NE(object, nullptr);
        ASSERT_EQ(object->size, 65536u);
        good = Content(object->content.seed, 65536);
    }

    VerifyResult Verify(const std::vector<char>& bytes) {
        const auto file = dir.Path() / "extracted.bin";
        WriteFile(file, bytes);
        VerifyResult result;
        std::string error;
        EXPECT_TRUE(VerifyObjectContent(layout, "srv", "cli", *object, file, result, error))
            << error;
        return result;
    }

    TempDirectory dir{"nwsim"};
    StoreLayout layout;
    Catalogue catalogue;
    const CatalogueObject* object = nullptr;
    std::vector<char> good;
};

TEST_F(StoreOpsTest, SeedWritesTheDocumentedBackup) {
    ASSERT_EQ(catalogue.objects.size(), ExchangeSeedBaseCount());
    ASSERT_EQ(catalogue.objects.size(), 31u);
    const CatalogueObject& big = catalogue.objects[11];
    EXPECT_EQ(big.id, 12u);
    EXPECT_EQ(big.path, "/First Storage Group/Mailbox Store (EX01).edb");
    EXPECT_EQ(big.size, 5000000000ull);
    EXPECT_EQ(big.size % (1ull << 32), 705032704u);
    EXPECT_EQ(big.copyId, (3ull << 32) | 4);
    EXPECT_EQ(big.restoreOrder, 3000004u);
    EXPECT_EQ(FormatDateTime(big.createTime), "2024-05-08 23:59:30");
    int mostRecent = 0, older = 0, otherOwners = 0;
    for (const CatalogueObject& o : catalogue.objects) {
        (o.objectStatus == 1 ? mostRecent : older)++;
        otherOwners += o.bsaOwner != "MSEXCH" ? 1 : 0;
    }
    EXPECT_EQ(mostRecent, 23);
    EXPECT_EQ(older, 8);
    EXPECT_EQ(otherOwners, 2);
    EXPECT_EQ(catalogue.objects[19].size, 2097153u);  // object 20, the --db-size one
}

TEST_F(StoreOpsTest, SeedBuildsLargeCataloguesAndChecksTheMinimum) {
    ExchangeSeedOptions options;
    options.objects = 100000;
    options.dbSize = 123;
    uint64_t written = 0;
    std::string error;
    ASSERT_TRUE(SeedExchange(layout, "srv", "big", options, written, error)) << error;
    EXPECT_EQ(written, 100000u);
    Catalogue big;
    ASSERT_TRUE(LoadCatalogue(layout.CatalogueFile("srv", "big"), big, error)) << error;
    ASSERT_EQ(big.objects.size(), 100000u);
    EXPECT_EQ(big.objects[19].size, 123u);
    EXPECT_EQ(big.objects[31].path, "/Third Storage Group/E0200000000.log");
    EXPECT_EQ(big.objects.back().id, 100000u);
    options.objects = 30;
    EXPECT_FALSE(SeedExchange(layout, "srv", "small", options, written, error));
    EXPECT_NE(error.find("31"), std::string::npos);
}

TEST_F(StoreOpsTest, SelectByIdPathAndCopy) {
    EXPECT_EQ(SelectObject(catalogue, "12", 0)->path,
              "/First Storage Group/Mailbox Store (EX01).edb");
    EXPECT_EQ(SelectObject(catalogue, "/First Storage Group/Mailbox Store (EX01).edb", 0)->id, 12u);
    EXPECT_EQ(SelectObject(catalogue, "\\IS:/First Storage Group/Mailbox Store (EX01).edb", 0)->id,
              12u);
    EXPECT_EQ(
        SelectObject(catalogue, "/First Storage Group/Mailbox Store (EX01).edb", (1ull << 32) | 1)
            ->id,
        1u);
    EXPECT_EQ(SelectObject(catalogue, "/none", 0), nullptr);
    EXPECT_EQ(SelectObject(catalogue, "999", 0), nullptr);
}

TEST_F(StoreOpsTest, VerifyAcceptsTheExactContent) {
    const VerifyResult result = Verify(good);
    EXPECT_TRUE(result.equal) << result.message;
}

TEST_F(StoreOpsTest, VerifyDetectsALostBlock) {
    std::vector<char> lost(good.begin(), good.begin() + 16384);
    lost.insert(lost.end(), good.begin() + 32768, good.end());
    const VerifyResult result = Verify(lost);
    EXPECT_FALSE(result.equal);
    EXPECT_EQ(result.firstDifference, 16384u);
}

TEST_F(StoreOpsTest, VerifyDetectsADoubledBlock) {
    std::vector<char> doubled(good.begin(), good.begin() + 32768);
    doubled.insert(doubled.end(), good.begin() + 16384, good.end());
    const VerifyResult result = Verify(doubled);
    EXPECT_FALSE(result.equal);
    EXPECT_EQ(result.firstDifference, 32768u);
}

TEST_F(StoreOpsTest, VerifyDetectsReorderedBlocks) {
    std::vector<char> reordered(good.begin(), good.begin() + 16384);
    reordered.insert(reordered.end(), good.begin() + 32768, good.begin() + 49152);
    reordered.insert(reordered.end(), good.begin() + 16384, good.begin() + 32768);
    reordered.insert(reordered.end(), good.begin() + 49152, good.end());
    ASSERT_EQ(reordered.size(), good.size());
    const VerifyResult result = Verify(reordered);
    EXPECT_FALSE(result.equal);
    EXPECT_EQ(result.firstDifference, 16384u);
}

TEST_F(StoreOpsTest, VerifyDetectsAFlippedByteAndATruncation) {
    std::vector<char> flipped = good;
    flipped[40000] ^= 1;
    EXPECT_EQ(Verify(flipped).firstDifference, 40000u);
    const std::vector<char> truncated(good.begin(), good.end() - 1);
    const VerifyResult result = Verify(truncated);
    EXPECT_FALSE(result.equal);
    EXPECT_EQ(result.firstDifference, 65535u);
    EXPECT_NE(result.message.find("at offset 65535"), std::string::npos) << result.message;
    std::vector<char> longer = good;
    longer.push_back(0);
    EXPECT_EQ(Verify(longer).firstDifference, 65536u);
}

TEST_F(StoreOpsTest, AddCopiesARealFileAndVerifiesIt) {
    const auto source = dir.Path() / "source.bin";
    const std::vector<char> bytes = {'r', 'e', 'a', 'l', '\0', '\n', 'x'};
    WriteFile(source, bytes);
    CatalogueObject fresh;
    fresh.bsaOwner = "MSEXCH";
    fresh.appOwner = "msexch";
    fresh.objectSpace = "\\IS";
    fresh.path = "/Added/real.edb";
    fresh.resourceType = "D";
    uint64_t id = 0;
    std::string error;
    ASSERT_TRUE(AddObject(layout, "srv", "cli", fresh, source, id, error)) << error;
    EXPECT_EQ(id, 32u);
    Catalogue loaded;
    ASSERT_TRUE(LoadCatalogue(layout.CatalogueFile("srv", "cli"), loaded, error));
    const CatalogueObject* added = loaded.FindById(32);
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(added->size, bytes.size());
    EXPECT_EQ(added->content.kind, ContentSource::Kind::File);
    VerifyResult result;
    ASSERT_TRUE(VerifyObjectContent(layout, "srv", "cli", *added, source, result, error));
    EXPECT_TRUE(result.equal);
    std::vector<char> other = bytes;
    other[4] = 1;
    WriteFile(dir.Path() / "other.bin", other);
    ASSERT_TRUE(
        VerifyObjectContent(layout, "srv", "cli", *added, dir.Path() / "other.bin", result, error));
    EXPECT_FALSE(result.equal);
    EXPECT_EQ(result.firstDifference, 4u);
}

TEST_F(StoreOpsTest, DescribeNamesEveryField) {
    const std::string text = DescribeObject(*SelectObject(catalogue, "12", 0));
    for (const char* field :
         {"id=12", "bsaOwner=\"MSEXCH\"", "appOwner=\"msexch\"", "objectSpace=\"\\IS\"",
          "path=\"/First Storage Group/Mailbox Store (EX01).edb\"", "resourceType=\"D\"",
          "createTime=\"2024-05-08 23:59:30\"", "copyType=1", "copyId=12884901892",
          "left=3 right=4", "restoreOrder=3000004", "size=5000000000", "objectType=1",
          "objectStatus=1", "objectInfo=\"EX01 backup 3\"", "description=\"Exchange database\"",
          "content=synthetic:12884901892"}) {
        EXPECT_NE(text.find(field), std::string::npos) << field << " in " << text;
    }
}

}  // namespace
