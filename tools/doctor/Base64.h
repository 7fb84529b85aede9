// Bytes as characters that survive copying and pasting.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace morwen::doctor {

std::string ToBase64(std::span<const uint8_t> i_bytes);
// Nothing for what is not base64 with its padding.
std::optional<std::vector<uint8_t>> FromBase64(std::string_view i_text);

}  // namespace morwen::doctor
