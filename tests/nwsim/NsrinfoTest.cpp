#include <gtest/gtest.h>

#include "ExchangeSeed.h"
#include "Nsrinfo.h"

namespace {

using namespace nwsim;

Catalogue Seeded() {
    Catalogue catalogue;
    std::string error;
    EXPECT_TRUE(BuildExchangeSeed(ExchangeSeedOptions(), catalogue.objects, error)) << error;
    return catalogue;
}

NsrinfoRequest Request(const std::string& name) {
    NsrinfoRequest request;
    request.server = "srv";
    request.client = "cli";
    request.nameSpace = "msexch";
    request.name = name;
    return request;
}

TEST(NsrinfoCommandLine, SplitsLikeTheCRuntime) {
    const auto words =
        SplitCommandLine("-v -V -s srv -n msexch -N \"\\IS:/First Storage Group/E00.chk\" cli");
    ASSERT_EQ(words.size(), 9u);
    EXPECT_EQ(words[0], "-v");
    EXPECT_EQ(words[7], "\\IS:/First Storage Group/E00.chk");
    EXPECT_EQ(words[8], "cli");
    const auto escaped = SplitCommandLine("a\\\\\"b c\" d\\\"e  \"\"");
    ASSERT_EQ(escaped.size(), 3u);
    EXPECT_EQ(escaped[0], "a\\b c");
    EXPECT_EQ(escaped[1], "d\"e");
    EXPECT_EQ(escaped[2], "");
}

TEST(NsrinfoCommandLine, WithoutAndWithProgramName) {
    const std::string arguments = "-v -V -s srv -n msexch -N \"\\IS:/DB1\" cli";
    for (const std::string& line :
         {arguments, "\"C:\\nw\\nsrinfo.exe\" " + arguments, "nsrinfo " + arguments}) {
        NsrinfoRequest request;
        std::string error;
        ASSERT_TRUE(ParseNsrinfoArguments(SplitCommandLine(line), request, error)) << line;
        EXPECT_EQ(request.server, "srv");
        EXPECT_EQ(request.nameSpace, "msexch");
        EXPECT_EQ(request.name, "\\IS:/DB1");
        EXPECT_EQ(request.client, "cli");
    }
}

TEST(NsrinfoCommandLine, BadLinesAreRefused) {
    for (const char* line : {"-v -s srv -N x", "-v -N x cli", "-v -s srv cli",
                             "-v -s srv -N x cli extra", "-v -s srv -N x -q cli", "-v -s"}) {
        NsrinfoRequest request;
        std::string error;
        EXPECT_FALSE(ParseNsrinfoArguments(SplitCommandLine(line), request, error)) << line;
        EXPECT_FALSE(error.empty());
    }
}

TEST(NsrinfoLookup, FindsTheMostRecentCopyInTheNamespace) {
    const Catalogue catalogue = Seeded();
    const CatalogueObject* object =
        FindNsrinfoObject(catalogue, Request("\\IS:/First Storage Group/Mailbox Store (EX01).edb"));
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->size, 5000000000ull);
    EXPECT_EQ(object->objectStatus, 1u);
    EXPECT_EQ(FindNsrinfoObject(catalogue, Request("\\IS:/nothing.edb")), nullptr);
    EXPECT_EQ(FindNsrinfoObject(catalogue, Request("\\SQL:/SQL/master.edb")), nullptr);
    NsrinfoRequest anyNamespace = Request("\\SQL:/SQL/master.edb");
    anyNamespace.nameSpace = "MSSQL";
    EXPECT_NE(FindNsrinfoObject(catalogue, anyNamespace), nullptr);
}

TEST(NsrinfoOutput, NormalCarriesTheTrueSizeOnce) {
    const Catalogue catalogue = Seeded();
    const NsrinfoRequest request = Request("\\IS:/First Storage Group/Mailbox Store (EX01).edb");
    const std::string text =
        FormatNsrinfoOutput(*FindNsrinfoObject(catalogue, request), request, NsrinfoOutput::Normal);
    const size_t marker = text.find("size=5000000000,");
    ASSERT_NE(marker, std::string::npos) << text;
    EXPECT_EQ(text.find("size=", marker + 1), std::string::npos);
    EXPECT_LT(text.size(), 1024u);
}

TEST(NsrinfoOutput, FaultModes) {
    const Catalogue catalogue = Seeded();
    const NsrinfoRequest request = Request("\\IS:/First Storage Group/E00.chk");
    const CatalogueObject& object = *FindNsrinfoObject(catalogue, request);

    const std::string spaced = FormatNsrinfoOutput(object, request, NsrinfoOutput::Spaced);
    EXPECT_EQ(spaced.find("size="), std::string::npos);
    EXPECT_NE(spaced.find("size = 8192,"), std::string::npos);

    const std::string late = FormatNsrinfoOutput(object, request, NsrinfoOutput::Late);
    EXPECT_GE(late.find("size=8192,"), 1024u);
    EXPECT_NE(late.find("size=8192,"), std::string::npos);

    const std::string longValue = FormatNsrinfoOutput(object, request, NsrinfoOutput::LongValue);
    EXPECT_NE(longValue.find("size=00000000000000008192,"), std::string::npos);

    EXPECT_TRUE(FormatNsrinfoOutput(object, request, NsrinfoOutput::Empty).empty());

    const std::string flood = FormatNsrinfoOutput(object, request, NsrinfoOutput::Flood);
    EXPECT_GE(flood.size(), 1048576u);
    EXPECT_LT(flood.find("size=8192,"), 1024u);
}

}  // namespace
