// Reads a DER certificate into the object model and prints it: show_certificate FILE
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>

#include "nal/nal.h"

namespace {

std::string Text(const CNALX509Name& name) {
    std::wstring text;
    name.GetX500String(text, 0);
    return CNALString(text).ToBytes().str();
}

std::string Text(const FILETIME& time) {
    SYSTEMTIME t{};
    FileTimeToSystemTime(&time, &t);
    std::ostringstream text;
    text << std::setfill('0') << std::setw(4) << t.wYear << '-' << std::setw(2) << t.wMonth << '-' << std::setw(2) << t.wDay << ' '
         << std::setw(2) << t.wHour << ':' << std::setw(2) << t.wMinute << ':' << std::setw(2) << t.wSecond << " UTC";
    return text.str();
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 2) {
        std::cerr << "show_certificate FILE: prints a DER certificate\n";
        return 2;
    }
    std::ifstream file(argv[1], std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    if (!file) {
        std::cerr << argv[1] << ": cannot be read\n";
        return 1;
    }

    CNALX509Certificate certificate;
    certificate.DecodeCert(IdentObj(bytes.data(), static_cast<unsigned>(bytes.size())));
    const CNALCertInfo& info = certificate.m_info;

    std::cout << "serial      " << Serial2TOOStr(info.m_serialNumber, true).str() << "\n"
              << "issuer      " << Text(info.m_issuer) << "\n"
              << "subject     " << Text(info.m_subject) << "\n"
              << "not before  " << Text(info.m_notBefore) << "\n"
              << "not after   " << Text(info.m_notAfter) << "\n";

    CTOOString algorithm, parameters;
    info.m_publicKeyInfo.m_algorithm.GetParams(&algorithm, &parameters, nullptr, nullptr);
    std::cout << "public key  " << NALGetNameForOID(algorithm).str() << ", " << info.m_publicKeyInfo.GetKeyLength()
              << " bits, parameter set " << parameters.str() << "\n";

    CNALBasicConstraints constraints;
    if (constraints.ReadFrom(info.m_extensions, "2.5.29.19")) {
        std::cout << "authority   " << (constraints.m_isCA ? "yes" : "no") << "\n";
    }
    CNALSubjectKeyID keyId;
    if (keyId.ReadFrom(info.m_extensions, "2.5.29.14")) {
        std::cout << "key id      " << std::hex << std::uppercase << std::setfill('0');
        for (unsigned i = 0; i < keyId.m_keyId.GetSize(); ++i) std::cout << std::setw(2) << unsigned{keyId.m_keyId.GetData()[i]};
        std::cout << "\n";
    }
    return 0;
} catch (const XTOOStatus& status) {
    std::cerr << argv[1] << ": " << status.what() << "\n";
    return 1;
}
