// The text type of the whole library: UTF-16, immutable, shared by reference count.
#pragma once

#include <algorithm>
#include <atomic>
#include <compare>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace Harrowlib201 {

// A text that stands in the program (_ss).
template <size_t N>
struct TextLiteral {
    // NOLINTNEXTLINE(google-explicit-constructor): a literal is to be one
    consteval TextLiteral(const char16_t (&i_szText)[N]) { std::copy_n(i_szText, N, m_szText); }

    char16_t m_szText[N]{};
};

// A copy costs one atomic increment. The characters are overwritten before their memory is released, because any text
// may be a password. Strings are compared unit by unit: case-sensitive, no locale.
class SWCharString {
public:
    SWCharString() noexcept = default;
    // A null pointer gives the empty text. Throws std::bad_alloc.
    SWCharString(const char16_t* i_pszText);
    explicit SWCharString(std::u16string_view i_text);
    SWCharString(const SWCharString& i_other) noexcept;
    SWCharString(SWCharString&& io_other) noexcept;
    SWCharString& operator=(SWCharString i_other) noexcept;
    ~SWCharString();

    // From another type of UTF-16 unit, such as the wchar_t of some systems. A null pointer gives the empty text. The
    // characters go nowhere but into this string.
    template <class Unit>
    static SWCharString FromUnits(const Unit* i_pszText) {
        static_assert(sizeof(Unit) == sizeof(char16_t));
        SWCharString ssText;
        if (i_pszText != nullptr && *i_pszText != Unit{}) {
            const std::basic_string_view<Unit> text(i_pszText);
            *std::copy(text.begin(), text.end(), ssText.Allocate(text.size())) = u'\0';
        }
        return ssText;
    }

    bool isEmpty() const noexcept { return m_pBody == nullptr; }
    size_t length() const noexcept { return m_pBody == nullptr ? 0 : m_pBody->m_nLength; }
    // Ends with a zero unit; valid as long as a copy of this string lives.
    const char16_t* c_str() const noexcept { return m_pBody == nullptr ? u"" : m_pBody->Text(); }
    std::u16string_view view() const noexcept { return {c_str(), length()}; }
    // NOLINTNEXTLINE(google-explicit-constructor): as the standard library's own strings
    operator std::u16string_view() const noexcept { return view(); }

    friend bool operator==(const SWCharString& i_left, const SWCharString& i_right) noexcept {
        return i_left.length() == i_right.length() &&
               std::memcmp(i_left.c_str(), i_right.c_str(), i_left.length() * sizeof(char16_t)) == 0;
    }
    friend std::strong_ordering operator<=>(const SWCharString& i_left, const SWCharString& i_right) noexcept {
        return Compare(i_left.view(), i_right.view());
    }

private:
    // Stands before the characters in one block.
    struct Body {
        constexpr explicit Body(size_t i_nLength, size_t i_nReferences = 1)
            : m_nReferences(i_nReferences), m_nLength(i_nLength) {}

        char16_t* Text() { return reinterpret_cast<char16_t*>(this + 1); }

        std::atomic<size_t> m_nReferences;  // 0 of a literal, which nobody counts
        size_t m_nLength;
    };
    template <size_t N>
    struct Literal {
        constexpr explicit Literal(const TextLiteral<N>& i_text) : m_body(N - 1, 0) {
            std::copy_n(i_text.m_szText, N, m_szText);
        }

        Body m_body;
        char16_t m_szText[N]{};
    };

    template <TextLiteral Text>
    friend SWCharString operator""_ss() noexcept;
    friend class TextRoom;

    // As the views themselves compare, but passes over equal beginnings, which most keys have in common, faster.
    static std::strong_ordering Compare(std::u16string_view i_left, std::u16string_view i_right) noexcept;

    // Room for so many characters and the zero behind them. Only for an empty string.
    char16_t* Allocate(size_t i_nLength);

    Body* m_pBody = nullptr;  // null for the empty text
};

// Such a text costs nothing: it is neither allocated nor counted nor overwritten.
template <TextLiteral Text>
SWCharString operator""_ss() noexcept {
    constinit static SWCharString::Literal s_literal(Text);
    SWCharString ssText;
    ssText.m_pBody = &s_literal.m_body;
    return ssText;
}

using SString = SWCharString;
using SString_t = SWCharString;

}  // namespace Harrowlib201
