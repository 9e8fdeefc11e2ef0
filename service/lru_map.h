// lru_map.h - a bounded map that forgets what was not used longest.
// In:  keys with values. Out: the same while they are among the last `capacity` used. One thread, or its
// user's lock.
#pragma once

#include <cstddef>
#include <list>
#include <unordered_map>
#include <utility>

namespace vex::service {

template <class Key, class Value, class Hash = std::hash<Key>>
class LruMap {
 public:
  explicit LruMap(size_t capacity) : capacity_(capacity) {}

  // The value of the key, a new one when there is none; it is now the one used last.
  Value& Use(const Key& key) {
    if (const auto found = index_.find(key); found != index_.end()) {
      entries_.splice(entries_.end(), entries_, found->second);
      return found->second->second;
    }
    if (entries_.size() >= capacity_ && !entries_.empty()) PopOldest();
    entries_.emplace_back(key, Value{});
    index_.emplace(key, std::prev(entries_.end()));
    return entries_.back().second;
  }
  Value* Find(const Key& key) {  // does not count as use
    const auto found = index_.find(key);
    return found == index_.end() ? nullptr : &found->second->second;
  }
  // Forgets from the oldest on while `old(value)` holds.
  template <class Old>
  void Forget(Old old) {
    while (!entries_.empty() && old(entries_.front().second)) PopOldest();
  }
  size_t size() const { return entries_.size(); }

 private:
  void PopOldest() {
    index_.erase(entries_.front().first);
    entries_.pop_front();
  }
  const size_t capacity_;
  std::list<std::pair<const Key, Value>> entries_;  // oldest first
  std::unordered_map<Key, typename std::list<std::pair<const Key, Value>>::iterator, Hash> index_;
};

}  // namespace vex::service
