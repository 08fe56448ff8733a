/*
 * qel/schema.hpp - schema owner and view, and schema resolvers
 * One piece of the C++ interface; include <qel.hpp> rather than this file.
 */
#ifndef QEL_SCHEMA_HPP
#define QEL_SCHEMA_HPP

#include <qel/common.hpp>

namespace qel {

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

namespace detail {
struct schema_traits {
    static constexpr qel_schema *empty() noexcept { return nullptr; }
    static void free(qel_schema *p) noexcept { qel_var_schema_free(p); }
};
} // namespace detail

/* Owner of a schema.  It must outlive every variant built from it. */
class schema : public unique<qel_schema *, detail::schema_traits>, public detail::schema_read_ops<schema> {
public:
    /* A new, empty schema. */
    schema() noexcept : unique(qel_var_schema_new()) {}
    /* Takes ownership of a schema from qel_var_schema_new (or NULL). */
    [[nodiscard]] static schema adopt(qel_schema *owned) noexcept { return schema(owned, 0); }

    operator schema_view() const &noexcept { return schema_view(get()); }
    operator schema_view() const && = delete;
    /* Members, and their names, only of a named schema: a temporary's would
     * dangle. */
    schema_member at(std::int64_t i) const &noexcept { return schema_read_ops::at(i); }
    void at(std::int64_t) const && = delete;
    schema_member operator[](std::int64_t i) const &noexcept { return schema_read_ops::at(i); }
    void operator[](std::int64_t) const && = delete;
    std::optional<schema_member> find(std::string_view name) const &noexcept { return schema_read_ops::find(name); }
    void find(std::string_view) const && = delete;
    detail::index_range<detail::schema_getter> members() const &noexcept { return schema_read_ops::members(); }
    void members() const && = delete;
    detail::index_iterator<detail::schema_getter> begin() const &noexcept { return schema_read_ops::begin(); }
    void begin() const && = delete;
    detail::index_iterator<detail::schema_getter> end() const &noexcept { return schema_read_ops::end(); }
    void end() const && = delete;

    /* Appends a member; the type code keeps its low 16 bits.  Returns *this
     * so that members can be chained; on a temporary, the schema itself (by
     * value), so that `qel::schema s = qel::schema().add(...)` moves it and
     * `const auto &s = qel::schema().add(...)` keeps it alive: no variant is
     * built from a schema freed at the end of the statement. */
    schema &add(std::string_view name, var_type type, std::uint8_t multi = form::single) &noexcept {
        qel_var_schema_add(get(), name.data(), static_cast<std::int64_t>(name.size()), type, multi);
        return *this;
    }
    [[nodiscard]] schema add(std::string_view name, var_type type, std::uint8_t multi = form::single) &&noexcept {
        add(name, type, multi);
        return std::move(*this);
    }
    /* Changes member i's type and form (not its name); out of range: nothing. */
    void set_at(std::int64_t i, var_type type, std::uint8_t multi) noexcept {
        qel_var_schema_set_at(get(), i, type, multi);
    }

private:
    schema(qel_schema *p, int) noexcept : unique(p) {}
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

} // namespace qel

#endif /* QEL_SCHEMA_HPP */
