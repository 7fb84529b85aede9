// A map of what is held to save work, which is emptied when it is full.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <utility>

namespace Harrowlib201 {

// More entries than are worked with at once come of hosts or strangers that make up names: the bound keeps them from
// growing, and whoever is worked with soon has an entry again. Takes no lock.
template <class Key, class Value, size_t kMost, class Map = std::map<Key, Value, std::less<>>>
class HeldMap {
public:
    // Null when nothing is held under the key, which may be of a type that the map compares with its own.
    template <class Sought>
    Value* Find(const Sought& i_key) noexcept {
        const auto found = m_map.find(i_key);
        return found != m_map.end() ? &found->second : nullptr;
    }
    // In place of what was there. Throws std::bad_alloc.
    Value& Hold(const Key& i_key, Value i_value) {
        if (m_map.size() >= kMost) {
            m_map.clear();
        }
        return m_map.insert_or_assign(i_key, std::move(i_value)).first->second;
    }
    void Forget(const Key& i_key) noexcept { m_map.erase(i_key); }
    void Clear() noexcept { m_map.clear(); }

private:
    Map m_map;
};

}  // namespace Harrowlib201
