// Configuration files: whatever parses can be read, put back unchanged byte for byte, and changed.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <string>
#include <string_view>

#include "host/tools/config_text.h"
#include "too/status.h"

using nalhost::ConfigText;

namespace {

constexpr std::size_t c_maxSize = 65536;
constexpr std::size_t c_maxLine = 4096;

void Require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    ConfigText text("fuzz", c_maxSize, c_maxLine);
    try {
        text.Parse(input);
    } catch (const XTOOFile&) {
        return 0;
    }
    Require(text.GetText() == input);

    std::list<CConfigFileSectionListItem> sections;
    text.GetAllSections(sections);
    text.PutAllSections(sections);
    Require(text.GetText() == input);
    for (const CConfigFileSectionListItem& section : sections) {
        std::list<CConfigFileKeyListItem> keys;
        Require(text.GetSection(section.m_name, keys));
        Require(keys.size() == section.m_keys.size());
        if (keys.empty()) continue;
        CTOOString value;
        Require(text.GetValue(section.m_name, keys.front().m_key, value) && value == keys.front().m_value);
    }
    if (sections.empty()) return 0;

    // A change is read back as it was put, by a fresh reader of the changed text.
    const CTOOString name = sections.back().m_name;
    try {
        text.PutValue(name, "fuzz", " \"changed\" ");
        ConfigText changed("fuzz", c_maxSize, c_maxLine);
        changed.Parse(text.GetText());
        CTOOString value;
        Require(changed.GetValue(name, "fuzz", value) && value == " \"changed\" ");
    } catch (const XTOOFile& failure) {
        Require(failure.GetCode() == TOO_E_TOO_LARGE);
    }
    return 0;
}
