// Inputs and outputs as the command line names them: files, "-", pipes.
#pragma once

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
    /// Whether it was PEM, and was decoded.
    bool WasPem() const { return m_wasPem; }

private:
    void Spool(int source, bool decodePem);

    std::string m_path;
    std::string m_name;
    std::uint64_t m_size = 0;
    int m_descriptor = -1;
    bool m_wasPem = false;
};

/// An output for library calls that write a file whole. Standard output, what is no regular file, and PEM are made of what was written
/// to a file in a temporary folder of its own.
class OutputFile {
public:
    /// @param pemLabel  it becomes PEM with this label; null: it stays as it is written
    /// @throws Fault when the file is there already and may not be replaced
    OutputFile(const std::string& path, bool replace, const char* pemLabel = nullptr);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& Path() const { return m_path; }
    const std::string& Name() const { return m_name; }
    bool IsStandardOutput() const { return m_target == "-"; }
    /// @throws Fault when the output is the input at `path`; `done` is what happens to that: "signed"
    void RefuseInput(const std::string& path, const char* done) const;
    /// Hands what was written on; to be called when the library is done.
    /// @throws Fault without a message when the reader has closed its end
    void Finish();
    /// Writes these bytes as the whole output.
    void Write(const IdentObj& bytes);

private:
    bool IsStream() const { return m_target == "-" || m_isSpecial; }
    template <class Produce>
    void Deliver(Produce produce);

    std::string m_target;
    std::string m_name;
    std::string m_path;
    const char* m_pemLabel;
    bool m_isSpecial = false;  // there, and no regular file
    std::string m_folder;      // temporary; empty when the library writes to its place
};

}  // namespace cli
