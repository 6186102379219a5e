#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <utility>

#include "cppmicroservices/Any.h"

namespace cppmicroservices {

/// A map from keys to values of any type, whose kind says whether the case of keys counts.
///
/// Threads: as a plain value.
class AnyMap {
    struct KeyOrder {
        bool ignoresCase;
        bool operator()(const std::string& left, const std::string& right) const;
    };
    using Map = std::map<std::string, Any, KeyOrder>;

public:
    enum map_type : std::uint8_t { ORDERED_MAP, UNORDERED_MAP, UNORDERED_MAP_CASEINSENSITIVE_KEYS };

    using key_type = Map::key_type;
    using mapped_type = Map::mapped_type;
    using value_type = Map::value_type;
    using size_type = Map::size_type;
    using iterator = Map::iterator;
    using const_iterator = Map::const_iterator;

    explicit AnyMap(map_type type)
        : type_(type), map_(KeyOrder{type == UNORDERED_MAP_CASEINSENSITIVE_KEYS}) {}

    map_type GetType() const { return type_; }

    iterator begin() { return map_.begin(); }
    iterator end() { return map_.end(); }
    const_iterator begin() const { return map_.begin(); }
    const_iterator end() const { return map_.end(); }
    const_iterator cbegin() const { return map_.cbegin(); }
    const_iterator cend() const { return map_.cend(); }

    bool empty() const { return map_.empty(); }
    size_type size() const { return map_.size(); }
    size_type count(const key_type& key) const { return map_.count(key); }
    iterator find(const key_type& key) { return map_.find(key); }
    const_iterator find(const key_type& key) const { return map_.find(key); }
    mapped_type& at(const key_type& key) { return map_.at(key); }
    const mapped_type& at(const key_type& key) const { return map_.at(key); }
    mapped_type& operator[](const key_type& key) { return map_[key]; }

    std::pair<iterator, bool> insert(const value_type& value) { return map_.insert(value); }
    template <class... Args>
    std::pair<iterator, bool> emplace(Args&&... args) {
        return map_.emplace(std::forward<Args>(args)...);
    }
    size_type erase(const key_type& key) { return map_.erase(key); }
    void clear() { map_.clear(); }

private:
    map_type type_;
    Map map_;
};

/// Writes `{key : value, ...}`.
std::ostream& operator<<(std::ostream& out, const AnyMap& map);

}  // namespace cppmicroservices
