// Does any text but a true key name a context, and does anything accept it?
#include <cstring>
#include <string>

#include "fuzz/Invariant.h"
#include "morwen/morwenplugin.h"

// The input is laid over the true key as XOR, and appended where it is longer.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* i_pBytes, size_t i_nBytes) {
    static const bool s_bStarted = SSOInitPackage() == SSO_OK;
    static const std::u16string s_true = [] {
        SSOChar* pszKey = nullptr;
        MORWEN_INVARIANT(s_bStarted && SSOAcquireCurrentSecurityContext(u"THREADTOKEN", nullptr, &pszKey) == SSO_OK);
        std::u16string key = pszKey;
        SSOFreeString(pszKey);
        return key;
    }();
    std::u16string key = s_true;
    for (size_t i = 0; i + 1 < i_nBytes; i += 2) {
        char16_t unit = 0;
        std::memcpy(&unit, i_pBytes + i, sizeof(unit));
        if (i / 2 < s_true.size()) {
            key[i / 2] = static_cast<char16_t>(key[i / 2] ^ unit);
        } else {
            key += unit;
        }
    }
    key = key.c_str();
    const bool bTrue = key == s_true;
    const SSOChar* const pszKey = key.c_str();
    MORWEN_INVARIANT(SSOLookupSecurityContext(pszKey) == (bTrue ? SSO_OK : SSO_NO_CONTEXT));
    MORWEN_INVARIANT(SSOImpersonate(pszKey) == (bTrue ? SSO_OK : SSO_ERROR));
    MORWEN_INVARIANT(SSORevert(pszKey) == (bTrue ? SSO_OK : SSO_ERROR));
    MORWEN_INVARIANT(bTrue || SSOReleaseSecurityContext(pszKey) == SSO_NO_CONTEXT);
    MORWEN_INVARIANT(bTrue || SSOAssociateSecurityContext(pszKey, u"mine") == SSO_NO_CONTEXT);
    void* pvToken = nullptr;
    SSOLength nLength = 0;
    MORWEN_INVARIANT(SSOContinueLogin(pszKey, "token", 5, &pvToken, &nLength) == SSO_ERROR);
    SSOError* pError = nullptr;
    MORWEN_INVARIANT(SSOGetError(SSO_ERROR, &pError) == SSO_OK && pError->errCode == SSO_ERROR);
    SSOFreeError(pError);
    SSOChar* pszNewKey = nullptr;
    MORWEN_INVARIANT(SSOAcceptLogin(u"SSPI", pszKey, "token", 5, &pvToken, &nLength, nullptr, &pszNewKey) >=
                     SSO_DENIED);
    MORWEN_INVARIANT(pvToken == nullptr && nLength == 0 && pszNewKey == nullptr);
    return 0;
}
