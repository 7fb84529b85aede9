// A set of typed parameters, and its conversion from and to the chain that crosses the boundary.
#pragma once

#include <map>

#include "morwen/morwenplugin.h"
#include "params/Parameter.h"

namespace morwen {

// Values are held as text and converted when asked for. Keys are compared as they stand, case included. Not locked: an
// object is shared between threads only under its owner's lock.
class Parameters {
public:
    Parameters() = default;
    // Of two elements with the same key the later counts; null gives an empty set. Throws std::bad_alloc.
    explicit Parameters(const ParasSeq* i_pSequence);
    Parameters(const Parameters&) = default;
    Parameters(Parameters&&) = default;
    Parameters& operator=(const Parameters&) = default;
    Parameters& operator=(Parameters&&) = default;
    virtual ~Parameters() = default;

    // Each replaces what stood under the key. A literal as value would choose the boolean; that one does not compile.
    void SetParameter(const SString& i_ssKey, const SString& i_ssValue);
    void SetParameter(const SString& i_ssKey, int64_t i_nValue);
    void SetParameter(const SString& i_ssKey, bool i_bValue);
    void SetParameter(const SString& i_ssKey, const char16_t* i_pszValue) = delete;

    // True and the value, or false with the value untouched when there is no such key. Throw SSOException when the
    // value is of another type (kMsgParameterType with the key) or cannot be converted.
    bool GetParameter(const SString& i_ssKey, SString& o_ssValue) const;
    bool GetParameter(const SString& i_ssKey, int64_t& o_nValue) const;
    bool GetParameter(const SString& i_ssKey, bool& o_bValue) const;

    // Whether every key of the other set is present here, whatever its type and value.
    bool CheckParameters(const Parameters& i_required) const;

    // Writes a new chain, sorted by key, in one block; null for an empty set. It goes back through FreeSequence. Throws
    // SSOException; nothing is handed out then.
    void ToParasSeq(ParasSeq** o_ppParameters) const;

    // Releases a chain that ToParasSeq made, and only such a chain; null does nothing.
    static void FreeSequence(ParasSeq* i_pParameters) noexcept;

    // A copy for a chain; null for the empty text. Throws SSOException when memory is short.
    static SSOChar* DuplicateString(const SString& i_ssText);

private:
    using Map = std::map<SWCharString, Parameter>;

    void Store(Parameter i_parameter);
    void FillSequence(ParasSeq* io_pParameters, size_t i_nCount) const;

    Map m_mapParameters;
};

}  // namespace morwen
