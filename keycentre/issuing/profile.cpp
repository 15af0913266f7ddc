#include "keycentre/profile.h"

#include <cstring>

#include "nal/sign.h"
#include "ork/provider.h"
#include "too/status.h"

namespace keycentre {
namespace {

constexpr unsigned kSerialSize = 16;

Profile AuthorityProfile(unsigned short months) {
    Profile profile;
    profile.months = months;
    profile.constraints = Constraints::New;
    profile.isCa = true;
    profile.keyUsage = CNALKeyUsage::DigitalSignature | CNALKeyUsage::KeyCertSign | CNALKeyUsage::CrlSign;
    return profile;
}

}  // namespace

Profile RootProfile() { return AuthorityProfile(120); }

Profile CaProfile() {
    Profile profile = AuthorityProfile(60);
    profile.pathLength = 0;
    return profile;
}

Profile SignatureProfile() {
    Profile profile;
    profile.months = 15;
    profile.privateKeyMonths = 12;
    profile.keyUsage = CNALKeyUsage::DigitalSignature | CNALKeyUsage::NonRepudiation;
    return profile;
}

Profile ExchangeProfile() {
    Profile profile = SignatureProfile();
    profile.keyUsage |= CNALKeyUsage::KeyEncipherment | CNALKeyUsage::DataEncipherment | CNALKeyUsage::KeyAgreement;
    return profile;
}

Profile TrustListProfile() {
    Profile profile;
    profile.months = 60;
    profile.keyUsage = CNALKeyUsage::DigitalSignature;
    profile.extendedUsage = {c_NAL_OID_TRUST_LIST_SIGNING};
    return profile;
}

IdentObj MakeSerial(unsigned short network, DWORD number) {
    IdentObj serial(nullptr, kSerialSize);
    unsigned char* bytes = serial.GetData();
    const DWORD first = static_cast<DWORD>(network) << 16;
    std::memcpy(bytes, &first, sizeof(first));
    std::memcpy(bytes + 4, &number, sizeof(number));
    const DWORD failure = ORKSCApi::GetRandomByteOctet(bytes + 8, 8, nullptr);
    if (failure != 0) throw XTOOStatus(WinErr2ToolsErr(failure), "a serial number");
    bytes[15] &= 0x7F;
    if (bytes[15] == 0) bytes[15] = 1;
    return serial;
}

}  // namespace keycentre
