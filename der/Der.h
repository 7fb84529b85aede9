// DER elements: read from untrusted bytes, and made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace morwen {

struct DerElement {
    uint8_t m_nTag = 0;
    std::span<const uint8_t> m_content;
};

// Takes one element off the front of the bytes. Nothing, and the bytes untouched, when it is cut short or its length is
// not in DER's one form (definite, shortest); tags of more than one byte are not known here.
std::optional<DerElement> TakeDer(std::span<const uint8_t>& io_bytes) noexcept;

// The content when the bytes are exactly one element with this tag.
std::optional<std::span<const uint8_t>> OnlyDer(std::span<const uint8_t> i_bytes, uint8_t i_nTag) noexcept;

constexpr uint8_t kDerInteger = 0x02;
constexpr uint8_t kDerBits = 0x03;
constexpr uint8_t kDerBytes = 0x04;
constexpr uint8_t kDerObject = 0x06;
constexpr uint8_t kDerEnumerated = 0x0A;
constexpr uint8_t kDerSequence = 0x30;
constexpr uint8_t kDerField = 0xA0;  // the tag of a sequence's first field, the next ones follow

// Takes this field off a sequence's front. The content of the one element in it, which must have this tag; nothing, and
// the bytes untouched unless the field is there, when it is another.
std::optional<std::span<const uint8_t>> TakeDerField(std::span<const uint8_t>& io_bytes, uint8_t i_nField,
                                                     uint8_t i_nTag) noexcept;

// Appends the tag and the shortest form of the length of what will follow. Throws std::bad_alloc.
void AppendDerHeader(uint8_t i_nTag, size_t i_nLength, std::vector<uint8_t>& io_bytes);

// The whole element around this content. Throws std::bad_alloc.
std::vector<uint8_t> MakeDer(uint8_t i_nTag, std::span<const uint8_t> i_content);

}  // namespace morwen
