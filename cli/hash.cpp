// nal hash
#include "cli/commands.h"
#include "cli/describe.h"
#include "cli/files.h"
#include "cli/interrupt.h"
#include "cli/progress.h"
#include "cli/program.h"

namespace cli {
namespace {

struct Hash {
    std::vector<std::string> files;
    std::string algorithm = c_NAL_OID_HASH_GOST94;

    void Define(Options& o) {
        o.Ins("FILE", files, "The files")->required();
        o.Value("-a,--algorithm", algorithm, "OID", "The hash: 1.2.643.2.2.9, GOST R 34.11-94 (unless given), or 1.3.6.1.4.1.47474.2.1.1.2, the private one");
        o.Note("The output is made of lines as those of sha256sum: the hash, two blanks, the file.");
        o.Example("nal hash report.pdf", "The GOST R 34.11-94 hash of a file");
        o.Example("tar c folder | nal hash -", "That of a stream");
    }

    Outcome Run(const Globals& globals) {
        SNALCryptInfo info;
        unsigned key = 0;
        if (!GetAlgIDFromOID(algorithm.data(), static_cast<unsigned>(algorithm.size()), info.hashAlgId, key) || key != 0 ||
            (info.hashAlgId & 0xE000) != 0x8000) {
            UsageFault("'" + algorithm + "' is not the OID of a hash");
        }
        Outcome outcome;
        outcome.data = Json::array();
        for (const std::string& path : files) {
            const InputFile file(path, false);
            const Progress progress("hashing " + file.Name(), globals);
            const std::string hash = About(file.Name(), [&] {
                return Hex(NALHashFile(file.Path().c_str(), 0, 0xFFFFFFFF, 0, info));
            });
            ThrowIfInterrupted();
            outcome.data.push_back({{"file", path}, {"algorithm", algorithm}, {"hash", hash}});
            outcome.text += hash + "  " + Printable(path) + "\n";
        }
        return outcome;
    }
};

}  // namespace

void AddHashCommand(Program& program) { program.Command<Hash>("", "hash", "Hashes files"); }

}  // namespace cli
