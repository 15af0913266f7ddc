// What the tests against OpenSSL with the GOST engine and GnuTLS share: a folder, the programs that run in it, and their keys and
// certificates.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/folder_test.h"
#include "support/process.h"

namespace nal_test {

/// Every command of OpenSSL takes the engine from here, and the extensions of certificates that it issues.
constexpr char c_openSslConfig[] = R"(openssl_conf = o
[o]
engines = e
[e]
gost = g
[g]
engine_id = gost
default_algorithms = ALL
[req]
distinguished_name = dn
string_mask = utf8only
[dn]
[root]
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
basicConstraints = critical,CA:TRUE,pathlen:2
keyUsage = critical,keyCertSign,cRLSign
[ca]
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
basicConstraints = critical,CA:TRUE,pathlen:0
keyUsage = critical,keyCertSign,cRLSign
[signer]
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
basicConstraints = CA:FALSE
keyUsage = critical,digitalSignature
[usage]
keyUsage = critical,digitalSignature
[crl]
database = index.txt
crlnumber = number
default_md = md_gost94
default_crl_days = 30
crl_extensions = crl_ext
[crl_ext]
authorityKeyIdentifier = keyid:always
)";

inline bool HasCertTool() {
    static const bool present = RunProcess({"certtool", "--version"}).exitCode == 0;
    return present;
}

/// Skips a test that GnuTLS has a part in where its program is missing.
#define NEEDS_CERTTOOL() \
    if (!::nal_test::HasCertTool()) GTEST_SKIP() << "needs certtool (package gnutls-bin)"

/// `Base` has a folder of the test's own, m_folder. Without OpenSSL's program and engine its tests are skipped.
template <class Base = FolderTest>
class ToolTest : public Base {
protected:
    void SetUp() override {
        Base::SetUp();
        static const bool present = RunProcess({"openssl", "engine", "-t", "gost"}).output.find("[ available ]") != std::string::npos;
        if (!present) GTEST_SKIP() << "needs openssl with its gost engine (package libengine-gost-openssl)";
        Put("openssl.cnf", c_openSslConfig);
    }

    /// Runs a shell command in the folder; what it prints holds its errors too.
    ProcessResult Try(const std::string& command) const {
        return RunProcess({"sh", "-c", "cd '" + this->m_folder.Path() + "' && { " + command + "; } 2>&1"},
                          {"OPENSSL_CONF=openssl.cnf", "LC_ALL=C.UTF-8"});
    }
    /// What it prints; its failure fails the test.
    std::string Sh(const std::string& command) const {
        const ProcessResult result = Try(command);
        EXPECT_EQ(result.exitCode, 0) << command << ": " << result.output;
        return result.output;
    }

    std::string Path(const std::string& name) const { return this->m_folder.File(name); }
    void Put(const std::string& name, const std::string& text) const { WriteFile(Path(name), text); }
    void Put(const std::string& name, const IdentObj& bytes) const { WriteFile(Path(name), bytes.GetData(), bytes.GetSize()); }
    IdentObj Get(const std::string& name) const { return this->Load(Path(name)); }

    /// Makes a key and its certificate, NAME.key, NAME.pem and in DER NAME, with the extensions of a section.
    /// @param issuer  who signs it; empty: itself
    void Issue(const std::string& name, const std::string& section, const std::string& issuer = "", const std::string& options = "",
               const std::string& paramSet = "A", const std::string& subject = "") const {
        Sh("openssl req -new -newkey gost2001 -pkeyopt paramset:" + paramSet + " -nodes -utf8 -md_gost94 -subj '" +
           (subject.empty() ? "/CN=" + name : subject) + "' -keyout " + name + ".key -out " + name + ".req");
        const std::string by =
            issuer.empty() ? "-signkey " + name + ".key" : "-CA " + issuer + ".pem -CAkey " + issuer + ".key -CAcreateserial";
        Sh("openssl x509 -req -md_gost94 -days 100 -extfile openssl.cnf -extensions " + section + " -in " + name + ".req -out " + name +
           ".pem " + by + " " + options + " && openssl x509 -in " + name + ".pem -outform DER -out " + name);
    }
};

}  // namespace nal_test
