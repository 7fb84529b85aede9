// What every export does with an exception that nobody expects.
#include <functional>

#include "fakes/PlatformTest.h"
#include "plugin/SSOImpl.h"

namespace morwen {

// In place of the core's own.
const JTCHandleT<SSOImpl>& SSOImpl::instance() {
    throw 1;
}

namespace {

using LastResort = PlatformTest;

TEST_F(LastResort, OfEachExport) {
    void* pv = nullptr;
    SSOLength n = 0;
    SSOChar* psz = nullptr;
    ParasSeq* pChain = nullptr;
    SSOError* pError = nullptr;
    const SSOChar* const k = Host(u"1");
    using Calls = std::initializer_list<std::pair<const char*, std::function<uint32_t()>>>;
    const auto check = [&](const std::string& i_before, const std::string& i_behind, const Calls& i_calls) {
        for (const auto& [pszName, call] : i_calls) {
            EXPECT_EQ(call(), 100U) << pszName;
            EXPECT_TRUE(m_trace.Said({std::string(i_before).append(pszName).append("() -- ").append(i_behind)}));
        }
    };
    check("", "Unexpected exception!", {{"InitializePlugin", [&] { return SSOInitPackage(); }}});
    check("", "Unexpected Exception!", {{"UnInitializePlugin", [&] { return SSOTermPackage(); }}});
    check("ssoplugin: ", "Unexpected Exception!",
          {{"InitSSOProvider", [&] { return SSOInitProvider(k, nullptr); }},
           {"InitSSOProvider", [&] { return SSOGetRequiredParameters(k, &pChain); }},
           {"Impersonate", [&] { return SSOImpersonate(k); }},
           {"Revert", [&] { return SSORevert(k); }},
           {"AssociateSecurityContext", [&] { return SSOAssociateSecurityContext(k, k); }},
           {"LookupSecurityContext", [&] { return SSOLookupSecurityContext(k); }},
           {"AcquireCurrentSecurityContext", [&] { return SSOAcquireCurrentSecurityContext(k, nullptr, &psz); }},
           {"ReleaseSecurityContext", [&] { return SSOReleaseSecurityContext(k); }},
           {"ReleaseAllSecurityContexts", [&] { return SSOReleaseAllSecurityContexts(); }}});
    check("ssoplugin: ", "Unexpected exception!",
          {{"StartLogin", [&] { return SSOStartLogin(k, k, k, nullptr, &psz, &pv, &n); }},
           {"ContinueLogin", [&] { return SSOContinueLogin(k, k, 1, &pv, &n); }},
           {"AcceptLogin", [&] { return SSOAcceptLogin(k, k, k, 1, &pv, &n, &pChain, &psz); }},
           {"SSOFreeBuffer", [&] { return SSOFreeBuffer(nullptr); }}});
    check("ssoplugin: ", "Unknown Exception!",
          {{"SSOFreeParameters", [&] { return SSOFreeParameters(nullptr); }},
           {"SSOGetError", [&] { return SSOGetError(100, &pError); }},
           {"SSOFreeError", [&] { return SSOFreeError(nullptr); }},
           {"SSOGetMessageContent", [&] { return SSOGetMessageContent(42254, &psz); }}});
    EXPECT_TRUE(pv == nullptr && psz == nullptr && pChain == nullptr && pError == nullptr);
}

}  // namespace
}  // namespace morwen
