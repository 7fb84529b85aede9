#include "errors/ErrorRecord.h"

#include <array>
#include <cstddef>
#include <cstdlib>

#include "errors/HostText.h"
#include "harrow/log/STrace.h"

namespace morwen {

static_assert(sizeof(void*) != 8 || (sizeof(SSOError) == 24 && offsetof(SSOError, messageId) == 4 &&
                                     offsetof(SSOError, substitutions) == 8 && offsetof(SSOError, message) == 16));
static_assert(sizeof(void*) != 8 || (sizeof(SSOSubstitution) == 16 && offsetof(SSOSubstitution, next) == 8));

namespace {

// An ASCII literal in the host's units.
template <size_t N>
constexpr std::array<SSOChar, N> Widen(const char (&i_szText)[N]) {
    std::array<SSOChar, N> text{};
    for (size_t i = 0; i < N; ++i) {
        text[i] = static_cast<SSOChar>(i_szText[i]);
    }
    return text;
}

constexpr auto kOutOfMemoryText = Widen("Morwen failed to allocate memory.\n");
SSOError s_outOfMemoryRecord = {SSO_OUT_OF_MEMORY, kMsgOutOfMemoryRecord, nullptr, kOutOfMemoryText.data()};

// One block, linked in order; null when there is nothing to link or no memory.
SSOSubstitution* MakeSubstitutions(const std::vector<SWCharString>& i_texts) noexcept {
    const size_t nSubstStringCount = i_texts.size();
    S_ASSERT(nSubstStringCount <= 3);
    if (nSubstStringCount == 0) {
        return nullptr;
    }
    auto* pSubstStrings = static_cast<SSOSubstitution*>(std::malloc(nSubstStringCount * sizeof(SSOSubstitution)));
    S_ASSERT(pSubstStrings);
    for (size_t i = 0; pSubstStrings != nullptr && i < nSubstStringCount; ++i) {
        pSubstStrings[i].next = i + 1 < nSubstStringCount ? &pSubstStrings[i + 1] : nullptr;
        pSubstStrings[i].data = CopyToHeap(i_texts[i]);
        S_ASSERT_TEXT(pSubstStrings[i].data != nullptr || i_texts[i].isEmpty(), "pSubstStrings[i].data");
    }
    return pSubstStrings;
}

}  // namespace

SSOError* MakeErrorRecord(const SSOException& i_exception) noexcept {
    if (i_exception.GetCode() == SSO_OUT_OF_MEMORY) {
        return &s_outOfMemoryRecord;
    }
    auto* pError = static_cast<SSOError*>(std::malloc(sizeof(SSOError)));
    if (pError == nullptr) {
        return nullptr;
    }
    *pError = {i_exception.GetCode(), i_exception.GetMessageId(), MakeSubstitutions(i_exception.GetSubstitutions()),
               nullptr};
    return pError;
}

void FreeErrorRecord(SSOError* i_pError) noexcept {
    if (i_pError == nullptr || i_pError == &s_outOfMemoryRecord) {
        return;
    }
    i_pError->errCode = 0;
    i_pError->messageId = 0;
    for (const SSOSubstitution* pElement = i_pError->substitutions; pElement != nullptr; pElement = pElement->next) {
        FreeHeapText(pElement->data);
    }
    std::free(i_pError->substitutions);
    FreeHeapText(i_pError->message);
    std::free(i_pError);
}

}  // namespace morwen
