#include "platform/linux/contexts/AnsweringProfile.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

namespace {

using ValueList = std::unique_ptr<char*[], decltype(&profile_free_list)>;

// A list as libprofile makes them, so that profile_free_list releases it: malloc, every text and the list.
long MakeList(const std::vector<std::string>& i_values, char*** o_pppList) {
    ValueList pList(static_cast<char**>(std::calloc(i_values.size() + 1, sizeof(char*))), profile_free_list);
    if (pList == nullptr) {
        return NoteNoMemory();
    }
    for (size_t i = 0; i < i_values.size(); ++i) {
        pList[i] = strdup(i_values[i].c_str());
        if (pList[i] == nullptr) {
            return NoteNoMemory();
        }
    }
    *o_pppList = pList.release();
    return 0;
}

// At the end of an iteration the system's iterator frees itself and clears the pointer that it was given, while the one
// that libkrb5 holds stays and comes back to be freed. Hence the box.
struct IteratorBox {
    void* m_pvIterator = nullptr;
};

AnsweringProfile& SelfOf(void* i_pvSelf) {
    return *static_cast<AnsweringProfile*>(i_pvSelf);
}

}  // namespace

void AnsweringProfile::Release() noexcept {
    if (m_nUsers.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

long AnsweringProfile::Publish(profile_t& o_profile) noexcept {
    profile_vtable functions{};
    functions.minor_ver = 1;
    functions.get_values = [](void* i_pvSelf, const char* const* i_names, char*** o_pppValues) -> long {
        try {
            const std::vector<std::string>* pValues = nullptr;
            const long nCode = SelfOf(i_pvSelf).Answer(i_names, pValues);
            return nCode == 0 ? MakeList(*pValues, o_pppValues) : nCode;
        } catch (const std::bad_alloc&) {
            return NoteNoMemory();
        }
    };
    functions.free_values = [](void*, char** i_ppszValues) { profile_free_list(i_ppszValues); };
    functions.cleanup = [](void* i_pvSelf) { SelfOf(i_pvSelf).Release(); };
    functions.copy = [](void* i_pvSelf, void** o_ppvSelf) -> long {
        SelfOf(i_pvSelf).m_nUsers.fetch_add(1, std::memory_order_relaxed);
        *o_ppvSelf = i_pvSelf;
        return 0;
    };
    functions.iterator_create = [](void* i_pvSelf, const char* const* i_names, int i_nFlags,
                                   void** o_ppvIterator) -> long {
        std::unique_ptr<IteratorBox> pBox(new (std::nothrow) IteratorBox);
        if (pBox == nullptr) {
            return NoteNoMemory();
        }
        const long nCode =
            profile_iterator_create(SelfOf(i_pvSelf).m_system.get(), i_names, i_nFlags, &pBox->m_pvIterator);
        if (nCode == 0) {
            *o_ppvIterator = pBox.release();
        }
        return nCode;
    };
    functions.iterator = [](void*, void* i_pvBox, char** o_ppszName, char** o_ppszValue) {
        return profile_iterator(&static_cast<IteratorBox*>(i_pvBox)->m_pvIterator, o_ppszName, o_ppszValue);
    };
    functions.iterator_free = [](void*, void* i_pvBox) {
        const std::unique_ptr<IteratorBox> pBox(static_cast<IteratorBox*>(i_pvBox));
        profile_iterator_free(&pBox->m_pvIterator);
    };
    functions.free_string = [](void*, char* i_pszText) { profile_release_string(i_pszText); };
    const long nCode = profile_init_vtable(&functions, this, &o_profile);
    if (nCode == 0) {
        m_nUsers.fetch_add(1, std::memory_order_relaxed);
    }
    return nCode;
}

}  // namespace morwen
