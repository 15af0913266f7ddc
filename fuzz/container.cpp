// Container files and key blobs from outside. The first byte says which; the hash at a container's end is made right,
// so that what lies behind it is reached. What is accepted must be written back as it was read.

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <vector>

#include "host/provider/blob.h"
#include "host/provider/container_file.h"
#include "host/provider/crypto/hash.h"
#include "host/provider/key.h"
#include "ork/container_info.h"

namespace {

using namespace nalhost::provider;  // NOLINT(google-build-using-namespace)
namespace crypto = nalhost::crypto;

void Require(bool holds) {
    if (!holds) std::abort();
}

void TryContainer(asnt::View input) {
    std::vector<std::uint8_t> bytes(input.begin(), input.end());
    const crypto::Digest digest = crypto::Hash::Of(bytes);
    bytes.insert(bytes.end(), digest.begin(), digest.end());
    const ContainerFile file = ContainerFile::Parse({bytes.data(), bytes.size()});
    for (const ContainerEntry& entry : file.Entries()) {
        Require(file.Find(entry.number) == &entry);
        Require(entry.publicKey.GetSize() == entry.format.PublicKeySize());
    }
    // The corpus has containers without password: its key is derived, and its sealed part opened.
    if (file.Protection() == 0 && file.IsProtected()) file.Open(file.Unlock({}));
}

void TryPublicBlob(asnt::View input) {
    const PublicKeyInfo info = ParsePublicBlob(input);
    Require(asnt::View(WritePublicBlob(info.format, info.bytes)) == input);
    const PublicKeyInfo again = ParseSubjectPublicKeyInfo(WriteSubjectPublicKeyInfo(info.format, info.bytes));
    Require(again.bytes == info.bytes && again.format.set == info.format.set);
    MakePublic(info);
}

void TryContainerInfo(asnt::View input) {
    ASNContainerInfo info;
    const unsigned size = info.ReadData(input.data, static_cast<unsigned>(input.size));
    ASNContainerInfo again;
    const IdentObj written = info.WriteData();
    Require(size == 0 || again.ReadData(written.GetData(), written.GetSize()) == written.GetSize());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const asnt::View input(data + 1, size - 1);
    try {
        switch (data[0]) {
            case '0':
                TryContainer(input);
                break;
            case '1':
                Require(asnt::View(WriteSimpleBlob(ParseSimpleBlob(input))) == input);
                break;
            case '2':
                TryPublicBlob(input);
                break;
            case '3':
                ParsePrivateBlob(input);
                break;
            case '4':
                ParseSubjectPublicKeyInfo(input);
                break;
            case '5':
                TryContainerInfo(input);
                break;
            default:
                break;
        }
    } catch (const std::exception&) {  // refused, as most input is
    }
    return 0;
}
