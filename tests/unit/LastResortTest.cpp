// What every export does with an exception that nobody expects. The first in the program, because what throws here is
// the making of the core.
#include <cstdlib>
#include <functional>
#include <new>

#include "fakes/ExportsTest.h"

static thread_local bool t_bThrow = false;

// Not inlined, or the compiler takes malloc and delete for a pair.

[[gnu::noinline]] void* operator new(size_t i_nBytes) {
    if (std::exchange(t_bThrow, false)) {
        throw 1;
    }
    void* const pv = std::malloc(i_nBytes != 0 ? i_nBytes : 1);
    return pv != nullptr ? pv : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* i_pv) noexcept {
    std::free(i_pv);
}
[[gnu::noinline]] void operator delete(void* i_pv, size_t) noexcept {
    std::free(i_pv);
}

namespace morwen {
namespace {

using LastResort = PlatformTest;

TEST_F(LastResort, OfEachExport) {
    void* pv = nullptr;
    SSOLength n = 0;
    SSOChar* psz = nullptr;
    ParasSeq* pChain = nullptr;
    SSOError* pError = nullptr;
    const SSOChar* const k = Host(u"1");
    const std::pair<const char*, std::function<uint32_t()>> aCases[] = {
        {"InitializePlugin() -- Unexpected exception!", [] { return SSOInitPackage(); }},
        {"UnInitializePlugin() -- Unexpected Exception!", [] { return SSOTermPackage(); }},
        {"ssoplugin: InitSSOProvider() -- Unexpected Exception!", [&] { return SSOInitProvider(k, nullptr); }},
        {"ssoplugin: InitSSOProvider() -- Unexpected Exception!", [&] { return SSOGetRequiredParameters(k, &pChain); }},
        {"ssoplugin: StartLogin() -- Unexpected exception!",
         [&] { return SSOStartLogin(k, k, k, nullptr, &psz, &pv, &n); }},
        {"ssoplugin: ContinueLogin() -- Unexpected exception!", [&] { return SSOContinueLogin(k, k, 1, &pv, &n); }},
        {"ssoplugin: AcceptLogin() -- Unexpected exception!",
         [&] { return SSOAcceptLogin(k, k, k, 1, &pv, &n, &pChain, &psz); }},
        {"ssoplugin: Impersonate() -- Unexpected Exception!", [&] { return SSOImpersonate(k); }},
        {"ssoplugin: Revert() -- Unexpected Exception!", [&] { return SSORevert(k); }},
        {"ssoplugin: AssociateSecurityContext() -- Unexpected Exception!",
         [&] { return SSOAssociateSecurityContext(k, k); }},
        {"ssoplugin: LookupSecurityContext() -- Unexpected Exception!", [&] { return SSOLookupSecurityContext(k); }},
        {"ssoplugin: AcquireCurrentSecurityContext() -- Unexpected Exception!",
         [&] { return SSOAcquireCurrentSecurityContext(k, nullptr, &psz); }},
        {"ssoplugin: ReleaseSecurityContext() -- Unexpected Exception!", [&] { return SSOReleaseSecurityContext(k); }},
        {"ssoplugin: ReleaseAllSecurityContexts() -- Unexpected Exception!",
         [] { return SSOReleaseAllSecurityContexts(); }},
        {"ssoplugin: SSOFreeBuffer() -- Unexpected exception!", [] { return SSOFreeBuffer(nullptr); }},
        {"ssoplugin: SSOFreeParameters() -- Unknown Exception!", [] { return SSOFreeParameters(nullptr); }},
        {"ssoplugin: SSOGetError() -- Unknown Exception!", [&] { return SSOGetError(100, &pError); }},
        {"ssoplugin: SSOFreeError() -- Unknown Exception!", [] { return SSOFreeError(nullptr); }},
        {"ssoplugin: SSOGetMessageContent() -- Unknown Exception!", [&] { return SSOGetMessageContent(42254, &psz); }},
    };
    for (const auto& [pszText, call] : aCases) {
        t_bThrow = true;
        EXPECT_EQ(call(), 100U) << pszText;
        EXPECT_FALSE(t_bThrow);
        EXPECT_TRUE(m_trace.Said({pszText}));
    }
    EXPECT_TRUE(pv == nullptr && psz == nullptr && pChain == nullptr && pError == nullptr);
}

}  // namespace
}  // namespace morwen
