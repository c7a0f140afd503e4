// growing_array.h: an array from the heap that grows by appending; for records that can be copied byte by byte.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <type_traits>

#include "foundation/owned.h"

namespace ap {

template <typename T> class GrowingArray {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    // False, with the array unchanged, when there is no memory.
    bool append(const T &item) {
        if (size_ == room_ && !grow()) return false;
        items_.get()[size_++] = item;
        return true;
    }
    size_t size() const { return size_; }
    T &operator[](size_t index) { return items_.get()[index]; }
    T *begin() { return items_.get(); }
    T *end() { return items_.get() + size_; }
    const T *begin() const { return items_.get(); }
    const T *end() const { return items_.get() + size_; }

private:
    bool grow() {
        const size_t room = room_ == 0 ? 16 : room_ * 2;
        auto *items = static_cast<T *>(std::realloc(items_.get(), room * sizeof(T)));
        if (items == nullptr) return false;
        [[maybe_unused]] T *moved = items_.release();
        items_.reset(items);
        room_ = room;
        return true;
    }

    HeapPtr<T> items_;
    size_t size_ = 0, room_ = 0;
};

}  // namespace ap
