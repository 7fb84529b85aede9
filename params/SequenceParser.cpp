#include "params/SequenceParser.h"

#include "errors/HostText.h"
#include "harrow/log/STrace.h"

namespace morwen {

bool SequenceParser::Pop(SString& o_ssKey, SString& o_ssValue, Parameter::Type& o_eType) {
    if (m_pCurrentElement == nullptr) {
        return false;
    }
    o_ssKey = FromHost(m_pCurrentElement->key);
    o_ssValue = FromHost(m_pCurrentElement->value);
    o_eType = static_cast<Parameter::Type>(m_pCurrentElement->type & 0xFFU);
    S_TRACE("ssoplugin: SequenceParser::Pop() -- key=%1, value=%2, type=%3 ", o_ssKey, o_ssValue,
            static_cast<uint32_t>(o_eType));
    m_pCurrentElement = m_pCurrentElement->next;
    return true;
}

}  // namespace morwen
