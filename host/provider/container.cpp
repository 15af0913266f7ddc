#include "host/provider/container.h"

#include <climits>
#include <cstdlib>
#include <memory>

#include "host/provider/container_lock.h"
#include "host/provider/failure.h"
#include "ork/constants.h"
#include "too/file.h"
#include "too/folder.h"
#include "too/path.h"

namespace nalhost::provider {

namespace {

constexpr unsigned c_filePermissions = 0600;
constexpr unsigned c_folderPermissions = 0700;
constexpr char c_defaultName[] = "default";

// The digits behind the last "#", if that is how the name ends.
std::optional<std::uint32_t> SplitEntry(std::string_view& name) {
    const std::size_t mark = name.rfind('#');
    if (mark == std::string_view::npos || name.find('/', mark) != std::string_view::npos) return std::nullopt;
    const std::string_view digits = name.substr(mark + 1);
    if (digits.empty() || digits.size() > 9 || digits.find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    std::uint32_t number = 0;
    for (const char digit : digits)
        number = number * 10 + static_cast<std::uint32_t>(digit - '0');
    name = name.substr(0, mark);
    return number;
}

std::string RealPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr), &std::free);
    return real ? std::string(real.get()) : std::string();
}

// Absolute and free of links, so that one file has one lock and one unique name.
std::string Resolve(std::string_view name) {
    if (name.empty()) name = c_defaultName;
    const bool isBare = name.find('/') == std::string_view::npos;
    const std::string path =
        isBare ? storedev::MakeFullPath(GetTarnCSPPath(), CTOOString(name)).str() : std::string(name);
    CTOOString folder;
    CTOOString file;
    storedev::ParseFullPath(CTOOString(path), folder, file);
    // A leading dot is kept for the temporary files beside a container.
    Require(!file.empty() && file[0] != '.' && path.size() < PATH_MAX, ORK_E_BAD_KEYSET_NAME);
    std::string real = RealPath(path);
    if (!real.empty()) return real;
    real = RealPath(folder.str());
    return real.empty() ? path : storedev::MakeFullPath(CTOOString(real), file).str();
}

void RequireFile(const std::string& path) {
    Require(CTOOFile::Exists(path), ORK_E_BAD_KEYSET);
}

void RequireContainer(const std::string& path) {
    RequireFile(path);
    const CTOOFile file(path, "rb");
    unsigned char head[8];
    Require(ContainerFile::HasMagic({head, file.Read(head, sizeof head)}), ORK_E_DAMAGED);
}

}  // namespace

ContainerName ContainerName::Parse(std::string_view name) {
    const auto entry = SplitEntry(name);
    return {Resolve(name), entry.value_or(0)};
}

ContainerName ContainerName::ParseNew(std::string_view name) {
    if (name.find('/') == std::string_view::npos) CTOOFolder::MakeFolder(GetTarnCSPPath(), c_folderPermissions);
    Require(!SplitEntry(name), ORK_E_BAD_KEYSET_NAME);
    return {Resolve(name), 0};
}

Container::Stamp Container::Stamp::Of(const struct stat& status) {
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

bool Container::Stamp::operator==(const Stamp& other) const {
    const auto same = [](const timespec& a, const timespec& b) {
        return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
    };
    return device == other.device && inode == other.inode && size == other.size && same(modified, other.modified) &&
           same(changed, other.changed);
}

Container Container::Create(const ContainerName& name) {
    Container container(name.path);
    const ContainerLock lock(name.path);
    Require(!CTOOFile::Exists(name.path), ORK_E_EXISTS);
    try {
        container.Store(ContainerFile::Make(), nullptr, {});
    } catch (const XTOOStatus&) {
        CTOOFile::Delete(name.path);  // it is there when only making its name durable failed
        throw;
    }
    return container;
}

Container Container::Open(const ContainerName& name) {
    Container container(name.path);
    container.Load();
    return container;
}

void Container::Delete(const ContainerName& name) {
    RequireFile(name.path);
    const ContainerLock lock(name.path);
    RequireContainer(name.path);
    Require(CTOOFile::Delete(name.path), ORK_E_BAD_KEYSET);
    CTOOString folder;
    CTOOString file;
    storedev::ParseFullPath(name.path, folder, file);
    CTOOFolder::Sync(folder);
}

std::vector<std::string> Container::List() {
    const CTOOString folder = GetTarnCSPPath();
    const CTOOFindFile files(folder);
    std::vector<std::string> names;
    for (const CTOOString& name : files.GetNames()) {
        try {
            RequireContainer(storedev::MakeFullPath(folder, name).str());
            names.push_back(name.str());
        } catch (const XTOOStatus&) {  // not readable for us: not ours to list
        } catch (const ProviderError&) {
        }
    }
    return names;
}

void Container::Load() {
    RequireFile(m_path);
    const CTOOFile file(m_path, "rb");
    struct stat status {};
    Require(fstat(file.GetDescriptor(), &status) == 0, ORK_E_READ_FAULT);
    const std::uint64_t length = file.Length();
    Require(length <= c_maxContainerSize, ORK_E_DAMAGED);
    IdentObj bytes;
    bytes.SetSize(static_cast<unsigned>(length));
    file.ReadExactly(bytes.GetData(), length);
    ContainerFile loaded = ContainerFile::Parse(bytes);
    // Entries of another container under the same name have nothing to do with those that callers know.
    Require(!m_file || m_file->GetId() == loaded.GetId(), ORK_E_BAD_KEYSET);
    m_file = std::move(loaded);
    m_stamp = Stamp::Of(status);
}

const ContainerFile& Container::File() {
    struct stat status {};
    Require(stat(m_path.c_str(), &status) == 0, ORK_E_BAD_KEYSET);
    if (!(Stamp::Of(status) == m_stamp)) Load();
    return *m_file;
}

const ContainerKey& Container::Unlock(const ContainerSecrets& secrets) {
    if (!m_key || !m_file->Suits(*m_key)) {
        m_key.reset();
        m_key = m_file->Unlock(secrets);
    }
    return *m_key;
}

OpenedEntry Container::OpenEntry(std::uint32_t number, const ContainerSecrets& secrets) {
    const std::size_t index = File().IndexOf(number);
    const PrivateKeys keys = m_file->Open(Unlock(secrets));
    return {m_file->Entries()[index], crypto::SecureBytes(keys.At(index))};
}

void Container::Store(ContainerFile file, const ContainerKey* key, const PrivateKeys& keys) {
    const IdentObj bytes = file.Write(key, keys);
    CTOOWholeFile output(m_path, c_filePermissions);
    output.Write(bytes);
    output.Commit();
    m_file = std::move(file);
    m_stamp = {};  // the next look takes it up; a stamp read here might be another process's
}

void Container::Change(const ContainerSecrets& secrets, const std::function<void(ContainerFile&, PrivateKeys&)>& edit) {
    const ContainerLock lock(m_path);
    ContainerFile file = File();
    if (!file.IsProtected()) {
        ContainerKey key = file.Protect(secrets, secrets.ProtectionBits());
        PrivateKeys keys;
        edit(file, keys);
        Store(std::move(file), &key, keys);
        m_key = std::move(key);
        return;
    }
    const ContainerKey& key = Unlock(secrets);
    PrivateKeys keys = file.Open(key);
    edit(file, keys);
    Store(std::move(file), &key, keys);
}

void Container::ChangeProtection(const ContainerSecrets& secrets, const ContainerSecrets& newSecrets, DWORD changed) {
    const ContainerLock lock(m_path);
    ContainerFile file = File();
    PrivateKeys keys;
    DWORD protection = newSecrets.ProtectionBits();
    if (file.IsProtected()) {
        keys = file.Open(Unlock(secrets));
        protection &= file.Protection() | changed;
    }
    ContainerKey key = file.Protect(newSecrets, protection);
    Store(std::move(file), &key, keys);
    m_key = std::move(key);
}

}  // namespace nalhost::provider
