#include "too/config_file.h"

#include <cstdlib>

#include "host/tools/config_text.h"
#include "host/tools/system_file.h"
#include "too/file.h"
#include "too/locker.h"
#include "too/path.h"
#include "too/status.h"

using nalhost::ConfigText;

namespace {

// One name for a file, from whichever folder and through whichever links it is reached.
CTOOString LockNameOf(const CTOOString& file) {
    struct Free {
        void operator()(char* text) const { std::free(text); }  // NOLINT(cppcoreguidelines-no-malloc): realpath's own
    };
    CTOOString folder;
    CTOOString name;
    storedev::ParseFullPath(file, folder, name);
    const std::unique_ptr<char, Free> real(realpath(nalhost::FolderOf(file).c_str(), nullptr));
    return storedev::MakeFullPath(real ? CTOOString(real.get()) : folder, name);
}

}  // namespace

CTOOConfigInfoFile::CTOOConfigInfoFile(const char* file, bool mayBeMissing, unsigned long maxSize,
                                       unsigned long maxLine)
    : m_file(file),
      m_mayBeMissing(mayBeMissing),
      m_maxSize(maxSize ? maxSize : c_defaultMaxSize),
      m_maxLine(maxLine ? maxLine : c_defaultMaxLine) {
    ReRead();
}

CTOOConfigInfoFile::~CTOOConfigInfoFile() = default;

std::unique_ptr<ConfigText> CTOOConfigInfoFile::Load() const {
    auto text = std::make_unique<ConfigText>(m_file, m_maxSize, m_maxLine);
    try {
        constexpr unsigned long most = 0xFFFFFFFFUL;
        const IdentObj content =
            CTOOFile::ReadWhole(m_file, static_cast<std::uint32_t>(m_maxSize < most ? m_maxSize : most));
        text->Parse({reinterpret_cast<const char*>(content.GetData()), content.GetSize()});
    } catch (const XTOOFile& failure) {
        if (failure.GetCode() != TOO_E_FILE_NOT_FOUND || !m_mayBeMissing) throw;
    }
    return text;
}

void CTOOConfigInfoFile::ReRead() {
    m_text = Load();
}

template <class Change>
void CTOOConfigInfoFile::Update(Change change) {
    const auto lock = IPC::CreateWriteLockerDeprecated(LockNameOf(m_file));
    std::unique_ptr<ConfigText> text = Load();
    const std::string before = text->GetText();
    change(*text);
    const std::string after = text->GetText();
    if (after != before || !CTOOFile::Exists(m_file)) CTOOWholeFile::Store(m_file, after.data(), after.size());
    m_text = std::move(text);
}

bool CTOOConfigInfoFile::GetSection(const CTOOString& section, std::list<CConfigFileKeyListItem>* keys) const {
    return m_text->GetSection(section, *keys);
}

void CTOOConfigInfoFile::PutSection(const CTOOString& section, const std::list<CConfigFileKeyListItem>& keys) {
    Update([&](ConfigText& text) { text.PutSection(section, keys); });
}

void CTOOConfigInfoFile::GetAllSections(std::list<CConfigFileSectionListItem>* sections) const {
    m_text->GetAllSections(*sections);
}

void CTOOConfigInfoFile::PutAllSections(const std::list<CConfigFileSectionListItem>& sections) {
    Update([&](ConfigText& text) { text.PutAllSections(sections); });
}

bool CTOOConfigInfoFile::GetValue(const CTOOString& section, const CTOOString& key, CTOOString* value) const {
    return m_text->GetValue(section, key, *value);
}

void CTOOConfigInfoFile::PutValue(const CTOOString& section, const CTOOString& key, const CTOOString& value) {
    Update([&](ConfigText& text) { text.PutValue(section, key, value); });
}

bool CTOOConfigInfoFile::DeleteSection(const CTOOString& section) {
    bool found = false;
    Update([&](ConfigText& text) { found = text.DeleteSection(section); });
    return found;
}
