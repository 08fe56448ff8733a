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
 *   qel::stream  owns a qel_stream   (qel_stream_term)
 *
 * qel::json::write and qel::json::read give JSON text in and out
 * (<qel_json.h>); read requires every schema member and refuses null unless
 * told otherwise.
 *
 * Every owner is a qel::unique<T, traits> (the traits say how the family
 * frees, and where it can, copies) beneath its family's operations, and
 * each family passes a C++ value to its C call through one table by kind
 * (var_calls, xvar_calls, xvars_calls).
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
 * Nothing here throws, allocates beyond what the C calls allocate (but the
 * std::string of qel::json::write), or adds a symbol to the libraries; it
 * works with -fno-exceptions and -fno-rtti; at() of a missing member or
 * element stops the program with a message instead of throwing.  The
 * C interface's rules hold unchanged: a call on the wrong type code or form
 * does nothing and a read gives a neutral result; a view or string_view
 * handed out stays valid until its holder is next changed or freed; calling
 * anything but `.get()`, `operator bool` or assignment on an empty owner or
 * a null view is undefined, as is passing NULL to the C function.
 */
#ifndef QEL_HPP
#define QEL_HPP

#if __cplusplus < 202002L
#error "qel.hpp needs C++20 (e.g. -std=c++20, or link the CMake target qel::qel, which asks for it)"
#else
#include <qel/common.hpp>
#include <qel/schema.hpp>
#include <qel/var.hpp>
#include <qel/xvar.hpp>
#include <qel/stream.hpp>
#include <qel/json.hpp>
#endif

#endif /* QEL_HPP */
