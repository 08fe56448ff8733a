/*
 * qel.hpp - the C++20 interface of qel, header-only, over <qel.h>.
 *
 * Owners free what they hold when they go out of scope; views never free:
 *
 *   qel::var     owns a qel_var      (qel_var_free)
 *   qel::schema  owns a qel_schema   (qel_var_schema_free)
 *   qel::xvar    owns a qel_xvar     (qel_xvar_free)
 *   qel::xvars   owns a qel_xvars    (qel_xvars_free)
 *   qel::var_ref, qel::var_cref      borrowed views of a qel_var (members,
 *                                    elements, or any variant you own)
 *   qel::schema_view                 borrowed read-only view of a schema
 *
 * Owners are move-only; `.get()` gives the C pointer (so every C function
 * stays reachable) and `.release()` hands ownership back to the caller.
 * Values go in and out as C++ types, and the C function is chosen by the
 * type: any integer type (not bool or a character type) goes through the
 * `_long` functions, float through `_float`, double through `_double`, and
 * anything convertible to std::string_view (std::string, string literals,
 * const char *, a NULL const char * meaning the empty string) through the
 * string functions.  Reads name the type: `v.get<double>(i)`,
 * `v.get<std::string_view>(i)`; other integer types than int64_t receive the
 * 64-bit result converted as by static_cast.
 *
 * Nothing here throws, allocates beyond what the C calls allocate, or adds a
 * symbol to the libraries; it works with -fno-exceptions and -fno-rtti.  The
 * C interface's rules hold unchanged: a call on the wrong type code or form
 * does nothing and a read gives a neutral result; a view or string_view
 * handed out stays valid until its holder is next changed or freed; calling
 * anything but `.get()`, `operator bool` or assignment on an empty owner or
 * a null view is undefined, as is passing NULL to the C function.
 */
#ifndef QEL_HPP
#define QEL_HPP

#include <qel.h>

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

/* ------------------------------------------------------------------------
 * Type codes, forms and storage classes
 * ---------------------------------------------------------------------- */

/* Full variant type codes.  Codes 1, 2, 3 and 9 behave identically, and so
 * do 7 and 8; records are code 0 and every code from 10 upward. */
namespace code {
inline constexpr std::uint32_t record0 = 0; /* record storage, no member shortcuts */
inline constexpr std::uint32_t u32 = 1;     /* 32-bit integer read back unsigned */
inline constexpr std::uint32_t i64 = 4;     /* signed 64-bit integer */
inline constexpr std::uint32_t f32 = 5;     /* single float */
inline constexpr std::uint32_t f64 = 6;     /* double */
inline constexpr std::uint32_t bytes = 7;   /* byte string */
inline constexpr std::uint32_t first_record = 10;
} // namespace code

/* Light variant and column set type codes. */
namespace xcode {
inline constexpr std::uint32_t u32 = 1;
inline constexpr std::uint32_t i64 = 2;
inline constexpr std::uint32_t f32 = 3;
inline constexpr std::uint32_t f64 = 4;
inline constexpr std::uint32_t bytes = 5;
} // namespace xcode

/* The `multi` byte: 0 is the single form, any other byte the array form. */
namespace form {
inline constexpr std::uint8_t single = 0;
inline constexpr std::uint8_t multi = 1;
} // namespace form

/* Where a full variant of a given code keeps its value. */
enum class storage : std::uint8_t { bits32, bits64, bytes, record };

/* The storage class of a full variant type code, as the library decides it. */
constexpr storage storage_of(std::uint32_t type) noexcept {
    if (type <= 9) {
        const std::uint32_t bit = std::uint32_t{1} << type;
        if (bit & 0x22eu) return storage::bits32;
        if (bit & 0x50u) return storage::bits64;
        if (bit & 0x180u) return storage::bytes;
    }
    return storage::record;
}

/* Sort direction of var::sort (the C flag: nonzero ascending, 0 descending). */
enum class order : int { descending = 0, ascending = 1 };

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

template <class T>
inline constexpr bool is_char_v =
    std::is_same_v<T, char> || std::is_same_v<T, signed char> || std::is_same_v<T, unsigned char> ||
    std::is_same_v<T, wchar_t> || std::is_same_v<T, char8_t> || std::is_same_v<T, char16_t> ||
    std::is_same_v<T, char32_t>;

/* Integer values: every integer type but bool and the character types. */
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
concept text_value = !std::is_arithmetic_v<T> && !std::is_null_pointer_v<T> &&
                     std::convertible_to<const T &, std::string_view>;

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
    if (!(d >= -9223372036854775808.0 && d < 9223372036854775808.0))
        return std::numeric_limits<std::int64_t>::min();
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
    if constexpr (text_value<D>) {
        if (type == 7 || type == 8) {
            const text_arg t = text_of(v);
            k.ptr = t.bytes != nullptr ? static_cast<const void *>(t.bytes) : static_cast<const void *>("");
            k.length = t.length;
        }
    } else {
        switch (type) {
        case 1: case 2: case 3: case 9:
            if constexpr (integer_value<D>) k.u32 = low32(static_cast<std::int64_t>(v));
            else k.u32 = low32(truncate(static_cast<double>(v)));
            k.ptr = &k.u32;
            break;
        case 5:
            if constexpr (integer_value<D>) k.f32 = static_cast<float>(static_cast<std::int64_t>(v));
            else if constexpr (float_value<D>) k.f32 = v;
            else k.f32 = nearest_float(v);
            k.ptr = &k.f32;
            break;
        case 4:
            if constexpr (integer_value<D>) k.i64 = static_cast<std::int64_t>(v);
            else k.i64 = truncate(static_cast<double>(v));
            k.ptr = &k.i64;
            break;
        case 6:
            if constexpr (integer_value<D>) k.f64 = static_cast<double>(static_cast<std::int64_t>(v));
            else k.f64 = static_cast<double>(v);
            k.ptr = &k.f64;
            break;
        default:
            break;
        }
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

    index_iterator &operator++() noexcept { ++index_; return *this; }
    index_iterator operator++(int) noexcept { index_iterator t = *this; ++index_; return t; }
    index_iterator &operator--() noexcept { --index_; return *this; }
    index_iterator operator--(int) noexcept { index_iterator t = *this; --index_; return t; }
    index_iterator &operator+=(difference_type n) noexcept { index_ += n; return *this; }
    index_iterator &operator-=(difference_type n) noexcept { index_ -= n; return *this; }

    friend index_iterator operator+(index_iterator it, difference_type n) noexcept { return it += n; }
    friend index_iterator operator+(difference_type n, index_iterator it) noexcept { return it += n; }
    friend index_iterator operator-(index_iterator it, difference_type n) noexcept { return it -= n; }
    friend difference_type operator-(const index_iterator &a, const index_iterator &b) noexcept {
        return a.index_ - b.index_;
    }
    friend bool operator==(const index_iterator &a, const index_iterator &b) noexcept {
        return a.index_ == b.index_;
    }
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

template <class T>
inline T get_var_value(const qel_var *p, std::int64_t i) noexcept {
    if constexpr (std::same_as<T, std::string_view>) {
        const char *s = nullptr;
        std::int64_t n = 0;
        qel_var_get_string(p, i, &s, &n);
        return view_of(s, n);
    } else if constexpr (float_value<T>) {
        return qel_var_get_float(p, i);
    } else if constexpr (double_value<T>) {
        return qel_var_get_double(p, i);
    } else {
        return static_cast<T>(qel_var_get_long(p, i));
    }
}

template <class T>
inline T get_xvar_value(const qel_xvar *p, std::int64_t i) noexcept {
    if constexpr (std::same_as<T, std::string_view>) {
        const char *s = nullptr;
        std::int64_t n = 0;
        qel_xvar_get_string(p, i, &s, &n);
        return view_of(s, n);
    } else if constexpr (float_value<T>) {
        return qel_xvar_get_float(p, i);
    } else if constexpr (double_value<T>) {
        return qel_xvar_get_double(p, i);
    } else {
        return static_cast<T>(qel_xvar_get_long(p, i));
    }
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
    T operator()(std::int64_t pos) const noexcept;
};

template <class Ref>
struct element_getter {
    const qel_var *p = nullptr;
    Ref operator()(std::int64_t i) const noexcept { return Ref(qel_var_get_var_x(p, i)); }
};

template <class D>
class schema_read_ops;

} // namespace detail

/* ------------------------------------------------------------------------
 * Schemas
 * ---------------------------------------------------------------------- */

/* One member of a schema: its name (borrowed from the schema), type code,
 * multi byte and position. */
struct schema_member {
    std::string_view name;
    std::uint32_t type = 0;
    std::uint8_t multi = 0;
    std::int64_t index = -1;
};

namespace detail {

struct schema_getter {
    const qel_schema *p = nullptr;
    schema_member operator()(std::int64_t i) const noexcept {
        const char *name = nullptr;
        std::int64_t length = 0;
        std::uint32_t type = 0;
        std::uint8_t multi = 0;
        qel_var_schema_get_at(p, i, &name, &length, &type, &multi);
        return schema_member{view_of(name, length), type, multi, i};
    }
};

/* The read operations every schema handle has. */
template <class D>
class schema_read_ops {
public:
    /* Number of members. */
    std::int64_t size() const noexcept { return qel_var_schema_size(self()); }
    /* Member i (name, type, multi); an out-of-range i gives an empty name
     * and type 0, multi 0. */
    schema_member at(std::int64_t i) const noexcept { return schema_getter{self()}(i); }
    schema_member operator[](std::int64_t i) const noexcept { return at(i); }
    /* The first member of this name, or nothing. */
    std::optional<schema_member> find(std::string_view name) const noexcept {
        std::uint32_t type = 0;
        std::uint8_t multi = 0;
        const int i = qel_var_schema_find(self(), name.data(), static_cast<std::int64_t>(name.size()), &type, &multi);
        if (i < 0) return std::nullopt;
        return schema_member{at(i).name, type, multi, i};
    }
    /* The members in order, as schema_member values. */
    index_range<schema_getter> members() const noexcept { return {schema_getter{self()}, size()}; }
    index_iterator<schema_getter> begin() const noexcept { return members().begin(); }
    index_iterator<schema_getter> end() const noexcept { return members().end(); }

private:
    const qel_schema *self() const noexcept { return static_cast<const D &>(*this).get(); }
};

} // namespace detail

/* Borrowed, read-only view of a schema (for example a variant's). */
class schema_view : public detail::schema_read_ops<schema_view> {
public:
    schema_view() = default;
    explicit schema_view(const qel_schema *p) noexcept : p_(p) {}
    const qel_schema *get() const noexcept { return p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }
    friend bool operator==(schema_view a, schema_view b) noexcept { return a.p_ == b.p_; }

private:
    const qel_schema *p_ = nullptr;
};

/* Owner of a schema.  It must outlive every variant built from it. */
class schema : public detail::schema_read_ops<schema> {
public:
    /* A new, empty schema. */
    schema() noexcept : p_(qel_var_schema_new()) {}
    /* Takes ownership of a schema from qel_var_schema_new (or NULL). */
    [[nodiscard]] static schema adopt(qel_schema *owned) noexcept { return schema(owned, 0); }

    schema(schema &&o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
    schema &operator=(schema &&o) noexcept {
        if (this != &o) reset(std::exchange(o.p_, nullptr));
        return *this;
    }
    schema(const schema &) = delete;
    schema &operator=(const schema &) = delete;
    ~schema() { qel_var_schema_free(p_); }

    qel_schema *get() const noexcept { return p_; }
    [[nodiscard]] qel_schema *release() noexcept { return std::exchange(p_, nullptr); }
    void reset(qel_schema *owned = nullptr) noexcept { qel_var_schema_free(std::exchange(p_, owned)); }
    explicit operator bool() const noexcept { return p_ != nullptr; }
    operator schema_view() const noexcept { return schema_view(p_); }

    /* Appends a member; the type code keeps its low 16 bits.  Returns *this
     * so that members can be chained. */
    schema &add(std::string_view name, std::uint32_t type, std::uint8_t multi = form::single) noexcept {
        qel_var_schema_add(p_, name.data(), static_cast<std::int64_t>(name.size()), type, multi);
        return *this;
    }
    /* Changes member i's type and form (not its name); out of range: nothing. */
    void set_at(std::int64_t i, std::uint32_t type, std::uint8_t multi) noexcept {
        qel_var_schema_set_at(p_, i, type, multi);
    }

private:
    schema(qel_schema *p, int) noexcept : p_(p) {}
    qel_schema *p_;
};

/* ------------------------------------------------------------------------
 * Schema resolvers
 * ---------------------------------------------------------------------- */
namespace detail {

inline qel_schema *schema_ptr(qel_schema *p) noexcept { return p; }
inline qel_schema *schema_ptr(std::nullptr_t) noexcept { return nullptr; }
inline qel_schema *schema_ptr(const schema &s) noexcept { return s.get(); }
inline qel_schema *schema_ptr(const schema *s) noexcept { return s != nullptr ? s->get() : nullptr; }
/* A schema returned by value would be freed before it is used. */
qel_schema *schema_ptr(schema &&) = delete;

template <class F>
qel_schema *resolver_trampoline(void *context, std::uint32_t type) noexcept {
    return schema_ptr(std::invoke(*static_cast<F *>(context), type));
}

template <class R>
void *context_of(R &r) noexcept {
    return const_cast<void *>(static_cast<const volatile void *>(std::addressof(r)));
}

} // namespace detail

/* A resolver: called with a record type code, gives the schema for it as a
 * qel_schema *, a qel::schema * or a reference to a live qel::schema. */
template <class F>
concept resolver = std::invocable<F &, std::uint32_t> && requires(F &f, std::uint32_t t) {
    { detail::schema_ptr(std::invoke(f, t)) } -> std::same_as<qel_schema *>;
};

/* ------------------------------------------------------------------------
 * Full variant: operations shared by var, var_ref and var_cref
 * ---------------------------------------------------------------------- */

/* A member of a record during a walk: its name (borrowed from the record's
 * hash) and the member variant. */
template <class Ref>
struct basic_member {
    std::string_view name;
    Ref value;
};

namespace detail {

/* Walks a record's member hash in insertion order, skipping cleared entries.
 * Adding members during the walk invalidates it. */
template <class Ref>
class member_iterator {
public:
    using value_type = basic_member<Ref>;
    using reference = value_type;
    using difference_type = std::ptrdiff_t;
    using iterator_concept = std::forward_iterator_tag;
    using iterator_category = std::input_iterator_tag;

    member_iterator() = default;
    explicit member_iterator(qel_hash *h) noexcept : h_(h) {
        entry_ = qel_hash_entry_first(h_, &cursor_);
        skip();
    }

    value_type operator*() const noexcept {
        std::string_view name;
        if (entry_->key_length != 0)
            name = std::string_view(h_->key_pool + entry_->key_offset, entry_->key_length);
        return value_type{name, Ref(static_cast<qel_var *>(entry_->value))};
    }
    member_iterator &operator++() noexcept {
        entry_ = qel_hash_entry_next(h_, &cursor_, entry_);
        skip();
        return *this;
    }
    member_iterator operator++(int) noexcept {
        member_iterator t = *this;
        ++*this;
        return t;
    }
    friend bool operator==(const member_iterator &a, const member_iterator &b) noexcept {
        return a.entry_ == b.entry_;
    }

private:
    void skip() noexcept {
        while (entry_ != nullptr && entry_->value == nullptr) entry_ = qel_hash_entry_next(h_, &cursor_, entry_);
    }
    qel_hash *h_ = nullptr;
    void *cursor_ = nullptr;
    qel_hash_entry *entry_ = nullptr;
};

template <class Ref>
class member_range {
public:
    member_range() = default;
    explicit member_range(qel_hash *h) noexcept : h_(h) {}
    member_iterator<Ref> begin() const noexcept { return h_ != nullptr ? member_iterator<Ref>(h_) : member_iterator<Ref>(); }
    member_iterator<Ref> end() const noexcept { return member_iterator<Ref>(); }
    bool empty() const noexcept { return begin() == end(); }

private:
    qel_hash *h_ = nullptr;
};

inline qel_hash *member_hash(const qel_var *p) noexcept {
    if (p->multi != 0 || storage_of(p->type) != storage::record) return nullptr;
    /* The walk does not change the hash; the C walk takes a mutable one. */
    return const_cast<qel_hash *>(&p->data.members);
}

/* Read operations of every full-variant handle (D::get() gives the pointer). */
template <class D, class CRef>
class var_read_ops {
public:
    /* Type code. */
    std::uint32_t type() const noexcept { return qel_var_type(c()); }
    /* The multi byte, sign-extended (0 single; 1, 2, -1 ... array form). */
    int multi() const noexcept { return qel_var_multi(c()); }
    bool is_multi() const noexcept { return qel_var_multi(c()) != 0; }
    storage storage_class() const noexcept { return storage_of(qel_var_type(c())); }
    /* Element count of an array; 0 for every single variant. */
    std::int64_t size() const noexcept { return qel_var_size(c()); }
    /* The schema the variant refers to (not owned by it). */
    schema_view schema() const noexcept { return schema_view(qel_var_schema(c())); }

    /* The value (element `index` of an array) read as T: an integer type,
     * float, double or std::string_view (a view of the variant's own bytes,
     * valid until it next changes).  Wrong class: 0, 0.0 or empty. */
    template <readable T>
    T get(std::int64_t index = 0) const noexcept {
        return get_var_value<T>(c(), index);
    }
    /* The elements read as T, by index. */
    template <readable T>
    index_range<var_value_getter<T>> values() const noexcept {
        return {var_value_getter<T>{c()}, qel_var_size(c())};
    }

    /* Caller value of a single variant, or of array entry `index` (negative:
     * the last entry; up to the capacity). */
    std::uint64_t get_buf(std::int64_t index = 0) const noexcept { return qel_var_get_buf(c(), index); }
    /* Bytes allocated and in use for a single value (0 for arrays, records). */
    std::int64_t buf_size() const noexcept { return qel_var_buf_size(c()); }
    std::int64_t buf_len() const noexcept { return qel_var_buf_len(c()); }

    /* Index of an array entry holding `key` (converted to the stored kind
     * the way the keyed adders convert it), or -1.  find is linear; bfind
     * needs an array sorted ascending. */
    template <class T>
        requires value<T>
    std::int64_t find(const T &key) const noexcept {
        search_key k;
        make_key(k, qel_var_type(c()), key);
        return k.ptr != nullptr ? qel_var_find(c(), k.ptr, k.length) : -1;
    }
    template <class T>
        requires value<T>
    std::int64_t bfind(const T &key) const noexcept {
        search_key k;
        make_key(k, qel_var_type(c()), key);
        return k.ptr != nullptr ? qel_var_bfind(c(), k.ptr, k.length) : -1;
    }

    /* Member `name` of a single record of code 10 or above, or a null view. */
    CRef member(std::string_view name) const noexcept {
        return CRef(qel_var_get_val(c(), name.data(), static_cast<std::int64_t>(name.size())));
    }
    CRef operator[](std::string_view name) const noexcept { return member(name); }
    /* Element `index` of a record array (the record itself when single), or
     * a null view. */
    CRef element(std::int64_t index) const noexcept { return CRef(qel_var_get_var_x(c(), index)); }
    CRef operator[](std::int64_t index) const noexcept { return element(index); }
    /* Elements of a record array. */
    index_range<element_getter<CRef>> elements() const noexcept {
        return {element_getter<CRef>{c()}, storage_of(qel_var_type(c())) == storage::record ? qel_var_size(c()) : 0};
    }
    /* Members of a single record, in the order they were inserted (empty
     * for anything else). */
    member_range<CRef> members() const noexcept { return member_range<CRef>(member_hash(c())); }

    /* An independent deep copy owned by the caller, as qel_var_copy makes it
     * into a fresh variant: the same type code, form and schema, the
     * value(s), members and elements, and (single form) the caller value. */
    [[nodiscard]] var clone() const noexcept;

protected:
    const qel_var *c() const noexcept { return static_cast<const D &>(*this).get(); }
};

/* Read and write operations of a mutable handle (var and var_ref).  Writes
 * are non-const members: a const var, or a const var_ref, only reads. */
template <class D>
class var_ops : public var_read_ops<D, var_cref> {
    using base = var_read_ops<D, var_cref>;

public:
    using base::element;
    using base::elements;
    using base::member;
    using base::members;
    using base::operator[];

    /* --- re-forming --- */

    /* Re-forms to (type, multi) unless both already match exactly; the
     * schema stays. */
    void change(std::uint32_t type, std::uint8_t multi = form::single) noexcept { qel_var_change(m(), type, multi); }
    /* The same, with the schema given by a resolver (called for the type and
     * then for every member created). */
    template <resolver R>
    void change(std::uint32_t type, std::uint8_t multi, R &&r) noexcept {
        using F = std::remove_reference_t<R>;
        qel_var_change_x(m(), type, multi, context_of(r), &resolver_trampoline<F>);
    }
    /* The same, with `s` as the schema of the variant and of every member. */
    void change(std::uint32_t type, std::uint8_t multi, const qel::schema &s) noexcept {
        qel_var_change_x(m(), type, multi, s.get(), nullptr);
    }

    /* --- values --- */

    /* Appends a value to an array (a single variant ignores it). */
    template <class T>
        requires value<T>
    void add(const T &v) noexcept {
        using V = std::remove_cvref_t<T>;
        if constexpr (text_value<V>) {
            const text_arg t = text_of(v);
            qel_var_add_string(m(), t.bytes, t.length);
        } else if constexpr (float_value<V>) {
            qel_var_add_float(m(), v);
        } else if constexpr (double_value<V>) {
            qel_var_add_double(m(), v);
        } else {
            qel_var_add_long(m(), static_cast<std::int64_t>(v));
        }
    }
    /* Appends every value of a range (a span, a vector, a list...). */
    template <class R>
        requires std::ranges::input_range<const R> && value<std::ranges::range_reference_t<const R>>
    void add_all(const R &vs) noexcept {
        for (auto &&v : vs) add(v);
    }
    template <class T>
        requires value<T>
    void add_all(std::initializer_list<T> vs) noexcept {
        for (const T &v : vs) add(v);
    }
    /* Replaces element `index` of an array, or the single value (the index
     * is then ignored; the caller value stays). */
    template <class T>
        requires value<T>
    void set(std::int64_t index, const T &v) noexcept {
        using V = std::remove_cvref_t<T>;
        if constexpr (text_value<V>) {
            const text_arg t = text_of(v);
            qel_var_set_string(m(), index, t.bytes, t.length);
        } else if constexpr (float_value<V>) {
            qel_var_set_float(m(), index, v);
        } else if constexpr (double_value<V>) {
            qel_var_set_double(m(), index, v);
        } else {
            qel_var_set_long(m(), index, static_cast<std::int64_t>(v));
        }
    }
    /* Replaces a single value. */
    template <class T>
        requires value<T>
    void set(const T &v) noexcept {
        set(0, v);
    }
    /* Keyed insert into an array: the entry holding the converted value
     * (inserted if absent) gives its caller value; 0 when nothing was done.
     * Set the caller value with set_buf(find(v), x). */
    template <class T>
        requires value<T>
    std::uint64_t add_x(const T &v) noexcept {
        using V = std::remove_cvref_t<T>;
        if constexpr (text_value<V>) {
            const text_arg t = text_of(v);
            return qel_var_add_string_x(m(), t.bytes, t.length);
        } else if constexpr (float_value<V>) {
            return qel_var_add_float_x(m(), v);
        } else if constexpr (double_value<V>) {
            return qel_var_add_double_x(m(), v);
        } else {
            return qel_var_add_long_x(m(), static_cast<std::int64_t>(v));
        }
    }

    /* --- variant to variant --- */

    /* Appends src's value or values to this array of the same type code. */
    void add_var(var_cref src) noexcept;
    /* Stores src's first value into element `index` (same type code). */
    void set_var(std::int64_t index, var_cref src) noexcept;
    /* Makes `dst` a single variant holding element `index` of this one. */
    void get_var(std::int64_t index, var_ref dst) const noexcept;
    /* Deep copy of src into this variant (re-formed when code or form
     * differ; a record keeps members src does not have). */
    void copy_from(var_cref src) noexcept;
    /* Makes this an array of src's code and appends src's value(s). */
    void append(var_cref src) noexcept;

    /* --- capacity, sort --- */

    void expand(std::int64_t n) noexcept { qel_var_expand(m(), n); }
    void zero() noexcept { qel_var_zero(m()); }
    void shrink(std::int64_t n) noexcept { qel_var_shrink(m(), n); }
    void trim() noexcept { qel_var_trim(m()); }
    void sort(order o = order::ascending) noexcept { qel_var_qsort(m(), static_cast<int>(o)); }

    /* --- caller values and raw bytes --- */

    void set_buf(std::int64_t index, std::uint64_t x) noexcept { qel_var_set_buf(m(), index, x); }
    void set_buf(std::uint64_t x) noexcept { qel_var_set_buf(m(), 0, x); }
    /* The bytes in use of a single value (the number itself, or the string);
     * empty for arrays and records.  Valid until the variant next changes. */
    std::span<std::byte> buffer() noexcept {
        void *p = qel_var_buffer(m());
        const std::int64_t n = qel_var_buf_len(m());
        if (p == nullptr || n <= 0) return {};
        return {static_cast<std::byte *>(p), static_cast<std::size_t>(n)};
    }

    /* --- members and elements (record codes 10 and up) --- */

    var_ref member(std::string_view name) noexcept;
    var_ref operator[](std::string_view name) noexcept;
    var_ref element(std::int64_t index) noexcept;
    var_ref operator[](std::int64_t index) noexcept;
    index_range<element_getter<var_ref>> elements() noexcept;
    member_range<var_ref> members() noexcept;
    /* Makes member `name` a deep copy of src (creating it if absent). */
    void set_member(std::string_view name, var_cref src) noexcept;
    /* Appends an empty record element to a record array and returns it. */
    var_ref add_new() noexcept;
    /* Appends a deep copy of src to a record array. */
    void add_copy(var_cref src) noexcept;
    /* Makes element `index` (or a single record itself) a deep copy of src. */
    void set_element(std::int64_t index, var_cref src) noexcept;

protected:
    qel_var *m() noexcept { return static_cast<D &>(*this).get(); }
};

} // namespace detail

/* Borrowed read-only view of a full variant: never frees.  May be null. */
class var_cref : public detail::var_read_ops<var_cref, var_cref> {
public:
    var_cref() = default;
    var_cref(const qel_var *p) noexcept : p_(p) {}
    using var_read_ops::get; /* get<T>(index) beside get() */
    const qel_var *get() const noexcept { return p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }

private:
    const qel_var *p_ = nullptr;
};

/* Borrowed view of a full variant: reads and writes, never frees.  May be
 * null (a member that does not exist).  Copying it copies the pointer. */
class var_ref : public detail::var_ops<var_ref> {
public:
    var_ref() = default;
    var_ref(qel_var *p) noexcept : p_(p) {}
    using var_ops::get; /* get<T>(index) beside get() */
    qel_var *get() const noexcept { return p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }
    operator var_cref() const noexcept { return var_cref(p_); }

private:
    qel_var *p_ = nullptr;
};

/* Owner of a full variant: frees it (and all it owns) on destruction. */
class var : public detail::var_ops<var> {
public:
    /* An empty owner (holds nothing). */
    var() = default;
    /* A new variant of this type code and form, with no schema. */
    explicit var(std::uint32_t type, std::uint8_t multi = form::single) noexcept : p_(qel_var_new(type, multi)) {}

    /* Same as the constructor. */
    [[nodiscard]] static var make(std::uint32_t type, std::uint8_t multi = form::single) noexcept { return var(type, multi); }
    /* A variant whose schema comes from a callable resolver: r(type) is
     * called for the type and then for every member, depth first, while the
     * record and its nested members are built.  r only needs to live for the
     * call; if it throws, the program terminates. */
    template <resolver R>
    [[nodiscard]] static var make(std::uint32_t type, std::uint8_t multi, R &&r) noexcept {
        using F = std::remove_reference_t<R>;
        return adopt(qel_var_new_x(type, multi, detail::context_of(r), &detail::resolver_trampoline<F>));
    }
    /* A variant whose schema is `s`, which also becomes the schema of every
     * member (so `s` must not list a single record member). */
    [[nodiscard]] static var make(std::uint32_t type, std::uint8_t multi, const qel::schema &s) noexcept {
        return adopt(qel_var_new_x(type, multi, s.get(), nullptr));
    }
    /* The C form: a context and a C resolver (or NULL). */
    [[nodiscard]] static var make(std::uint32_t type, std::uint8_t multi, void *context, qel_schema_resolver r) noexcept {
        return adopt(qel_var_new_x(type, multi, context, r));
    }
    /* Takes ownership of a variant from qel_var_new* (or NULL). */
    [[nodiscard]] static var adopt(qel_var *owned) noexcept {
        var v;
        v.p_ = owned;
        return v;
    }

    var(var &&o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
    var &operator=(var &&o) noexcept {
        if (this != &o) reset(std::exchange(o.p_, nullptr));
        return *this;
    }
    var(const var &) = delete;
    var &operator=(const var &) = delete;
    ~var() {
        if (p_ != nullptr) qel_var_free(p_);
    }

    using var_ops::get; /* get<T>(index) beside get() */
    qel_var *get() const noexcept { return p_; }
    [[nodiscard]] qel_var *release() noexcept { return std::exchange(p_, nullptr); }
    void reset(qel_var *owned = nullptr) noexcept {
        qel_var *old = std::exchange(p_, owned);
        if (old != nullptr) qel_var_free(old);
    }
    void swap(var &o) noexcept { std::swap(p_, o.p_); }
    friend void swap(var &a, var &b) noexcept { a.swap(b); }
    explicit operator bool() const noexcept { return p_ != nullptr; }
    operator var_ref() noexcept { return var_ref(p_); }
    operator var_cref() const noexcept { return var_cref(p_); }
    var_ref ref() noexcept { return var_ref(p_); }

private:
    qel_var *p_ = nullptr;
};

template <class D, class CRef>
inline var detail::var_read_ops<D, CRef>::clone() const noexcept {
    /* Start from another code so that the copy re-forms the new variant with
     * the source's type, form and schema. */
    var v(qel_var_type(c()) == 1 ? 2u : 1u, form::single);
    qel_var_copy(v.get(), c());
    return v;
}

/* Any full-variant handle. */
template <class T>
concept var_handle = std::same_as<T, var> || std::same_as<T, var_ref> || std::same_as<T, var_cref>;

namespace detail {

template <class D>
inline void var_ops<D>::add_var(var_cref src) noexcept { qel_var_add_var(m(), src.get()); }
template <class D>
inline void var_ops<D>::set_var(std::int64_t index, var_cref src) noexcept { qel_var_set_var(m(), index, src.get()); }
template <class D>
inline void var_ops<D>::get_var(std::int64_t index, var_ref dst) const noexcept {
    qel_var_get_var(this->c(), index, dst.get());
}
template <class D>
inline void var_ops<D>::copy_from(var_cref src) noexcept { qel_var_copy(m(), src.get()); }
template <class D>
inline void var_ops<D>::append(var_cref src) noexcept { qel_var_append(m(), src.get()); }
template <class D>
inline var_ref var_ops<D>::member(std::string_view name) noexcept {
    return var_ref(qel_var_get_val(m(), name.data(), static_cast<std::int64_t>(name.size())));
}
template <class D>
inline var_ref var_ops<D>::operator[](std::string_view name) noexcept { return member(name); }
template <class D>
inline var_ref var_ops<D>::element(std::int64_t index) noexcept { return var_ref(qel_var_get_var_x(m(), index)); }
template <class D>
inline var_ref var_ops<D>::operator[](std::int64_t index) noexcept { return element(index); }
template <class D>
inline index_range<element_getter<var_ref>> var_ops<D>::elements() noexcept {
    return {element_getter<var_ref>{m()}, storage_of(qel_var_type(m())) == storage::record ? qel_var_size(m()) : 0};
}
template <class D>
inline member_range<var_ref> var_ops<D>::members() noexcept { return member_range<var_ref>(member_hash(m())); }
template <class D>
inline void var_ops<D>::set_member(std::string_view name, var_cref src) noexcept {
    qel_var_set_val(m(), name.data(), static_cast<std::int64_t>(name.size()), src.get());
}
template <class D>
inline var_ref var_ops<D>::add_new() noexcept { return var_ref(qel_var_add_new(m())); }
template <class D>
inline void var_ops<D>::add_copy(var_cref src) noexcept { qel_var_add_var_x(m(), src.get()); }
template <class D>
inline void var_ops<D>::set_element(std::int64_t index, var_cref src) noexcept {
    qel_var_set_var_x(m(), index, src.get());
}

template <class T>
inline const qel_var *var_ptr(const T &v) noexcept {
    return v.get();
}

} // namespace detail

/* Order of two variants, as qel_var_cmp gives it: form first, then type
 * code, then the single value (32-bit and 64-bit integers unsigned, floats
 * as floats, bytes lexicographically); arrays element by element.  A NaN
 * is equivalent to every number, and two records of one code and form are
 * equivalent whatever their members, so this is the library's order, not a
 * deep equality.  Neither side may be null. */
template <var_handle A, var_handle B>
inline std::weak_ordering operator<=>(const A &a, const B &b) noexcept {
    const int r = qel_var_cmp(detail::var_ptr(a), detail::var_ptr(b));
    if (r < 0) return std::weak_ordering::less;
    if (r > 0) return std::weak_ordering::greater;
    return std::weak_ordering::equivalent;
}
template <var_handle A, var_handle B>
inline bool operator==(const A &a, const B &b) noexcept {
    return qel_var_cmp(detail::var_ptr(a), detail::var_ptr(b)) == 0;
}

/* ------------------------------------------------------------------------
 * Light variant
 * ---------------------------------------------------------------------- */

/* Owner of a light variant (codes qel::xcode::*, single or array). */
class xvar {
public:
    xvar() = default;
    explicit xvar(std::uint32_t type, std::uint8_t multi = form::single) noexcept : p_(qel_xvar_new(type, multi)) {}
    [[nodiscard]] static xvar make(std::uint32_t type, std::uint8_t multi = form::single) noexcept { return xvar(type, multi); }
    [[nodiscard]] static xvar adopt(qel_xvar *owned) noexcept {
        xvar v;
        v.p_ = owned;
        return v;
    }

    xvar(xvar &&o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
    xvar &operator=(xvar &&o) noexcept {
        if (this != &o) reset(std::exchange(o.p_, nullptr));
        return *this;
    }
    xvar(const xvar &) = delete;
    xvar &operator=(const xvar &) = delete;
    ~xvar() {
        if (p_ != nullptr) qel_xvar_free(p_);
    }

    qel_xvar *get() const noexcept { return p_; }
    [[nodiscard]] qel_xvar *release() noexcept { return std::exchange(p_, nullptr); }
    void reset(qel_xvar *owned = nullptr) noexcept {
        qel_xvar *old = std::exchange(p_, owned);
        if (old != nullptr) qel_xvar_free(old);
    }
    void swap(xvar &o) noexcept { std::swap(p_, o.p_); }
    friend void swap(xvar &a, xvar &b) noexcept { a.swap(b); }
    explicit operator bool() const noexcept { return p_ != nullptr; }

    std::uint32_t type() const noexcept { return qel_xvar_type(p_); }
    int multi() const noexcept { return qel_xvar_multi(p_); }
    bool is_multi() const noexcept { return qel_xvar_multi(p_) != 0; }
    /* Element count of an array; 0 when single. */
    std::int64_t size() const noexcept { return qel_xvar_size(p_); }
    void change(std::uint32_t type, std::uint8_t multi = form::single) noexcept { qel_xvar_change(p_, type, multi); }
    /* Array: n == 0 empties, otherwise the count becomes min(n, capacity).
     * Single: clears the value and the caller value. */
    void shrink(std::int64_t n) noexcept { qel_xvar_shrink(p_, n); }

    template <class T>
        requires detail::value<T>
    void add(const T &v) noexcept {
        using V = std::remove_cvref_t<T>;
        if constexpr (detail::text_value<V>) {
            const detail::text_arg t = detail::text_of(v);
            qel_xvar_add_string(p_, t.bytes, t.length);
        } else if constexpr (detail::float_value<V>) {
            qel_xvar_add_float(p_, v);
        } else if constexpr (detail::double_value<V>) {
            qel_xvar_add_double(p_, v);
        } else {
            qel_xvar_add_long(p_, static_cast<std::int64_t>(v));
        }
    }
    template <class R>
        requires std::ranges::input_range<const R> && detail::value<std::ranges::range_reference_t<const R>>
    void add_all(const R &vs) noexcept {
        for (auto &&v : vs) add(v);
    }
    template <class T>
        requires detail::value<T>
    void add_all(std::initializer_list<T> vs) noexcept {
        for (const T &v : vs) add(v);
    }
    /* Keyed insert: the address of the caller value of the entry holding the
     * converted value (inserted if absent), valid until the array next
     * grows; NULL when nothing was done. */
    template <class T>
        requires detail::value<T>
    std::uint64_t *add_x(const T &v) noexcept {
        using V = std::remove_cvref_t<T>;
        std::uint64_t *out = nullptr;
        if constexpr (detail::text_value<V>) {
            const detail::text_arg t = detail::text_of(v);
            qel_xvar_add_string_x(p_, t.bytes, t.length, &out);
        } else if constexpr (detail::float_value<V>) {
            qel_xvar_add_float_x(p_, v, &out);
        } else if constexpr (detail::double_value<V>) {
            qel_xvar_add_double_x(p_, v, &out);
        } else {
            qel_xvar_add_long_x(p_, static_cast<std::int64_t>(v), &out);
        }
        return out;
    }
    template <class T>
        requires detail::value<T>
    void set(std::int64_t index, const T &v) noexcept {
        using V = std::remove_cvref_t<T>;
        if constexpr (detail::text_value<V>) {
            const detail::text_arg t = detail::text_of(v);
            qel_xvar_set_string(p_, index, t.bytes, t.length);
        } else if constexpr (detail::float_value<V>) {
            qel_xvar_set_float(p_, index, v);
        } else if constexpr (detail::double_value<V>) {
            qel_xvar_set_double(p_, index, v);
        } else {
            qel_xvar_set_long(p_, index, static_cast<std::int64_t>(v));
        }
    }
    template <class T>
        requires detail::value<T>
    void set(const T &v) noexcept {
        set(0, v);
    }
    template <detail::readable T>
    T get(std::int64_t index = 0) const noexcept {
        return detail::get_xvar_value<T>(p_, index);
    }
    template <detail::readable T>
    detail::index_range<detail::xvar_value_getter<T>> values() const noexcept {
        return {detail::xvar_value_getter<T>{p_}, qel_xvar_size(p_)};
    }
    /* Caller value of the single variant or of entry `index` (negative: the
     * last entry; up to the capacity). */
    void set_buf(std::int64_t index, std::uint64_t x) noexcept { qel_xvar_set_buf(p_, index, x); }
    void set_buf(std::uint64_t x) noexcept { qel_xvar_set_buf(p_, 0, x); }
    std::uint64_t get_buf(std::int64_t index = 0) const noexcept { return qel_xvar_get_buf(p_, index); }

private:
    qel_xvar *p_ = nullptr;
};

/* ------------------------------------------------------------------------
 * Column set
 * ---------------------------------------------------------------------- */

/* Owner of a column set: entries of light variants of one code and form. */
class xvars {
public:
    xvars() = default;
    explicit xvars(std::uint32_t type, std::uint8_t multi = form::single) noexcept : p_(qel_xvars_new(type, multi)) {}
    [[nodiscard]] static xvars make(std::uint32_t type, std::uint8_t multi = form::single) noexcept { return xvars(type, multi); }
    [[nodiscard]] static xvars adopt(qel_xvars *owned) noexcept {
        xvars v;
        v.p_ = owned;
        return v;
    }

    xvars(xvars &&o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
    xvars &operator=(xvars &&o) noexcept {
        if (this != &o) reset(std::exchange(o.p_, nullptr));
        return *this;
    }
    xvars(const xvars &) = delete;
    xvars &operator=(const xvars &) = delete;
    ~xvars() {
        if (p_ != nullptr) qel_xvars_free(p_);
    }

    qel_xvars *get() const noexcept { return p_; }
    [[nodiscard]] qel_xvars *release() noexcept { return std::exchange(p_, nullptr); }
    void reset(qel_xvars *owned = nullptr) noexcept {
        qel_xvars *old = std::exchange(p_, owned);
        if (old != nullptr) qel_xvars_free(old);
    }
    void swap(xvars &o) noexcept { std::swap(p_, o.p_); }
    friend void swap(xvars &a, xvars &b) noexcept { a.swap(b); }
    explicit operator bool() const noexcept { return p_ != nullptr; }

    std::uint32_t type() const noexcept { return qel_xvars_type(p_); }
    int multi() const noexcept { return qel_xvars_multi(p_); }
    bool is_multi() const noexcept { return qel_xvars_multi(p_) != 0; }
    /* Number of entries. */
    std::int64_t size() const noexcept { return qel_xvars_size(p_); }
    /* Number of values of entry `entry` (multi form; 0 when single). */
    std::int64_t entry_size(std::int64_t entry) const noexcept { return qel_xvars_get_size(p_, entry); }
    void change(std::uint32_t type, std::uint8_t multi = form::single) noexcept { qel_xvars_change(p_, type, multi); }
    /* Drops every entry. */
    void clear() noexcept { qel_xvars_shrink(p_); }

    /* Appends x whole as a new entry (same code and multi byte only). */
    void add_var(const xvar &x) noexcept { qel_xvars_add_var(p_, x.get()); }
    /* Copies entry `entry` into x (same code and multi byte only). */
    void fetch(std::int64_t entry, xvar &x) const noexcept { qel_xvars_fetch_var(p_, entry, x.get()); }

    /* Multi form: appends a value to entry `entry`, which must be the last
     * entry (it grows) or size() (a new entry begins). */
    template <class T>
        requires detail::value<T>
    void add(std::int64_t entry, const T &v) noexcept {
        using V = std::remove_cvref_t<T>;
        if constexpr (detail::text_value<V>) {
            const detail::text_arg t = detail::text_of(v);
            qel_xvars_add_string(p_, entry, t.bytes, t.length);
        } else if constexpr (detail::float_value<V>) {
            qel_xvars_add_float(p_, entry, v);
        } else if constexpr (detail::double_value<V>) {
            qel_xvars_add_double(p_, entry, v);
        } else {
            qel_xvars_add_long(p_, entry, static_cast<std::int64_t>(v));
        }
    }
    /* Replaces value `pos` of entry `entry` (pos ignored when single); its
     * caller value becomes 0. */
    template <class T>
        requires detail::value<T>
    void set(std::int64_t entry, std::int64_t pos, const T &v) noexcept {
        using V = std::remove_cvref_t<T>;
        if constexpr (detail::text_value<V>) {
            const detail::text_arg t = detail::text_of(v);
            qel_xvars_set_string(p_, entry, pos, t.bytes, t.length);
        } else if constexpr (detail::float_value<V>) {
            qel_xvars_set_float(p_, entry, pos, v);
        } else if constexpr (detail::double_value<V>) {
            qel_xvars_set_double(p_, entry, pos, v);
        } else {
            qel_xvars_set_long(p_, entry, pos, static_cast<std::int64_t>(v));
        }
    }
    template <detail::readable T>
    T get(std::int64_t entry, std::int64_t pos = 0) const noexcept;
    /* The values of one entry of a multi column set, read as T. */
    template <detail::readable T>
    detail::index_range<detail::xvars_value_getter<T>> values(std::int64_t entry) const noexcept {
        return {detail::xvars_value_getter<T>{p_, entry}, qel_xvars_get_size(p_, entry)};
    }
    /* Caller value of value `pos` of a multi entry (negative: the last). */
    void set_buf(std::int64_t entry, std::int64_t pos, std::uint64_t x) noexcept {
        qel_xvars_set_buf(p_, entry, pos, x);
    }
    std::uint64_t get_buf(std::int64_t entry, std::int64_t pos) const noexcept {
        return qel_xvars_get_buf(p_, entry, pos);
    }

private:
    qel_xvars *p_ = nullptr;
};

namespace detail {

template <class T>
inline T get_xvars_value(const qel_xvars *p, std::int64_t entry, std::int64_t pos) noexcept {
    if constexpr (std::same_as<T, std::string_view>) {
        const char *s = nullptr;
        std::int64_t n = 0;
        qel_xvars_get_string(p, entry, pos, &s, &n);
        return view_of(s, n);
    } else if constexpr (float_value<T>) {
        return qel_xvars_get_float(p, entry, pos);
    } else if constexpr (double_value<T>) {
        return qel_xvars_get_double(p, entry, pos);
    } else {
        return static_cast<T>(qel_xvars_get_long(p, entry, pos));
    }
}

template <class T>
inline T xvars_value_getter<T>::operator()(std::int64_t pos) const noexcept {
    return get_xvars_value<T>(p, entry, pos);
}

} // namespace detail

template <detail::readable T>
inline T xvars::get(std::int64_t entry, std::int64_t pos) const noexcept {
    return detail::get_xvars_value<T>(p_, entry, pos);
}

} // namespace qel

#endif /* QEL_HPP */
