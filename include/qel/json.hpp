/*
 * qel/json.hpp - JSON text of full variants (qel_json.h) in C++
 * One piece of the C++ interface; include <qel.hpp> rather than this file.
 */
#ifndef QEL_JSON_HPP
#define QEL_JSON_HPP

#include <qel_json.h>

#include <qel/stream.hpp>
#include <qel/var.hpp>
#include <string>

namespace qel::json {

/* Flags of qel_json_write and qel_json_read, to combine with |. */
inline constexpr unsigned indent = QEL_JSON_INDENT;
inline constexpr unsigned nonfinite_null = QEL_JSON_NONFINITE_NULL;
inline constexpr unsigned escape_bytes = QEL_JSON_ESCAPE_BYTES;
inline constexpr unsigned skip_unknown = QEL_JSON_SKIP_UNKNOWN;
inline constexpr unsigned require_members = QEL_JSON_REQUIRE_MEMBERS;
inline constexpr unsigned reject_null = QEL_JSON_REJECT_NULL;
/* What read uses unless told otherwise: a member the schema lists must be in
 * the text, and null is an error, so that a missing value cannot pass for
 * the one the variant held before. */
inline constexpr unsigned strict = QEL_JSON_REQUIRE_MEMBERS | QEL_JSON_REJECT_NULL;

/* The outcome of a read: true when it succeeded; else the error's code
 * (QEL_JSON_ERR_*), place and message. */
class result {
public:
    explicit operator bool() const noexcept { return e_.code == QEL_JSON_OK; }
    int code() const noexcept { return e_.code; }
    std::int64_t offset() const noexcept { return e_.offset; }
    std::int64_t line() const noexcept { return e_.line; }
    std::int64_t column() const noexcept { return e_.column; }
    /* "line L, column C: cause", and the cause alone (to print the place in
     * a form of your own); only of a named result. */
    std::string_view message() const &noexcept { return e_.message; }
    void message() const && = delete;
    std::string_view cause() const &noexcept { return qel_json_error_cause(&e_); }
    void cause() const && = delete;
    qel_json_error *get() noexcept { return &e_; }

private:
    qel_json_error e_{};
};

/* The outcome of a write: true when it succeeded, with the text; else the
 * code (QEL_JSON_ERR_NONFINITE or QEL_JSON_ERR_UTF8) and no text. */
struct text {
    std::string json;
    int code = QEL_JSON_OK;
    explicit operator bool() const noexcept { return code == QEL_JSON_OK; }
};

/* Appends v's JSON text to `out` (nothing on an error) and returns the code. */
inline int write(var_cref v, stream &out, unsigned flags = 0) noexcept {
    return qel_json_write(v.get(), out.get(), flags);
}
inline int write(const var &v, stream &out, unsigned flags = 0) noexcept {
    return qel_json_write(v.get(), out.get(), flags);
}
/* v's JSON text as a string, or the error. */
inline text write(var_cref v, unsigned flags = 0) {
    stream s;
    text t;
    t.code = write(v, s, flags);
    if (t.code == QEL_JSON_OK) t.json.assign(s.view());
    return t;
}
inline text write(const var &v, unsigned flags = 0) { return write(var_cref(v.get()), flags); }

/* Reads one JSON value into `dst`, whose code, form and schema say what the
 * text must hold (qel_json_read); members and elements it creates are built
 * through the resolver, any callable as for var::make.  On an error `dst`
 * is as before. */
template <resolver R>
result read(var_ref dst, std::string_view json, R &&r, unsigned flags = strict) noexcept {
    result out;
    qel_json_read(dst.get(), json.data(), static_cast<std::int64_t>(json.size()), detail::context_of(r),
                  &detail::resolver_trampoline<std::remove_reference_t<R>>, flags, out.get());
    return out;
}
/* The same with `s` as the schema of every record it creates. */
inline result read(var_ref dst, std::string_view json, const schema &s, unsigned flags = strict) noexcept {
    result out;
    qel_json_read(dst.get(), json.data(), static_cast<std::int64_t>(json.size()), s.get(), nullptr, flags, out.get());
    return out;
}
/* The same without a resolver: records it creates have no schema. */
inline result read(var_ref dst, std::string_view json, unsigned flags = strict) noexcept {
    result out;
    qel_json_read(dst.get(), json.data(), static_cast<std::int64_t>(json.size()), nullptr, nullptr, flags, out.get());
    return out;
}

} // namespace qel::json

#endif /* QEL_JSON_HPP */
