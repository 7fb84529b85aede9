// The one core that the exports call. In a file of its own, so that a test of the exports can put another in its place.
#include <new>

#include "harrow/lifetime/CSingleton.h"
#include "harrow/log/STrace.h"
#include "plugin/SSOImpl.h"

namespace morwen {

using namespace Harrowlib201;

const JTCHandleT<SSOImpl>& SSOImpl::instance() {
    try {
        return CSingleton<SSOImpl>::Get();
    } catch (const std::bad_alloc&) {
        S_TRACE("ssoplugin: SSOImpl::instance() -- Out of memory!");
        static const JTCHandleT<SSOImpl> s_none;
        return s_none;
    }
}

}  // namespace morwen
