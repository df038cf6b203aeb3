// Reference-counted owner of one process-wide object. Its all-zero initial
// state needs no constructor code, so a namespace-scope holder is usable from
// the moment the library is loaded, whatever the order of static
// initialisation elsewhere.
#ifndef OQA_DEMOSAIC_MODULES_UNIQUE_PTR_REFERENCE_COUNTED_H
#define OQA_DEMOSAIC_MODULES_UNIQUE_PTR_REFERENCE_COUNTED_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

template <typename T>
class unique_ptr_reference_counted {
 public:
  constexpr unique_ptr_reference_counted() noexcept = default;
  unique_ptr_reference_counted(unique_ptr_reference_counted const&) = delete;
  unique_ptr_reference_counted& operator=(unique_ptr_reference_counted const&) = delete;
  // Destroys a still-held object whatever the count: this runs when the
  // library is unloaded, and no other thread may use the holder then.
  ~unique_ptr_reference_counted() = default;

  // The first acquire creates the object from the arguments; later ones only
  // count. If creating throws, nothing is stored and the count stays.
  template <typename... Args>
  void acquire(Args&&... args) {
    std::lock_guard<std::mutex> const lock(mutex);
    if (count == 0 && pointer == nullptr) {
      pointer = std::make_unique<T>(std::forward<Args>(args)...);
    }
    ++count;
  }

  // The release that brings the count to zero destroys the object under the
  // lock. With the count already zero it does nothing.
  void release() {
    std::lock_guard<std::mutex> const lock(mutex);
    if (count == 0) {
      return;
    }
    if (--count == 0) {
      pointer.reset();
    }
  }

  // Read without the lock: callers must not race a transform with the last
  // release.
  T* get() const noexcept { return pointer.get(); }

 private:
  std::unique_ptr<T> pointer;
  std::int32_t count = 0;
  std::mutex mutex;
};

#endif  // OQA_DEMOSAIC_MODULES_UNIQUE_PTR_REFERENCE_COUNTED_H
