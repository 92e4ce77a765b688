#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <string_view>
#include <utility>

// LightweightString: a shared, counted string; copying one costs one atomic increment.
//
// A string may be null (it holds no text at all) or empty (it holds a text of no characters). Both
// have size 0, compare equal and give a valid, terminated c_str(); isNull tells them apart. Adding no
// characters gives the left text unchanged, so null plus null is null. A null pointer to characters is
// a null string wherever a text is taken.
//
// Threads:    the body is immutable while shared, so copies may live on different threads. One
//             LightweightString object is for one writer, or many readers, at a time.
// Encoding:   narrow strings are UTF-8, wide ones UTF-32 (wchar_t has 32 bits); Utf8.h converts.
template <class CharT>
class LightweightString
{
public:
    // What an operation takes as a text.
    using View = std::basic_string_view<CharT>;
    // What find answers when there is nothing to find.
    static constexpr std::size_t npos = View::npos;

    // A null string.
    LightweightString() noexcept = default;
    // A copy of text. Null gives a null string.
    LightweightString(const CharT* text) : LightweightString(viewOf(text)) {}
    LightweightString(View text) : body_(text.data() ? Body::make(text, text.size()) : nullptr) {}
    LightweightString(const std::basic_string<CharT>& text) : LightweightString(View(text)) {}
    // A text of size characters that write puts where it is told, in one allocation. write must not throw.
    template <class Write>
    [[nodiscard]] static LightweightString written(std::size_t size, Write write)
    {
        LightweightString result;
        result.body_ = Body::make(View(), size);
        write(result.body_->text());
        result.body_->size = size;
        result.body_->text()[size] = CharT(0);
        return result;
    }
    LightweightString(const LightweightString& other) noexcept : body_(other.body_)
    {
        if (body_)
            body_->refs.fetch_add(1, std::memory_order_relaxed);
    }
    LightweightString(LightweightString&& other) noexcept : body_(std::exchange(other.body_, nullptr)) {}
    ~LightweightString() { release(); }

    LightweightString& operator=(const LightweightString& other) noexcept
    {
        LightweightString(other).swap(*this);
        return *this;
    }
    LightweightString& operator=(LightweightString&& other) noexcept
    {
        LightweightString(std::move(other)).swap(*this);
        return *this;
    }
    // Exchanges both texts.
    void swap(LightweightString& other) noexcept { std::swap(body_, other.body_); }

    // Characters of the text, without the zero behind it.
    [[nodiscard]] std::size_t size() const noexcept { return body_ ? body_->size : 0; }
    // True for a null string and for a text of no characters.
    [[nodiscard]] bool empty() const noexcept { return size() == 0; }
    // True when it holds no text at all.
    [[nodiscard]] bool isNull() const noexcept { return body_ == nullptr; }
    // The text with a zero behind it; never null. Valid until the string changes or goes.
    [[nodiscard]] const CharT* c_str() const noexcept { return body_ ? body_->text() : &terminator; }
    // The text as a view, valid as c_str is.
    [[nodiscard]] View view() const noexcept { return View(c_str(), size()); }
    // A copy.
    [[nodiscard]] std::basic_string<CharT> str() const { return std::basic_string<CharT>(view()); }
    // As view.
    operator View() const noexcept { return view(); }

    // The character at index; the terminating zero for any index at or past the end.
    CharT operator[](std::size_t index) const noexcept { return index < size() ? c_str()[index] : CharT(0); }

    // Appends text. Takes memory only where this string shares its body or has no room left.
    LightweightString& operator+=(View text)
    {
        append(text);
        return *this;
    }
    LightweightString& operator+=(const CharT* text) { return *this += viewOf(text); }
    LightweightString& operator+=(const std::basic_string<CharT>& text) { return *this += View(text); }
    LightweightString& operator+=(const LightweightString& text) { return *this += text.view(); }
    LightweightString& operator+=(CharT character)
    {
        append(View(&character, 1));
        return *this;
    }
    // The first text followed by the second.
    friend LightweightString operator+(const LightweightString& a, View b)
    {
        return b.empty() ? a : joined(a.view(), b);
    }
    friend LightweightString operator+(const LightweightString& a, const LightweightString& b)
    {
        return a + b.view();
    }
    friend LightweightString operator+(const LightweightString& a, const std::basic_string<CharT>& b)
    {
        return a + View(b);
    }
    friend LightweightString operator+(const LightweightString& a, const CharT* b) { return a + viewOf(b); }
    friend LightweightString operator+(const LightweightString& a, CharT b) { return a + View(&b, 1); }
    friend LightweightString operator+(const CharT* a, const LightweightString& b)
    {
        return LightweightString(a) + b.view();
    }
    friend LightweightString operator+(const std::basic_string<CharT>& a, const LightweightString& b)
    {
        return joined(View(a), b.view());
    }
    friend LightweightString operator+(CharT a, const LightweightString& b)
    {
        return joined(View(&a, 1), b.view());
    }

    // A part of the text; both numbers may reach past the end.
    [[nodiscard]] LightweightString substr(std::size_t from, std::size_t count = npos) const
    {
        return from >= size() ? LightweightString() : LightweightString(view().substr(from, count));
    }
    // The first place at or behind from; npos for none.
    [[nodiscard]] std::size_t find(View text, std::size_t from = 0) const noexcept
    {
        return view().find(text, from);
    }
    [[nodiscard]] std::size_t find(CharT character, std::size_t from = 0) const noexcept
    {
        return view().find(character, from);
    }
    // The last place; npos for none.
    [[nodiscard]] std::size_t rfind(CharT character) const noexcept { return view().rfind(character); }
    // Character by character; every text begins with the empty one.
    [[nodiscard]] bool startsWith(View text) const noexcept { return view().starts_with(text); }
    // Character by character; every text ends with the empty one.
    [[nodiscard]] bool endsWith(View text) const noexcept { return view().ends_with(text); }
    // True when both share one body (or both are null); for tests of sharing.
    [[nodiscard]] bool sharesBodyWith(const LightweightString& other) const noexcept
    {
        return body_ == other.body_;
    }

    // True for the same characters; null and empty are equal.
    friend bool operator==(const LightweightString& a, const LightweightString& b) noexcept
    {
        return a.body_ == b.body_ || a.view() == b.view();
    }
    friend bool operator==(const LightweightString& a, const CharT* b) noexcept
    {
        return a.view() == viewOf(b);
    }
    friend bool operator==(const LightweightString& a, View b) noexcept { return a.view() == b; }
    friend bool operator==(const LightweightString& a, const std::basic_string<CharT>& b) noexcept
    {
        return a.view() == View(b);
    }
    // Orders by the values of the characters.
    friend std::strong_ordering operator<=>(const LightweightString& a, const LightweightString& b) noexcept
    {
        return a.view().compare(b.view()) <=> 0;
    }

private:
    static constexpr CharT terminator = CharT(0);

    static View viewOf(const CharT* text) noexcept { return text ? View(text) : View(); }

    // Header of one allocation; the characters and a terminating zero follow it.
    struct Body
    {
        std::atomic<unsigned> refs{1};
        std::size_t size = 0;
        std::size_t capacity = 0;

        CharT* text() noexcept { return reinterpret_cast<CharT*>(this + 1); }

        static Body* make(View text, std::size_t capacity)
        {
            void* memory = ::operator new(sizeof(Body) + (capacity + 1) * sizeof(CharT));
            Body* body = new (memory) Body;
            body->size = text.size();
            body->capacity = capacity;
            if (!text.empty())
                std::memcpy(body->text(), text.data(), text.size() * sizeof(CharT));
            body->text()[text.size()] = CharT(0);
            return body;
        }
        void destroy() noexcept
        {
            this->~Body();
            ::operator delete(this);
        }
    };

    static LightweightString joined(View a, View b)
    {
        LightweightString result;
        result.body_ = Body::make(a, a.size() + b.size());
        result.append(b);
        return result;
    }

    void append(View text)
    {
        if (text.empty())
            return;
        const std::size_t total = size() + text.size();
        // Growing in place is allowed only when nobody else can see the body.
        const bool unique = body_ && body_->refs.load(std::memory_order_acquire) == 1;
        if (!unique || total > body_->capacity) {
            Body* grown = Body::make(view(), total <= 16 ? 16 : total + total / 2);
            std::memcpy(grown->text() + grown->size, text.data(), text.size() * sizeof(CharT));
            grown->size = total;
            grown->text()[total] = CharT(0);
            release();  // only now: text may point into the old body
            body_ = grown;
            return;
        }
        std::memmove(body_->text() + body_->size, text.data(), text.size() * sizeof(CharT));
        body_->size = total;
        body_->text()[total] = CharT(0);
    }

    void release() noexcept
    {
        if (body_ && body_->refs.fetch_sub(1, std::memory_order_acq_rel) == 1)
            body_->destroy();
    }

    Body* body_ = nullptr;
};

// UTF-8.
using NarrowString = LightweightString<char>;
// UTF-32.
using WideString = LightweightString<wchar_t>;

// Equal texts have equal hashes, null and empty ones too.
template <class CharT>
struct std::hash<LightweightString<CharT>>
{
    // That of std::basic_string_view.
    std::size_t operator()(const LightweightString<CharT>& text) const noexcept
    {
        return std::hash<std::basic_string_view<CharT>>()(text.view());
    }
};
