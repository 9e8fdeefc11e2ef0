// bounded_string.cpp - memset_s, memcpy_s and the bounded formatters.
// In:  destination with its size. Out: 0 or a length; on an error a non-zero code or -1, and a destination
// that holds nothing stale: zeros after a refused copy (as C11 Annex K has it), an empty text after refused
// formatting.
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "dhcp_vex_platform.h"
#include "platform/faults.h"

namespace {

using vex::platform::Import;
using vex::platform::Outcome;
using vex::platform::Watch;

constexpr size_t kLargestDestination = SIZE_MAX >> 1;  // larger is a negative number in disguise

bool ValidText(const char* dest, size_t destMax, const char* format) {
  return dest != nullptr && destMax != 0 && destMax <= kLargestDestination && format != nullptr;
}

int32_t RefuseText(char* dest, size_t destMax) {
  if (dest != nullptr && destMax != 0 && destMax <= kLargestDestination) dest[0] = '\0';
  return -1;
}

// The length of the whole text must leave room for the terminating NUL.
int32_t FormatWhole(char* dest, size_t destMax, const char* format, va_list args) {
  if (!ValidText(dest, destMax, format)) return RefuseText(dest, destMax);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the checker does not follow va_start into here
  const int length = std::vsnprintf(dest, destMax, format, args);
  if (length < 0 || static_cast<size_t>(length) >= destMax) return RefuseText(dest, destMax);
  return length;
}

bool Overlap(const void* a, const void* b, size_t count) {
  const auto first = reinterpret_cast<uintptr_t>(a), second = reinterpret_cast<uintptr_t>(b);
  return first < second ? second - first < count : first - second < count;
}

}  // namespace

extern "C" {

int32_t memset_s(void* dest, size_t destMax, int32_t c, size_t count) {
  if (const Outcome fault = Watch(Import::memset_s, dest, destMax, c, count))
    return static_cast<int32_t>(fault.Code());
  if (dest == nullptr || destMax == 0 || destMax > kLargestDestination) return EINVAL;
  const bool fits = count <= destMax;
  std::memset(dest, c, fits ? count : destMax);
  return fits ? 0 : ERANGE;
}

int32_t memcpy_s(void* dest, size_t destMax, const void* src, size_t count) {
  if (const Outcome fault = Watch(Import::memcpy_s, dest, destMax, src, count))
    return static_cast<int32_t>(fault.Code());
  if (dest == nullptr || destMax == 0 || destMax > kLargestDestination) return EINVAL;
  if (src == nullptr || count > destMax || (count != 0 && Overlap(dest, src, count))) {
    std::memset(dest, 0, destMax);
    return src == nullptr ? EINVAL : ERANGE;
  }
  std::memcpy(dest, src, count);
  return 0;
}

int32_t sprintf_s(char* dest, size_t destMax, const char* format, ...) {
  if (Watch(Import::sprintf_s, dest, destMax, format)) return RefuseText(dest, destMax);
  va_list args;
  va_start(args, format);
  const int32_t length = FormatWhole(dest, destMax, format, args);
  va_end(args);
  return length;
}

int32_t vsprintf_s(char* dest, size_t destMax, const char* format, va_list args) {
  if (Watch(Import::vsprintf_s, dest, destMax, format)) return RefuseText(dest, destMax);
  return FormatWhole(dest, destMax, format, args);
}

// Truncates: the result is the length of what is in dest.
int32_t vsnprintf_truncated_s(char* dest, size_t destMax, const char* format, va_list args) {
  if (Watch(Import::vsnprintf_truncated_s, dest, destMax, format)) return RefuseText(dest, destMax);
  if (!ValidText(dest, destMax, format)) return RefuseText(dest, destMax);
  const int length = std::vsnprintf(dest, destMax, format, args);
  if (length < 0) return RefuseText(dest, destMax);
  return static_cast<size_t>(length) < destMax ? length : static_cast<int32_t>(destMax - 1);
}

}  // extern "C"
