/*
 * qel/var.hpp - the full variant: owner, mutable and read-only views
 * One piece of the C++ interface; include <qel.hpp> rather than this file.
 */
#ifndef QEL_VAR_HPP
#define QEL_VAR_HPP

#include <qel/schema.hpp>

#include <cstdio>
#include <cstdlib>

namespace qel {

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

struct var_traits {
    static constexpr qel_var *empty() noexcept { return nullptr; }
    static void free(qel_var *p) noexcept {
        if (p != nullptr) qel_var_free(p);
    }
    /* A fresh variant made a deep copy of p.  It starts from another code
     * so that the copy re-forms it with p's type, form and schema. */
    static qel_var *clone(const qel_var *p) noexcept {
        qel_var *v = qel_var_new(qel_var_type(p) == QEL_VAR_UINT32 ? QEL_VAR_INT64 : QEL_VAR_UINT32, form::single);
        qel_var_copy(v, p);
        return v;
    }
};

/* Walks a record's members in the order they were created, by position
 * (qel_var_member_at), skipping names whose member was freed.  Valid while
 * the record is not re-formed, shrunk or freed. */
template <class Ref>
class member_iterator {
public:
    using value_type = basic_member<Ref>;
    using reference = value_type;
    using difference_type = std::ptrdiff_t;
    using iterator_concept = std::forward_iterator_tag;
    using iterator_category = std::input_iterator_tag;

    member_iterator() = default;
    member_iterator(const qel_var *rec, std::int64_t i) noexcept : rec_(rec), i_(i) { skip(); }

    value_type operator*() const noexcept {
        const char *name = nullptr;
        std::int64_t length = 0;
        qel_var *member = qel_var_member_at(rec_, i_, &name, &length);
        return value_type{view_of(name, length), Ref(member)};
    }
    member_iterator &operator++() noexcept {
        ++i_;
        skip();
        return *this;
    }
    member_iterator operator++(int) noexcept {
        member_iterator t = *this;
        ++*this;
        return t;
    }
    friend bool operator==(const member_iterator &a, const member_iterator &b) noexcept { return a.i_ == b.i_; }

private:
    void skip() noexcept {
        if (rec_ == nullptr) return;
        const std::int64_t n = qel_var_member_count(rec_);
        while (i_ < n && qel_var_member_at(rec_, i_, nullptr, nullptr) == nullptr) ++i_;
    }
    const qel_var *rec_ = nullptr;
    std::int64_t i_ = 0;
};

/* The members of a single record (empty for anything else). */
template <class Ref>
class member_range {
public:
    member_range() = default;
    explicit member_range(const qel_var *rec) noexcept : rec_(rec) {}
    member_iterator<Ref> begin() const noexcept { return member_iterator<Ref>(rec_, 0); }
    member_iterator<Ref> end() const noexcept {
        return member_iterator<Ref>(rec_, rec_ != nullptr ? qel_var_member_count(rec_) : 0);
    }
    bool empty() const noexcept { return begin() == end(); }

private:
    const qel_var *rec_ = nullptr;
};

/* Checked accesses: the member or element, or a message saying what was
 * missing and a stop. */
inline qel_var *checked_member(const qel_var *rec, std::string_view name) noexcept {
    qel_var *p = qel_var_get_val(rec, name.data(), static_cast<std::int64_t>(name.size()));
    if (p != nullptr) return p;
    std::fprintf(stderr, "qel: no member \"%.*s\"\n", static_cast<int>(name.size()), name.data());
    std::abort();
}
inline qel_var *checked_element(const qel_var *arr, std::int64_t index) noexcept {
    qel_var *p = qel_var_get_var_x(arr, index);
    if (p != nullptr) return p;
    std::fprintf(stderr, "qel: no element %lld\n", static_cast<long long>(index));
    std::abort();
}

/* The schema of a record array's own elements, as a resolver: that of the
 * array (the context) for its code, none for any other. */
inline qel_schema *element_schema(void *array, std::uint32_t type) noexcept {
    const qel_var *a = static_cast<const qel_var *>(array);
    return type == a->type ? a->schema : nullptr;
}

/* The caller's order as qel_var_sort_by wants it: a bool result is "a sorts
 * before b" (as std::sort's), anything else a three-way result. */
template <class F>
int order_trampoline(const qel_var *a, const qel_var *b, void *context) noexcept;

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
    [[nodiscard]] std::int64_t size() const noexcept { return qel_var_size(c()); }
    /* The schema the variant refers to (not owned by it). */
    schema_view schema() const noexcept { return schema_view(qel_var_schema(c())); }

    /* The value (element `index` of an array) read as T: an integer type,
     * float, double or std::string_view (a view of the variant's own bytes,
     * valid until it next changes).  Wrong class: 0, 0.0 or empty. */
    template <readable T>
    [[nodiscard]] T get(std::int64_t index = 0) const noexcept {
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
    [[nodiscard]] std::int64_t find(const T &key) const noexcept { return search(qel_var_find, key); }
    template <class T>
        requires value<T>
    [[nodiscard]] std::int64_t bfind(const T &key) const noexcept { return search(qel_var_bfind, key); }

    /* Member `name` of a single record of code 10 or above, or a null view. */
    CRef member(std::string_view name) const noexcept {
        return CRef(qel_var_get_val(c(), name.data(), static_cast<std::int64_t>(name.size())));
    }
    /* Unchecked, as member(): a null view when the record lacks `name`. */
    CRef operator[](std::string_view name) const noexcept { return member(name); }
    /* Element `index` of a record array (the record itself when single), or
     * a null view.  v['a'] does not compile: a character is not an index. */
    CRef element(std::int64_t index) const noexcept { return CRef(qel_var_get_var_x(c(), index)); }
    CRef operator[](std::int64_t index) const noexcept { return element(index); }
    template <class T>
        requires is_char_v<T>
    void operator[](T) const = delete;
    /* Checked member access: member `name`, or an empty optional when the
     * record lacks it (or is no single record of code 10 or above). */
    std::optional<CRef> find_member(std::string_view name) const noexcept {
        if (const qel_var *p = qel_var_get_val(c(), name.data(), static_cast<std::int64_t>(name.size())))
            return CRef(p);
        return std::nullopt;
    }
    /* Member `name` or element `index`, which must exist: when it does not,
     * the program stops with a message naming it (as a failed check), instead
     * of going on with a null view. */
    CRef at(std::string_view name) const noexcept { return CRef(checked_member(c(), name)); }
    CRef at(std::int64_t index) const noexcept { return CRef(checked_element(c(), index)); }
    template <class T>
        requires is_char_v<T>
    void at(T) const = delete;
    /* Elements of a record array. */
    index_range<element_getter<CRef>> elements() const noexcept {
        return {element_getter<CRef>{c()}, storage_of(qel_var_type(c())) == storage::record ? qel_var_size(c()) : 0};
    }
    /* Members of a single record, in the order they were inserted (empty
     * for anything else). */
    member_range<CRef> members() const noexcept { return member_range<CRef>(c()); }

    /* An independent deep copy owned by the caller, as qel_var_copy makes it
     * into a fresh variant: the same type code, form and schema, the
     * value(s), members and elements, and (single form) the caller value. */
    [[nodiscard]] var clone() const noexcept;

protected:
    const qel_var *c() const noexcept { return static_cast<const D &>(*this).get(); }

private:
    /* Requires a handle; key converted to the stored kind, then searched by
     * `how` (qel_var_find or qel_var_bfind); -1 for a key of no kind here. */
    template <class T>
    std::int64_t search(std::int64_t (*how)(const qel_var *, const void *, std::int64_t), const T &key) const noexcept {
        search_key k;
        make_key(k, qel_var_type(c()), key);
        return k.ptr != nullptr ? how(c(), k.ptr, k.length) : -1;
    }
};

/* Read and write operations of a mutable handle (var and var_ref).  Writes
 * are non-const members: a const var, or a const var_ref, only reads. */
template <class D>
class var_ops : public var_read_ops<D, var_cref> {
    using base = var_read_ops<D, var_cref>;

public:
    using base::at;
    using base::element;
    using base::elements;
    using base::find_member;
    using base::member;
    using base::members;
    using base::operator[];

    /* --- re-forming --- */

    /* Re-forms to (type, multi) unless both already match exactly; the
     * schema stays. */
    void change(var_type type, std::uint8_t multi = form::single) noexcept { qel_var_change(m(), type, multi); }
    /* The same, with the schema given by a resolver (called for the type and
     * then for every member created). */
    template <resolver R>
    void change(var_type type, std::uint8_t multi, R &&r) noexcept {
        using F = std::remove_reference_t<R>;
        qel_var_change_x(m(), type, multi, context_of(r), &resolver_trampoline<F>);
    }
    /* The same, with `s` as the schema of the variant and of every member.
     * A temporary schema would be freed while the variant still refers to it. */
    void change(var_type type, std::uint8_t multi, const qel::schema &s) noexcept {
        qel_var_change_x(m(), type, multi, s.get(), nullptr);
    }
    void change(var_type type, std::uint8_t multi, const qel::schema &&s) = delete;

    /* --- values --- */

    /* Appends a value to an array (a single variant ignores it). */
    template <class T>
        requires value<T>
    void add(const T &v) noexcept {
        with_kind(var_calls::add, v, [this](auto fn, auto... value) { fn(m(), value...); });
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
        with_kind(var_calls::set, v, [&](auto fn, auto... value) { fn(m(), index, value...); });
    }
    /* Replaces a single value. */
    template <class T>
        requires value<T>
    void set(const T &v) noexcept { set(0, v); }
    /* Keyed insert into an array: the entry holding the converted value
     * (inserted if absent) gives its caller value; 0 when nothing was done.
     * Set the caller value with set_buf(find(v), x). */
    template <class T>
        requires value<T> std::uint64_t add_x(const T &v)
    noexcept {
        return with_kind(var_calls::add_x, v, [this](auto fn, auto... value) { return fn(m(), value...); });
    }

    /* --- variant to variant --- */
    /* Each source is a view or an owner; a temporary owner lives through the
     * call (it does not convert to a view, which would outlive it). */

    /* Appends src's value or values to this array of the same type code. */
    void add_var(var_cref src) noexcept;
    void add_var(const var &src) noexcept;
    /* Stores src's first value into element `index` (same type code). */
    void set_var(std::int64_t index, var_cref src) noexcept;
    void set_var(std::int64_t index, const var &src) noexcept;
    /* Makes `dst` a single variant holding element `index` of this one. */
    void get_var(std::int64_t index, var_ref dst) const noexcept;
    /* Deep copy of src into this variant (re-formed when code or form
     * differ; a record keeps members src does not have). */
    void copy_from(var_cref src) noexcept;
    void copy_from(const var &src) noexcept;
    /* Makes this an array of src's code and appends src's value(s). */
    void append(var_cref src) noexcept;
    void append(const var &src) noexcept;

    /* --- capacity, sort --- */

    void expand(std::int64_t n) noexcept { qel_var_expand(m(), n); }
    void zero() noexcept { qel_var_zero(m()); }
    void shrink(std::int64_t n) noexcept { qel_var_shrink(m(), n); }
    void trim() noexcept { qel_var_trim(m()); }
    void sort(order o = order::ascending) noexcept { qel_var_qsort(m(), static_cast<int>(o)); }
    /* Sorts an array of any code stably by the caller's order (qel_var_sort_by):
     * `before(a, b)` gets two entries as var_cref (a value entry as a single
     * variant holding the value and its caller value, a record element as
     * itself) and returns a bool, "a sorts before b", or a three-way result
     * (int or std::*_ordering, greater than 0 when a sorts after b).  It must
     * not change the array. */
    template <class F>
        requires std::invocable<F &, var_cref, var_cref>
    void sort_by(F &&before) noexcept {
        qel_var_sort_by(m(), &order_trampoline<std::remove_reference_t<F>>, context_of(before));
    }

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
    /* Unchecked: a null view for a name the record lacks (use find_member or
     * at where a name may be missing). */
    var_ref operator[](std::string_view name) noexcept;
    var_ref element(std::int64_t index) noexcept;
    var_ref operator[](std::int64_t index) noexcept;
    template <class T>
        requires is_char_v<T>
    void operator[](T) = delete;
    std::optional<var_ref> find_member(std::string_view name) noexcept;
    var_ref at(std::string_view name) noexcept;
    var_ref at(std::int64_t index) noexcept;
    template <class T>
        requires is_char_v<T>
    void at(T) = delete;
    index_range<element_getter<var_ref>> elements() noexcept;
    member_range<var_ref> members() noexcept;
    /* Makes member `name` a deep copy of src (creating it if absent). */
    void set_member(std::string_view name, var_cref src) noexcept;
    void set_member(std::string_view name, const var &src) noexcept;
    /* Appends a record element to a record array and returns it, with the
     * members of the array's schema (qel_var_add_new_x); a nested record of
     * another code starts without members unless a resolver is given, as
     * r(type) for var::make, which then also gives the element's schema. */
    var_ref add_new() noexcept;
    template <resolver R>
    var_ref add_new(R &&r) noexcept;
    /* Appends a deep copy of src to a record array. */
    void add_copy(var_cref src) noexcept;
    void add_copy(const var &src) noexcept;
    /* Makes element `index` (or a single record itself) a deep copy of src. */
    void set_element(std::int64_t index, var_cref src) noexcept;
    void set_element(std::int64_t index, const var &src) noexcept;

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

template <class F>
inline int detail::order_trampoline(const qel_var *a, const qel_var *b, void *context) noexcept {
    F &f = *static_cast<F *>(context);
    if constexpr (std::same_as<std::invoke_result_t<F &, var_cref, var_cref>, bool>)
        return std::invoke(f, var_cref(b), var_cref(a)) ? 1 : 0;
    else return std::invoke(f, var_cref(a), var_cref(b)) > 0 ? 1 : 0;
}

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
class var : public unique<qel_var *, detail::var_traits>, public detail::var_ops<var> {
public:
    /* An empty owner (holds nothing). */
    var() = default;
    /* A new variant of this type code and form, with no schema. */
    explicit var(var_type type, std::uint8_t multi = form::single) noexcept : unique(qel_var_new(type, multi)) {}
    /* Same as the constructor. */
    [[nodiscard]] static var make(var_type type, std::uint8_t multi = form::single) noexcept {
        return var(type, multi);
    }
    /* A variant whose schema comes from a callable resolver: r(type) is
     * called for the type and then for every member, depth first, while the
     * record and its nested members are built.  r only needs to live for the
     * call; if it throws, the program terminates. */
    template <resolver R>
    [[nodiscard]] static var make(var_type type, std::uint8_t multi, R &&r) noexcept {
        using F = std::remove_reference_t<R>;
        return adopt(qel_var_new_x(type, multi, detail::context_of(r), &detail::resolver_trampoline<F>));
    }
    /* A variant whose schema is `s`, which also becomes the schema of every
     * member (so `s` must not list a single record member). */
    [[nodiscard]] static var make(var_type type, std::uint8_t multi, const qel::schema &s) noexcept {
        return adopt(qel_var_new_x(type, multi, s.get(), nullptr));
    }
    /* A temporary schema would be freed while the variant still refers to it. */
    static var make(var_type type, std::uint8_t multi, const qel::schema &&s) = delete;
    /* The C form: a context and a C resolver (or NULL). */
    [[nodiscard]] static var make(var_type type, std::uint8_t multi, void *context, qel_schema_resolver r) noexcept {
        return adopt(qel_var_new_x(type, multi, context, r));
    }
    /* Takes ownership of a variant from qel_var_new* (or NULL). */
    [[nodiscard]] static var adopt(qel_var *owned) noexcept {
        var v;
        v.reset(owned);
        return v;
    }

    using unique::get;
    using unique::operator bool;

    /* Views and ranges come only from a named owner (an lvalue): those of a
     * temporary would dangle once it is freed at the end of the statement. */
    operator var_ref() &noexcept { return var_ref(get()); }
    operator var_ref() && = delete;
    operator var_cref() const &noexcept { return var_cref(get()); }
    operator var_cref() const && = delete;
    var_ref ref() &noexcept { return var_ref(get()); }
    var_ref ref() && = delete;
    template <detail::readable T>
    [[nodiscard]] detail::index_range<detail::var_value_getter<T>> values() const &noexcept {
        return var_ops::template values<T>();
    }
    template <detail::readable T>
    void values() const && = delete;
    [[nodiscard]] detail::index_range<detail::element_getter<var_ref>> elements() &noexcept {
        return var_ops::elements();
    }
    [[nodiscard]] detail::index_range<detail::element_getter<var_cref>> elements() const &noexcept {
        return var_ops::elements();
    }
    void elements() const && = delete;
    [[nodiscard]] detail::member_range<var_ref> members() &noexcept { return var_ops::members(); }
    [[nodiscard]] detail::member_range<var_cref> members() const &noexcept { return var_ops::members(); }
    void members() const && = delete;
    /* Numbers may be read from a temporary; its string_view, and views of its
     * members and elements, would outlive it. */
    template <detail::readable T>
    [[nodiscard]] T get(std::int64_t index = 0) const &noexcept {
        return detail::get_var_value<T>(get(), index);
    }
    template <detail::readable T>
        requires(!std::same_as<T, std::string_view>)
    [[nodiscard]] T get(std::int64_t index = 0) const &&noexcept { return detail::get_var_value<T>(get(), index); }
    template <std::same_as<std::string_view> T>
    void get(std::int64_t index = 0) const && = delete;
    var_ref member(std::string_view name) &noexcept { return var_ops::member(name); }
    var_cref member(std::string_view name) const &noexcept { return var_ops::member(name); }
    void member(std::string_view) const && = delete;
    var_ref operator[](std::string_view name) &noexcept { return var_ops::member(name); }
    var_cref operator[](std::string_view name) const &noexcept { return var_ops::member(name); }
    void operator[](std::string_view) const && = delete;
    var_ref element(std::int64_t index) &noexcept { return var_ops::element(index); }
    var_cref element(std::int64_t index) const &noexcept { return var_ops::element(index); }
    void element(std::int64_t) const && = delete;
    var_ref operator[](std::int64_t index) &noexcept { return var_ops::element(index); }
    var_cref operator[](std::int64_t index) const &noexcept { return var_ops::element(index); }
    void operator[](std::int64_t) const && = delete;
    template <class T>
        requires detail::is_char_v<T>
    void operator[](T) const = delete;
    std::optional<var_ref> find_member(std::string_view name) &noexcept { return var_ops::find_member(name); }
    std::optional<var_cref> find_member(std::string_view name) const &noexcept { return var_ops::find_member(name); }
    void find_member(std::string_view) const && = delete;
    var_ref at(std::string_view name) &noexcept { return var_ops::at(name); }
    var_cref at(std::string_view name) const &noexcept { return var_ops::at(name); }
    void at(std::string_view) const && = delete;
    var_ref at(std::int64_t index) &noexcept { return var_ops::at(index); }
    var_cref at(std::int64_t index) const &noexcept { return var_ops::at(index); }
    void at(std::int64_t) const && = delete;
    template <class T>
        requires detail::is_char_v<T>
    void at(T) const = delete;
    var_ref add_new() &noexcept { return var_ops::add_new(); }
    void add_new() && = delete;
    template <resolver R>
    var_ref add_new(R &&r) &noexcept {
        return var_ops::add_new(std::forward<R>(r));
    }
    template <resolver R>
    void add_new(R &&) && = delete;
    std::span<std::byte> buffer() &noexcept { return var_ops::buffer(); }
    void buffer() && = delete;
};

template <class D, class CRef>
inline var detail::var_read_ops<D, CRef>::clone() const noexcept {
    return var::adopt(var_traits::clone(c()));
}

/* Any full-variant handle. */
template <class T>
concept var_handle = std::same_as<T, var> || std::same_as<T, var_ref> || std::same_as<T, var_cref>;

namespace detail {

template <class D>
inline void var_ops<D>::add_var(var_cref src) noexcept {
    qel_var_add_var(m(), src.get());
}
template <class D>
inline void var_ops<D>::set_var(std::int64_t index, var_cref src) noexcept {
    qel_var_set_var(m(), index, src.get());
}
template <class D>
inline void var_ops<D>::get_var(std::int64_t index, var_ref dst) const noexcept {
    qel_var_get_var(this->c(), index, dst.get());
}
template <class D>
inline void var_ops<D>::copy_from(var_cref src) noexcept {
    qel_var_copy(m(), src.get());
}
template <class D>
inline void var_ops<D>::append(var_cref src) noexcept {
    qel_var_append(m(), src.get());
}
template <class D>
inline var_ref var_ops<D>::member(std::string_view name) noexcept {
    return var_ref(qel_var_get_val(m(), name.data(), static_cast<std::int64_t>(name.size())));
}
template <class D>
inline var_ref var_ops<D>::operator[](std::string_view name) noexcept {
    return member(name);
}
template <class D>
inline var_ref var_ops<D>::element(std::int64_t index) noexcept {
    return var_ref(qel_var_get_var_x(m(), index));
}
template <class D>
inline var_ref var_ops<D>::operator[](std::int64_t index) noexcept {
    return element(index);
}
template <class D>
inline index_range<element_getter<var_ref>> var_ops<D>::elements() noexcept {
    return {element_getter<var_ref>{m()}, storage_of(qel_var_type(m())) == storage::record ? qel_var_size(m()) : 0};
}
template <class D>
inline member_range<var_ref> var_ops<D>::members() noexcept {
    return member_range<var_ref>(m());
}
template <class D>
inline void var_ops<D>::set_member(std::string_view name, var_cref src) noexcept {
    qel_var_set_val(m(), name.data(), static_cast<std::int64_t>(name.size()), src.get());
}
template <class D>
inline var_ref var_ops<D>::add_new() noexcept {
    return var_ref(qel_var_add_new_x(m(), m(), &element_schema));
}
template <class D>
inline std::optional<var_ref> var_ops<D>::find_member(std::string_view name) noexcept {
    if (qel_var *p = qel_var_get_val(m(), name.data(), static_cast<std::int64_t>(name.size()))) return var_ref(p);
    return std::nullopt;
}
template <class D>
template <resolver R>
inline var_ref var_ops<D>::add_new(R &&r) noexcept {
    return var_ref(qel_var_add_new_x(m(), context_of(r), &resolver_trampoline<std::remove_reference_t<R>>));
}
template <class D>
inline var_ref var_ops<D>::at(std::string_view name) noexcept {
    return var_ref(checked_member(m(), name));
}
template <class D>
inline var_ref var_ops<D>::at(std::int64_t index) noexcept {
    return var_ref(checked_element(m(), index));
}
template <class D>
inline void var_ops<D>::add_copy(var_cref src) noexcept {
    qel_var_add_var_x(m(), src.get());
}
template <class D>
inline void var_ops<D>::set_element(std::int64_t index, var_cref src) noexcept {
    qel_var_set_var_x(m(), index, src.get());
}
template <class D>
inline void var_ops<D>::add_var(const var &src) noexcept {
    qel_var_add_var(m(), src.get());
}
template <class D>
inline void var_ops<D>::set_var(std::int64_t index, const var &src) noexcept {
    qel_var_set_var(m(), index, src.get());
}
template <class D>
inline void var_ops<D>::copy_from(const var &src) noexcept {
    qel_var_copy(m(), src.get());
}
template <class D>
inline void var_ops<D>::append(const var &src) noexcept {
    qel_var_append(m(), src.get());
}
template <class D>
inline void var_ops<D>::set_member(std::string_view name, const var &src) noexcept {
    qel_var_set_val(m(), name.data(), static_cast<std::int64_t>(name.size()), src.get());
}
template <class D>
inline void var_ops<D>::add_copy(const var &src) noexcept {
    qel_var_add_var_x(m(), src.get());
}
template <class D>
inline void var_ops<D>::set_element(std::int64_t index, const var &src) noexcept {
    qel_var_set_var_x(m(), index, src.get());
}

template <class T>
inline const qel_var *var_ptr(const T &v) noexcept {
    return v.get();
}

/* Requires a variant of code 5 or 6; true when its value, or any element,
 * is a NaN. */
inline bool holds_nan(const qel_var *p) noexcept {
    const std::int64_t n = p->multi != 0 ? qel_var_size(p) : 1;
    for (std::int64_t i = 0; i < n; ++i) {
        const double d = qel_var_get_double(p, i);
        if (d != d) return true;
    }
    return false;
}

} // namespace detail

/* A partial order of two variants, close to qel_var_cmp but one that
 * sorting can rely on: form first (the multi byte as a signed 8-bit
 * number), then the type code compared as unsigned (qel_var_cmp subtracts
 * codes in 32 bits, which orders codes 2^31 apart in a cycle), then the
 * library's value rule (integers unsigned, floats as numbers with -0.0
 * equivalent to +0.0, bytes lexicographically, arrays element by element
 * with a prefix first).  Float and double values holding a NaN anywhere are
 * unordered against every value of their code and form, as a NaN is among
 * numbers.  Two records of one code and form are equivalent whatever their
 * members: this is an order, not a deep equality.  Neither side may be null. */
template <var_handle A, var_handle B>
inline std::partial_ordering operator<=>(const A &a, const B &b) noexcept {
    const qel_var *x = detail::var_ptr(a);
    const qel_var *y = detail::var_ptr(b);
    if (x->multi != y->multi) return static_cast<std::int8_t>(x->multi) <=> static_cast<std::int8_t>(y->multi);
    if (x->type != y->type) return x->type <=> y->type;
    if ((x->type == QEL_VAR_FLOAT || x->type == QEL_VAR_DOUBLE) && (detail::holds_nan(x) || detail::holds_nan(y)))
        return std::partial_ordering::unordered;
    return qel_var_cmp(x, y) <=> 0;
}
/* Deep equality, qel_var_equal: code and form, values by stored bits (a NaN
 * equals itself, -0.0 differs from +0.0), members by name, elements; caller
 * values are not compared.  So == is finer than <=>, under which two records
 * of one code are equivalent whatever their members.  Neither side may be
 * null. */
template <var_handle A, var_handle B>
inline bool operator==(const A &a, const B &b) noexcept {
    return qel_var_equal(detail::var_ptr(a), detail::var_ptr(b)) != 0;
}

} // namespace qel

#endif /* QEL_VAR_HPP */
