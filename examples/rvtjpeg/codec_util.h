// Small helpers shared by the encoder and the decoder.
#ifndef RVTJPEG_CODEC_UTIL_H_
#define RVTJPEG_CODEC_UTIL_H_

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <time.h>

namespace rvtjpeg {

// Uninitialised 64-byte aligned array that keeps its memory when asked for
// the same or a smaller size (buffers are reused from image to image).
template <class T>
class AlignedArray {
 public:
  T* data() { return ptr_.get(); }
  const T* data() const { return ptr_.get(); }
  size_t size() const { return size_; }
  T& operator[](size_t i) { return ptr_.get()[i]; }
  const T& operator[](size_t i) const { return ptr_.get()[i]; }
  // Keeps the first `keep` elements when it has to grow.
  bool Reserve(size_t n, size_t keep = 0) {
    if (n <= capacity_) {
      size_ = n;
      return true;
    }
    const size_t bytes = (n * sizeof(T) + 63) & ~size_t(63);
    T* p = static_cast<T*>(std::aligned_alloc(64, bytes));
    if (!p) return false;
    if (keep && ptr_) std::memcpy(p, ptr_.get(), keep * sizeof(T));
    ptr_.reset(p);
    size_ = capacity_ = n;
    return true;
  }

 private:
  struct Free {
    void operator()(T* p) const { std::free(p); }
  };
  std::unique_ptr<T, Free> ptr_;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

// Adds the calling thread's CPU time since construction (or the last Lap)
// to a counter when timing is on.  CPU time, not wall time: on a shared
// machine other processes cannot inflate it.
class StageClock {
 public:
  explicit StageClock(bool on) : on_(on) {
    if (on_) t_ = Now();
  }
  void Lap(double* counter) {
    if (!on_) return;
    const double now = Now();
    *counter += now - t_;
    t_ = now;
  }

 private:
  static double Now() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
  }
  bool on_;
  double t_ = 0;
};

inline int CeilDiv(int a, int b) { return (a + b - 1) / b; }

}  // namespace rvtjpeg

#endif  // RVTJPEG_CODEC_UTIL_H_
