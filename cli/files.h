// Inputs and outputs as the command line names them: files, "-", pipes.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "cli/fault.h"

namespace cli {

/// How people call an input or output.
std::string NameOf(const std::string& path, bool isOutput = false);

/// The most bytes of a file that is read whole: certificates, CRLs, requests.
inline constexpr std::uint64_t kMostWhole = 256ULL << 20;

/// Reads a whole input. @throws Fault for one that is missing, a folder, larger than `limit`
IdentObj ReadInput(const std::string& path, std::uint64_t limit = kMostWhole);

/// The first bytes of an input file, at most `count`.
std::string ReadHead(const std::string& path, std::size_t count);

/// An input for library calls that take a path. What is no regular file (standard input, a pipe) is first copied to a temporary file
/// without a name, which is gone when the process is, however it ends. PEM is decoded on the way when `decodePem`. With `own` a regular
/// file is copied too: what is read twice is then the same.
class InputFile {
public:
    InputFile(const std::string& path, bool decodePem, bool own = false);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// For the library.
    const std::string& Path() const { return m_path; }
    /// For people.
    const std::string& Name() const { return m_name; }
    std::uint64_t Size() const { return m_size; }
    /// Whether it was no stream.
    bool IsRegular() const { return m_isRegular; }
    /// Whether it was PEM, and was decoded.
    bool WasPem() const { return m_wasPem; }

private:
    void Spool(int source, bool decodePem);

    std::string m_path;
    std::string m_name;
    std::uint64_t m_size = 0;
    int m_descriptor = -1;
    bool m_wasPem = false;
    bool m_isRegular = false;
};

/// Tells of a file that the command line names to be read, or "-": no output may be it.
void NameInput(const std::string& path);

/// An output for library calls that write a file whole.
///
/// A new file is made in a temporary folder beside its place, which it takes when it is whole, never another file's. What goes to a
/// stream is made in such a folder in TMPDIR. The folder is made when it is needed.
class OutputFile {
public:
    /// @param replace   whether a file that is there is replaced; one that is read, a store or a key container never is
    /// @param pemLabel  it becomes PEM with this label; null: it stays as it is written
    /// @param replaces  the path of an input that is to be replaced, if any
    /// @throws Fault when the file is there already and may not be replaced
    OutputFile(const std::string& path, bool replace, const char* pemLabel = nullptr, const std::string& replaces = {});
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// For the library. @throws Fault when the temporary folder cannot be made
    const std::string& Path();
    const std::string& Name() const { return m_name; }
    bool IsStandardOutput() const { return m_target == "-"; }
    /// Hands what was written to Path() on; to be called when the library is done. @throws Fault, also when another file has come meanwhile
    /// @throws Fault without a message when the reader has closed its end
    void Finish();
    /// Writes these bytes as the whole output.
    void Write(const IdentObj& bytes);

private:
    bool IsStream() const { return m_target == "-" || m_isSpecial; }
    bool IsWrittenInPlace() const { return m_mayReplace && !IsStream() && m_pemLabel == nullptr; }
    [[noreturn]] void RefuseExisting() const;
    void RefusePrecious(dev_t device, ino_t number, const std::string& replaces) const;
    const std::string& Folder();
    void Place(const std::string& finished) const;
    void Written() const;
    template <class Produce>
    void Deliver(Produce produce);

    std::string m_target;
    std::string m_name;
    std::string m_path;  // for the library; empty until it is asked for
    const char* m_pemLabel;
    bool m_mayReplace;
    bool m_isSpecial = false;  // there, and no regular file
    std::string m_folder;      // temporary; empty until it is needed
};

}  // namespace cli
