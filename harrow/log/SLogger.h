// The life of the logger in the trace.
#pragma once

namespace Harrowlib201 {

// The sink belongs to the host and is there before and after; what starts and ends here is the product's use of it,
// which is marked so that a reader of a long trace finds where a run begins, of which version, and where it ends.
class SLogger {
public:
    static void Initialize(const char* i_pszProductAndVersion) noexcept;
    static void Terminate() noexcept;
};

}  // namespace Harrowlib201
