// Signs a text in memory with a key of a container and checks the signature: sign_memory CONTAINER TEXT
//
// The password is read from the first line of the standard input. The signed message goes to the standard output, DER.
#include <iostream>
#include <list>
#include <string>

#include "nal/nal.h"

int main(int argc, char** argv) try {
    if (argc != 3) {
        std::cerr << "sign_memory CONTAINER TEXT: signs a text; the password comes from the standard input\n";
        return 2;
    }
    std::string password;
    std::getline(std::cin, password);

    // A user stands for one container. Opening asks for nothing; the password is tried when a key is first used.
    CNALUser user;
    if (const int status = user.LogInUser(argv[1], password.c_str(), nullptr, false)) {
        throw XTOOStatus(status, "the container cannot be opened");
    }
    CNALCertContext certificate;
    if (!user.FindCertificate(certificate)) throw XTOOStatus(TOO_E_NOT_INITIALIZED, "the container holds no certificate");

    // What is signed: bytes in memory, and the message is to carry them.
    const std::string text = argv[2];
    WhatToSignStruct what;
    what.options = c_NAL_SIGN_ATTACHED;
    what.data = text.data();
    what.end = static_cast<DWORD>(text.size());
    IdentObj message;  // a message that lies here already would get one more signature
    NALSignData(user, certificate, what, &message, nullptr, nullptr);

    // Without content of its own the check takes the message's.
    std::list<CNALWholeSignatureCheck> signatures;
    NALVerifySignedData(&signatures, WhatToSignStruct(), message, nullptr, nullptr);
    std::cerr << "signed: " << message.GetSize() << " bytes, signature "
              << (signatures.front().IsValid() ? "valid" : signatures.front().statusText.c_str()) << "\n";
    std::cout.write(reinterpret_cast<const char*>(message.GetData()), message.GetSize());
    return 0;
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
