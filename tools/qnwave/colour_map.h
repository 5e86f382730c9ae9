// Colours for levels: equal steps of the level are equal steps of brightness to the eye.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qnwave {

constexpr uint32_t kColours = 256;

// 0xRRGGBB, from the softest to the loudest.
using ColourMap = std::array<uint32_t, kColours>;

// Nothing for an unknown name.
std::optional<ColourMap> MakeColourMap(std::string_view name);

// All names, for messages.
std::string ColourMapNames();

}  // namespace qnwave
