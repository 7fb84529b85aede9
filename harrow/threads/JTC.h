// The thread library: its start, its errors, its counted handle and its thread-local slots.
#pragma once

#include <cstdint>
#include <stdexcept>

#include "harrow/lifetime/CRefCount.h"

namespace Harrowlib201 {

// Every error of the thread library; its name tells which.
class JTCException : public std::runtime_error {
public:
    JTCException(const char* i_pszName, const char* i_pszText) : std::runtime_error(i_pszText), m_pszName(i_pszName) {}
    const char* getName() const noexcept { return m_pszName; }

private:
    const char* m_pszName;  // a literal
};

// The system would not do what the library needs.
class JTCSystemCallException : public JTCException {
public:
    explicit JTCSystemCallException(const char* i_pszText) : JTCException("JTCSystemCallException", i_pszText) {}
};

// The calling thread is one that the library neither started nor adopted.
class JTCUnknownThreadException : public JTCException {
public:
    JTCUnknownThreadException()
        : JTCException("JTCUnknownThreadException", "the calling thread is not known to the thread library") {}
};

// The wait of a thread of the library was interrupted.
class JTCInterruptedException : public JTCException {
public:
    JTCInterruptedException() : JTCException("JTCInterruptedException", "the wait was interrupted") {}
};

// The library is in use as long as one of these lives.
class JTCInitialize {
public:
    JTCInitialize() noexcept;
    ~JTCInitialize();
    JTCInitialize(const JTCInitialize&) = delete;
    JTCInitialize& operator=(const JTCInitialize&) = delete;

    static bool initialized() noexcept;
};

template <class T>
using JTCHandleT = CSmartRefCountPtr<T>;

// As long as it lives, the library knows the thread that made it. Ends on the same thread.
class JTCAdoptCurrentThread {
public:
    JTCAdoptCurrentThread() noexcept;
    ~JTCAdoptCurrentThread();
    JTCAdoptCurrentThread(const JTCAdoptCurrentThread&) = delete;
    JTCAdoptCurrentThread& operator=(const JTCAdoptCurrentThread&) = delete;

    static bool isKnown() noexcept;
};

// Names a slot. A released key names nothing, also when its slot is in use again under a newer key.
struct JTCThreadKey {
    uint32_t m_nSlot = 0;
    uint64_t m_nGeneration = 0;  // 0: no key
};

// Thread-local slots: one pointer for each thread and key, null until set. There is no destructor at thread exit,
// because such a thing would keep the library loaded; who sets a pointer keeps track of what it points to.
class JTCTSS {
public:
    // Throws JTCSystemCallException when all slots are taken.
    static JTCThreadKey allocate();
    static void release(const JTCThreadKey& i_key) noexcept;

    // Both throw JTCSystemCallException for a key that is not allocated.
    static void* get(const JTCThreadKey& i_key);
    static void set(const JTCThreadKey& i_key, void* i_pvValue);
};

}  // namespace Harrowlib201
