// The layer for hosts in C++ must compile alone, as C++17 and under the project's warnings.
#include "morwen/host.hpp"

#include <type_traits>

static_assert(__cplusplus < 202002L && !std::is_copy_constructible_v<morwen::host::Context>);
