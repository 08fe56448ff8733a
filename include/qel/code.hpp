/*
 * qel/code.hpp - type codes, forms and storage classes, named
 * One piece of the C++ interface; include <qel.hpp> rather than this file.
 * It needs only <qel.h>, so the library's own sources use it too.
 */
#ifndef QEL_CODE_HPP
#define QEL_CODE_HPP

#include <qel.h>

#include <cstdint>

namespace qel {

/* ------------------------------------------------------------------------
 * Type codes, forms and storage classes
 * ---------------------------------------------------------------------- */

/* Full variant type codes (C: qel_var_code).  Codes 1, 2, 3 and 9 behave
 * identically, and so do 7 and 8; records are code 0 and every code from 10
 * upward, which a resolver maps to a layout. */
enum class code : std::uint32_t {
    record0 = QEL_VAR_PLAIN_RECORD, /* record storage, no member shortcuts */
    u32 = QEL_VAR_UINT32,           /* 32-bit integer read back unsigned */
    i64 = QEL_VAR_INT64,            /* signed 64-bit integer */
    f32 = QEL_VAR_FLOAT,            /* single float */
    f64 = QEL_VAR_DOUBLE,           /* double */
    bytes = QEL_VAR_BYTES,          /* byte string */
    first_record = QEL_VAR_FIRST_RECORD,
};

/* Light variant and column set type codes (C: qel_xvar_code): another type,
 * so that a full variant's code handed to a light variant does not compile
 * (a double is 6 there and 4 here). */
enum class xcode : std::uint32_t {
    u32 = QEL_XVAR_UINT32,
    i64 = QEL_XVAR_INT64,
    f32 = QEL_XVAR_FLOAT,
    f64 = QEL_XVAR_DOUBLE,
    bytes = QEL_XVAR_BYTES,
};

/* A type code compares with the number type() gives. */
constexpr bool operator==(std::uint32_t a, code b) noexcept { return a == static_cast<std::uint32_t>(b); }
constexpr bool operator==(std::uint32_t a, xcode b) noexcept { return a == static_cast<std::uint32_t>(b); }

/* A type code argument of one family: its own enum's codes or a number
 * (record codes are the caller's); never the other family's enum, so that a
 * full variant's code handed to a light variant does not compile. */
template <class Code>
class code_arg {
public:
    constexpr code_arg(std::uint32_t v) noexcept : v_(v) {}
    constexpr code_arg(Code c) noexcept : v_(static_cast<std::uint32_t>(c)) {}
    constexpr operator std::uint32_t() const noexcept { return v_; }

private:
    std::uint32_t v_;
};
/* What the full variant's functions take. */
using var_type = code_arg<code>;
/* What the light variant and the column set take. */
using xvar_type = code_arg<xcode>;

/* The `multi` byte: 0 is the single form, any other byte the array form. */
namespace form {
inline constexpr std::uint8_t single = 0;
inline constexpr std::uint8_t multi = 1;
} // namespace form

/* Where a full variant of a given code keeps its value. */
enum class storage : std::uint8_t { bits32, bits64, bytes, record };

/* The storage class of a full variant type code, as the library decides it:
 * codes 2, 3 and 9 are stored as QEL_VAR_UINT32 is, and 8 as QEL_VAR_BYTES;
 * code 0 and every code from 10 upward are records. */
constexpr storage storage_of(var_type type) noexcept {
    constexpr storage by_code[QEL_VAR_FIRST_RECORD] = {
        storage::record, storage::bits32, storage::bits32, storage::bits32, storage::bits64,
        storage::bits32, storage::bits64, storage::bytes,  storage::bytes,  storage::bits32,
    };
    return type < QEL_VAR_FIRST_RECORD ? by_code[static_cast<std::uint32_t>(type)] : storage::record;
}
static_assert(storage_of(QEL_VAR_PLAIN_RECORD) == storage::record && storage_of(2u) == storage::bits32 &&
              storage_of(QEL_VAR_FLOAT) == storage::bits32 && storage_of(QEL_VAR_DOUBLE) == storage::bits64 &&
              storage_of(8u) == storage::bytes && storage_of(9u) == storage::bits32 &&
              storage_of(0xFFFFFFFFu) == storage::record);

} // namespace qel

#endif /* QEL_CODE_HPP */
