// Request contexts and their storages: lifetime, properties, changes, and files that survive what happens to them.
#include "nal/request_context.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "nal/context.h"
#include "requests/request_storage_file.h"
#include "support/cert_builder.h"
#include "support/child.h"
#include "support/status_of.h"
#include "support/temp_folder.h"
#include "too/testing.h"

namespace {

using nal_test::ChildEnd;
using nal_test::Date;
using nal_test::Filled;
using nal_test::StatusOf;

IdentObj Text(const std::string& text) {
    return {text.data(), static_cast<unsigned>(text.size())};
}

CRYPTOAPI_BLOB Blob(IdentObj& bytes) {
    return {bytes.GetSize(), bytes.GetData()};
}

FILETIME At(unsigned day) {
    return Date(2026, 3, day);
}

class RequestContext : public testing::Test {
protected:
    void SetUp() override { setenv("NAL_HOME", m_folder.File("home").c_str(), 1); }

    unsigned long Open(unsigned flags = NAL_REQ_STORAGE_CREATE) {
        unsigned long handle = 0;
        EXPECT_TRUE(NALCertOpenReqStorage(m_path.c_str(), nullptr, flags, &handle)) << GetLastError();
        return handle;
    }

    /// Adds an entry that `identity` names. @return its context
    static CNALCertReqContext Add(unsigned long handle, const std::string& identity, DWORD status = 0) {
        IdentObj first = Text(identity);
        IdentObj second = Text("request of " + identity);
        NAL_REQ_CONTEXT record{};
        record.Identity = Blob(first);
        record.Request = Blob(second);
        record.dwStatus = status;
        record.dwRequestType = NAL_REQ_TYPE_OWN;
        return CNALCertReqContext(CNALReqContextStorage::FromHandle(handle)->AddContext(record));
    }

    static std::string IdentityOf(const NAL_REQ_CONTEXT* context) {
        return {reinterpret_cast<const char*>(context->Identity.pbData), context->Identity.cbData};
    }

    /// "identity:status" of every entry, in the storage's order.
    static std::string Show(unsigned long handle) {
        std::string all;
        const NAL_REQ_CONTEXT* context = nullptr;
        while ((context = NALFindReqContextInStorage(handle, 0, nullptr, context)) != nullptr)
            all += IdentityOf(context) + ":" + std::to_string(context->dwStatus) + " ";
        EXPECT_EQ(NAL_STORE_E_NOT_FOUND, GetLastError());
        return all;
    }

    std::string ShowFile() {
        const unsigned long handle = Open(0);
        const std::string all = Show(handle);
        NALCertCloseReqStore(handle, 0);
        return all;
    }

    static bool IsOpen(unsigned long handle) { return CNALReqContextStorage::FromHandle(handle) != nullptr; }

    nal_test::TempFolder m_folder;
    std::string m_path = m_folder.File("2026_ownu.log");
};

TEST_F(RequestContext, CopiesItsRecord) {
    IdentObj first = Filled(1, 16);
    IdentObj second = Text("request");
    IdentObj third = Text("container");
    const CNALCertContext certificate(nal_test::CertBuilder{}.Build());
    nal_test::CertBuilder other;
    other.subject = "Issuer";
    const CNALCertContext issuer(other.Build());
    const CNALCRLContext crl(nal_test::CrlBuilder{}.Build());
    NAL_REQ_CONTEXT record{};
    record.Identity = Blob(first);
    record.dwValue = 2;
    record.Request = Blob(second);
    record.dwStatus = 5;
    record.dwRequestType = 2;
    for (unsigned i = 0; i < NAL_REQ_TIME_COUNT; ++i)
        record.rgTime[i] = 0x1122334455667788U * (i + 1);
    record.pCertificate = certificate.GetContext();
    record.pIssuer = issuer.GetContext();
    record.pCrl = crl.GetContext();
    record.Container = Blob(third);

    const CNALCertReqContext context(NALCreateReqContext(record));
    EXPECT_NE(first.GetData(), context->Identity.pbData);
    EXPECT_EQ(first, IdentObj(context->Identity.pbData, context->Identity.cbData));
    EXPECT_EQ(third, IdentObj(context->Container.pbData, context->Container.cbData));
    EXPECT_TRUE(std::equal(record.rgTime, record.rgTime + NAL_REQ_TIME_COUNT, context->rgTime));
    EXPECT_EQ(2U, context->dwRequestType);
    EXPECT_EQ(certificate.GetContext(), context->pCertificate);  // duplicated, not copied
    EXPECT_EQ(nullptr, context->pStorage);

    int err = -1;
    IdentObj bytes;
    EXPECT_TRUE(NALGetReqProperties(1, context.Get(), &bytes, &err));
    EXPECT_EQ(first, bytes);
    EXPECT_TRUE(NALGetReqProperties(2, context.Get(), &bytes, nullptr));
    EXPECT_EQ(second, bytes);
    DWORD number = 0;
    EXPECT_TRUE(NALGetReqProperties(3, context.Get(), &number, &err));
    EXPECT_EQ(2U, number);
    EXPECT_TRUE(NALGetReqProperties(5, context.Get(), &number, &err));
    EXPECT_EQ(5U, number);
    CNALCertContext found;
    EXPECT_TRUE(NALGetReqProperties(6, context.Get(), &found, &err));
    EXPECT_EQ(certificate, found);
    EXPECT_TRUE(NALGetReqProperties(7, context.Get(), &found, &err));
    EXPECT_EQ(issuer, found);
    CNALCRLContext foundCrl;
    EXPECT_TRUE(NALGetReqProperties(8, context.Get(), &foundCrl, &err));
    EXPECT_EQ(crl, foundCrl);
    EXPECT_EQ(0, err);

    NAL_REQ_CONTEXT nothing{};
    const CNALCertReqContext empty(NALCreateReqContext(nothing));
    EXPECT_EQ(nullptr, empty->Identity.pbData);
    const CNALCertReqContext received(NALCreateReqContext(certificate.GetContext(), true));
    EXPECT_EQ(5U, received->dwStatus);
    EXPECT_EQ(2U, received->dwRequestType);
    EXPECT_EQ(nullptr, NALCreateReqContext(nullptr, false));
}

TEST_F(RequestContext, RefusesPropertiesThatAreNotThere) {
    NAL_REQ_CONTEXT nothing{};
    const CNALCertReqContext context(NALCreateReqContext(nothing));
    const CNALCertContext before(nal_test::CertBuilder{}.Build());
    CNALCertContext certificate = before;
    CNALCRLContext crl;
    IdentObj bytes = Text("before");
    const struct {
        unsigned id;
        const NAL_REQ_CONTEXT* context;
        void* out;
        int status;
    } cases[] = {
        {6, context.Get(), &certificate, 0},   {7, context.Get(), &certificate, 194}, {8, context.Get(), &crl, 194},
        {0, context.Get(), &bytes, 28},        {9, context.Get(), &bytes, 28},        {1, nullptr, &bytes, 28},
        {1, context.Get(), nullptr, 28},
    };
    for (const auto& test : cases) {
        int err = -1;
        EXPECT_EQ(test.status == 0, NALGetReqProperties(test.id, test.context, test.out, &err)) << test.id;
        EXPECT_EQ(test.status, err) << test.id;
        EXPECT_EQ(test.status == 0, NALGetReqProperties(test.id, test.context, test.out, nullptr));
    }
    EXPECT_EQ(before, certificate);
    EXPECT_EQ(Text("before"), bytes);
    EXPECT_TRUE(NALSetReqProperties(9, nullptr, nullptr, nullptr));
}

TEST_F(RequestContext, HistoryItemsOrderByTime) {
    const CNALHistoryItem a{1, At(1)};
    const CNALHistoryItem sameTime{2, At(1)};
    const CNALHistoryItem later{1, At(2)};
    EXPECT_TRUE(a == a);
    EXPECT_TRUE(a != sameTime);
    EXPECT_FALSE(a < sameTime || a > sameTime);
    EXPECT_TRUE(a < later && later > a);
    EXPECT_EQ(CNALHistoryItem(), CNALReqHistory().GetCurrentStatus());
}

TEST_F(RequestContext, KeepsTheHistoryOfChanges) {
    const unsigned long handle = Open();
    const too_testing::ScopedClock clock(At(1));
    CNALCertReqContext context = Add(handle, "a");
    const NAL_REQ_CONTEXT* moving = context.Detach();
    ASSERT_TRUE(NALChangeContextStatus(&moving, NAL_REQ_STATUS_SENT, At(2), nullptr));
    ASSERT_TRUE(NALChangeContextStatus(&moving, NAL_REQ_STATUS_REFUSED, FILETIME{0, 0}, nullptr));  // now
    ASSERT_TRUE(NALChangeContextStatus(&moving, 77, At(9), nullptr));
    context.Attach(moving);
    EXPECT_EQ(77U, context->dwStatus);
    const std::uint64_t times[] = {CTOOFileTime(At(1)).GetTicks(), CTOOFileTime(At(2)).GetTicks(), CTOOFileTime(At(1)).GetTicks(), 0, 0};
    EXPECT_TRUE(std::equal(std::begin(times), std::end(times), context->rgTime));

    CNALReqHistory history;
    int err = -1;
    ASSERT_TRUE(NALGetReqProperties(4, context.Get(), &history, &err));
    const std::list<CNALHistoryItem> expected = {{1, At(1)}, {2, At(2)}, {4, At(1)}, {77, At(9)}};
    EXPECT_EQ(expected, history.m_items);
    EXPECT_EQ((CNALHistoryItem{77, At(9)}), history.GetCurrentStatus());

    // Another context of the same entry shows what was; its history is the entry's. Once that is gone there is none.
    const CNALCertReqContext other(NALDuplicateReqContext(context.Get()));
    ASSERT_TRUE(NALDeleteContextFromStorage(context.Get()));
    EXPECT_EQ(nullptr, context->pStorage);
    EXPECT_FALSE(NALChangeContextStatus(nullptr, 1, At(1), nullptr));
    EXPECT_FALSE(NALDeleteContextFromStorage(nullptr));
    EXPECT_EQ("", Show(handle));
    EXPECT_EQ(TOO_OK, history.SetByContext(context.Get()));
    EXPECT_TRUE(history.m_items.empty());
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, history.SetByContext(nullptr));
    NALCertCloseReqStore(handle, 0);
}

TEST_F(RequestContext, RefusesContextsOfOthersAndDeletedEntries) {
    const unsigned long handle = Open();
    m_path = m_folder.File("other.log");
    const unsigned long otherHandle = Open();
    const auto other = CNALReqContextStorage::FromHandle(otherHandle);
    const CNALCertReqContext first = Add(handle, "a");
    const CNALCertReqContext second(NALFindReqContextInStorage(handle, 0, nullptr, nullptr));
    ASSERT_NE(first.Get(), second.Get());
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOf([&] { other->DeleteContext(first.Get()); }));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOf([&] { other->EnumContexts(NALDuplicateReqContext(first.Get())); }));

    ASSERT_TRUE(NALDeleteContextFromStorage(first.Get()));
    const NAL_REQ_CONTEXT* stale = second.Get();
    EXPECT_FALSE(NALChangeContextStatus(&stale, 2, At(1), nullptr));
    EXPECT_EQ(static_cast<DWORD>(TOO_E_NOT_FOUND), GetLastError());
    EXPECT_EQ(second.Get(), stale);
    CNALReqHistory history;
    EXPECT_EQ(TOO_E_NOT_FOUND, history.SetByContext(second.Get()));
    EXPECT_FALSE(NALDeleteContextFromStorage(first.Get()));  // stands for itself now
    // A record made from a context stands for its entry too, one from a bare record does not.
    const CNALCertReqContext third = Add(handle, "b");
    NAL_REQ_CONTEXT bare = *third;
    const CNALCertReqContext fromBare(NALCreateReqContext(bare));
    EXPECT_FALSE(NALDeleteContextFromStorage(fromBare.Get()));
    const CNALCertReqContext fromContext(NALCreateReqContext(const_cast<NAL_REQ_CONTEXT&>(*third)));
    EXPECT_TRUE(NALDeleteContextFromStorage(fromContext.Get()));
    NALCertCloseReqStore(handle, 0);
    NALCertCloseReqStore(otherHandle, 0);
}

TEST_F(RequestContext, EnumeratesWhileEntriesComeAndGo) {
    const unsigned long handle = Open();
    for (const char* name : {"a", "b", "c", "d"})
        Add(handle, name);
    std::string seen;
    const NAL_REQ_CONTEXT* context = nullptr;
    while ((context = NALFindReqContextInStorage(handle, 0, nullptr, context)) != nullptr) {
        const std::string name = IdentityOf(context);
        seen += name;
        if (name == "b") {
            const CNALCertReqContext doomed(NALCreateReqContext(const_cast<NAL_REQ_CONTEXT&>(*context)));
            EXPECT_TRUE(NALDeleteContextFromStorage(doomed.Get()));
        }
        if (name == "c") Add(handle, "e");
    }
    EXPECT_EQ("abcde", seen);
    EXPECT_EQ("a:1 c:1 d:1 e:1 ", Show(handle));
    EXPECT_EQ(nullptr, NALFindReqContextInStorage(handle, 1, nullptr, nullptr));
    EXPECT_EQ(static_cast<DWORD>(TOO_E_UNSUPPORTED), GetLastError());
    NALCertCloseReqStore(handle, 0);
    EXPECT_EQ(nullptr, NALFindReqContextInStorage(handle, 0, nullptr, nullptr));
    EXPECT_EQ(static_cast<DWORD>(TOO_E_BAD_HANDLE), GetLastError());
    EXPECT_EQ("a:1 c:1 d:1 e:1 ", ShowFile());
}

TEST_F(RequestContext, ClosesAStorageWithItsLastContext) {
    const unsigned long handle = Open();
    CNALCertReqContext context = Add(handle, "a");
    CNALCertReqContext second = context;
    EXPECT_EQ(context.Get(), second.Get());
    EXPECT_EQ(handle, Open(0));  // one object for all openings of a file
    EXPECT_TRUE(NALCertCloseReqStore(handle, 0));
    EXPECT_TRUE(NALCertCloseReqStore(handle, 0));
    EXPECT_TRUE(IsOpen(handle));
    context.Attach(nullptr);
    EXPECT_TRUE(IsOpen(handle));
    // A change puts another context in the place of the last one.
    const NAL_REQ_CONTEXT* moving = second.Detach();
    EXPECT_TRUE(NALChangeContextStatus(&moving, 2, At(2), nullptr));
    EXPECT_TRUE(IsOpen(handle));
    EXPECT_TRUE(NALCloseReqContext(moving));
    EXPECT_FALSE(IsOpen(handle));
    EXPECT_FALSE(NALCertCloseReqStore(handle, 0));
    EXPECT_FALSE(NALCloseReqContext(nullptr));

    // Opened again in time, it stays; deleting the last context closes it as well.
    const unsigned long again = Open(0);
    CNALCertReqContext last(NALFindReqContextInStorage(again, 0, nullptr, nullptr));
    NALCertCloseReqStore(again, 0);
    EXPECT_EQ(again, Open(0));
    NALCertCloseReqStore(again, 0);
    EXPECT_TRUE(IsOpen(again));
    EXPECT_TRUE(NALDeleteContextFromStorage(last.Get()));
    EXPECT_FALSE(IsOpen(again));
    EXPECT_EQ("a", IdentityOf(last.Get()));
}

TEST_F(RequestContext, OpensOnlyStorages) {
    const std::string folder = m_folder.File("folder");
    std::filesystem::create_directory(folder);
    const std::string missing = m_folder.File("missing.log");
    const std::string text = m_folder.File("text.log");
    nal_test::WriteFile(text, std::string("no storage"));
    const std::string none = m_folder.File("empty.log");
    nal_test::WriteFile(none, std::string());
    const char* seven = CERT_STORE_PROV_FILENAME_A;
    const struct {
        const char* provider;
        const char* path;
        unsigned flags;
        int status;
    } cases[] = {
        {seven, missing.c_str(), 0, TOO_E_FILE_NOT_FOUND},
        {missing.c_str(), nullptr, 0, TOO_E_FILE_NOT_FOUND},
        {seven, text.c_str(), NAL_REQ_STORAGE_CREATE, TOO_E_BAD_STRUCTURE},
        {seven, folder.c_str(), 0, TOO_E_NOT_A_FILE},
        {seven, nullptr, 0, TOO_E_BAD_ARGUMENT},
        {seven, "", 0, TOO_E_BAD_ARGUMENT},
        {nullptr, none.c_str(), 0, TOO_E_BAD_ARGUMENT},
        {CERT_STORE_PROV_MEMORY, none.c_str(), 0, TOO_E_UNSUPPORTED},
        {seven, none.c_str(), 1, TOO_E_UNSUPPORTED},
        {seven, none.c_str(), 0, TOO_OK},
    };
    for (const auto& test : cases) {
        unsigned long handle = 1;
        int err = -1;
        CTOOString msg;
        EXPECT_EQ(test.status == TOO_OK, NALCertOpenReqStorage(test.provider, test.path, test.flags, &handle, &err, &msg));
        EXPECT_EQ(test.status, err) << msg.str();
        EXPECT_EQ(test.status == TOO_OK, handle != 0);
        EXPECT_EQ(test.path != nullptr && test.path == text, msg.str().find(text) != std::string::npos) << msg.str();
        NALCertCloseReqStore(handle, 0);
    }
    EXPECT_EQ(std::string("no storage"), std::string(reinterpret_cast<const char*>(nal_test::ReadFile(text).data()), 10));
    EXPECT_FALSE(NALCertOpenReqStorage(seven, none.c_str(), 0, nullptr));
}

// The file with every byte changed and cut at every length: what is not refused can be walked, and nothing touches the file.
TEST_F(RequestContext, SurvivesDamage) {
    const IdentObj certificate = nal_test::CertBuilder{}.Build();
    {
        const unsigned long handle = Open();
        Add(handle, "a");
        IdentObj identity = Text("b");
        NAL_REQ_CONTEXT record{};
        record.Identity = Blob(identity);
        const CNALCertContext context(certificate);
        record.pCertificate = context.GetContext();
        const CNALCRLContext crl(nal_test::CrlBuilder{}.Build());
        record.pCrl = crl.GetContext();
        CNALCertReqContext(CNALReqContextStorage::FromHandle(handle)->AddContext(record));
        NALCertCloseReqStore(handle, 0);
    }
    const auto good = nal_test::ReadFile(m_path);
    unsigned accepted = 0;
    const auto tryFile = [&](const nal_test::Bytes& bytes, bool mustFail) {
        nal_test::WriteFile(m_path, bytes);
        unsigned long handle = 0;
        int err = 0;
        CTOOString msg;
        if (NALCertOpenReqStorage(m_path.c_str(), nullptr, 0, &handle, &err, &msg)) {
            ++accepted;
            EXPECT_FALSE(mustFail);
            Show(handle);
            NALCertCloseReqStore(handle, 0);
        } else {
            EXPECT_EQ(TOO_E_BAD_STRUCTURE, err);
            EXPECT_NE(std::string::npos, msg.str().find(m_path));
        }
        EXPECT_EQ(bytes, nal_test::ReadFile(m_path));
    };
    for (std::size_t at = 0; at < good.size(); ++at) {
        nal_test::Bytes bytes = good;
        bytes[at] ^= at % 2 == 0 ? 0x01 : 0x80;
        tryFile(bytes, false);
        if (at > 0) tryFile({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(at)}, true);
    }
    EXPECT_GT(accepted, 0U);  // a byte inside a name stays a byte inside a name
}

// What a decoder of the file must not let pass.
TEST_F(RequestContext, RefusesListsThatBreakTheRules) {
    nal::RequestList good;
    for (const unsigned number : {2U, 5U}) {
        nal::RequestEntry entry;
        entry.number = number;
        entry.Record(1, At(1));
        good.entries.push_back(entry);
    }
    good.lastNumber = 7;
    const auto decoded = nal::DecodeRequestList(nal::EncodeRequestList(good));
    EXPECT_EQ(7U, decoded.lastNumber);
    EXPECT_EQ(nullptr, decoded.Find(0));
    EXPECT_EQ(nullptr, decoded.Find(3));
    EXPECT_EQ(5U, decoded.After(2)->number);
    EXPECT_EQ(nullptr, decoded.After(5));

    const std::pair<const char*, void (*)(nal::RequestList&)> breaks[] = {
        {"number used twice", [](nal::RequestList& list) { list.entries[1].number = 2; }},
        {"falling numbers", [](nal::RequestList& list) { std::swap(list.entries[0], list.entries[1]); }},
        {"number above the last", [](nal::RequestList& list) { list.lastNumber = 4; }},
        {"number 0", [](nal::RequestList& list) { list.entries[0].number = 0; }},
        {"no history", [](nal::RequestList& list) { list.entries[0].history.clear(); }},
    };
    for (const auto& [name, breakIt] : breaks) {
        nal::RequestList list = good;
        breakIt(list);
        EXPECT_EQ(TOO_E_BAD_STRUCTURE, StatusOf([&] { nal::DecodeRequestList(nal::EncodeRequestList(list)); })) << name;
    }
}

// Each change is stopped at each of its steps: by SIGKILL, and by a disk that fails.
TEST_F(RequestContext, AChangeIsWholeWhereverItStops) {
    {
        const unsigned long handle = Open();
        Add(handle, "a");
        Add(handle, "b");
        NALCertCloseReqStore(handle, 0);
    }
    const auto before = nal_test::ReadFile(m_path);
    const struct {
        const char* name;
        void (*change)(unsigned long);
        std::string after;
    } cases[] = {
        {"add", [](unsigned long handle) { Add(handle, "c"); }, "a:1 b:1 c:1 "},
        {"status",
         [](unsigned long handle) {
             CNALCertReqContext context(NALFindReqContextInStorage(handle, 0, nullptr, nullptr));
             const NAL_REQ_CONTEXT* moving = context.Detach();
             const BOOL done = NALChangeContextStatus(&moving, 2, At(2), nullptr);
             context.Attach(moving);
             if (!done) throw XTOOStatus(static_cast<int>(GetLastError()));
         },
         "a:2 b:1 "},
        {"delete",
         [](unsigned long handle) {
             const CNALCertReqContext context(NALFindReqContextInStorage(handle, 0, nullptr, nullptr));
             if (!NALDeleteContextFromStorage(context.Get())) throw XTOOStatus(static_cast<int>(GetLastError()));
         },
         "b:1 "},
    };
    for (const auto& test : cases) {
        too_testing::ResetSteps();
        nal_test::WriteFile(m_path, before);
        unsigned long handle = Open(0);
        test.change(handle);
        const unsigned steps = too_testing::GetStepCount();
        ASSERT_GE(steps, 3U);
        ASSERT_EQ(test.after, Show(handle)) << test.name;
        NALCertCloseReqStore(handle, 0);
        for (unsigned nth = 1; nth <= steps; ++nth) {
            const std::string where = test.name + std::string(" at step ") + std::to_string(nth);
            nal_test::WriteFile(m_path, before);
            EXPECT_EQ(ChildEnd::killed, nal_test::RunInChild([&] {
                          const unsigned long child = Open(0);
                          too_testing::KillAtStep(nth);
                          test.change(child);
                      }))
                << where;
            const std::string afterKill = ShowFile();
            EXPECT_TRUE(afterKill == "a:1 b:1 " || afterKill == test.after) << where << ": " << afterKill;

            nal_test::WriteFile(m_path, before);
            handle = Open(0);
            {
                const too_testing::ScopedStepFailure full(nth);
                EXPECT_NE(TOO_OK, StatusOf([&] { test.change(handle); })) << where;
            }
            const std::string afterFailure = Show(handle);
            EXPECT_TRUE(afterFailure == "a:1 b:1 " || (nth == steps && afterFailure == test.after)) << where << ": " << afterFailure;
            NALCertCloseReqStore(handle, 0);
        }
    }
    // No failure leaves a temporary file; a kill may.
    EXPECT_TRUE(std::filesystem::exists(m_path));
}

TEST_F(RequestContext, ProcessesAndThreadsShareAFile) {
    constexpr int writers = 3;
    constexpr int each = 15;
    NALCertCloseReqStore(Open(), 0);
    std::list<nal_test::Child> children;
    for (int writer = 0; writer < writers; ++writer) {
        children.emplace_back([this, writer] {
            const unsigned long handle = Open(0);
            for (int i = 0; i < each; ++i)
                Add(handle, std::string(1, static_cast<char>('a' + writer)));
        });
    }
    const unsigned long handle = Open(0);
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (int writer = 0; writer < writers; ++writer) {
        threads.emplace_back([&] {
            for (int i = 0; i < each; ++i) {
                const NAL_REQ_CONTEXT* context = Add(handle, "t").Detach();
                if (!NALChangeContextStatus(&context, 2, At(2), nullptr)) ++failures;
                NALCloseReqContext(NALFindReqContextInStorage(handle, 0, nullptr, nullptr));
                if (i % 2 == 0 && !NALDeleteContextFromStorage(context)) ++failures;
                NALCloseReqContext(context);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (nal_test::Child& child : children)
        EXPECT_EQ(ChildEnd::success, child.Wait());
    EXPECT_EQ(0, failures.load());
    const std::string all = Show(handle);
    EXPECT_EQ(writers * each + writers * (each / 2), std::count(all.begin(), all.end(), ':')) << all;
    EXPECT_EQ(writers * (each / 2), std::count(all.begin(), all.end(), 't'));
    NALCertCloseReqStore(handle, 0);
    EXPECT_FALSE(IsOpen(handle));
}

}  // namespace
