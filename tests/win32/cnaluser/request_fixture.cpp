#include <set>

#include "nal/fingerprint.h"
#include "nal/trust_storages.h"
#include "too/file.h"
#include "win32/cnaluser/request_test.h"

namespace nal_test {
namespace {

IdentObj BlobOf(const CRYPTOAPI_BLOB& blob) {
    return {blob.pbData, blob.cbData};
}

void AddTo(const std::string& path, const std::vector<IdentObj>& certs, const std::vector<IdentObj>& crls) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    CNALString name(path.c_str());
    CNALCertStorage storage(name, CERT_STORE_PROV_FILENAME_A, 0x12000, 0, nullptr);
    for (const IdentObj& cert : certs) EXPECT_TRUE(storage.AddEncodetCertificate(cert, 0x10001));
    for (const IdentObj& crl : crls) EXPECT_TRUE(storage.AddEncodetCRL(crl, 0x10001));
}

}  // namespace

RequestTest::RequestTest() {
    Trust({authority.root.MakeCrl({})});
    NALSetTransDir(File("transport"));
    m_VPN_TrustStorages.m_certNumber = NAL_CERT_NUMBER_UNKNOWN;
}

RequestTest::~RequestTest() {
    NALFreeRootStorage();
}

CNALCertInfo RequestTest::Ivan() {
    CNALCertInfo info;
    info.m_subject = keycentre::Name("CN=Ivan, O=Works");
    info.m_publicKeyInfo.m_algorithm.SetParams(c_NAL_OID_KEY_GOST2001, "1.2.643.2.2.35.2");
    info.m_extensions.Add(CNALKeyUsage(CNALKeyUsage::DigitalSignature).ToExtension(c_NAL_OID_KEY_USAGE, true));
    CNALAlternativeNames names;
    names.m_names.emplace_back(CNALGeneralName::Rfc822Name, IdentObj("ivan@works", 10));
    info.m_extensions.Add(names.ToExtension(c_NAL_OID_SUBJECT_ALT_NAME, false));
    info.m_extensions.Add(CNALBasicConstraints().ToExtension(c_NAL_OID_BASIC_CONSTRAINTS, true));
    return info;
}

CNALCertContext RequestTest::Enrol(CNALUser& user, const std::string& container, keycentre::Profile profile, const char* algorithm,
                                   const char* set, const char* password) {
    LogIn(user, container, true, password);
    EXPECT_TRUE(user.CreateNewKeys(CTOOString(algorithm), CTOOString(set), nullptr, nullptr));
    profile.network = 0x0A1B;
    profile.subjectAltNames.emplace_back(CNALGeneralName::DnsName, IdentObj("host", 4));
    const CNALCertContext cert(authority.root.Certify(keycentre::Name("CN=Olga"), user.GetNewPublicKey(), profile));
    EXPECT_TRUE(user.PutCertificate(cert, nullptr, nullptr));
    return cert;
}

CNALCertReqContext RequestTest::FirstRequest(CNALUser& user) const {
    const NAL_REQ_CONTEXT* made = nullptr;
    CTOOString msg;
    int err = 0;
    EXPECT_TRUE(user.CreateNewRequest(CNALUser(), nullptr, Ivan(), &made, &err, &msg)) << msg;
    return CNALCertReqContext(made);
}

CNALCertReqContext RequestTest::Renewal(CNALUser& user, const CNALCertContext& cert, const char* set, const char* algorithm) const {
    const NAL_REQ_CONTEXT* made = nullptr;
    CTOOString msg;
    int err = 0;
    EXPECT_TRUE(user.UpdateKey(set, algorithm, CTOOFileTime(), CTOOFileTime(), cert, &made, &err, &msg)) << msg;
    return CNALCertReqContext(made);
}

void RequestTest::Trust(const std::vector<IdentObj>& crls) const {
    std::filesystem::remove(File("home/trust/trusted.dat"));
    AddTo(File("home/trust/trusted.dat"), {authority.root.GetCertificate()}, crls);
    NALFreeRootStorage();
}

CNALPKCS10Request RequestTest::Decoded(const NAL_REQ_CONTEXT& request) {
    CNALPKCS10Request decoded;
    decoded.ReadData(request.Request.pbData, request.Request.cbData);
    return decoded;
}

CNALCertContext RequestTest::Answer(const NAL_REQ_CONTEXT& request, keycentre::Profile profile) const {
    const IdentObj cert = authority.root.Certify(Decoded(request), profile);
    const bool external = request.dwRequestType == NAL_REQ_TYPE_EXTERNAL;
    AddTo(Station(external ? "tmp/ext_input.cer" : "tmp/own_input.cer"), {cert, authority.root.GetCertificate()},
          {authority.root.MakeCrl({})});
    return CNALCertContext(cert);
}

CNALCertReqContext RequestTest::Received(const NAL_REQ_CONTEXT& request) const {
    EXPECT_TRUE(NALTakeAnswers(File("transport"), nullptr, nullptr, nullptr));
    for (CNALCertReqContext& found : Requests()) {
        if (BlobOf(found->Identity) == BlobOf(request.Identity)) return found;
    }
    ADD_FAILURE() << "the request is gone";
    return {};
}

std::vector<CNALCertReqContext> RequestTest::Requests(const std::string& transport) {
    std::vector<CNALCertReqContext> requests;
    for (const CTOOString& path : NALGetReqStatusFile(transport, true, false, nullptr)) {
        unsigned long handle = 0;
        EXPECT_TRUE(NALCertOpenReqStorage(CERT_STORE_PROV_FILENAME_A, path.c_str(), 0, &handle));
        const NAL_REQ_CONTEXT* next = nullptr;
        while ((next = NALFindReqContextInStorage(handle, 0, nullptr, next)) != nullptr) {
            requests.emplace_back(NALDuplicateReqContext(next));
        }
        NALCertCloseReqStore(handle, 0);
    }
    return requests;
}

std::vector<std::string> RequestTest::FilesIn(const std::string& folder, const std::string& extension) const {
    std::vector<std::string> names;
    if (!std::filesystem::exists(Station(folder))) return names;
    for (const auto& file : std::filesystem::directory_iterator(Station(folder))) {
        if (file.path().extension() == extension) names.push_back(file.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::size_t RequestTest::ExpectWhole(const std::string& container, std::size_t bound) const {
    CNALUserContainerInfo info;
    EXPECT_TRUE(NALGetContainerInfo(File(container), info, nullptr, nullptr));
    std::multiset<std::string> keys;
    const auto text = [](const IdentObj& bytes) { return std::string(NALGetFingerprint(bytes).view().substr(0, 17)); };
    for (const CNALUserKeyInfo& key : info.m_keys) {
        if (!key.m_certificate.IsInitialized()) keys.insert(text(key.m_publicKeyInfo));
    }
    EXPECT_EQ(bound, info.m_keys.size() - keys.size());

    std::multiset<std::string> asked;
    std::multiset<std::string> requests;
    for (const CNALCertReqContext& request : Requests()) {
        if (request->dwStatus != NAL_REQ_STATUS_MADE) continue;
        asked.insert(text(Decoded(*request).GetData().m_publicKey.WriteData()));
        requests.insert(text(BlobOf(request->Request)));
    }
    EXPECT_EQ(keys, asked) << "keys and requests belong together";

    std::multiset<std::string> files;
    for (const char* folder : {"o_users", "e_users"}) {
        for (const std::string& name : FilesIn(folder, ".req")) {
            files.insert(text(CTOOFile::ReadWhole(Station(folder + ("/" + name)))));
        }
    }
    EXPECT_EQ(requests, files) << "and each request has its file";
    EXPECT_FALSE(std::filesystem::exists(File(container) + ".newkey"));
    return requests.size();
}

}  // namespace nal_test
