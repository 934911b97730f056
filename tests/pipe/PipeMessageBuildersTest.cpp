// Byte-exact layouts of every message the builders produce, the views, and the wire strings.

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "pipe/PipeMessageBuilders.h"
#include "pipe/WireStrings.h"

namespace {

template <typename Message>
std::vector<unsigned char> BytesOf(const Message& message) {
    const unsigned char* bytes = IpcBytes(message);
    return std::vector<unsigned char>(bytes, bytes + sizeof message);
}

uint32_t U32At(const std::vector<unsigned char>& bytes, size_t offset) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) {
        value |= static_cast<uint32_t>(bytes.at(offset + i)) << (8 * i);
    }
    return value;
}

uint64_t U64At(const std::vector<unsigned char>& bytes, size_t offset) {
    uint64_t value = 0;
    for (size_t i = 0; i < 8; ++i) {
        value |= static_cast<uint64_t>(bytes.at(offset + i)) << (8 * i);
    }
    return value;
}

void ExpectHeader(const std::vector<unsigned char>& bytes, uint32_t type, uint32_t size) {
    ASSERT_EQ(bytes.size(), size);
    EXPECT_EQ(U32At(bytes, 0), type);
    EXPECT_EQ(U32At(bytes, 4), size);
}

// Every byte in [from, to) is zero.
bool ZeroRange(const std::vector<unsigned char>& bytes, size_t from, size_t to) {
    for (size_t i = from; i < to; ++i) {
        if (bytes.at(i) != 0) {
            return false;
        }
    }
    return true;
}

// A receive buffer as the receivers use it: 4108 zero-filled bytes.
struct ReceiveBuffer {
    unsigned char bytes[kIpcMaxMessageSize] = {};
    template <typename Message>
    uint32_t Put(const Message& message) {
        std::memcpy(bytes, &message, sizeof message);
        return static_cast<uint32_t>(sizeof message);
    }
};

}  // namespace

TEST(PipeMessageBuilders, BeginInitializePutsServerAt8AndClientAt263) {
    const auto bytes = BytesOf(IpcBuildBeginInitialize("client-A", "server-B"));
    ExpectHeader(bytes, 1, 518);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&bytes[8])), "server-B");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&bytes[263])), "client-A");
    EXPECT_TRUE(ZeroRange(bytes, 8 + 8, 263));
    EXPECT_TRUE(ZeroRange(bytes, 263 + 8, 518));
}

TEST(PipeMessageBuilders, BeginInitializeTakes254CharactersAndRefuses255) {
    const std::string longest(254, 'n');
    const auto bytes = BytesOf(IpcBuildBeginInitialize(longest.c_str(), longest.c_str()));
    EXPECT_EQ(bytes[8 + 253], 'n');
    EXPECT_EQ(bytes[8 + 254], 0);
    EXPECT_EQ(bytes[263 + 253], 'n');
    EXPECT_EQ(bytes[263 + 254], 0);
    const std::string tooLong(255, 'n');
    EXPECT_THROW(IpcBuildBeginInitialize(tooLong.c_str(), "s"), std::length_error);
    EXPECT_THROW(IpcBuildBeginInitialize("c", tooLong.c_str()), std::length_error);
    EXPECT_THROW(IpcBuildBeginInitialize(nullptr, "s"), std::invalid_argument);
}

TEST(PipeMessageBuilders, LengthErrorNamesTheFieldAndTheLimit) {
    const std::string tooLong(255, 'x');
    try {
        IpcBuildBeginInitialize(tooLong.c_str(), "s");
        FAIL() << "no exception";
    } catch (const std::length_error& error) {
        EXPECT_EQ(std::string(error.what()),
                  "clientName does not fit its pipe field: at most 254 characters are allowed");
    }
}

TEST(PipeMessageBuilders, StatusRepliesCarryTheStatusAt8) {
    ExpectHeader(BytesOf(IpcBuildStatusReply<IpcFinishInitialize>(-5)), 2, 12);
    EXPECT_EQ(U32At(BytesOf(IpcBuildStatusReply<IpcFinishInitialize>(-5)), 8), 0xFFFFFFFBu);
    ExpectHeader(BytesOf(IpcBuildStatusReply<IpcFinishCatalog>(1169)), 6, 12);
    EXPECT_EQ(U32At(BytesOf(IpcBuildStatusReply<IpcFinishCatalog>(1169)), 8), 1169u);
    ExpectHeader(BytesOf(IpcBuildStatusReply<IpcFinishBeginExtract>(0)), 10, 12);
    ExpectHeader(BytesOf(IpcBuildStatusReply<IpcFinishExtractFile>(1223)), 12, 12);
    EXPECT_EQ(U32At(BytesOf(IpcBuildStatusReply<IpcFinishExtractFile>(1223)), 8), 1223u);
    ExpectHeader(
        BytesOf(IpcBuildStatusReply<IpcFinishEndExtract>(static_cast<int32_t>(0x80004005))), 15,
        12);
    EXPECT_EQ(
        U32At(BytesOf(IpcBuildStatusReply<IpcFinishEndExtract>(static_cast<int32_t>(0x80004005))),
              8),
        0x80004005u);
}

TEST(PipeMessageBuilders, ShouldCancelCarriesTheResponse) {
    const auto quit = BytesOf(IpcBuildShouldCancel(eQuit));
    ExpectHeader(quit, 3, 12);
    EXPECT_EQ(U32At(quit, 8), 0u);
    EXPECT_EQ(U32At(BytesOf(IpcBuildShouldCancel(eContinue)), 8), 1u);
}

TEST(PipeMessageBuilders, BeginCatalogPutsTimeAfterAt8AndTimeBeforeAt16) {
    const FILETIME before = {0x11223344, 0x01D00000};
    const FILETIME after = {0x55667788, 0x01C00000};
    const auto bytes = BytesOf(IpcBuildBeginCatalog(&before, &after));
    ExpectHeader(bytes, 4, 24);
    EXPECT_EQ(U64At(bytes, 8), 0x01C0000055667788ull);
    EXPECT_EQ(U64At(bytes, 16), 0x01D0000011223344ull);
    const auto open = BytesOf(IpcBuildBeginCatalog(nullptr, nullptr));
    EXPECT_EQ(U64At(open, 8), 0u);
    EXPECT_EQ(U64At(open, 16), 0u);
    const auto onlyAfter = BytesOf(IpcBuildBeginCatalog(nullptr, &after));
    EXPECT_EQ(U64At(onlyAfter, 8), 0x01C0000055667788ull);
    EXPECT_EQ(U64At(onlyAfter, 16), 0u);
}

TEST(PipeMessageBuilders, FileFoundLaysOutTheUnalignedFields) {
    NetWorkerFileInfo file = {};
    file.index = 7;
    file.backupTime = {2021, 3, 0, 14, 10, 20, 30, 0};
    file.path = "\\Microsoft Information Store\\First Storage Group\\Mailbox Database.edb";
    file.size = 0x0102030405060708ull;
    file.restoreOrder = 0x1112131415161718ull;
    const auto bytes = BytesOf(IpcBuildFileFound(file));
    ExpectHeader(bytes, 5, 1060);
    EXPECT_EQ(U32At(bytes, 8), 7u);
    // 2021-03-14 10:20:30 UTC as 100-ns ticks since 1601.
    EXPECT_EQ(U64At(bytes, 12), 132601908300000000ull);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&bytes[20])), file.path);
    EXPECT_TRUE(ZeroRange(bytes, 20 + std::strlen(file.path), 1044));
    EXPECT_EQ(U64At(bytes, 1044), 0x0102030405060708ull);
    EXPECT_EQ(U64At(bytes, 1052), 0x1112131415161718ull);
}

TEST(PipeMessageBuilders, FileFoundTakesA1023CharacterPathWithItsTerminatorAt1043) {
    const std::string longest(1023, 'p');
    NetWorkerFileInfo file = {};
    file.backupTime = {2020, 1, 0, 1, 0, 0, 0, 0};
    file.path = longest.c_str();
    file.size = 0xFFFFFFFFFFFFFFFFull;
    const auto bytes = BytesOf(IpcBuildFileFound(file));
    EXPECT_EQ(bytes[1042], 'p');
    EXPECT_EQ(bytes[1043], 0);
    EXPECT_EQ(U64At(bytes, 1044), 0xFFFFFFFFFFFFFFFFull);
    const std::string tooLong(1024, 'p');
    file.path = tooLong.c_str();
    EXPECT_THROW(IpcBuildFileFound(file), std::length_error);
}

TEST(PipeMessageBuilders, FileFoundSendsARejectedCalendarValueAsZero) {
    NetWorkerFileInfo file = {};
    file.backupTime = {2021, 13, 0, 1, 0, 0, 0, 0};
    file.path = "x.log";
    const auto bytes = BytesOf(IpcBuildFileFound(file));
    EXPECT_EQ(U64At(bytes, 12), 0u);
}

TEST(PipeMessageBuilders, BeginGetFileSizeCarriesIndexAndCorrectSize) {
    const auto yes = BytesOf(IpcBuildBeginGetFileSize(42, true));
    ExpectHeader(yes, 7, 16);
    EXPECT_EQ(U32At(yes, 8), 42u);
    EXPECT_EQ(U32At(yes, 12), 1u);
    EXPECT_EQ(U32At(BytesOf(IpcBuildBeginGetFileSize(42, false)), 12), 0u);
}

TEST(PipeMessageBuilders, FinishGetFileSizeCarriesTheSizeAt8) {
    const auto bytes = BytesOf(IpcBuildFinishGetFileSize(0x123456789ABCull));
    ExpectHeader(bytes, 8, 16);
    EXPECT_EQ(U64At(bytes, 8), 0x123456789ABCull);
}

TEST(PipeMessageBuilders, HeaderOnlyMessages) {
    ExpectHeader(BytesOf(IpcMakeMessage<IpcBeginExtract>()), 9, 8);
    ExpectHeader(BytesOf(IpcMakeMessage<IpcEndExtract>()), 14, 8);
}

TEST(PipeMessageBuilders, BeginExtractFilePutsUtf16DirectoryAt12AndFileNameAt2060) {
    const auto bytes = BytesOf(IpcBuildBeginExtractFile(3, L"C:\\Restore", L"db.edb"));
    ExpectHeader(bytes, 11, 4108);
    EXPECT_EQ(U32At(bytes, 8), 3u);
    const std::string directory = "C:\\Restore";
    for (size_t i = 0; i < directory.size(); ++i) {
        EXPECT_EQ(bytes[12 + 2 * i], static_cast<unsigned char>(directory[i]));
        EXPECT_EQ(bytes[12 + 2 * i + 1], 0);
    }
    EXPECT_TRUE(ZeroRange(bytes, 12 + 2 * directory.size(), 2060));
    EXPECT_EQ(bytes[2060], 'd');
    EXPECT_EQ(bytes[2061], 0);
    EXPECT_EQ(bytes[2060 + 2 * 5], 'b');
    EXPECT_TRUE(ZeroRange(bytes, 2060 + 2 * 6, 4108));
}

TEST(PipeMessageBuilders, BeginExtractFileWritesNonAsciiAsLittleEndianUtf16) {
    // U+00E9, U+4E2D and U+1F600 (a surrogate pair on the wire).
    const std::wstring name =
        L"\u00e9\u4e2d" + std::wstring(sizeof(wchar_t) == 2 ? L"\xD83D\xDE00" : L"\U0001F600");
    const auto bytes = BytesOf(IpcBuildBeginExtractFile(0, L"", name.c_str()));
    const std::vector<unsigned char> expected = {0xE9, 0x00, 0x2D, 0x4E, 0x3D,
                                                 0xD8, 0x00, 0xDE, 0x00, 0x00};
    EXPECT_EQ(std::vector<unsigned char>(bytes.begin() + 2060, bytes.begin() + 2070), expected);
    EXPECT_TRUE(ZeroRange(bytes, 12, 2060));
}

TEST(PipeMessageBuilders, BeginExtractFileTakes1023UnitsAndRefuses1024) {
    const std::wstring longest(1023, L'd');
    const auto bytes = BytesOf(IpcBuildBeginExtractFile(1, longest.c_str(), longest.c_str()));
    EXPECT_EQ(bytes[12 + 2 * 1022], 'd');
    EXPECT_EQ(bytes[12 + 2 * 1023], 0);
    EXPECT_EQ(bytes[12 + 2 * 1023 + 1], 0);
    EXPECT_EQ(bytes[2060 + 2 * 1022], 'd');
    EXPECT_EQ(bytes[4106], 0);
    EXPECT_EQ(bytes[4107], 0);
    const std::wstring tooLong(1024, L'd');
    EXPECT_THROW(IpcBuildBeginExtractFile(1, tooLong.c_str(), L"f"), std::length_error);
    EXPECT_THROW(IpcBuildBeginExtractFile(1, L"d", tooLong.c_str()), std::length_error);
    EXPECT_THROW(IpcBuildBeginExtractFile(1, nullptr, L"f"), std::invalid_argument);
}

TEST(PipeMessageBuilders, SurrogatePairsCountTwoUnitsTowardsTheLimit) {
    if (sizeof(wchar_t) == 2) {
        GTEST_SKIP() << "wchar_t already holds UTF-16 units here";
    }
    // 511 pairs plus one unit = 1023 units fits; 512 pairs = 1024 units does not.
    std::wstring fits(511, static_cast<wchar_t>(0x1F600));
    fits.push_back(L'a');
    EXPECT_NO_THROW(IpcBuildBeginExtractFile(0, fits.c_str(), L""));
    const std::wstring tooLong(512, static_cast<wchar_t>(0x1F600));
    EXPECT_THROW(IpcBuildBeginExtractFile(0, tooLong.c_str(), L""), std::length_error);
}

TEST(PipeMessageBuilders, CallbackMessages) {
    NetWorkerProgressInfo progress = {1, 65536};
    const auto progressBytes = BytesOf(IpcBuildUpdateProgress(progress));
    ExpectHeader(progressBytes, 13, 16);
    EXPECT_EQ(U32At(progressBytes, 8), 1u);
    EXPECT_EQ(U32At(progressBytes, 12), 65536u);

    const auto error = BytesOf(IpcBuildNetWorkerError(11));
    ExpectHeader(error, 16, 12);
    EXPECT_EQ(U32At(error, 8), 11u);

    const auto errorAnswer = BytesOf(IpcBuildNetWorkerErrorResponse(1246));
    ExpectHeader(errorAnswer, 17, 12);
    EXPECT_EQ(U32At(errorAnswer, 8), 1246u);

    NetWorkerAllocationInfo info = {4, 17, 0x100000001ull, 0x200000002ull};
    const auto allocation = BytesOf(IpcBuildAllocationError(info));
    ExpectHeader(allocation, 18, 32);
    EXPECT_EQ(U32At(allocation, 8), 4u);
    EXPECT_EQ(U32At(allocation, 12), 17u);
    EXPECT_EQ(U64At(allocation, 16), 0x100000001ull);
    EXPECT_EQ(U64At(allocation, 24), 0x200000002ull);

    const auto allocationAnswer = BytesOf(IpcBuildAllocationErrorResponse(9));
    ExpectHeader(allocationAnswer, 19, 12);
    EXPECT_EQ(U32At(allocationAnswer, 8), 9u);
}

TEST(PipeMessageViews, ExistOnlyForTheExactSizeField) {
    ReceiveBuffer buffer;
    IpcShouldCancel cancel = IpcBuildShouldCancel(eQuit);
    uint32_t count = buffer.Put(cancel);
    EXPECT_NE(IpcView<IpcShouldCancel>(buffer.bytes, count), nullptr);
    EXPECT_EQ(IpcView<IpcFinishCatalog>(buffer.bytes, count), nullptr);  // other type

    cancel.header.messageSize = 16;
    count = buffer.Put(cancel);
    EXPECT_EQ(IpcView<IpcShouldCancel>(buffer.bytes, count), nullptr);
    cancel.header.messageSize = 11;
    count = buffer.Put(cancel);
    EXPECT_EQ(IpcView<IpcShouldCancel>(buffer.bytes, count), nullptr);
}

TEST(PipeMessageViews, BytesReadAreNotComparedWithTheSizeField) {
    ReceiveBuffer buffer;
    const IpcShouldCancel cancel = IpcBuildShouldCancel(7);
    buffer.Put(cancel);
    const IpcShouldCancel* fewer = IpcView<IpcShouldCancel>(buffer.bytes, 8);
    ASSERT_NE(fewer, nullptr);
    const IpcShouldCancel* more = IpcView<IpcShouldCancel>(buffer.bytes, 100);
    ASSERT_NE(more, nullptr);
    EXPECT_EQ(+more->response, 7u);
    EXPECT_EQ(IpcView<IpcShouldCancel>(buffer.bytes, 7), nullptr);
    EXPECT_EQ(IpcReceivedType(buffer.bytes, 7), 0u);
    EXPECT_EQ(IpcReceivedType(buffer.bytes, 8), 3u);
}

TEST(WireStrings, WideFieldRoundTripsThroughUtf16) {
    const std::wstring text = L"D:\\R\u00e9stor\u00e9\\" +
                              std::wstring(sizeof(wchar_t) == 2 ? L"\xD83D\xDE00" : L"\U0001F600");
    const IpcBeginExtractFile message = IpcBuildBeginExtractFile(0, text.c_str(), L"");
    EXPECT_EQ(WideFieldToString(IpcDirectoryField(message), kIpcWideFieldSize), text);
    EXPECT_EQ(WideFieldLength(IpcDirectoryField(message), kIpcWideFieldSize),
              text.size() + (sizeof(wchar_t) == 2 ? 0 : 1));
    EXPECT_EQ(WideFieldToString(IpcFileNameField(message), kIpcWideFieldSize), L"");
}

TEST(WireStrings, UnterminatedFieldIsReadUpToItsCapacity) {
    unsigned char field[8] = {'a', 0, 'b', 0, 'c', 0, 'd', 0};
    EXPECT_EQ(WideFieldLength(field, 4), 4u);
    EXPECT_EQ(WideFieldToString(field, 4), L"abcd");
}

TEST(WireStrings, LoneSurrogateIsKeptAsItsOwnValue) {
    unsigned char field[6] = {0x3D, 0xD8, 'x', 0, 0, 0};
    const std::wstring text = WideFieldToString(field, 3);
    ASSERT_EQ(text.size(), 2u);
    EXPECT_EQ(static_cast<uint32_t>(text[0]), 0xD83Du);
    EXPECT_EQ(text[1], L'x');
}

TEST(WireStrings, NativeWideValueOutsideUnicodeIsRefused) {
    if (sizeof(wchar_t) == 2) {
        GTEST_SKIP() << "every 16-bit value is a UTF-16 unit";
    }
    const wchar_t invalid[] = {static_cast<wchar_t>(0x110000), 0};
    unsigned char field[8];
    EXPECT_THROW(CopyWideToField(invalid, field, 4, "directory"), std::invalid_argument);
    const wchar_t surrogate[] = {static_cast<wchar_t>(0xD800), 0};
    EXPECT_THROW(CopyWideToField(surrogate, field, 4, "directory"), std::invalid_argument);
}
