// Element access at any byte address.  Callers may hand 16- and 32-bit
// planes at odd addresses; scalar code reads and writes such elements
// through these (one plain move on x86) instead of dereferencing a
// misaligned typed pointer, which the compiler may assume aligned.
#ifndef RVT_FRAME_UNALIGNED_H_
#define RVT_FRAME_UNALIGNED_H_

#include <cstring>

namespace rvt {

template <class T>
inline T LoadAt(const T* p) {
  T v;
  std::memcpy(&v, static_cast<const void*>(p), sizeof(T));
  return v;
}

template <class T>
inline void StoreAt(T* p, T v) {
  std::memcpy(static_cast<void*>(p), &v, sizeof(T));
}

}  // namespace rvt

#endif  // RVT_FRAME_UNALIGNED_H_
