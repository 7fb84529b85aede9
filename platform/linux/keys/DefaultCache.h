// The ticket cache that is used when nobody has named one.
#pragma once

#include <string>

namespace morwen {

// The name in the environment, which is somebody's decision and used whoever owns the cache; null when there is none.
// Valid until the environment changes.
const char* NamedCache() noexcept;

// Why the default cache, of this name, must not be used although nobody has named it: its place is known to everybody,
// often in a folder where everybody may write, and tickets that somebody else has put there would log this process on
// elsewhere as somebody else. It counts as this account's, or root's, if it is a regular file of theirs, and no link; a
// collection (DIR) if its folder is theirs, no link, and nobody else may write there. Empty when it does, when there is
// none, or when it is neither; but once tickets have come from it, it must be there: somebody else's may have come and
// gone between two looks. Throws std::bad_alloc.
std::string FaultOfDefaultCache(const std::string& i_name, bool i_bRead = false);

}  // namespace morwen
