#include "platform/linux/contexts/AnsweringProfile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace morwen {

namespace {

using ValueList = std::unique_ptr<char*[], decltype(&profile_free_list)>;

// A list as libprofile makes them, so that profile_free_list releases it: malloc, every text and the list.
long MakeList(const std::vector<std::string>& i_values, char*** o_pppList) {
    ValueList pList(static_cast<char**>(std::calloc(i_values.size() + 1, sizeof(char*))), profile_free_list);
    if (pList == nullptr) {
        return ENOMEM;
    }
    for (size_t i = 0; i < i_values.size(); ++i) {
        pList[i] = strdup(i_values[i].c_str());
        if (pList[i] == nullptr) {
            return ENOMEM;
        }
    }
    *o_pppList = pList.release();
    return 0;
}

// At the end of an iteration the system's iterator frees itself and clears the pointer that it was given, while the one
// that libkrb5 holds stays and comes back through FreeIterator. Hence the box.
struct IteratorBox {
    void* m_pvIterator = nullptr;
};

}  // namespace

// The functions that libprofile calls.
struct ProfileFunctions {
    static AnsweringProfile& SelfOf(void* i_pvData) { return *static_cast<AnsweringProfile*>(i_pvData); }

    static long GetValues(void* i_pvData, const char* const* i_names, char*** o_pppValues) {
        try {
            const std::vector<std::string>* pValues = nullptr;
            const long nCode = SelfOf(i_pvData).Answer(i_names, pValues);
            return nCode == 0 ? MakeList(*pValues, o_pppValues) : nCode;
        } catch (const std::bad_alloc&) {
            return ENOMEM;
        }
    }

    static void FreeValues(void*, char** i_ppszValues) { profile_free_list(i_ppszValues); }

    static void Release(void* i_pvData) { SelfOf(i_pvData).Release(); }

    static long Copy(void* i_pvData, void** o_ppvData) {
        SelfOf(i_pvData).m_nUsers.fetch_add(1, std::memory_order_relaxed);
        *o_ppvData = i_pvData;
        return 0;
    }

    static long CreateIterator(void* i_pvData, const char* const* i_names, int i_nFlags, void** o_ppvIterator) {
        std::unique_ptr<IteratorBox> pBox(new (std::nothrow) IteratorBox);
        if (pBox == nullptr) {
            return ENOMEM;
        }
        const long nCode =
            profile_iterator_create(SelfOf(i_pvData).m_system.get(), i_names, i_nFlags, &pBox->m_pvIterator);
        if (nCode == 0) {
            *o_ppvIterator = pBox.release();
        }
        return nCode;
    }

    static long Iterate(void*, void* i_pvBox, char** o_ppszName, char** o_ppszValue) {
        return profile_iterator(&static_cast<IteratorBox*>(i_pvBox)->m_pvIterator, o_ppszName, o_ppszValue);
    }

    static void FreeIterator(void*, void* i_pvBox) {
        const std::unique_ptr<IteratorBox> pBox(static_cast<IteratorBox*>(i_pvBox));
        profile_iterator_free(&pBox->m_pvIterator);
    }

    static void FreeString(void*, char* i_pszText) { profile_release_string(i_pszText); }
};

void AnsweringProfile::Release() noexcept {
    if (m_nUsers.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

long AnsweringProfile::Publish(profile_t& o_profile) noexcept {
    profile_vtable functions{};
    functions.minor_ver = 1;
    functions.get_values = ProfileFunctions::GetValues;
    functions.free_values = ProfileFunctions::FreeValues;
    functions.cleanup = ProfileFunctions::Release;
    functions.copy = ProfileFunctions::Copy;
    functions.iterator_create = ProfileFunctions::CreateIterator;
    functions.iterator = ProfileFunctions::Iterate;
    functions.iterator_free = ProfileFunctions::FreeIterator;
    functions.free_string = ProfileFunctions::FreeString;
    const long nCode = profile_init_vtable(&functions, this, &o_profile);
    if (nCode == 0) {
        m_nUsers.fetch_add(1, std::memory_order_relaxed);
    }
    return nCode;
}

}  // namespace morwen
