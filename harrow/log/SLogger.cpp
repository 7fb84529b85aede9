#include "harrow/log/SLogger.h"

#include "harrow/log/STrace.h"

namespace Harrowlib201 {

void SLogger::Initialize(const char* i_pszProductAndVersion) noexcept {
    S_TRACE("harrow: SLogger::Initialize() -- %1 begins.", i_pszProductAndVersion);
}

void SLogger::Terminate() noexcept {
    S_TRACE("harrow: SLogger::Terminate() -- the package ends.");
}

}  // namespace Harrowlib201
