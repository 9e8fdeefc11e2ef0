// dhcp_vex_dll.h - the intrusive list of the snooping store and of the callback registry.
// Circular and doubly linked, the head is the sentinel, elements are appended at the tail. The list owns
// nothing; its user allocates and frees the elements and holds the lock that guards them.
#pragma once

#include <cstddef>
#include <cstdint>

// First member of every element.
struct DhcpDllNode {
  DhcpDllNode* next;
  DhcpDllNode* prev;
};

struct DhcpDll {
  DhcpDllNode link;   // next: first element, prev: last element; the head itself when the list is empty
  uint64_t reserved;  // always zero
  uint32_t count;     // elements; in an interface record's trusted list the trusted flag
};
static_assert(sizeof(DhcpDll) == 32 && offsetof(DhcpDll, reserved) == 16 && offsetof(DhcpDll, count) == 24);

namespace dhcp_vex {

inline void DllInit(DhcpDll& list) {
  list.link = {&list.link, &list.link};
  list.count = 0;
}

inline bool DllIsEmpty(const DhcpDll& list) {
  return list.count == 0 && list.link.next == &list.link && list.link.prev == &list.link;
}

// A zeroed head is an empty list that nobody has initialised yet.
inline void DllAppend(DhcpDll& list, DhcpDllNode& node) {
  if (list.link.prev == nullptr) DllInit(list);
  node = {&list.link, list.link.prev};
  list.link.prev->next = &node;
  list.link.prev = &node;
  ++list.count;
}

// False, and nothing changed, when a neighbour does not point back: such an element must not be freed.
inline bool DllUnlink(DhcpDll& list, DhcpDllNode& node) {
  if (node.next == nullptr || node.prev == nullptr) return false;
  if (node.next->prev != &node || node.prev->next != &node) return false;
  node.prev->next = node.next;
  node.next->prev = node.prev;
  node = {nullptr, nullptr};
  --list.count;
  return true;
}

// The first element for which `matches(element)` holds, or null. The count alone does not say that there are
// elements, so the walk also ends at the head.
template <class Element, class Matches>
Element* DllFind(const DhcpDll& list, Matches matches) {
  if (list.count == 0) return nullptr;
  for (DhcpDllNode* node = list.link.next; node != nullptr && node != &list.link; node = node->next) {
    Element* element = reinterpret_cast<Element*>(node);
    if (matches(*element)) return element;
  }
  return nullptr;
}

template <class Element, class Visit>
void DllForEach(const DhcpDll& list, Visit visit) {
  DllFind<Element>(list, [&visit](Element& element) {
    visit(element);
    return false;
  });
}

}  // namespace dhcp_vex
