/*
 * qel/xvar.hpp - the light variant and the column set owners
 * One piece of the C++ interface; include <qel.hpp> rather than this file.
 */
#ifndef QEL_XVAR_HPP
#define QEL_XVAR_HPP

#include <qel/common.hpp>

namespace qel {

/* ------------------------------------------------------------------------
 * Light variant
 * ---------------------------------------------------------------------- */

/* Owner of a light variant (codes qel::xcode::*, single or array). */
class xvar {
public:
    xvar() = default;
    explicit xvar(xvar_type type, std::uint8_t multi = form::single) noexcept : p_(qel_xvar_new(type, multi)) {}
    [[nodiscard]] static xvar make(xvar_type type, std::uint8_t multi = form::single) noexcept {
        return xvar(type, multi);
    }
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
    [[nodiscard]] std::int64_t size() const noexcept { return qel_xvar_size(p_); }
    void change(xvar_type type, std::uint8_t multi = form::single) noexcept { qel_xvar_change(p_, type, multi); }
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
    void add_x(const T &) && = delete;
    template <class T>
    requires detail::value<T> std::uint64_t *add_x(const T &v) &noexcept {
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
    void set(const T &v) noexcept { set(0, v); }
    /* Numbers may be read from a temporary; its string_view would dangle. */
    template <detail::readable T>
    [[nodiscard]] T get(std::int64_t index = 0) const &noexcept {
        return detail::get_xvar_value<T>(p_, index);
    }
    template <detail::readable T>
        requires(!std::same_as<T, std::string_view>)
    [[nodiscard]] T get(std::int64_t index = 0) const &&noexcept { return detail::get_xvar_value<T>(p_, index); }
    template <std::same_as<std::string_view> T>
    void get(std::int64_t index = 0) const && = delete;
    /* The elements read as T; only of a named owner (a temporary's range
     * would outlive it). */
    template <detail::readable T>
    [[nodiscard]] detail::index_range<detail::xvar_value_getter<T>> values() const &noexcept {
        return {detail::xvar_value_getter<T>{p_}, qel_xvar_size(p_)};
    }
    template <detail::readable T>
    void values() const && = delete;
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
    explicit xvars(xvar_type type, std::uint8_t multi = form::single) noexcept : p_(qel_xvars_new(type, multi)) {}
    [[nodiscard]] static xvars make(xvar_type type, std::uint8_t multi = form::single) noexcept {
        return xvars(type, multi);
    }
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
    [[nodiscard]] std::int64_t size() const noexcept { return qel_xvars_size(p_); }
    /* Number of values of entry `entry` (multi form; 0 when single). */
    std::int64_t entry_size(std::int64_t entry) const noexcept { return qel_xvars_get_size(p_, entry); }
    void change(xvar_type type, std::uint8_t multi = form::single) noexcept { qel_xvars_change(p_, type, multi); }
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
    [[nodiscard]] T get(std::int64_t entry, std::int64_t pos = 0) const &noexcept;
    template <detail::readable T>
        requires(!std::same_as<T, std::string_view>)
    [[nodiscard]] T get(std::int64_t entry, std::int64_t pos = 0) const &&noexcept;
    template <std::same_as<std::string_view> T>
    void get(std::int64_t entry, std::int64_t pos = 0) const && = delete;
    /* The values of one entry of a multi column set, read as T. */
    template <detail::readable T>
    [[nodiscard]] detail::index_range<detail::xvars_value_getter<T>> values(std::int64_t entry) const &noexcept {
        return {detail::xvars_value_getter<T>{p_, entry}, qel_xvars_get_size(p_, entry)};
    }
    template <detail::readable T>
    void values(std::int64_t entry) const && = delete;
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
inline T xvars::get(std::int64_t entry, std::int64_t pos) const &noexcept {
    return detail::get_xvars_value<T>(p_, entry, pos);
}
template <detail::readable T>
    requires(!std::same_as<T, std::string_view>)
inline T xvars::get(std::int64_t entry, std::int64_t pos) const &&noexcept {
    return detail::get_xvars_value<T>(p_, entry, pos);
}

} // namespace qel

#endif /* QEL_XVAR_HPP */
