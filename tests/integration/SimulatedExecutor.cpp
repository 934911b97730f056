#include "SimulatedExecutor.h"

#include <fstream>
#include <sstream>

namespace {

std::wstring Widen(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

}  // namespace

const std::vector<SeededObject>& SeededCatalogue() {
    static const std::vector<SeededObject> objects = {
        {12, "/First Storage Group/Mailbox Store (EX01).edb", 5000000000ULL, 0},
        {13, "/First Storage Group/Mailbox Store (EX01).stm", 3000017, 0},
        {14, "/First Storage Group/Public Folder Store (EX01).edb", 1500001, 0},
        {15, "/First Storage Group/Public Folder Store (EX01).stm", 700003, 0},
        {16, "/First Storage Group/E00.chk", 8192, 8192},
        {17, "/First Storage Group/E00000101.log", 1048583, 5242880},
        {18, "/First Storage Group/E00000102.log", 1048589, 5242880},
        {19, "/First Storage Group/E00000103.log", 524287, 5242880},
        {20, "/Second Storage Group/Mailbox Store 2 (EX01).edb", 2097153, 0},
        {21, "/Second Storage Group/Mailbox Store 2 (EX01).stm", 262147, 0},
        {22, "/Second Storage Group/E01.chk", 8192, 8192},
        {23, "/Second Storage Group/E01000A1.log", 1048573, 5242880},
        {24, "/Second Storage Group/E01000A2.log", 65536, 5242880},
        {25, "/Second Storage Group/E01tmp.log", 0, 5242880},
    };
    return objects;
}

std::wstring FileNameOf(const std::string& path) {
    return Widen(path.substr(path.rfind('/') + 1));
}

std::wstring GroupOf(const std::string& path) {
    const size_t start = path.find('/') + 1;
    return Widen(path.substr(start, path.find('/', start) - start));
}

void SimulatedExecutorTest::SetUp() {
    TestLoggers::Reset();
}

void SimulatedExecutorTest::TearDown() {
    Close();
    m_simulator.reset();
}

void SimulatedExecutorTest::Install() {
    m_simulator = std::make_unique<SimulatorFixture>();
    ASSERT_TRUE(m_simulator->Ready()) << m_simulator->Failure();
}

int32_t SimulatedExecutorTest::Open() {
    Close();
    m_wrapper = std::make_unique<NetWorkerApiWrapper>();
    m_executor = std::make_unique<NetWorkerApiExecutor>(m_wrapper.get());
    return m_executor->Initialize("cli", "srv");
}

void SimulatedExecutorTest::Close() {
    m_executor.reset();
    m_wrapper.reset();
}

RecordingLog& SimulatedExecutorTest::Log() {
    RecordingLog* log = TestLoggers::Find(L"NetWorkerApiExecutor");
    EXPECT_NE(nullptr, log);
    return *log;
}

std::vector<std::pair<LogLevel, std::wstring>> SimulatedExecutorTest::Lines() {
    std::vector<std::pair<LogLevel, std::wstring>> lines;
    for (const LogLine& line : Log().NonTraceLines()) {
        lines.emplace_back(line.level, line.text);
    }
    return lines;
}

std::vector<FoundFile> SimulatedExecutorTest::CatalogAll() {
    m_found.files.clear();
    EXPECT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, &m_error));
    return m_found.files;
}

bool SimulatedExecutorTest::Verify(int id, const std::wstring& file, std::string* output) {
    return m_simulator->Verify(std::to_wstring(id), file, output);
}

void SimulatedExecutorTest::SetStoreField(int id, int field, const std::string& value) {
    const std::wstring path = m_simulator->StoreRoot() + L"\\srv\\cli\\catalogue.txt";
    std::string content = ReadWholeFile(path);
    std::istringstream in(content);
    std::string line;
    std::string rewritten;
    bool found = false;
    while (std::getline(in, line)) {
        if (!line.empty() && line[0] != '#' &&
            line.compare(0, std::to_string(id).size() + 1, std::to_string(id) + "\t") == 0) {
            size_t start = 0;
            for (int i = 1; i < field; ++i) {
                start = line.find('\t', start) + 1;
            }
            const size_t end = line.find('\t', start);
            line.replace(start, end - start, value);
            found = true;
        }
        rewritten += line + "\n";
    }
    ASSERT_TRUE(found) << "object " << id;
    WriteWholeFile(path, rewritten);
}
