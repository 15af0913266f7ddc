#include "cli/stores.h"

#include <cerrno>
#include <cstring>

#include "cli/describe.h"
#include "cli/home.h"
#include "cli/kinds.h"
#include "cli/program.h"

namespace cli {
namespace {

const char* const kFileProvider = CERT_STORE_PROV_FILENAME_A;
constexpr std::size_t kFewestDigits = 4;

// Letters of either case, Cyrillic ones included, as far as the names of people and firms go.
std::wstring Folded(const std::string& text) {
    std::wstring wide = CNALString(text.c_str()).str();
    for (wchar_t& c : wide) {
        if ((c >= L'A' && c <= L'Z') || (c >= 0x410 && c <= 0x42F)) c += 0x20;
        else if (c >= 0x400 && c <= 0x40F) c += 0x50;
    }
    return wide;
}

std::string HexDigitsOf(const std::string& text) {
    std::string digits;
    for (const char c : text) {
        if (c == ' ' || c == ':') continue;
        const char upper = c >= 'a' && c <= 'f' ? static_cast<char>(c - 32) : c;
        if (!((upper >= '0' && upper <= '9') || (upper >= 'A' && upper <= 'F'))) return {};
        digits += upper;
    }
    return digits;
}

bool StartsWith(const std::string& text, const std::string& start) { return text.compare(0, start.size(), start) == 0; }

}  // namespace

void StoreOption::Define(Options& options) {
    options.Path("--store", path, "The certificate store, in the place of the user's own");
}

std::string StoreOption::Path() const { return path.empty() ? DefaultStorePath() : path; }

CNALCertStorage StoreOption::Open() const {
    CNALCertStorage storage = OpenStore(Path(), false);
    if (!path.empty() && !storage.IsOpened()) throw Fault(kInput, "there is no store " + path, "Check the path.", TOO_E_FILE_NOT_FOUND);
    return storage;
}

CNALCertStorage OpenStore(const std::string& path, bool create) {
    CNALCertStorage storage;
    CTOOString folder;
    CTOOString name;
    if (create && storedev::ParseFullPath(path, folder, name)) CTOOFolder::MakeFolder(folder, 0755);
    if (!create && !CTOOFile::Exists(path) && !CTOOFolder::Exists(path)) return storage;
    CNALString wide(path.c_str());
    if (!storage.OpenStorage(wide, kFileProvider, 0, 0, nullptr)) {
        const int error = static_cast<int>(GetLastError());
        if (error == EUCLEAN) {
            throw Fault(kInput, path + " is damaged, or no certificate store",
                        "nal store check tells what is wrong, nal store salvage brings back what it still holds.", TOO_E_READ);
        }
        throw Fault(ExitOfErrno(error), "cannot open the store " + path + ": " + std::strerror(error),
                    error == EACCES || error == EROFS ? "Check who may read and write it and its folder." : "Check the path.",
                    TOOStatusFromErrno(error, TOO_E_OPEN));
    }
    return storage;
}

std::list<CNALCertContext> AllCertificates(const CNALCertStorage& storage) {
    std::list<CNALCertContext> list;
    if (!storage.IsOpened() || storage.FindCertList(list, CERT_FIND_ANY, nullptr)) return list;
    if (GetLastError() != NAL_STORE_E_NOT_FOUND) FailWithLastError("searching the store", storage.m_name.ToBytes().str());
    return list;
}

std::list<CNALCRLContext> AllCrls(const CNALCertStorage& storage) {
    std::list<CNALCRLContext> list;
    if (!storage.IsOpened()) return list;
    for (CNALCRLContext crl; (crl = storage.FindCRLInStore(0, nullptr, crl)).IsInitialized();) list.push_back(crl);
    if (GetLastError() != NAL_STORE_E_NOT_FOUND) FailWithLastError("searching the store", storage.m_name.ToBytes().str());
    return list;
}

bool Matches(const CNALX509Certificate& certificate, const std::string& id) {
    const std::string digits = HexDigitsOf(id);
    if (digits.size() >= kFewestDigits) {
        CNALSubjectKeyID keyId;
        const CNALCertExtension* extension = certificate.m_info.m_extensions.FindExtension(c_NAL_OID_SUBJECT_KEY_ID);
        if (extension != nullptr && keyId.TryRead(*extension) && StartsWith(Hex(keyId.m_keyId), digits)) return true;
        if (StartsWith(SerialText(certificate.m_info.m_serialNumber), digits)) return true;
    }
    return !id.empty() && Folded(TextOf(certificate.m_info.m_subject)).find(Folded(id)) != std::wstring::npos;
}

CNALCertContext SelectOne(const CNALCertStorage& storage, const std::string& id, const std::string& where, const std::string& unless) {
    std::list<CNALCertContext> found;
    std::vector<std::string> listing;
    for (const CNALCertContext& context : AllCertificates(storage)) {
        const CNALX509Certificate certificate = Decoded(context);
        if (!Matches(certificate, id)) continue;
        found.push_back(context);
        listing.push_back(Hex(context.GetSubjectKeyId()) + "  " + TextOf(certificate.m_info.m_subject));
    }
    if (found.empty()) {
        throw Fault(kInput, unless + "no certificate in " + where + " matches '" + id + "'", "nal cert list shows what is there.", TOO_E_NOT_FOUND);
    }
    if (found.size() > 1) {
        throw Fault(kInput, std::to_string(found.size()) + " certificates in " + where + " match '" + id + "':", "Give more digits of the key identifier.",
                    TOO_E_NOT_FOUND, listing);
    }
    return found.front();
}

CNALCertContext CertificateArgument(const std::string& fileOrId, const StoreOption& store) {
    const bool isFile = fileOrId == "-" || CTOOFile::Exists(fileOrId) || fileOrId.find('/') != std::string::npos;
    if (isFile) return ContextOf(ReadOne(fileOrId, Kind::Certificate), fileOrId);
    return SelectOne(store.Open(), fileOrId, store.Path(), "there is no file '" + fileOrId + "', and ");
}

CNALCertStorage MemoryStorage(const std::vector<IdentObj>& certificates, const std::vector<IdentObj>& crls) {
    CNALCertStorage storage;
    CNALString name(L"memory");
    if (!storage.OpenStorage(name, CERT_STORE_PROV_MEMORY, 0, 0, nullptr)) FailWithLastError("opening a store in memory", "");
    storage.m_untrusted = 1;
    for (const IdentObj& der : certificates) {
        if (WhyNotKept(DecodeCertificate(der, "certificate")).empty()) storage.AddEncodetCertificate(der, 0);
    }
    for (const IdentObj& der : crls) storage.AddEncodetCRL(der, 0);
    return storage;
}

IdentObj EncodingOf(const CNALCertContext& certificate) {
    const CERT_CONTEXT* context = certificate.GetContext();
    return context == nullptr ? IdentObj() : IdentObj(context->pbCertEncoded, context->cbCertEncoded);
}

IdentObj EncodingOf(const CNALCRLContext& crl) {
    const CRL_CONTEXT* context = crl.GetContext();
    return context == nullptr ? IdentObj() : IdentObj(context->pbCrlEncoded, context->cbCrlEncoded);
}

CNALX509Certificate Decoded(const CNALCertContext& certificate) { return DecodeCertificate(EncodingOf(certificate), "certificate"); }

std::string WhyNotKept(const CNALX509Certificate& certificate) {
    const CNALCertExtension* extension = certificate.m_info.m_extensions.FindExtension(c_NAL_OID_SUBJECT_KEY_ID);
    if (extension == nullptr) return "has no subject key identifier";
    CNALSubjectKeyID keyId;
    if (!keyId.TryRead(*extension)) return "has a damaged subject key identifier";
    if (keyId.m_keyId.GetSize() != 20) return "has a subject key identifier of " + std::to_string(keyId.m_keyId.GetSize()) + " bytes, not 20";
    return {};
}

}  // namespace cli
