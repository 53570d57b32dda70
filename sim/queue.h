#pragma once

#include <bit>
#include <cstdint>

namespace sim {

// A queue of fixed capacity; the items from head to tail have not been read.
template <class Item, std::uint32_t kCapacity>
struct Queue {
    static_assert(std::has_single_bit(kCapacity), "or the counters must not wrap");
    std::uint32_t head, tail;
    Item items[kCapacity];

    Item& operator[](std::uint32_t place) { return items[place % kCapacity]; }
    const Item& operator[](std::uint32_t place) const { return items[place % kCapacity]; }
    bool is_empty() const { return head == tail; }
    std::uint32_t room() const { return kCapacity - (tail - head); }
    const Item& front() const { return (*this)[head]; }
};

}  // namespace sim
