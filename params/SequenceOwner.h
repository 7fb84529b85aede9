// The owner of a chain that Parameters made and the host does not have.
#pragma once

#include <utility>

#include "params/Parameters.h"

namespace morwen {

class SequenceOwner {
public:
    explicit SequenceOwner(ParasSeq* i_pParameters) noexcept : m_pParameters(i_pParameters) {}
    ~SequenceOwner() { Parameters::FreeSequence(m_pParameters); }
    SequenceOwner(const SequenceOwner&) = delete;
    SequenceOwner& operator=(const SequenceOwner&) = delete;

    ParasSeq* get() const noexcept { return m_pParameters; }
    ParasSeq* Detach() noexcept { return std::exchange(m_pParameters, nullptr); }

private:
    ParasSeq* m_pParameters;
};

}  // namespace morwen
