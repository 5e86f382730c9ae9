#include "tools/qnwave/theme.h"

#include "tools/common/option_values.h"

namespace qnwave {
namespace {

// The marks of clipping differ from the wave in brightness too, for those who do not tell red from green.
constexpr Theme kThemes[] = {
    {"light", 0xFFFFFF, 0xF5F7FA, 0xDFE5EC, 0xAEBBC9, 0x1C2733, 0x5B6B7C, 0x1F6DB5, 0x8FC4EC, 0xD9202E},
    {"dark", 0x12161C, 0x1A2028, 0x2B3440, 0x56657A, 0xE8EDF3, 0x98A6B7, 0x2C8FD6, 0xA6D8F9, 0xFF6B5E},
    {"contrast", 0x000000, 0x000000, 0x5E5E5E, 0xFFFFFF, 0xFFFFFF, 0xFFFFFF, 0x00A8FF, 0xFFFFFF, 0xFFD500},
};

}  // namespace

const Theme* FindTheme(std::string_view name) {
  return qntool::FindByName(kThemes, name);
}

std::string ThemeNames() {
  return qntool::NamesOf(kThemes);
}

}  // namespace qnwave
