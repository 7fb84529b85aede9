// A host's library, whose static object ends the package when the process has ended all threads but its last.
#include <memory>

#include "morwen/host.hpp"

extern "C" __declspec(dllexport) void StartPackage() {
    static std::unique_ptr<morwen::host::Package> s_pPackage;
    s_pPackage = std::make_unique<morwen::host::Package>();
    s_pPackage->Use(SSO_PROVIDER_THREADTOKEN);
    static const auto s_context = morwen::host::Context::OfThread();  // the update thread runs
}
