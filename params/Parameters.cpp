#include "params/Parameters.h"

#include <cstddef>
#include <cstdlib>
#include <string>
#include <utility>

#include "errors/HostText.h"
#include "errors/SSOException.h"
#include "harrow/log/STrace.h"
#include "harrow/text/SWCharStringConv.h"
#include "params/SequenceOwner.h"
#include "params/SequenceParser.h"

namespace morwen {

using namespace Harrowlib201;

static_assert(sizeof(void*) != 8 || (sizeof(ParasSeq) == 32 && offsetof(ParasSeq, type) == 8 &&
                                     offsetof(ParasSeq, value) == 16 && offsetof(ParasSeq, next) == 24));

namespace {

[[noreturn]] void ThrowWrongType(const SString& i_ssKey) {
    throw SSOException(SSO_ERROR, kMsgParameterType, {i_ssKey});
}

}  // namespace

Parameters::Parameters(const ParasSeq* i_pSequence) {
    try {
        SequenceParser parser(i_pSequence);
        while (!parser.isEnd()) {
            Parameter parameter;
            parser.Pop(parameter.m_ssKey, parameter.m_ssValue, parameter.m_eType);
            Store(std::move(parameter));
        }
    } catch (...) {
        S_FAIL("ssoplugin: Parameters::Parameters(const ParasSeq*) -- Caught an exception!");
        throw;
    }
}

void Parameters::Store(Parameter i_parameter) {
    const SWCharString ssKey = i_parameter.m_ssKey;
    m_mapParameters.insert_or_assign(ssKey, std::move(i_parameter));
}

void Parameters::SetParameter(const SString& i_ssKey, const SString& i_ssValue) {
    Store({i_ssKey, i_ssValue, Parameter::String});
}

void Parameters::SetParameter(const SString& i_ssKey, int64_t i_nValue) {
    Store({i_ssKey, SWCharStringConv::ToString(i_nValue), Parameter::Long});
}

void Parameters::SetParameter(const SString& i_ssKey, bool i_bValue) {
    Store({i_ssKey, i_bValue ? u"1" : u"0", Parameter::Bool});
}

bool Parameters::GetParameter(const SString& i_ssKey, SString& o_ssValue) const {
    const auto found = m_mapParameters.find(i_ssKey);
    if (found == m_mapParameters.end()) {
        S_TRACE("ssoplugin: Parameters::GetParameter(SString) -- %1 not found", i_ssKey);
        return false;
    }
    const Parameter& p = found->second;
    S_ASSERT(p.m_eType == Parameter::String);
    if (p.m_eType != Parameter::String) {
        ThrowWrongType(i_ssKey);
    }
    o_ssValue = p.m_ssValue;
    return true;
}

bool Parameters::GetParameter(const SString& i_ssKey, int64_t& o_nValue) const {
    const auto found = m_mapParameters.find(i_ssKey);
    if (found == m_mapParameters.end()) {
        S_TRACE("ssoplugin: Parameters::GetParameter(long) -- %1 not found", i_ssKey);
        return false;
    }
    const Parameter& p = found->second;
    S_ASSERT(p.m_eType == Parameter::Long);
    if (p.m_eType != Parameter::Long) {
        ThrowWrongType(i_ssKey);
    }
    const bool bConverted = SWCharStringConv::FromString(p.m_ssValue, o_nValue);
    S_ASSERT(bConverted);
    if (!bConverted) {
        S_REASON("ssoplugin: Parameters::GetParameter(long) -- The value of %1 is no number.", i_ssKey);
        throw SSOException(SSO_ERROR);
    }
    return true;
}

bool Parameters::GetParameter(const SString& i_ssKey, bool& o_bValue) const {
    const auto found = m_mapParameters.find(i_ssKey);
    if (found == m_mapParameters.end()) {
        S_TRACE("ssoplugin: Parameters::GetParameter(bool) -- %1 not found", i_ssKey);
        return false;
    }
    const Parameter& p = found->second;
    S_ASSERT(p.m_eType == Parameter::Bool);
    if (p.m_eType != Parameter::Bool) {
        ThrowWrongType(i_ssKey);
    }
    if (p.m_ssValue == u"1") {
        o_bValue = true;
    } else if (p.m_ssValue == u"0" || p.m_ssValue == u"-1") {
        o_bValue = false;
    } else {
        if (ShouldAssert()) {
            const std::string message = "ssoplugin: Parameters::GetParameter(bool) -- Could not get a boolean from " +
                                        SWCharStringConv::ToUtf8(p.m_ssValue.view()) + " for " +
                                        SWCharStringConv::ToUtf8(i_ssKey.view());
            S_FAIL(message.c_str());
        }
        S_REASON("ssoplugin: Parameters::GetParameter(bool) -- The value of %1 is neither 1 nor 0.", i_ssKey);
        throw SSOException(SSO_ERROR);
    }
    return true;
}

bool Parameters::CheckParameters(const Parameters& i_required) const {
    if (i_required.m_mapParameters.empty()) {
        S_TRACE("ssoplugin: Parameters::CheckParameters() -- Nothing to check!");
    }
    for (const auto& required : i_required.m_mapParameters) {
        if (!m_mapParameters.contains(required.first)) {
            return false;
        }
    }
    return true;
}

void Parameters::ToParasSeq(ParasSeq** o_ppParameters) const {
    S_ASSERT_MSG(o_ppParameters, "ssoplugin: Parameters::ToParasSeq() -- NULL pointer!");
    if (o_ppParameters == nullptr) {
        throw SSOException(SSO_ERROR);
    }
    S_ASSERT_MSG(!*o_ppParameters, "ssoplugin: Parameters::ToParasSeq() -- Overwriting non-NULL data!  Possible leak!");
    *o_ppParameters = nullptr;
    const size_t nCount = m_mapParameters.size();
    if (nCount == 0) {
        return;
    }
    constexpr size_t kTooMany = size_t{1} << 59;  // times the size of an element no longer fits 64 bits
    if (nCount >= kTooMany) {
        S_FAIL("Integer overflow.  Aborting.");
        throw SSOException(SSO_ERROR);
    }
    auto* pParameters = static_cast<ParasSeq*>(std::malloc(nCount * sizeof(ParasSeq)));
    S_ASSERT_MSG(pParameters, "ssoplugin: Parameters::ToParasSeq() -- Out of memory!");
    if (pParameters == nullptr) {
        throw SSOException(SSOException::OutOfMemory());
    }
    for (size_t i = 0; i < nCount; ++i) {
        pParameters[i] = {nullptr, 0, nullptr, i + 1 < nCount ? &pParameters[i + 1] : nullptr};
    }
    SequenceOwner owner(pParameters);
    FillSequence(owner.get(), nCount);
    *o_ppParameters = owner.Detach();
}

void Parameters::FillSequence(ParasSeq* io_pParameters, size_t i_nCount) const {
    size_t i = 0;
    for (const auto& [ssKey, parameter] : m_mapParameters) {
        if (i >= i_nCount) {
            S_ASSERT_MSG(0, "ssoplugin: Parameters::ToParasSeq() -- Out of bounds!");
            throw SSOException(SSO_ERROR);
        }
        io_pParameters[i].key = DuplicateString(ssKey);
        io_pParameters[i].type = parameter.m_eType;
        io_pParameters[i].value = DuplicateString(parameter.m_ssValue);
        ++i;
    }
}

void Parameters::FreeSequence(ParasSeq* i_pParameters) noexcept {
    for (ParasSeq* pElement = i_pParameters; pElement != nullptr;) {
        FreeHeapText(pElement->key);
        FreeHeapText(pElement->value);
        pElement->type = 0;
        pElement = std::exchange(pElement->next, nullptr);
    }
    std::free(i_pParameters);
}

SSOChar* Parameters::DuplicateString(const SString& i_ssText) {
    SSOChar* pTemp = CopyToHeap(i_ssText);
    if (pTemp == nullptr && !i_ssText.isEmpty()) {
        S_ASSERT_MSG(pTemp, "ssoplugin: Parameters::DuplicateString() -- Out of memory!");
        throw SSOException(SSOException::OutOfMemory());
    }
    return pTemp;
}

}  // namespace morwen
