// A key centre with a transport folder, for its tests.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utime.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "keycentre/service/folder_service.h"
#include "nal/attributes.h"
#include "nal/context.h"
#include "nal/fingerprint.h"
#include "nal/storage.h"
#include "support/cert_builder.h"
#include "support/temp_folder.h"
#include "too/file.h"
#include "too/testing.h"

namespace nal_test {

using keycentre::Centre;
using keycentre::Delivery;
using keycentre::FolderEvent;
using keycentre::KeyPair;

/// A key with the certificate that the centre made for it.
struct Holder {
    KeyPair key;
    CNALX509Name name;
    IdentObj certificate;
};

/// A request, signed a second time by `voucher` unless that is null.
inline IdentObj Request(const KeyPair& key, const CNALX509Name& name, const Holder* voucher,
                        const std::function<void(CNALPKCS10Data&, CNALSecondSignature&)>& change = {}) {
    CNALPKCS10Data data;
    data.m_subject = name;
    data.m_publicKey = key.GetPublicKey();
    CNALSecondSignature second;
    if (voucher != nullptr) {
        const CNALCertContext context(voucher->certificate);
        const CNALCertInfo info(*context.GetContext());
        second.m_issuer = info.m_issuer;
        second.m_serialNumber = info.m_serialNumber;
        second.m_keyIdentifier = context.GetSubjectKeyId();
    }
    if (change) change(data, second);
    if (voucher != nullptr) data.AddSecondSignature(second, voucher->key.GetProvider(), voucher->key.GetKey(), nullptr);
    CNALPKCS10Request request;
    request.SignData(data, key.GetProvider(), key.GetKey(), nullptr);
    return request.WriteData();
}


inline IdentObj SerialOf(const Holder& holder) { return CNALCertInfo(*CNALCertContext(holder.certificate).GetContext()).m_serialNumber; }

class CentreTest : public testing::Test {
protected:
    static constexpr char kPassword[] = "secret";

    CentreTest() : m_clock(Date(2026, 3, 15)) {
        setenv("NAL_HOME", m_folder.File("home").c_str(), 1);
        std::filesystem::create_directories(m_folder.File("net/d_station/o_users"));
        std::filesystem::create_directories(m_folder.File("net/d_station/e_users"));
        Centre::Founding founding;
        founding.folder = m_folder.File("centre");
        founding.password = kPassword;
        founding.network = 0x12ab;
        founding.root = keycentre::Name("CN=Root");
        founding.issuing = keycentre::Name("CN=Issuing");
        founding.lists = keycentre::Name("CN=Lists");
        Centre::Found(founding);
    }

    keycentre::TransportFolder Transport() const { return keycentre::TransportFolder(m_folder.File("net")); }
    std::string RequestPath(const std::string& file) const {
        return m_folder.File("net/d_station/") + (file.ends_with("_extu.req") ? "e_users/" : "o_users/") + file;
    }
    void Put(const std::string& file, const IdentObj& bytes) const {
        WriteFile(RequestPath(file), bytes.GetData(), bytes.GetSize());
        Age(RequestPath(file), 3600);
    }
public:
    /// Makes a file as old as that by the test's clock.
    static void Age(const std::string& path, std::int64_t seconds) {
        FILETIME now{};
        GetSystemTimeAsFileTime(&now);
        const utimbuf times{CTOOFileTime(now).ToUnix() - seconds, CTOOFileTime(now).ToUnix() - seconds};
        ::utime(path.c_str(), &times);
    }

protected:
    KeyPair NewKey(DWORD algId = ORK_KEY_SIGNATURE) { return KeyPair::Create(m_folder.File("key" + std::to_string(++m_keys)), "", algId); }

    /// Releases a first request as an operator does.
    Holder Release(Centre& centre, const char* name, bool entitled = false, const std::function<void(CNALPKCS10Data&, CNALSecondSignature&)>& change = {}) {
        Holder holder{NewKey(), keycentre::Name(name), {}};
        keycentre::Judge judge(centre);
        keycentre::Judgement judgement = judge.Look(Request(holder.key, holder.name, nullptr, change));
        EXPECT_EQ(judgement.verdict, keycentre::Verdict::First) << judgement.reason;
        judgement.order.entitled = entitled;
        const keycentre::FolderLock lock = centre.Lock();
        const auto records = centre.Issue({judgement.order});
        centre.SetAnswered(records);
        holder.certificate = records.front().certificate;
        return holder;
    }

    Centre Open() const {
        Centre centre(m_folder.File("centre"));
        centre.OpenKeys(kPassword);
        return centre;
    }

    keycentre::FolderTally Serve(Centre& centre, std::size_t group = keycentre::FolderService::kGroup) {
        m_events.clear();
        keycentre::FolderService service(centre, Transport(), [&](const FolderEvent& event) {
            m_events[std::filesystem::path(event.file).filename()] = event;
        }, group);
        return service.Run([] { return false; });
    }

    /// The certificates among the answers that are nobody's issuer.
    std::vector<CNALCertContext> Answers(Delivery kind = Delivery::Own) const {
        CNALString path{CTOOString(Transport().GetAnswers(kind))};
        const CNALCertStorage store(path, CERT_STORE_PROV_FILENAME_A, 0x10000, 0, nullptr);
        std::list<CNALCertContext> found;
        store.FindCertList(found, CERT_FIND_ANY, nullptr);
        std::vector<CNALCertContext> users;
        for (const CNALCertContext& cert : found) {
            if (cert.GetCertificateType() == NAL_CERT_TYPE_END) users.push_back(cert);
        }
        return users;
    }

    std::string Reason(const std::string& file) const {
        const std::filesystem::path path(RequestPath(file));
        const Bytes bytes = ReadFile((path.parent_path() / "refused" / (file + ".reason")).string());
        return {bytes.begin(), bytes.end()};
    }

    TempFolder m_folder;
    too_testing::ScopedClock m_clock;
    std::map<std::string, FolderEvent> m_events;
    int m_keys = 0;
};

}  // namespace nal_test
