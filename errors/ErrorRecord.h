// The error record that the host receives.
#pragma once

#include "errors/SSOException.h"
#include "morwen/morwenplugin.h"

namespace morwen {

// Makes a record; it goes back through FreeErrorRecord. Null when memory is short. An out-of-memory exception gives the
// one static record, which needs no memory.
SSOError* MakeErrorRecord(const SSOException& i_exception) noexcept;

// Null and the static record are left alone.
void FreeErrorRecord(SSOError* i_pError) noexcept;

}  // namespace morwen
