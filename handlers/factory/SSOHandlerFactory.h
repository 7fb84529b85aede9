// The one handler of each provider type, by name.
#pragma once

#include <map>

#include "handlers/SSOHandler.h"
#include "harrow/locks/CS_Wrapper.h"

namespace morwen {

class SSOHandlerFactory;
using SSOHandlerFactoryPtr = Harrowlib201::CSmartRefCountPtr<SSOHandlerFactory>;

class SSOHandlerFactory : public Harrowlib201::CRefCount {
public:
    // The factory, made on the first call. Throws SSOException; never empty.
    static const SSOHandlerFactoryPtr& instance();

    // The handler of the type, made on the first request for it; many threads get the same one. The name is compared as
    // it stands. Throws SSOException (kMsgUnknownProvider with the type for any other name, or what the handler's
    // constructor throws); nothing is kept then.
    SSOHandlerPtr GetHandler(const SWCharString& i_ssType);

    // Lets every handler go; the next request makes a new one.
    void ReleaseHandlers();

private:
    SSOHandlerPtr MakeHandler(const SWCharString& i_ssType);

    std::map<SWCharString, SSOHandlerPtr> m_mapHandlers S_GUARDED_BY(m_section);
    Harrowlib201::CS_Wrapper m_section;
};

}  // namespace morwen
