// The fixture of tests that take single steps of a login.
#pragma once

#include <string>

#include "fakes/PlatformTest.h"
#include "handlers/kerberos/KerberosSSPIHandler.h"

namespace morwen {

using Harrowlib201::MakeCounted;

class HandshakeTest : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        m_pHandler = MakeCounted<KerberosSSPIHandler>();
    }

    // One step: what it returns or throws, and "=token" when it handed out a buffer, which is given back.
    std::string Step(bool i_bClient, const SSOSessionPtr& i_pSession, const std::string& i_input) {
        SSOCredentialsPtr pCredentials;
        std::string none = Thrown([&] {
            pCredentials = m_pHandler->CreateCredentials({}, {}, m_nCredentials);
            return 0;
        });
        if (!none.empty()) {
            return none;
        }
        uint8_t aStale[1];
        uint8_t* pvOutput = aStale;
        uint64_t nOutput = 77;
        const auto* pvInput = i_input.empty() ? nullptr : reinterpret_cast<const uint8_t*>(i_input.data());
        uint32_t nResult = 0;
        std::string text = Thrown([&] {
            nResult = i_bClient ? m_pHandler->InitializeContext(pCredentials, i_pSession, pvInput, i_input.size(),
                                                                &pvOutput, &nOutput)
                                : m_pHandler->AcceptContext(pCredentials, i_pSession, pvInput, i_input.size(),
                                                            &pvOutput, &nOutput, m_bWantInformation, m_information);
            return nResult;
        });
        text = text.empty() ? std::to_string(nResult) : text;
        if (pvOutput != nullptr) {
            text += "=" + std::string(pvOutput, pvOutput + nOutput);
            m_pHandler->FreeBuffer(pvOutput);
        }
        return text;
    }
    std::string Information() const {
        SString ssUser(u"none");
        SString ssGroups(u"none");
        m_information.GetParameter(u"SSPI_USER_SID", ssUser);
        m_information.GetParameter(u"SSPI_USER_GROUP_SIDS", ssGroups);
        return Utf8(ssUser) + " " + Utf8(ssGroups);
    }
    SSOSessionPtr Session() { return m_pHandler->CreateSession(SpnChain()); }

    Harrowlib201::CSmartRefCountPtr<KerberosSSPIHandler> m_pHandler;
    uint32_t m_nCredentials = SSOHandler::kBoth;
    bool m_bWantInformation = false;
    Parameters m_information;
};

}  // namespace morwen
