// A cursor over a chain of parameters that the host passed in.
#pragma once

#include "morwen/morwenplugin.h"
#include "params/Parameter.h"

namespace morwen {

class SequenceParser {
public:
    explicit SequenceParser(const ParasSeq* i_pSequence) noexcept : m_pCurrentElement(i_pSequence) {}

    bool isEnd() const noexcept { return m_pCurrentElement == nullptr; }

    // Hands out the next element and moves on; false at the end. The tag is taken as it stands. Throws std::bad_alloc.
    bool Pop(SString& o_ssKey, SString& o_ssValue, Parameter::Type& o_eType);

private:
    const ParasSeq* m_pCurrentElement;
};

}  // namespace morwen
