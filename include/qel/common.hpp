/*
 * qel/common.hpp - type codes, forms, and the helpers the C++ owners share
 * One piece of the C++ interface; include <qel.hpp> rather than this file.
 */
#ifndef QEL_COMMON_HPP
#define QEL_COMMON_HPP

#include <qel.h>
#include <qel/code.hpp>

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <ranges>
#include <initializer_list>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>

namespace qel {

/* Sort direction of var::sort (the C flag: nonzero ascending, 0 descending). */
enum class order : int { descending = 0, ascending = 1 };

/* ------------------------------------------------------------------------
 * Owners
 * ---------------------------------------------------------------------- */

/* Sole owner of one C object held as a T: a pointer, or a record kept by
 * value (a stream).  Traits gives what the C interface does with it:
 * `empty()` the T of an owner holding nothing and `free(T &)` its release
 * (a no-op on empty()); owners whose family can copy also give
 * `clone(const T &)`.  Move-only: a move leaves the source empty. */
template <class T, class Traits>
class unique {
public:
    unique() noexcept : h_(Traits::empty()) {}
    explicit unique(T owned) noexcept : h_(owned) {}
    unique(unique &&o) noexcept : h_(std::exchange(o.h_, Traits::empty())) {}
    unique &operator=(unique &&o) noexcept {
        if (this != &o) {
            Traits::free(h_);
            h_ = std::exchange(o.h_, Traits::empty());
        }
        return *this;
    }
    unique(const unique &) = delete;
    unique &operator=(const unique &) = delete;
    ~unique() { Traits::free(h_); }

    /* The C pointer (still owned). */
    T get() const noexcept requires std::is_pointer_v<T> { return h_; }
    /* Hands ownership back to the caller; the owner becomes empty. */
    [[nodiscard]] T release() noexcept requires std::is_pointer_v<T> { return std::exchange(h_, Traits::empty()); }
    /* Frees what is held and holds `owned` instead. */
    void reset(T owned = Traits::empty()) noexcept requires std::is_pointer_v<T> {
        T old = std::exchange(h_, owned);
        Traits::free(old);
    }
    void swap(unique &o) noexcept { std::swap(h_, o.h_); }
    friend void swap(unique &a, unique &b) noexcept { a.swap(b); }
    explicit operator bool() const noexcept requires std::is_pointer_v<T> { return h_ != nullptr; }

protected:
    T &held() noexcept { return h_; }
    const T &held() const noexcept { return h_; }

private:
    T h_;
};

class var;
class var_ref;
class var_cref;
class schema;
class schema_view;
class xvar;
class xvars;

/* ------------------------------------------------------------------------
 * Internals
 * ---------------------------------------------------------------------- */
namespace detail {

/* Character types: refused as numbers, so that 'a' is not silently 97.
 * signed char and unsigned char are std::int8_t and std::uint8_t, the type
 * of the form byte itself, so they count as small integers. */
template <class T>
inline constexpr bool is_char_v = std::is_same_v<T, char> || std::is_same_v<T, wchar_t> || std::is_same_v<T, char8_t> ||
                                  std::is_same_v<T, char16_t> || std::is_same_v<T, char32_t>;

/* Integer values: every integer type but bool and the character types
 * (std::int8_t and std::uint8_t are integers). */
template <class T>
concept integer_value = std::integral<T> && !std::same_as<T, bool> && !is_char_v<T>;

template <class T>
concept float_value = std::same_as<T, float>;

template <class T>
concept double_value = std::same_as<T, double>;

template <class T>
concept number_value = integer_value<T> || float_value<T> || double_value<T>;

/* Text: anything a std::string_view can be made from (but not a number). */
template <class T>
concept text_value =
    !std::is_arithmetic_v<T> && !std::is_null_pointer_v<T> && std::convertible_to<const T &, std::string_view>;

/* What add / set accept, after dropping cv and references. */
template <class T>
concept value = number_value<std::remove_cvref_t<T>> || text_value<std::remove_cvref_t<T>>;

/* What get<T> returns. */
template <class T>
concept readable = number_value<T> || std::same_as<T, std::string_view>;

/* Bytes and length of a text argument; a NULL C string is the empty string. */
struct text_arg {
    const char *bytes;
    std::int64_t length;
};

template <class T>
inline text_arg text_of(const T &t) noexcept {
    using D = std::decay_t<T>;
    if constexpr (std::is_same_v<D, const char *> || std::is_same_v<D, char *>) {
        const char *p = t;
        if (p == nullptr) return {nullptr, 0};
        return {p, static_cast<std::int64_t>(std::strlen(p))};
    } else {
        const std::string_view s(t);
        return {s.data(), static_cast<std::int64_t>(s.size())};
    }
}

/* A (bytes, length) pair handed out by the library as a string_view. */
inline std::string_view view_of(const char *bytes, std::int64_t length) noexcept {
    if (bytes == nullptr || length <= 0) return {};
    return std::string_view(bytes, static_cast<std::size_t>(length));
}

/* The library's conversions, for search keys: truncate toward zero, NaN and
 * out-of-range giving INT64_MIN; low 32 bits; nearest float with infinities
 * beyond the float range. */
constexpr std::int64_t truncate(double d) noexcept {
    if (!(d >= -9223372036854775808.0 && d < 9223372036854775808.0)) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(d);
}
constexpr std::uint32_t low32(std::int64_t v) noexcept {
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(v));
}
constexpr float nearest_float(double d) noexcept {
    constexpr double overflow = 0x1.ffffffp127; /* FLT_MAX plus half an ulp */
    if (d >= overflow) return std::numeric_limits<float>::infinity();
    if (d <= -overflow) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(d);
}

/* A search key in the width of the stored kind, converted as the keyed
 * adders convert it. */
struct search_key {
    union {
        std::uint32_t u32;
        float f32;
        std::int64_t i64;
        double f64;
    };
    const void *ptr = nullptr; /* NULL: the variant cannot hold this key */
    std::int64_t length = 0;
};

template <class T>
inline void make_key(search_key &k, std::uint32_t type, const T &v) noexcept {
    using D = std::remove_cvref_t<T>;
    const storage where = storage_of(type);
    if constexpr (text_value<D>) {
        if (where == storage::bytes) {
            const text_arg t = text_of(v);
            k.ptr = t.bytes != nullptr ? static_cast<const void *>(t.bytes) : static_cast<const void *>("");
            k.length = t.length;
        }
    } else if (where == storage::bits32 && type == QEL_VAR_FLOAT) {
        if constexpr (integer_value<D>) k.f32 = static_cast<float>(static_cast<std::int64_t>(v));
        else if constexpr (float_value<D>) k.f32 = v;
        else k.f32 = nearest_float(v);
        k.ptr = &k.f32;
    } else if (where == storage::bits32) {
        if constexpr (integer_value<D>) k.u32 = low32(static_cast<std::int64_t>(v));
        else k.u32 = low32(truncate(static_cast<double>(v)));
        k.ptr = &k.u32;
    } else if (where == storage::bits64 && type == QEL_VAR_DOUBLE) {
        if constexpr (integer_value<D>) k.f64 = static_cast<double>(static_cast<std::int64_t>(v));
        else k.f64 = static_cast<double>(v);
        k.ptr = &k.f64;
    } else if (where == storage::bits64) {
        if constexpr (integer_value<D>) k.i64 = static_cast<std::int64_t>(v);
        else k.i64 = truncate(static_cast<double>(v));
        k.ptr = &k.i64;
    }
}

/* Random-access iterator over positions 0..n-1 of something, with the
 * element made by Get(index).  Valid while its holder is unchanged. */
template <class Get>
class index_iterator {
public:
    using value_type = std::remove_cvref_t<std::invoke_result_t<const Get &, std::int64_t>>;
    using reference = value_type;
    using difference_type = std::int64_t;
    using iterator_concept = std::random_access_iterator_tag;
    using iterator_category = std::input_iterator_tag;

    index_iterator() = default;
    index_iterator(Get get, std::int64_t index) noexcept : get_(get), index_(index) {}

    value_type operator*() const noexcept { return get_(index_); }
    value_type operator[](difference_type n) const noexcept { return get_(index_ + n); }
    std::int64_t index() const noexcept { return index_; }

    index_iterator &operator++() noexcept {
        ++index_;
        return *this;
    }
    index_iterator operator++(int) noexcept {
        index_iterator t = *this;
        ++index_;
        return t;
    }
    index_iterator &operator--() noexcept {
        --index_;
        return *this;
    }
    index_iterator operator--(int) noexcept {
        index_iterator t = *this;
        --index_;
        return t;
    }
    index_iterator &operator+=(difference_type n) noexcept {
        index_ += n;
        return *this;
    }
    index_iterator &operator-=(difference_type n) noexcept {
        index_ -= n;
        return *this;
    }

    friend index_iterator operator+(index_iterator it, difference_type n) noexcept { return it += n; }
    friend index_iterator operator+(difference_type n, index_iterator it) noexcept { return it += n; }
    friend index_iterator operator-(index_iterator it, difference_type n) noexcept { return it -= n; }
    friend difference_type operator-(const index_iterator &a, const index_iterator &b) noexcept {
        return a.index_ - b.index_;
    }
    friend bool operator==(const index_iterator &a, const index_iterator &b) noexcept { return a.index_ == b.index_; }
    friend std::strong_ordering operator<=>(const index_iterator &a, const index_iterator &b) noexcept {
        return a.index_ <=> b.index_;
    }

private:
    Get get_{};
    std::int64_t index_ = 0;
};

template <class Get>
class index_range {
public:
    using iterator = index_iterator<Get>;
    index_range() = default;
    index_range(Get get, std::int64_t size) noexcept : get_(get), size_(size < 0 ? 0 : size) {}
    iterator begin() const noexcept { return iterator(get_, 0); }
    iterator end() const noexcept { return iterator(get_, size_); }
    std::int64_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    typename iterator::value_type operator[](std::int64_t i) const noexcept { return get_(i); }

private:
    Get get_{};
    std::int64_t size_ = 0;
};

/* The C functions of one operation, one for each kind of value: text
 * (bytes and length), float, double, and every integer (as int64_t). */
template <class Text, class F32, class F64, class I64>
struct kind_calls {
    Text text;
    F32 f32;
    F64 f64;
    I64 i64;
};
template <class Text, class F32, class F64, class I64>
kind_calls(Text, F32, F64, I64) -> kind_calls<Text, F32, F64, I64>;

/* Hands `call` the C function of v's kind and v as that function takes it
 * (bytes and length, or one number); `call` adds the rest of the arguments. */
template <class Calls, class T, class Call>
inline decltype(auto) with_kind(const Calls &fns, const T &v, Call &&call) noexcept {
    using V = std::remove_cvref_t<T>;
    if constexpr (text_value<V>) {
        const text_arg t = text_of(v);
        return call(fns.text, t.bytes, t.length);
    } else if constexpr (float_value<V>) {
        return call(fns.f32, v);
    } else if constexpr (double_value<V>) {
        return call(fns.f64, v);
    } else {
        return call(fns.i64, static_cast<std::int64_t>(v));
    }
}

/* Reads a T through the C reader of its kind: `call(fn, outs...)` calls fn
 * with the object and place, then the outputs (the string readers' bytes
 * and length). */
template <readable T, class Calls, class Call>
inline T read_kind(const Calls &fns, Call &&call) noexcept {
    if constexpr (std::same_as<T, std::string_view>) {
        const char *s = nullptr;
        std::int64_t n = 0;
        call(fns.text, &s, &n);
        return view_of(s, n);
    } else if constexpr (float_value<T>) {
        return call(fns.f32);
    } else if constexpr (double_value<T>) {
        return call(fns.f64);
    } else {
        return static_cast<T>(call(fns.i64));
    }
}

/* Each family's C calls by kind of value. */
namespace var_calls {
inline constexpr kind_calls add{qel_var_add_string, qel_var_add_float, qel_var_add_double, qel_var_add_long};
inline constexpr kind_calls add_x{qel_var_add_string_x, qel_var_add_float_x, qel_var_add_double_x, qel_var_add_long_x};
inline constexpr kind_calls set{qel_var_set_string, qel_var_set_float, qel_var_set_double, qel_var_set_long};
inline constexpr kind_calls get{qel_var_get_string, qel_var_get_float, qel_var_get_double, qel_var_get_long};
} // namespace var_calls
namespace xvar_calls {
inline constexpr kind_calls add{qel_xvar_add_string, qel_xvar_add_float, qel_xvar_add_double, qel_xvar_add_long};
inline constexpr kind_calls add_x{qel_xvar_add_string_x, qel_xvar_add_float_x, qel_xvar_add_double_x,
                                  qel_xvar_add_long_x};
inline constexpr kind_calls set{qel_xvar_set_string, qel_xvar_set_float, qel_xvar_set_double, qel_xvar_set_long};
inline constexpr kind_calls get{qel_xvar_get_string, qel_xvar_get_float, qel_xvar_get_double, qel_xvar_get_long};
} // namespace xvar_calls
namespace xvars_calls {
inline constexpr kind_calls add{qel_xvars_add_string, qel_xvars_add_float, qel_xvars_add_double, qel_xvars_add_long};
inline constexpr kind_calls set{qel_xvars_set_string, qel_xvars_set_float, qel_xvars_set_double, qel_xvars_set_long};
inline constexpr kind_calls get{qel_xvars_get_string, qel_xvars_get_float, qel_xvars_get_double, qel_xvars_get_long};
} // namespace xvars_calls

template <class T>
inline T get_var_value(const qel_var *p, std::int64_t i) noexcept {
    return read_kind<T>(var_calls::get, [&](auto fn, auto... out) { return fn(p, i, out...); });
}

template <class T>
inline T get_xvar_value(const qel_xvar *p, std::int64_t i) noexcept {
    return read_kind<T>(xvar_calls::get, [&](auto fn, auto... out) { return fn(p, i, out...); });
}

template <class T>
inline T get_xvars_value(const qel_xvars *p, std::int64_t entry, std::int64_t pos) noexcept {
    return read_kind<T>(xvars_calls::get, [&](auto fn, auto... out) { return fn(p, entry, pos, out...); });
}

template <class T>
struct var_value_getter {
    const qel_var *p = nullptr;
    T operator()(std::int64_t i) const noexcept { return get_var_value<T>(p, i); }
};

template <class T>
struct xvar_value_getter {
    const qel_xvar *p = nullptr;
    T operator()(std::int64_t i) const noexcept { return get_xvar_value<T>(p, i); }
};

template <class T>
struct xvars_value_getter {
    const qel_xvars *p = nullptr;
    std::int64_t entry = 0;
    T operator()(std::int64_t pos) const noexcept { return get_xvars_value<T>(p, entry, pos); }
};

template <class Ref>
struct element_getter {
    const qel_var *p = nullptr;
    Ref operator()(std::int64_t i) const noexcept { return Ref(qel_var_get_var_x(p, i)); }
};

template <class D>
class schema_read_ops;

} // namespace detail

} // namespace qel

#endif /* QEL_COMMON_HPP */
