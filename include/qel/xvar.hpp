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

namespace detail {
struct xvar_traits {
    static constexpr qel_xvar *empty() noexcept { return nullptr; }
    static void free(qel_xvar *p) noexcept {
        if (p != nullptr) qel_xvar_free(p);
    }
};
struct xvars_traits {
    static constexpr qel_xvars *empty() noexcept { return nullptr; }
    static void free(qel_xvars *p) noexcept {
        if (p != nullptr) qel_xvars_free(p);
    }
};
} // namespace detail

/* Owner of a light variant (codes qel::xcode::*, single or array). */
class xvar : public unique<qel_xvar *, detail::xvar_traits> {
public:
    xvar() = default;
    explicit xvar(xvar_type type, std::uint8_t multi = form::single) noexcept : unique(qel_xvar_new(type, multi)) {}
    [[nodiscard]] static xvar make(xvar_type type, std::uint8_t multi = form::single) noexcept {
        return xvar(type, multi);
    }
    [[nodiscard]] static xvar adopt(qel_xvar *owned) noexcept {
        xvar v;
        v.reset(owned);
        return v;
    }
    using unique::get;

    std::uint32_t type() const noexcept { return qel_xvar_type(get()); }
    int multi() const noexcept { return qel_xvar_multi(get()); }
    bool is_multi() const noexcept { return qel_xvar_multi(get()) != 0; }
    /* Element count of an array; 0 when single. */
    [[nodiscard]] std::int64_t size() const noexcept { return qel_xvar_size(get()); }
    void change(xvar_type type, std::uint8_t multi = form::single) noexcept { qel_xvar_change(get(), type, multi); }
    /* Array: n == 0 empties, otherwise the count becomes min(n, capacity).
     * Single: clears the value and the caller value. */
    void shrink(std::int64_t n) noexcept { qel_xvar_shrink(get(), n); }

    template <class T>
        requires detail::value<T>
    void add(const T &v) noexcept {
        detail::with_kind(detail::xvar_calls::add, v, [this](auto fn, auto... value) { fn(get(), value...); });
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
        std::uint64_t *out = nullptr;
        detail::with_kind(detail::xvar_calls::add_x, v, [&](auto fn, auto... value) { fn(get(), value..., &out); });
        return out;
    }
    template <class T>
        requires detail::value<T>
    void set(std::int64_t index, const T &v) noexcept {
        detail::with_kind(detail::xvar_calls::set, v, [&](auto fn, auto... value) { fn(get(), index, value...); });
    }
    template <class T>
        requires detail::value<T>
    void set(const T &v) noexcept { set(0, v); }
    /* Numbers may be read from a temporary; its string_view would dangle. */
    template <detail::readable T>
    [[nodiscard]] T get(std::int64_t index = 0) const &noexcept {
        return detail::get_xvar_value<T>(get(), index);
    }
    template <detail::readable T>
        requires(!std::same_as<T, std::string_view>)
    [[nodiscard]] T get(std::int64_t index = 0) const &&noexcept { return detail::get_xvar_value<T>(get(), index); }
    template <std::same_as<std::string_view> T>
    void get(std::int64_t index = 0) const && = delete;
    /* The elements read as T; only of a named owner (a temporary's range
     * would outlive it). */
    template <detail::readable T>
    [[nodiscard]] detail::index_range<detail::xvar_value_getter<T>> values() const &noexcept {
        return {detail::xvar_value_getter<T>{get()}, qel_xvar_size(get())};
    }
    template <detail::readable T>
    void values() const && = delete;
    /* Caller value of the single variant or of entry `index` (negative: the
     * last entry; up to the capacity). */
    void set_buf(std::int64_t index, std::uint64_t x) noexcept { qel_xvar_set_buf(get(), index, x); }
    void set_buf(std::uint64_t x) noexcept { qel_xvar_set_buf(get(), 0, x); }
    std::uint64_t get_buf(std::int64_t index = 0) const noexcept { return qel_xvar_get_buf(get(), index); }
};

/* ------------------------------------------------------------------------
 * Column set
 * ---------------------------------------------------------------------- */

/* Owner of a column set: entries of light variants of one code and form. */
class xvars : public unique<qel_xvars *, detail::xvars_traits> {
public:
    xvars() = default;
    explicit xvars(xvar_type type, std::uint8_t multi = form::single) noexcept : unique(qel_xvars_new(type, multi)) {}
    [[nodiscard]] static xvars make(xvar_type type, std::uint8_t multi = form::single) noexcept {
        return xvars(type, multi);
    }
    [[nodiscard]] static xvars adopt(qel_xvars *owned) noexcept {
        xvars v;
        v.reset(owned);
        return v;
    }
    using unique::get;

    std::uint32_t type() const noexcept { return qel_xvars_type(get()); }
    int multi() const noexcept { return qel_xvars_multi(get()); }
    bool is_multi() const noexcept { return qel_xvars_multi(get()) != 0; }
    /* Number of entries. */
    [[nodiscard]] std::int64_t size() const noexcept { return qel_xvars_size(get()); }
    /* Number of values of entry `entry` (multi form; 0 when single). */
    std::int64_t entry_size(std::int64_t entry) const noexcept { return qel_xvars_get_size(get(), entry); }
    void change(xvar_type type, std::uint8_t multi = form::single) noexcept { qel_xvars_change(get(), type, multi); }
    /* Drops every entry. */
    void clear() noexcept { qel_xvars_shrink(get()); }

    /* Appends x whole as a new entry (same code and multi byte only). */
    void add_var(const xvar &x) noexcept { qel_xvars_add_var(get(), x.get()); }
    /* Copies entry `entry` into x (same code and multi byte only). */
    void fetch(std::int64_t entry, xvar &x) const noexcept { qel_xvars_fetch_var(get(), entry, x.get()); }

    /* Multi form: appends a value to entry `entry`, which must be the last
     * entry (it grows) or size() (a new entry begins). */
    template <class T>
        requires detail::value<T>
    void add(std::int64_t entry, const T &v) noexcept {
        detail::with_kind(detail::xvars_calls::add, v, [&](auto fn, auto... value) { fn(get(), entry, value...); });
    }
    /* Replaces value `pos` of entry `entry` (pos ignored when single); its
     * caller value becomes 0. */
    template <class T>
        requires detail::value<T>
    void set(std::int64_t entry, std::int64_t pos, const T &v) noexcept {
        detail::with_kind(detail::xvars_calls::set, v,
                          [&](auto fn, auto... value) { fn(get(), entry, pos, value...); });
    }
    template <detail::readable T>
    [[nodiscard]] T get(std::int64_t entry, std::int64_t pos = 0) const &noexcept {
        return detail::get_xvars_value<T>(get(), entry, pos);
    }
    template <detail::readable T>
        requires(!std::same_as<T, std::string_view>)
    [[nodiscard]] T get(std::int64_t entry, std::int64_t pos = 0) const &&noexcept {
        return detail::get_xvars_value<T>(get(), entry, pos);
    }
    template <std::same_as<std::string_view> T>
    void get(std::int64_t entry, std::int64_t pos = 0) const && = delete;
    /* The values of one entry of a multi column set, read as T. */
    template <detail::readable T>
    [[nodiscard]] detail::index_range<detail::xvars_value_getter<T>> values(std::int64_t entry) const &noexcept {
        return {detail::xvars_value_getter<T>{get(), entry}, qel_xvars_get_size(get(), entry)};
    }
    template <detail::readable T>
    void values(std::int64_t entry) const && = delete;
    /* Caller value of value `pos` of a multi entry (negative: the last). */
    void set_buf(std::int64_t entry, std::int64_t pos, std::uint64_t x) noexcept {
        qel_xvars_set_buf(get(), entry, pos, x);
    }
    std::uint64_t get_buf(std::int64_t entry, std::int64_t pos) const noexcept {
        return qel_xvars_get_buf(get(), entry, pos);
    }
};

} // namespace qel

#endif /* QEL_XVAR_HPP */
