// Tells who signed a file, and whether to believe it: verify_file FILE [SIGNATURE]
//
// FILE is a signed message (.p7s) that carries its content or, with SIGNATURE, the content that lies beside its message. The exit
// code is 0 only when every signature is valid and every signer's certificate leads to a trusted root.
#include <fstream>
#include <iostream>
#include <iterator>
#include <list>
#include <string>

#include "nal/nal.h"

namespace {

IdentObj ReadFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error(std::string(path) + ": cannot be read");
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    return IdentObj(bytes.data(), static_cast<unsigned>(bytes.size()));
}

std::string SignerOf(const CNALWholeSignatureCheck& check) {
    if (check.signerCertificate.IsEmpty()) return "somebody whose certificate is not known";
    CNALX509Certificate certificate;
    certificate.ReadEncodetData(check.signerCertificate.GetData(), check.signerCertificate.GetSize());
    std::wstring text;
    certificate.m_info.m_subject.GetX500String(text, 0);
    return CNALString(text).ToBytes().str();
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 2 && argc != 3) {
        std::cerr << "verify_file FILE [SIGNATURE]: tells who signed a file\n";
        return 2;
    }
    const IdentObj message = argc == 3 ? ReadFile(argv[2]) : IdentObj();
    std::list<CNALWholeSignatureCheck> signatures;
    std::list<CERT_TRUST_STATUS> chains;
    // With a null error pointer a failure is thrown: no such file, no message, no signer in it.
    NALVerifySignatureOnFile(signatures, chains, argv[1], argc == 3 ? &message : nullptr, nullptr, nullptr);

    bool good = true;
    auto chain = chains.begin();
    for (const CNALWholeSignatureCheck& signature : signatures) {
        const DWORD trust = (chain++)->dwErrorStatus;
        std::cout << "signed by " << SignerOf(signature) << "\n";
        // Both are to be asked. A signature that holds says nothing of whether the certificate behind it can be trusted.
        std::cout << "  signature:   " << (signature.IsValid() ? "valid" : signature.statusText.c_str()) << "\n";
        std::cout << "  certificate: " << (trust == 0 ? "trusted" : NALGetCertTotalBitMaskExplaination(trust).c_str()) << "\n";
        good = good && signature.IsValid() && trust == 0;
    }
    return good ? 0 : 1;
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 3;
}
