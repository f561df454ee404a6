// Small owning arrays on 64-byte boundaries, so that the library's vector
// bodies (16-byte gates) and our own loops always see aligned planes.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace demo {

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};

template <class T>
class AlignedArray {
public:
    AlignedArray() = default;
    explicit AlignedArray(size_t count) { resize(count); }

    void resize(size_t count) {
        const size_t bytes = ((count * sizeof(T) + 63) / 64) * 64;
        void* p = std::aligned_alloc(64, bytes ? bytes : 64);
        if (!p) throw std::bad_alloc();
        std::memset(p, 0, bytes ? bytes : 64);
        data_.reset(static_cast<T*>(p));
        size_ = count;
    }
    T* data() { return data_.get(); }
    const T* data() const { return data_.get(); }
    size_t size() const { return size_; }
    T& operator[](size_t i) { return data_.get()[i]; }
    const T& operator[](size_t i) const { return data_.get()[i]; }

private:
    std::unique_ptr<T[], FreeDeleter> data_;
    size_t size_ = 0;
};

}  // namespace demo
