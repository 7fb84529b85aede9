// A reference to the library itself.
#pragma once

namespace Harrowlib201 {

// While one is held, an unload by the host takes no code away that a thread of the library may be in. The system may
// have none to give (a program that the library is linked into needs none).
class LibraryHold {
public:
    LibraryHold() noexcept = default;
    ~LibraryHold() { Release(); }
    LibraryHold(const LibraryHold&) = delete;
    LibraryHold& operator=(const LibraryHold&) = delete;

    // Both do nothing the second time. The caller of Release must itself be somebody who has loaded the library, or the
    // code goes away that it returns to.
    void Take() noexcept;
    void Release() noexcept;

private:
    void* m_pvLibrary = nullptr;
};

}  // namespace Harrowlib201
