#pragma once

#include "Qz/Assert.h"

#include <cstddef>
#include <iterator>
#include <utility>
#include <vector>

// Vector: a growable array that forgives a wrong index.
//
// Access out of range prints an assertion line and yields a default-constructed element that belongs
// to the type, so the caller goes on with defined behaviour. What is written to that element is lost
// at the thread's next access out of range.
//
// Threads:    none of its own; guard a shared Vector.
// Indices:    unsigned, from 0. locate answers -1 for "not there".
template <class T>
class Vector
{
public:
    // An empty array.
    Vector() = default;
    // Makes an empty array with room for capacity elements.
    explicit Vector(unsigned capacity) { items_.reserve(capacity); }

    // Elements.
    [[nodiscard]] unsigned size() const { return static_cast<unsigned>(items_.size()); }
    // True without elements.
    [[nodiscard]] bool empty() const { return items_.empty(); }
    // Elements for which there is room.
    [[nodiscard]] unsigned capacity() const { return static_cast<unsigned>(items_.capacity()); }

    // Appends item.
    void add(const T& item) { items_.push_back(item); }
    void add(T&& item) { items_.push_back(std::move(item)); }

    // Inserts before index; an index at or past the end appends.
    void insert(const T& item, unsigned index)
    {
        items_.insert(items_.begin() + static_cast<std::ptrdiff_t>(index < size() ? index : size()), item);
    }

    // Removes count elements from index on; what reaches past the end is ignored.
    void remove(unsigned index, unsigned count)
    {
        if (index >= size() || count == 0)
            return;
        const unsigned left = size() - index;
        const auto first = items_.begin() + static_cast<std::ptrdiff_t>(index);
        items_.erase(first, first + static_cast<std::ptrdiff_t>(count < left ? count : left));
    }
    // Removes one element; an index out of range is ignored.
    void removeIdx(unsigned index) { remove(index, 1); }

    // Index of the first equal element, or -1.
    [[nodiscard]] int locate(const T& item) const
    {
        for (unsigned i = 0; i < size(); ++i)
            if (items_[i] == item)
                return static_cast<int>(i);
        return -1;
    }
    // Removes the first equal element; false when there is none.
    bool removeItem(const T& item)
    {
        const int index = locate(item);
        if (index < 0)
            return false;
        removeIdx(static_cast<unsigned>(index));
        return true;
    }

    // Appends all elements of other and leaves it empty. Consuming itself changes nothing.
    void consume(Vector& other)
    {
        if (&other == this)
            return;
        items_.insert(items_.end(), std::make_move_iterator(other.items_.begin()),
                      std::make_move_iterator(other.items_.end()));
        other.items_.clear();
    }

    // Removes all elements; the room stays.
    void clear() { items_.clear(); }

    // The element at i. Out of range: an assertion line, and an element that belongs to the type (see
    // above).
    T& operator[](unsigned i)
    {
        return Qz::verify(i < size(), "i < size_", "ole/Qz/Vector line 62") ? items_[i] : fallback();
    }
    // The same.
    const T& operator[](unsigned i) const
    {
        return Qz::verify(i < size(), "i < size_", "ole/Qz/Vector line 62") ? items_[i] : fallback();
    }

    // Each as of std::vector: any change of size ends its validity.
    [[nodiscard]] auto begin() { return items_.begin(); }
    [[nodiscard]] auto end() { return items_.end(); }
    [[nodiscard]] auto begin() const { return items_.begin(); }
    [[nodiscard]] auto end() const { return items_.end(); }

private:
    // Per thread, so that two threads with wrong indices do not share the element. It is held by a plain
    // pointer: static destructors run after the thread's variables have ended, and may still ask.
    static T& fallback()
    {
        struct Owner
        {
            T*& element;
            ~Owner() { delete std::exchange(element, nullptr); }
        };
        thread_local T* element = nullptr;
        thread_local const Owner owner{element};
        static_cast<void>(owner);
        if (!element)
            element = new T{};
        else
            *element = T{};
        return *element;
    }

    std::vector<T> items_;
};
