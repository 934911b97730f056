#include <gtest/gtest.h>

#include <fstream>

#include "Catalogue.h"
#include "TestFiles.h"

namespace {

using namespace nwsim;

CatalogueObject Sample() {
    CatalogueObject o;
    o.id = 12;
    o.bsaOwner = "MSEXCH";
    o.appOwner = "msexch";
    o.objectSpace = "\\IS";
    o.path = "/First Storage Group/Mailbox Store (EX01).edb";
    o.resourceType = "D";
    o.createTime = {2024, 5, 8, 23, 59, 30};
    o.copyType = 1;
    o.copyId = 12884901892ull;
    o.restoreOrder = 3000004;
    o.size = 5000000000ull;
    o.objectType = 1;
    o.objectStatus = 1;
    o.objectInfo = "tab\there 100% done\r\nnext";
    o.description = "Exchange database";
    o.content.seed = 77;
    return o;
}

void ExpectSame(const CatalogueObject& a, const CatalogueObject& b) {
    EXPECT_EQ(a.id, b.id);
    EXPECT_EQ(a.bsaOwner, b.bsaOwner);
    EXPECT_EQ(a.appOwner, b.appOwner);
    EXPECT_EQ(a.objectSpace, b.objectSpace);
    EXPECT_EQ(a.path, b.path);
    EXPECT_EQ(a.resourceType, b.resourceType);
    EXPECT_EQ(FormatDateTime(a.createTime), FormatDateTime(b.createTime));
    EXPECT_EQ(a.copyType, b.copyType);
    EXPECT_EQ(a.copyId, b.copyId);
    EXPECT_EQ(a.restoreOrder, b.restoreOrder);
    EXPECT_EQ(a.size, b.size);
    EXPECT_EQ(a.objectType, b.objectType);
    EXPECT_EQ(a.objectStatus, b.objectStatus);
    EXPECT_EQ(a.objectInfo, b.objectInfo);
    EXPECT_EQ(a.description, b.description);
    EXPECT_EQ(a.content.kind, b.content.kind);
    EXPECT_EQ(a.content.seed, b.content.seed);
    EXPECT_EQ(a.content.fileName, b.content.fileName);
}

TEST(Catalogue, LineRoundTripsEveryField) {
    const CatalogueObject original = Sample();
    const std::string line = FormatCatalogueLine(original);
    EXPECT_EQ(line.find('\n'), std::string::npos);
    CatalogueObject parsed;
    std::string error;
    ASSERT_TRUE(ParseCatalogueLine(line, parsed, error)) << error;
    ExpectSame(original, parsed);
}

TEST(Catalogue, FileContentRoundTrips) {
    CatalogueObject original = Sample();
    original.content.kind = ContentSource::Kind::File;
    original.content.fileName = "12.bin";
    original.content.seed = 0;
    CatalogueObject parsed;
    std::string error;
    ASSERT_TRUE(ParseCatalogueLine(FormatCatalogueLine(original), parsed, error)) << error;
    ExpectSame(original, parsed);
}

TEST(Catalogue, LineIsReadableText) {
    EXPECT_EQ(FormatCatalogueLine(Sample()),
              "12\tMSEXCH\tmsexch\t\\IS\t/First Storage Group/Mailbox Store (EX01).edb\tD\t"
              "2024-05-08 23:59:30\t1\t12884901892\t3000004\t5000000000\t1\t1\t"
              "tab%09here 100%25 done%0D%0Anext\tExchange database\tsynthetic:77");
}

TEST(Catalogue, MalformedLinesAreRefusedWithAReason) {
    const std::string good = FormatCatalogueLine(Sample());
    CatalogueObject parsed;
    std::string error;
    EXPECT_FALSE(ParseCatalogueLine("1\t2\t3", parsed, error));
    EXPECT_NE(error.find("16"), std::string::npos);
    EXPECT_FALSE(ParseCatalogueLine(good + "\textra", parsed, error));
    std::string badTime = good;
    badTime.replace(badTime.find("2024-05-08"), 10, "2024-02-30");
    EXPECT_FALSE(ParseCatalogueLine(badTime, parsed, error));
    EXPECT_NE(error.find("createTime"), std::string::npos);
    std::string badSize = good;
    badSize.replace(badSize.find("5000000000"), 10, "50000x0000");
    EXPECT_FALSE(ParseCatalogueLine(badSize, parsed, error));
    EXPECT_EQ(error, "bad size");
    std::string badEscape = good;
    badEscape.replace(badEscape.find("%09"), 3, "%G9");
    EXPECT_FALSE(ParseCatalogueLine(badEscape, parsed, error));
    std::string badContent = good;
    badContent.replace(badContent.find("synthetic:77"), 12, "random:77");
    EXPECT_FALSE(ParseCatalogueLine(badContent, parsed, error));
}

TEST(Catalogue, FieldsLongerThanTheDescriptorAreRefused) {
    CatalogueObject o = Sample();
    o.path.assign(1024, 'p');
    std::string error;
    EXPECT_FALSE(CheckObjectLimits(o, error));
    o.path.assign(1023, 'p');
    EXPECT_TRUE(CheckObjectLimits(o, error)) << error;
    o.bsaOwner.assign(64, 'o');
    EXPECT_FALSE(CheckObjectLimits(o, error));
}

TEST(Catalogue, DateTimeChecksTheCalendar) {
    CivilDateTime t;
    EXPECT_TRUE(ParseDateTime("2024-02-29 00:00:00", t));
    EXPECT_FALSE(ParseDateTime("2023-02-29 00:00:00", t));
    EXPECT_FALSE(ParseDateTime("2024-13-01 00:00:00", t));
    EXPECT_FALSE(ParseDateTime("2024-01-01 24:00:00", t));
    EXPECT_FALSE(ParseDateTime("2024-01-01T00:00:00", t));
    EXPECT_TRUE(ParseDateTime("2024-05-08 23:59:30", t));
    EXPECT_EQ(DayOfWeek(t), 3);  // a Wednesday
    EXPECT_EQ(DayOfYear(t), 128);
}

TEST(Catalogue, SaveAndLoadKeepOrderAndComments) {
    TempDirectory dir{"nwsim"};
    Catalogue catalogue;
    for (uint64_t id = 1; id <= 3; ++id) {
        CatalogueObject o = Sample();
        o.id = id;
        o.path = "/p" + std::to_string(id) + ".log";
        catalogue.objects.push_back(o);
    }
    const auto file = dir.Path() / "srv" / "cli" / "catalogue.txt";
    std::string error;
    ASSERT_TRUE(SaveCatalogue(file, catalogue, error)) << error;
    Catalogue loaded;
    ASSERT_TRUE(LoadCatalogue(file, loaded, error)) << error;
    ASSERT_EQ(loaded.objects.size(), 3u);
    EXPECT_EQ(loaded.objects[2].path, "/p3.log");
    EXPECT_EQ(loaded.NextId(), 4u);
    EXPECT_EQ(loaded.FindById(2)->path, "/p2.log");
    EXPECT_EQ(loaded.FindById(9), nullptr);
}

TEST(Catalogue, MissingFileIsEmptyAndBadLineIsNamed) {
    TempDirectory dir{"nwsim"};
    Catalogue loaded;
    std::string error;
    ASSERT_TRUE(LoadCatalogue(dir.Path() / "none.txt", loaded, error));
    EXPECT_TRUE(loaded.objects.empty());
    const auto file = dir.Path() / "catalogue.txt";
    {
        std::ofstream out(file, std::ios::binary);
        out << "# comment\n" << FormatCatalogueLine(Sample()) << "\nbroken line\n";
    }
    EXPECT_FALSE(LoadCatalogue(file, loaded, error));
    EXPECT_NE(error.find("line 3"), std::string::npos) << error;
}

}  // namespace
