// The intrusive reference count of every shared object, and the counted pointers to such objects.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace Harrowlib201 {

// The object deletes itself when the count falls to zero. A count that would overflow stays at its largest value, and
// the object then lives on: a leak is harmless, a dangling pointer is not. A release too many ends the program.
class CRefCount {
public:
    CRefCount(const CRefCount&) = delete;
    CRefCount& operator=(const CRefCount&) = delete;

    virtual void addRef() noexcept;
    virtual void release() noexcept;

protected:
    CRefCount() noexcept = default;
    explicit CRefCount(uint32_t i_nCount) noexcept : m_nRefCount(i_nCount) {}
    virtual ~CRefCount() = default;

private:
    std::atomic<uint32_t> m_nRefCount{0};
};

// A counted pointer: a copy adds a reference, the end of the pointer releases it. May be null.
template <class T>
class CSmartRefCountPtr {
public:
    CSmartRefCountPtr() noexcept = default;
    CSmartRefCountPtr(std::nullptr_t) noexcept {}
    explicit CSmartRefCountPtr(T* i_pObject) noexcept : m_pObject(i_pObject) { Add(); }
    CSmartRefCountPtr(const CSmartRefCountPtr& i_other) noexcept : m_pObject(i_other.m_pObject) { Add(); }
    CSmartRefCountPtr(CSmartRefCountPtr&& io_other) noexcept : m_pObject(std::exchange(io_other.m_pObject, nullptr)) {}
    template <class U>
    CSmartRefCountPtr(const CSmartRefCountPtr<U>& i_other) noexcept : m_pObject(i_other.get()) {
        Add();
    }
    template <class U>
    CSmartRefCountPtr(CSmartRefCountPtr<U>&& io_other) noexcept
        : m_pObject(std::exchange(io_other.m_pObject, nullptr)) {}
    ~CSmartRefCountPtr() {
        if (m_pObject != nullptr) {
            m_pObject->release();
        }
    }
    CSmartRefCountPtr& operator=(CSmartRefCountPtr i_other) noexcept {
        std::swap(m_pObject, i_other.m_pObject);
        return *this;
    }

    T* get() const noexcept { return m_pObject; }
    T* operator->() const noexcept { return m_pObject; }
    T& operator*() const noexcept { return *m_pObject; }
    explicit operator bool() const noexcept { return m_pObject != nullptr; }

    friend bool operator==(const CSmartRefCountPtr& i_left, const CSmartRefCountPtr& i_right) noexcept {
        return i_left.m_pObject == i_right.m_pObject;
    }

private:
    template <class U>
    friend class CSmartRefCountPtr;

    void Add() noexcept {
        if (m_pObject != nullptr) {
            m_pObject->addRef();
        }
    }

    T* m_pObject = nullptr;
};

// The one place where a counted object is made; it is never held but through a counted pointer. Throws std::bad_alloc,
// or what the constructor throws.
template <class T, class... Arguments>
CSmartRefCountPtr<T> MakeCounted(Arguments&&... i_arguments) {
    return CSmartRefCountPtr<T>(new T(std::forward<Arguments>(i_arguments)...));
}

// The same object seen as a class derived from T; null when it is of another class.
template <class Derived, class T>
CSmartRefCountPtr<Derived> CountedCast(const CSmartRefCountPtr<T>& i_pObject) noexcept {
    return CSmartRefCountPtr<Derived>(dynamic_cast<Derived*>(i_pObject.get()));
}

}  // namespace Harrowlib201
