// Do chains and texts of the host survive the way in and out, lone surrogates and all?
#include <algorithm>
#include <cstring>
#include <vector>

#include "errors/SSOException.h"
#include "fuzz/Invariant.h"
#include "harrow/text/SWCharStringConv.h"
#include "params/Parameters.h"

using namespace morwen;
using Harrowlib201::SWCharStringConv;

// The input: for each element a tag, the length of key and value, and their units.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* i_pBytes, size_t i_nBytes) {
    std::vector<std::u16string> texts;
    std::vector<uint32_t> tags;
    const auto takeText = [&](size_t i_nUnits) {
        std::u16string& text = texts.emplace_back(std::min(i_nUnits, i_nBytes / 2), u'\0');
        std::memcpy(text.data(), i_pBytes, 2 * text.size());
        i_pBytes += 2 * text.size();
        i_nBytes -= 2 * text.size();
        std::replace(text.begin(), text.end(), u'\0', u'0');  // where a text of C ends
    };
    while (i_nBytes >= 3) {
        const uint8_t aHead[] = {i_pBytes[0], i_pBytes[1], i_pBytes[2]};
        i_pBytes += 3;
        i_nBytes -= 3;
        tags.push_back(aHead[0]);
        takeText(aHead[1]);
        takeText(aHead[2]);
    }
    std::vector<ParasSeq> chain(tags.size());
    for (size_t i = 0; i < chain.size(); ++i) {
        chain[i] = {texts[2 * i].c_str(), tags[i], texts[2 * i + 1].c_str(),
                    i + 1 < chain.size() ? &chain[i + 1] : nullptr};
    }
    const Parameters parameters(chain.empty() ? nullptr : chain.data());
    ParasSeq* pCopy = nullptr;
    parameters.ToParasSeq(&pCopy);
    size_t nCopied = 0;
    for (const ParasSeq* p = pCopy; p != nullptr; p = p->next, ++nCopied) {
        const std::u16string key = p->key != nullptr ? p->key : u"";
        const std::u16string value = p->value != nullptr ? p->value : u"";
        size_t nLast = tags.size();  // of two elements with one key the later counts
        while (nLast-- > 0 && texts[2 * nLast] != key) {
        }
        MORWEN_INVARIANT(nLast < tags.size() && texts[2 * nLast + 1] == value && tags[nLast] == p->type);
        MORWEN_INVARIANT(p->next == nullptr || p->next->key > key);
        bool bValue = false;
        try {
            parameters.GetParameter(key.c_str(), bValue);
            MORWEN_INVARIANT(p->type == SSO_PARAMETER_BOOL && (value == u"1" || value == u"0" || value == u"-1"));
        } catch (const SSOException& exception) {
            MORWEN_INVARIANT(exception.GetCode() == SSO_ERROR);
        }
    }
    MORWEN_INVARIANT((nCopied == 0) == tags.empty());
    Parameters::FreeSequence(pCopy);
    for (const std::u16string& text : texts) {
        const std::string utf8 = SWCharStringConv::ToUtf8(text);
        MORWEN_INVARIANT(SWCharStringConv::ToUtf8(SWCharStringConv::FromUtf8(utf8).view()) == utf8);
        int64_t nNumber = 0;
        if (SWCharStringConv::FromString(SWCharString(text), nNumber)) {
            int64_t nAgain = 0;
            MORWEN_INVARIANT(SWCharStringConv::FromString(SWCharStringConv::ToString(nNumber), nAgain) &&
                             nAgain == nNumber);
        }
    }
    return 0;
}
