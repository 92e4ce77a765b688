#pragma once

#include "Qz/InternalRefCount.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

namespace Qz {

// The count of an object that has none of its own. It ends with the last Ptr and deletes the object as
// what the first Ptr knew it to be, whatever the last one calls it.
class ExternalRefCount
{
public:
    // Begins with one reference, that of its maker.
    ExternalRefCount() = default;
    ExternalRefCount(const ExternalRefCount&) = delete;
    ExternalRefCount& operator=(const ExternalRefCount&) = delete;
    virtual ~ExternalRefCount() = default;

    // One more reference.
    void addRef() noexcept { count_.fetch_add(1, std::memory_order_relaxed); }
    // True when the caller dropped the last reference and must delete the count.
    [[nodiscard]] bool dropRef() noexcept { return count_.fetch_sub(1, std::memory_order_acq_rel) == 1; }

private:
    std::atomic<unsigned> count_{1};
};

// The external count of a T, which it owns.
template <class T>
class ExternalRefCountOf : public ExternalRefCount
{
public:
    // Takes the object over.
    explicit ExternalRefCountOf(std::unique_ptr<T> object) : object_(std::move(object)) {}

private:
    std::unique_ptr<T> object_;
};

// Ptr: the counted pointer of the whole system.
//
// A type derived from InternalRefCount carries its own count, so any number of Ptrs may be made from
// the same raw pointer. Any other type gets an external count, made by the first Ptr; such an object
// must be wrapped exactly once and copied from there.
//
// Threads:    the count may change from any thread; one Ptr object is for one thread at a time.
// Beware:     never build a Ptr to "this" inside a constructor: the count is still zero, and the
//             Ptr's end would delete the object that is being made.
template <class T>
class Ptr
{
    static constexpr bool intrusive = std::is_base_of_v<InternalRefCount, T>;

public:
    // Refers to nothing.
    Ptr() noexcept = default;
    // Refers to nothing.
    Ptr(std::nullptr_t) noexcept {}
    // Takes object over: with a count of its own as one more reference, else as its first and only Ptr. Null
    // refers to nothing.
    Ptr(T* object) : object_(object) { acquireNew(); }
    Ptr(const Ptr& other) noexcept : object_(other.object_), external_(other.external_) { addRef(); }
    Ptr(Ptr&& other) noexcept
        : object_(std::exchange(other.object_, nullptr)), external_(std::exchange(other.external_, nullptr))
    {}

    // Shares what other refers to, as its base or with more const.
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    Ptr(const Ptr<U>& other) noexcept : object_(other.object_), external_(other.external_)
    {
        static_assert(Ptr<U>::intrusive == intrusive, "both types must keep their count in the same place");
        addRef();
    }
    // Takes over what other refers to, as its base or with more const; other refers to nothing then.
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    Ptr(Ptr<U>&& other) noexcept
        : object_(std::exchange(other.object_, nullptr)), external_(std::exchange(other.external_, nullptr))
    {
        static_assert(Ptr<U>::intrusive == intrusive, "both types must keep their count in the same place");
    }

    ~Ptr() { release(); }

    Ptr& operator=(const Ptr& other) noexcept
    {
        Ptr(other).swap(*this);
        return *this;
    }
    Ptr& operator=(Ptr&& other) noexcept
    {
        Ptr(std::move(other)).swap(*this);
        return *this;
    }
    // Lets go of the object.
    Ptr& operator=(std::nullptr_t) noexcept
    {
        Ptr().swap(*this);
        return *this;
    }

    // Exchanges what both refer to; no count changes.
    void swap(Ptr& other) noexcept
    {
        std::swap(object_, other.object_);
        std::swap(external_, other.external_);
    }
    // Lets go of the object.
    void reset() noexcept { Ptr().swap(*this); }

    // The object, or null; the caller gets no reference.
    [[nodiscard]] T* get() const noexcept { return object_; }
    // Each REQUIRES: not empty.
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    // True when it refers to an object.
    explicit operator bool() const noexcept { return object_ != nullptr; }

    // Each by address.
    friend bool operator==(const Ptr& a, const Ptr& b) noexcept { return a.object_ == b.object_; }
    friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.object_ == nullptr; }
    // Without this one a raw pointer would be wrapped for the comparison, and the wrapper's end could
    // delete the object.
    friend bool operator==(const Ptr& a, const T* b) noexcept { return a.object_ == b; }

private:
    template <class U>
    friend class Ptr;

    void acquireNew()
    {
        if (!object_)
            return;
        if constexpr (intrusive)
            object_->addRef();
        else
            external_ = new ExternalRefCountOf<T>(std::unique_ptr<T>(object_));
    }
    void addRef() const noexcept
    {
        if (!object_)
            return;
        if constexpr (intrusive)
            object_->addRef();
        else
            external_->addRef();
    }
    void release() noexcept
    {
        if (!object_)
            return;
        if constexpr (intrusive) {
            if (object_->dropRef())
                delete object_;
        } else if (external_->dropRef()) {
            delete external_;
        }
    }

    T* object_ = nullptr;
    ExternalRefCount* external_ = nullptr;  // null for objects with a count of their own
};

// The object as a T, or an empty pointer when it is none. For objects with a count of their own.
template <class T, class U>
[[nodiscard]] Ptr<T> dynamicCast(const Ptr<U>& from) noexcept
{
    static_assert(std::is_base_of_v<InternalRefCount, T>, "a second external count would delete twice");
    return Ptr<T>(dynamic_cast<T*>(from.get()));
}

}  // namespace Qz
