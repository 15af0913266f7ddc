#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <list>
#include <string>

#include "nal/request_files.h"
#include "support/child.h"
#include "support/status_of.h"
#include "support/temp_folder.h"
#include "too/status.h"
#include "too/testing.h"

namespace {

using nal_test::ChildEnd;
using nal_test::FailureOf;
using nal_test::FromText;
using nal_test::StatusOf;

std::string TextOf(const IdentObj& id) {
    return {reinterpret_cast<const char*>(id.GetData()), id.GetSize()};
}

CNALCertRequestStatus Request(const std::string& id, const std::string& user = "") {
    CNALCertRequestStatus record;
    record.m_format = CNALCertRequestStatus::c_formatWithOptional;
    record.m_requestId = FromText(id);
    record.m_userName = FromText(user);
    record.m_subjectKeyId = FromText("key of " + id);
    return record;
}

class RequestListFile : public testing::Test {
protected:
    RequestListFile() { setenv("NAL_HOME", m_folder.File("home").c_str(), 1); }

    static std::string Show(CNALCertRequestCfgFile& file) {
        std::string shown;
        for (const auto& record : *file.GetCertRequestInfoListAddr()) {
            shown += TextOf(record.m_requestId);
            EXPECT_EQ("key of " + TextOf(record.m_requestId), TextOf(record.m_subjectKeyId));
        }
        return shown;
    }
    CNALCertRequestCfgFile Loaded() const {
        CNALCertRequestCfgFile file(m_path.c_str(), false);
        file.LoadFile();
        return file;
    }
    std::string Stored() const {
        CNALCertRequestCfgFile file = Loaded();
        return Show(file);
    }
    // Stores one request for each letter.
    void Make(const std::string& letters) const {
        CNALCertRequestCfgFile file(m_path.c_str(), false);
        for (const char c : letters) file.AddRecord(Request(std::string(1, c)), false);
        file.StoreFile();
    }
    std::string Files() const {
        std::string names;
        for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(m_path).parent_path()))
            names += entry.path().filename().string() + " ";
        return names;
    }

    nal_test::TempFolder m_folder;
    const std::string m_path = m_folder.File("state/requests.lst");
};

TEST_F(RequestListFile, LoadsWhatWasStored) {
    CNALCertRequestCfgFile file(m_path.c_str(), false);
    EXPECT_EQ(TOO_E_FILE_NOT_FOUND, StatusOf([&] { file.LoadFile(); }));
    EXPECT_EQ(0U, file.AddRecord(Request("a"), false));
    EXPECT_FALSE(std::filesystem::exists(m_path));
    EXPECT_EQ(1U, file.AddRecord(Request("b"), true));
    EXPECT_EQ("ab", Stored());
    EXPECT_EQ("requests.lst ", Files());
    file.ReplaceRecord(Request("c"), 0, true);
    EXPECT_EQ("cb", Stored());
    EXPECT_EQ(FromText("b"), file.GetLastRequest().m_requestId);
    file.DeleteRecord(0);
    file.DeleteRecord(Request("b"));
    EXPECT_EQ("", Stored());
    EXPECT_EQ(0U, std::filesystem::file_size(m_path));
    EXPECT_EQ(TOO_E_NOT_FOUND, StatusOf([&] { file.GetLastRequest(); }));
    // A list changed through its address.
    file.GetCertRequestInfoListAddr()->push_back(Request("d"));
    file.StoreFile();
    EXPECT_EQ("d", Stored());
    file.DeleteAllRecords();
    EXPECT_EQ("", Stored());
}

TEST_F(RequestListFile, FailuresHaveTheirTexts) {
    Make("ab");
    CNALCertRequestCfgFile file = Loaded();
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[&] { file.GetCertRequestInfo(2); }, "28 CNALCertRequestCfgFile::GetCertRequestInfo"},
        {[&] { file.GetCertRequestInfo(FromText("x"), nullptr); }, "194 CNALCertRequestCfgFile::GetCertRequestInfo"},
        {[&] { file.ReplaceRecord(Request("x"), 2, true); }, "28 CNALCertRequestCfgFile::ReplaceRecord"},
        {[&] { file.DeleteRecord(2); }, "28 CNALCertRequestCfgFile::DeleteRecord"},
        {[&] { file.DeleteRecord(Request("x")); }, "194 CNALCertRequestCfgFile::DeleteRecord"},
    };
    for (const auto& [call, failure] : cases) EXPECT_EQ(failure, FailureOf(call));
    int err = -1;
    EXPECT_TRUE(file.GetCertRequestInfo(2, &err).m_requestId.IsEmpty());
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, err);
    EXPECT_TRUE(file.GetCertRequestInfo(FromText("x"), &err) == CNALCertRequestStatus());
    EXPECT_EQ(TOO_E_NOT_FOUND, err);
    EXPECT_EQ(FromText("b"), file.GetCertRequestInfo(1, &err).m_requestId);
    EXPECT_EQ(TOO_OK, err);
}

TEST_F(RequestListFile, LookUpByIdentifierAndName) {
    CNALCertRequestCfgFile file(m_path.c_str(), false);
    int number = 0;
    for (const char* user : {"Ivan", "ivanov", "", "Ivan\xC9", "Petr"}) {
        CNALCertRequestStatus record = Request(number % 2 == 0 ? "even" : "odd", user);
        record.m_certificateNumber = static_cast<DWORD>(number++);
        file.AddRecord(record, false);
    }
    const struct {
        const char* id;  // null: any
        const char* name;
        unsigned from;
        int found;  // -1: none
    } cases[] = {
        {"odd", nullptr, 0, 1},    {"odd", nullptr, 2, 3},     {"odd", nullptr, 4, -1},   {"Odd", nullptr, 0, -1},
        {nullptr, "IVAN", 0, 0},   {nullptr, "ivanov", 0, 0},  // the record's "Ivan" is compared over its own length
        {"odd", "IVANOV", 0, 1},   {"odd", "Ivan", 0, -1},     // shorter than the record's names
        {"odd", "ivan\xC9", 0, 3}, {"odd", "ivan\xE9", 0, -1}, {nullptr, "nobody", 0, 2},  // a record without a name
        {nullptr, "petr", 3, 4},   {nullptr, "", 0, 2},        {nullptr, nullptr, 5, -1},
    };
    for (const auto& test : cases) {
        const IdentObj id = FromText(test.id ? test.id : "");
        const IdentObj name = FromText(test.name ? test.name : "");
        int err = -1;
        const auto record = file.GetCertRequestInfo(test.id ? &id : nullptr, test.name ? &name : nullptr, test.from, &err);
        EXPECT_EQ(test.found < 0 ? TOO_E_NOT_FOUND : TOO_OK, err) << &test - cases;
        EXPECT_EQ(static_cast<DWORD>(std::max(test.found, 0)), record.m_certificateNumber) << &test - cases;
    }
}

TEST_F(RequestListFile, LookUpBySubject) {
    CNALCertRequestCfgFile file(m_path.c_str(), false);
    for (const wchar_t* subject : {L"CN=A", L"CN=B", L"CN=A"}) {
        CNALCertRequestStatus record = Request("r");
        record.m_subjectName = CNALX509Name(subject, 0, true);
        file.AddRecord(record, false);
    }
    CNALCertRequestStatus damaged = Request("damaged");
    damaged.m_subjectName = FromText("no name");
    file.AddRecord(damaged, false);
    unsigned count = 0;
    CNALX509Name subject(L"CN=A", 0, true);
    EXPECT_EQ(2U, file.GetCertRequestInfoList(&subject, &count).size());
    EXPECT_EQ(2U, count);
    EXPECT_EQ(4U, file.GetCertRequestInfoList(nullptr, nullptr).size());
    CNALX509Name bad(damaged.m_subjectName);
    EXPECT_EQ(TOO_E_NAME_DECODE, StatusOf([&] { file.GetCertRequestInfoList(&bad, nullptr); }));
}

// A file that is damaged at any byte, cut anywhere, or longer than its records loads nothing, and is not stored over.
TEST_F(RequestListFile, DamagedFiles) {
    Make("ab");
    const auto good = nal_test::ReadFile(m_path);
    const auto refused = [&](const nal_test::Bytes& bytes) {
        nal_test::WriteFile(m_path, bytes);
        CNALCertRequestCfgFile file(m_path.c_str(), false);
        EXPECT_EQ(TOO_E_READ, StatusOf([&] { file.LoadFile(); }));
        EXPECT_EQ("", Show(file));
        EXPECT_EQ(TOO_E_READ, StatusOf([&] { file.AddRecord(Request("c"), true); }));
        EXPECT_EQ("", Show(file));
        EXPECT_EQ(bytes, nal_test::ReadFile(m_path));
    };
    for (std::size_t length = 1; length < good.size(); ++length) {
        if (length != good.size() / 2) refused({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length)});
    }
    auto longer = good;
    longer.push_back(0);
    refused(longer);
    auto damaged = good;
    damaged[11] = 0x80;  // the length of the first identifier
    refused(damaged);
    EXPECT_THAT(FailureOf([&] { Loaded(); }), testing::AllOf(testing::HasSubstr("request 0 at byte 0"), testing::HasSubstr(m_path)));
    CNALCertRequestCfgFile file(m_path.c_str(), false);
    file.DeleteAllRecords();
    EXPECT_EQ("", Stored());
    std::filesystem::resize_file(m_path, std::uintmax_t{CNALCertRequestCfgFile::c_maxFileSize} + 1);
    EXPECT_EQ(TOO_E_TOO_LARGE, StatusOf([&] { Loaded(); }));
    std::filesystem::remove(m_path);
    std::filesystem::create_directory(m_path);
    EXPECT_EQ(TOO_E_NOT_A_FILE, StatusOf([&] { Loaded(); }));
}

TEST_F(RequestListFile, TheSecondPathIsTriedOnce) {
    {
        CNALCertRequestCfgFile file(m_path.c_str(), true);
        file.AddRecord(Request("a"), true);
        file.AddRecord(Request("b"), true);
    }
    EXPECT_TRUE(std::filesystem::exists(m_path + ".old"));
    nal_test::WriteFile(m_path, std::string("damaged"));
    CNALCertRequestCfgFile file(m_path.c_str(), true);
    file.LoadFile();
    EXPECT_EQ(m_path + ".old", file.GetPath().str());
    EXPECT_EQ("a", Show(file));
    // Without a second path, or with one that is no better, the failure is reported.
    EXPECT_EQ(TOO_E_READ, StatusOf([&] { Loaded(); }));
    CNALCertRequestCfgFile other(m_path.c_str(), false);
    other.SetRetryPath(m_folder.File("missing").c_str());
    EXPECT_EQ(TOO_E_FILE_NOT_FOUND, StatusOf([&] { other.LoadFile(); }));
}

TEST_F(RequestListFile, ProcessesDoNotUndoOneAnother) {
    Make("abc");
    CNALCertRequestCfgFile first = Loaded();
    CNALCertRequestCfgFile second = Loaded();
    first.DeleteRecord(0);
    second.AddRecord(Request("d"), true);
    EXPECT_EQ("bcd", Show(second));
    first.ReplaceRecord(Request("B"), 0, true);
    EXPECT_EQ("cdB", Stored());
    CNALCertRequestCfgFile fresh(m_path.c_str(), false);
    fresh.AddRecord(Request("e"), true);
    EXPECT_EQ("cdBe", Stored());
    // Copies count one by one.
    second = Loaded();
    second.AddRecord(Request("c"), true);
    first = Loaded();
    second.DeleteRecord(0);
    first.AddRecord(Request("f"), true);
    EXPECT_EQ("dBecf", Stored());

    {
        std::list<nal_test::Child> children;
        for (const char c : {'w', 'x', 'y', 'z'}) {
            children.emplace_back([this, c] {
                CNALCertRequestCfgFile file(m_path.c_str(), false);
                for (int i = 0; i < 20; ++i) file.AddRecord(Request(std::string(1, c)), true);
            });
        }
        for (auto& child : children) EXPECT_EQ(ChildEnd::success, child.Wait());
    }
    const std::string stored = Stored();
    EXPECT_EQ(5U + 80U, stored.size());
    for (const char c : {'w', 'x', 'y', 'z'}) EXPECT_EQ(20, std::count(stored.begin(), stored.end(), c));
}

// A store is stopped at each of its steps, by SIGKILL and by a full disk: the list is the old or the new one, the next
// store works, and nothing of the dead one stays.
TEST_F(RequestListFile, AStoreIsWholeWhereverItStops) {
    for (const bool keepsCopy : {false, true}) {
        Make("ab");
        const auto before = nal_test::ReadFile(m_path);
        const auto change = [&] {
            CNALCertRequestCfgFile file(m_path.c_str(), keepsCopy);
            file.LoadFile();
            file.AddRecord(Request("c"), true);
        };
        too_testing::ResetSteps();
        change();
        const unsigned steps = too_testing::GetStepCount();
        ASSERT_GE(steps, 4U);
        std::filesystem::permissions(m_path, std::filesystem::perms(0640));
        for (unsigned nth = 1; nth <= steps; ++nth) {
            const auto expectWhole = [&](const std::string& how) {
                const std::string stored = Stored();
                EXPECT_TRUE(stored == "ab" || stored == "abc") << how << nth << stored;
                CNALCertRequestCfgFile next = Loaded();
                next.AddRecord(Request("n"), true);
                EXPECT_EQ(stored + "n", Stored());
                EXPECT_EQ(std::string::npos, Files().find("$$$")) << how << nth;
                EXPECT_EQ(std::filesystem::perms(0640), std::filesystem::status(m_path).permissions());
                next.DeleteAllRecords();
            };
            nal_test::WriteFile(m_path, before);
            EXPECT_EQ(ChildEnd::killed, nal_test::RunInChild([&] {
                          too_testing::KillAtStep(nth);
                          change();
                      }));
            expectWhole("killed at ");
            nal_test::WriteFile(m_path, before);
            {
                const too_testing::ScopedStepFailure full(nth);
                const int status = StatusOf(change);
                EXPECT_TRUE(status == TOO_OK || status == TOO_E_DISK_FULL) << status;
                EXPECT_TRUE(nth >= steps - 1 || Stored() == "ab") << nth;
            }
            expectWhole("full at ");
        }
        std::filesystem::remove_all(std::filesystem::path(m_path).parent_path());
    }
}

TEST(RequestConfiguration, SectionsByName) {
    const nal_test::TempFolder folder;
    setenv("NAL_HOME", folder.Path().c_str(), 1);
    const std::string path = folder.File(CNALCertificateInfo::CertCfgFileName);
    nal_test::WriteFile(path, std::string("; kept\n[General]\nCertIssuerName = Issuer\n[Other]\nx=1\n[algorithms]\n"
                                          "HashAlgorithmName=1.2.643.2.2.9\n"));
    CNALCertificateInfo file(path.c_str(), false, 0, 0);
    std::list<CConfigFileKeyListItem> keys;
    EXPECT_TRUE(file.GetGeneralSection(&keys));
    ASSERT_EQ(1U, keys.size());
    EXPECT_EQ(CNALCertificateInfo::CertCfgFileCertifIssuerNameKey, keys.front().m_key);
    EXPECT_EQ("Issuer", keys.front().m_value);
    EXPECT_TRUE(file.GetAlgorithmSection(&keys));
    EXPECT_EQ("1.2.643.2.2.9", keys.front().m_value);
    EXPECT_FALSE(file.GetCertificateSection(&keys));

    file.PutCertificateSection({{CNALCertificateInfo::CertCfgFileCertifNumberKey, "7"}});
    file.PutAlgorithmSection({{CNALCertificateInfo::CertCfgFileHashAlgoNameKey, "1.2.643.2.2.9"}, {"Second", "2"}});
    CNALCertificateInfo again(path.c_str(), false, 0, 0);
    std::list<CConfigFileSectionListItem> sections;
    again.GetAllSections(&sections);
    ASSERT_EQ(4U, sections.size());
    EXPECT_EQ("Certificates", sections.back().m_name);
    EXPECT_EQ("7", sections.back().m_keys.front().m_value);
    EXPECT_TRUE(again.GetAlgorithmSection(&keys));
    EXPECT_EQ(2U, keys.size());
}

}  // namespace
